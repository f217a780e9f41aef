// Selects random damage to messages. The same seed gives the same damage. The code does not use the distributions of
// the standard library, because their results differ between implementations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <utility>
#include <vector>

namespace sim {

struct DamageOptions {
    double share = 0; // the share of the messages to damage, 0 to 1
    // The kinds of damage to choose from: values of the role's enumeration. Not empty if the share is above 0.
    std::vector<size_t> kinds;
};

// Decides for each message whether and how to damage the message.
class DamageShare {
public:
    DamageShare(DamageOptions options, uint32_t seed) : m_options(std::move(options)), m_random(seed) {}

    struct Hit {
        size_t kind;     // one of DamageOptions::kinds
        uint32_t random; // selects one of many possible changes
    };

    // Returns the damage to the next message, or an empty optional if the message must not change.
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

// Random numbers for one damage.
class Chance {
public:
    explicit Chance(uint32_t seed) : m_random(seed) {}

    // Returns a random number from 0 to end - 1.
    size_t Below(size_t end) { return m_random() % end; }
    // Returns a random byte.
    uint8_t Byte() { return static_cast<uint8_t>(Below(256)); }
    // Replaces the byte by a random other value.
    void Change(uint8_t& byte) { byte ^= static_cast<uint8_t>(1 + Below(255)); }

private:
    std::minstd_rand m_random;
};

} // namespace sim
