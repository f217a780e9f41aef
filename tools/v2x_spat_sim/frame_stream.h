// Makes datagrams of light-status frames: damages frames, inserts garbage, splits or joins frames, and counts frames.
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
    unsigned split = 1;   // datagrams per frame, 1 to MAX_SPLIT; must be 1 if `batch` is above 1
    unsigned batch = 1;   // frames per datagram, 1 to MAX_BATCH
    double garbage = 0;   // share of the frames with garbage before the frame, 0 to 1
    DamageOptions damage; // kinds are values of FrameKind
};
inline constexpr unsigned MAX_SPLIT = 8;
inline constexpr unsigned MAX_BATCH = 8;

// Damages a good frame so that the frame is of `kind`. `random` selects one of many possible changes. Returns false
// without a change if the frame is not good, if `kind` is good, or if this damage is not possible (the frame has no
// escape, or all counts are 255).
//
// A receiver finds one of these errors in a damaged frame: a wrong CRC (also after a wrong length or a wrong escape),
// another type, or a count that is too high. A frame without a delimiter is still valid if a neighbour's delimiter
// replaces the missing delimiter.
bool DamageFrame(std::vector<uint8_t>& frame, FrameKind kind, uint32_t random);

// Frames that are sent together, and their datagrams.
struct Transmission {
    struct Frame {
        FrameKind kind;
        bool hasUnpairedDelimiters; // a delimiter is missing, or the frame has more than two
        bool hasGarbage;
    };
    std::vector<Frame> frames;
    std::vector<std::vector<uint8_t>> datagrams;
};

// Converts frames to transmissions. Together, the datagrams contain the frames and the garbage in order. One thread at
// a time.
class FrameStream {
public:
    FrameStream(const StreamOptions& options, uint32_t seed);

    // Adds one frame. Returns the transmission if it is complete.
    std::optional<Transmission> Add(std::vector<uint8_t> frame);
    // Returns the incomplete transmission, or an empty optional if there are no frames.
    std::optional<Transmission> TakeRest();

private:
    std::vector<uint8_t> MakeGarbage(uint32_t random);
    void CutDatagrams();

    StreamOptions m_options;
    DamageShare m_damage;
    DamageShare m_garbage; // selects the frames with garbage before the frame
    std::mt19937 m_random;
    Transmission m_transmission;
    std::vector<uint8_t> m_bytes; // the bytes of m_transmission
};

// Counts the sent frames, and the good frames that a receiver may lose.
class FrameCount {
public:
    // A time on a monotonic clock.
    using Time = std::chrono::nanoseconds;

    // The daemon discards an incomplete frame after 500 ms and then finds the delimiters again. 400 ms are reserve.
    static constexpr Time RECOVERY = std::chrono::milliseconds(900);

    void CountSent(const Transmission& transmission, Time now);
    // Call CountPartial if sending failed after the first datagram of a transmission.
    void CountPartial(Time now) { m_lastUnpaired = now; }

    const KindCount& Kinds() const { return m_kinds; }
    uint64_t WithGarbage() const { return m_withGarbage; }
    // Returns the number of good frames sent less than RECOVERY after a frame with unpaired delimiters. A receiver may
    // take a closing delimiter for an opening delimiter, and then finds no frame until it restarts its search.
    uint64_t CutGood() const { return m_cutGood; }

private:
    KindCount m_kinds{FRAME_KINDS};
    uint64_t m_withGarbage = 0;
    uint64_t m_cutGood = 0;
    std::optional<Time> m_lastUnpaired;
};

} // namespace sim
