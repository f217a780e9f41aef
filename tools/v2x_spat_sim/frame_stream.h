// Frames as a stream of bytes, cut into datagrams, and the count of what was sent.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "damage.h"
#include "light_frame.h"

namespace sim {

struct StreamOptions {
    unsigned split = 1; // datagrams for each frame; 1 when frames are batched
    unsigned batch = 1; // frames in each datagram
    double garbage = 0; // share of the frames before which bytes stand that belong to none, 0 to 1
};
inline constexpr unsigned MAX_SPLIT = 8;
inline constexpr unsigned MAX_BATCH = 8;

// What leaves at one time.
struct Load {
    struct Frame {
        FrameKind kind;
        bool movesDelimiters; // they no longer come in pairs
        bool hasGarbage;
    };
    std::vector<Frame> frames;
    std::vector<std::vector<uint8_t>> datagrams;
};

// The datagrams' bytes, in their order, are the frames, in theirs, and the garbage. Not for use by two threads at a
// time.
class FrameStream {
public:
    FrameStream(const StreamOptions& options, uint32_t seed);

    // One more frame; empty when it waits for others.
    std::optional<Load> Add(const std::vector<uint8_t>& frame, FrameKind kind);
    // Those that wait; empty when there are none.
    std::optional<Load> Rest();

private:
    std::vector<uint8_t> MakeGarbage(uint32_t random);
    void CutLoad();

    StreamOptions m_options;
    DamageShare m_garbage;
    std::mt19937 m_random;
    Load m_load;
    std::vector<uint8_t> m_bytes; // of the load
};

// How many frames of which kind went out, and for how many good ones a receiver cannot be held to account.
class FrameCount {
public:
    // Time on any clock that does not go back.
    using Time = std::chrono::nanoseconds;

    // A receiver that throws away every 500 ms what is not yet a whole frame finds the delimiters again by then; the
    // rest is for one that is late.
    static constexpr Time RECOVERY = std::chrono::milliseconds(900);

    void Sent(const Load& load, Time now);
    // Only a part of the load's datagrams went out.
    void Torn(Time now);

    uint64_t All() const { return m_all; }
    uint64_t Of(FrameKind kind) const { return m_byKind[static_cast<size_t>(kind)]; }
    uint64_t WithGarbage() const { return m_withGarbage; }
    // Good frames sent less than RECOVERY after delimiters moved: a receiver may take a closing one for an opening one,
    // and then finds nothing until it starts anew.
    uint64_t CutGood() const { return m_cutGood; }

private:
    std::array<uint64_t, FRAME_KINDS> m_byKind{};
    uint64_t m_all = 0;
    uint64_t m_withGarbage = 0;
    uint64_t m_cutGood = 0;
    std::optional<Time> m_moved;
};

} // namespace sim
