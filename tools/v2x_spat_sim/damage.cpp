#include "damage.h"

namespace sim {

DamageShare::DamageShare(double share, size_t kinds, uint32_t seed) : m_share(share), m_kinds(kinds), m_random(seed) {}

// By hand and not with the library's distributions: a seed means the same with every standard library.
std::optional<DamageShare::Hit> DamageShare::Next() {
    constexpr double RANGE = 4294967296.0;
    if (static_cast<double>(m_random()) / RANGE >= m_share) {
        return std::nullopt;
    }
    const size_t kind = m_random() % m_kinds;
    return Hit{kind, static_cast<uint32_t>(m_random())};
}

} // namespace sim
