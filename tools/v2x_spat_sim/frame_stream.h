// Light-status frames as a stream of bytes: damaged, with garbage between them, cut into datagrams, and counted.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "damage.h"
#include "light_frame.h"

namespace sim {

struct StreamOptions {
    unsigned split = 1;   // datagrams for each frame; 1 when frames are batched
    unsigned batch = 1;   // frames in each datagram
    double garbage = 0;   // share of the frames that follow garbage, 0 to 1
    DamageOptions damage; // by FrameKind
};
inline constexpr unsigned MAX_SPLIT = 8;
inline constexpr unsigned MAX_BATCH = 8;

// Turns a good frame into one of `kind`; `random` chooses among the many ways to do so. Returns false, and leaves the
// frame alone, when it is not good, when `kind` is good, or when the frame cannot be damaged in this way (it holds no
// escape, or all its counts are 255).
//
// A receiver that cuts the stream at delimiters sees one of these: a wrong CRC (also after wrong length and wrong
// escape), another type, or counts that reach beyond the end. A frame that lacks a delimiter is still whole where a
// neighbour's delimiter replaces it.
bool DamageFrame(std::vector<uint8_t>& frame, FrameKind kind, uint32_t random);

// What is sent at one time.
struct Load {
    struct Frame {
        FrameKind kind;
        bool movesDelimiters; // the frame's delimiters are not a pair
        bool hasGarbage;
    };
    std::vector<Frame> frames;
    std::vector<std::vector<uint8_t>> datagrams;
};

// The bytes of all datagrams in order are the frames in order, with the garbage. One thread at a time.
class FrameStream {
public:
    FrameStream(const StreamOptions& options, uint32_t seed);

    // Adds one frame; returns a load once it is complete.
    std::optional<Load> Add(std::vector<uint8_t> frame);
    // The frames of an incomplete load; empty without any.
    std::optional<Load> Rest();

private:
    std::vector<uint8_t> MakeGarbage(uint32_t random);
    void CutLoad();

    StreamOptions m_options;
    DamageShare m_damage;
    DamageShare m_garbage; // of one kind
    std::mt19937 m_random;
    Load m_load;
    std::vector<uint8_t> m_bytes; // of the load
};

// Counts the frames that were sent, and the good ones that a receiver may lose.
class FrameCount {
public:
    // Time on any clock that does not go back.
    using Time = std::chrono::nanoseconds;

    // The daemon discards an incomplete frame after 500 ms and then finds the delimiters again; the rest is reserve.
    static constexpr Time RECOVERY = std::chrono::milliseconds(900);

    void Sent(const Load& load, Time now);
    // Only a part of the load's datagrams was sent.
    void Torn(Time now) { m_moved = now; }

    const KindCount& Kinds() const { return m_kinds; }
    uint64_t WithGarbage() const { return m_withGarbage; }
    // Good frames sent less than RECOVERY after delimiters moved. A receiver may take a closing delimiter for an
    // opening one and then finds no frame until it restarts its search.
    uint64_t CutGood() const { return m_cutGood; }

private:
    KindCount m_kinds{FRAME_KINDS};
    uint64_t m_withGarbage = 0;
    uint64_t m_cutGood = 0;
    std::optional<Time> m_moved;
};

} // namespace sim
