// Which datagrams are to be damaged, and how: a given share of them, at random, repeatable by the seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>

namespace sim {

class DamageShare {
public:
    // `share` of all, 0 to 1, spread evenly over `kinds` kinds of damage (at least 1).
    DamageShare(double share, size_t kinds, uint32_t seed);

    struct Hit {
        size_t kind; // 0 to kinds - 1
        uint32_t random;
    };

    // The verdict on the next datagram; empty: leave it as it is.
    std::optional<Hit> Next();

private:
    double m_share;
    size_t m_kinds;
    std::mt19937 m_random;
};

// The many ways to do one damage. By hand and not with the library's distributions: a seed means the same with every
// standard library.
class Chance {
public:
    explicit Chance(uint32_t seed) : m_random(seed) {}
    // 0 to end - 1
    size_t Below(size_t end) { return m_random() % end; }
    uint8_t Byte() { return static_cast<uint8_t>(Below(256)); }
    // The byte becomes another one.
    void Change(uint8_t& byte) { byte ^= static_cast<uint8_t>(1 + Below(255)); }

private:
    std::minstd_rand m_random;
};

} // namespace sim
