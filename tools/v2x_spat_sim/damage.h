// Random damage to messages. The same seed gives the same damage.
//
// The standard's distributions differ between libraries, so that the numbers are drawn here by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace sim {

struct DamageOptions {
    double share = 0;          // of the messages that are damaged, 0 to 1
    std::vector<size_t> kinds; // to choose from, as numbers of the role's kinds; not empty when the share is above 0
};

// Decides for one message after another whether and how to damage it.
class DamageShare {
public:
    DamageShare(DamageOptions options, uint32_t seed) : m_options(std::move(options)), m_random(seed) {}

    struct Hit {
        size_t kind;     // one of the options' kinds
        uint32_t random; // chooses among the many ways to do this damage
    };

    // Empty when the next message stays as it is.
    std::optional<Hit> Next() {
        constexpr double RANGE = 4294967296.0;
        if (static_cast<double>(m_random()) / RANGE >= m_options.share) {
            return std::nullopt;
        }
        const size_t kind = m_options.kinds[m_random() % m_options.kinds.size()];
        return Hit{kind, static_cast<uint32_t>(m_random())};
    }

private:
    DamageOptions m_options;
    std::mt19937 m_random;
};

// Chooses among the ways to do one damage.
class Chance {
public:
    explicit Chance(uint32_t seed) : m_random(seed) {}

    // A number from 0 to end - 1.
    size_t Below(size_t end) { return m_random() % end; }
    uint8_t Byte() { return static_cast<uint8_t>(Below(256)); }
    // Changes the byte to another value.
    void Change(uint8_t& byte) { byte ^= static_cast<uint8_t>(1 + Below(255)); }

private:
    std::minstd_rand m_random;
};

} // namespace sim
