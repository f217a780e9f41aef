#include "light_damage.h"

#include <algorithm>
#include <array>

#include "damage.h"

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;

ptrdiff_t Offset(size_t at) {
    return static_cast<ptrdiff_t>(at);
}

// What follows takes a good body (payload and CRC) or frame, and returns false when there is no way.

void RenewCrc(Bytes& body) {
    body = WithCrc({body.begin(), body.end() - Offset(CRC_SIZE)});
}

bool DamageCrc(Bytes& body, Chance& chance) {
    const size_t change = 1 + chance.Below(0xFFFF);
    body[body.size() - 2] ^= static_cast<uint8_t>(change);
    body[body.size() - 1] ^= static_cast<uint8_t>(change >> 8);
    return true;
}

bool DamageLength(Bytes& body, Chance& chance) {
    const size_t off = 1 + chance.Below(8);
    const size_t payload = body.size() - CRC_SIZE;
    if (chance.Below(2) == 0) {
        const auto from = body.begin() + Offset(chance.Below(payload - off + 1));
        body.erase(from, from + Offset(off));
        return true;
    }
    Bytes more(off);
    std::ranges::generate(more, [&] { return chance.Byte(); });
    body.insert(body.begin() + Offset(chance.Below(payload + 1)), more.begin(), more.end());
    return true;
}

bool DamageType(Bytes& body, Chance& chance) {
    chance.Change(body[CONTROL_TYPE_AT + chance.Below(3)]);
    RenewCrc(body);
    return true;
}

struct Count {
    size_t at;
    size_t fewest; // that what follows cannot hold
};

// A number of groups is wrong only when all the rest is too short for it: one that is a little too high would take the
// next link for its own, and the walk could end within the payload.
std::vector<Count> RaisableCounts(const Bytes& body) {
    const size_t end = body.size() - CRC_SIZE;
    const size_t links = body[LINK_COUNT_AT];
    std::vector<Count> counts;
    size_t at = LINKS_AT;
    for (size_t link = 0; link < links; ++link) {
        const size_t countAt = at + LINK_HEAD_SIZE - 1;
        at += LINK_HEAD_SIZE;
        counts.push_back({countAt, (end - at) / GROUP_SIZE + 1});
        at += body[countAt] * GROUP_SIZE;
    }
    counts.push_back({LINK_COUNT_AT, links + (end - at) / LINK_HEAD_SIZE + 1});
    std::erase_if(counts, [](const Count& count) { return count.fewest > 255; });
    return counts;
}

// Near misses tell more of a receiver than counts far off.
bool DamageCount(Bytes& body, Chance& chance) {
    const std::vector<Count> counts = RaisableCounts(body);
    if (counts.empty()) {
        return false;
    }
    const Count& count = counts[chance.Below(counts.size())];
    body[count.at] = static_cast<uint8_t>(count.fewest + chance.Below(std::min<size_t>(8, 256 - count.fewest)));
    RenewCrc(body);
    return true;
}

// The stray one has a part of the body on either side.
bool DamageDelimiter(Bytes& frame, Chance& chance) {
    switch (chance.Below(3)) {
    case 0:
        frame.erase(frame.begin());
        break;
    case 1:
        frame.pop_back();
        break;
    default:
        frame.insert(frame.begin() + Offset(2 + chance.Below(frame.size() - 3)), DELIMITER);
    }
    return true;
}

// A DB that is not escaped is no damage of its own: a receiver may read it as what it is.
bool DamageEscape(Bytes& frame, Chance& chance) {
    const auto escapes = static_cast<size_t>(std::ranges::count(frame, ESCAPE));
    if (escapes == 0) {
        return false;
    }
    auto escape = std::ranges::find(frame, ESCAPE);
    for (size_t left = chance.Below(escapes); left > 0; --left) {
        escape = std::find(escape + 1, frame.end(), ESCAPE);
    }
    if (escape[1] == ESCAPED_DELIMITER && chance.Below(2) == 0) {
        *frame.erase(escape) = DELIMITER;
        return true;
    }
    do {
        escape[1] = chance.Byte();
    } while (escape[1] == ESCAPED_DELIMITER || escape[1] == ESCAPED_ESCAPE || escape[1] == DELIMITER);
    return true;
}

struct Damage {
    bool (*apply)(Bytes& bytes, Chance& chance);
    bool isToBody;     // else to the frame
    bool mustBreakCrc; // which one way in 65536 does not
};
constexpr std::array<Damage, FRAME_KINDS> DAMAGES = {{
    {nullptr, false, false},
    {DamageCrc, true, true},
    {DamageLength, true, true},
    {DamageDelimiter, false, false},
    {DamageEscape, false, true},
    {DamageType, true, false},
    {DamageCount, true, false},
}};

} // namespace

bool DamageFrame(Bytes& frame, FrameKind kind, uint32_t random) {
    const auto& [apply, isToBody, mustBreakCrc] = DAMAGES[static_cast<size_t>(kind)];
    if (apply == nullptr || ClassifyFrame(frame) != FrameKind::good) {
        return false;
    }
    const Bytes body = OpenFrame(frame)->body;
    Chance chance(random);
    while (true) {
        Bytes damaged = isToBody ? body : frame;
        if (!apply(damaged, chance)) {
            return false;
        }
        if (isToBody) {
            damaged = Enclose(damaged);
        }
        const auto opened = OpenFrame(damaged);
        if (!mustBreakCrc || !opened || !opened->isCrcRight) {
            frame = std::move(damaged);
            return true;
        }
    }
}

} // namespace sim
