#include "frame_stream.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "source.h"

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;

ptrdiff_t ToOffset(size_t at) {
    return static_cast<ptrdiff_t>(at);
}

// Each function below damages a good body (payload and CRC) or a good frame. The functions return false if this damage
// is not possible.

void UpdateCrc(Bytes& body) {
    body = AppendCrc({body.begin(), body.end() - ToOffset(CRC_SIZE)});
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
        const auto from = body.begin() + ToOffset(chance.Below(payload - off + 1));
        body.erase(from, from + ToOffset(off));
        return true;
    }
    Bytes more(off);
    std::ranges::generate(more, [&] { return chance.Byte(); });
    body.insert(body.begin() + ToOffset(chance.Below(payload + 1)), more.begin(), more.end());
    return true;
}

bool DamageType(Bytes& body, Chance& chance) {
    chance.Change(body[CONTROL_TYPE_AT + chance.Below(3)]);
    UpdateCrc(body);
    return true;
}

struct CountField {
    size_t at;
    size_t fewest; // the lowest count that is too high for the bytes after the field
};

// Returns the counts that can be made too high. A number of groups is too high only if the groups exceed the rest of
// the payload. With a lower number, a receiver reads the next link's bytes as groups and may find no error.
std::vector<CountField> FindCountFields(const Bytes& body) {
    const size_t end = body.size() - CRC_SIZE;
    const size_t links = body[LINK_COUNT_AT];
    std::vector<CountField> counts;
    size_t at = LINKS_AT;
    for (size_t link = 0; link < links; ++link) {
        const size_t countAt = at + LINK_HEAD_SIZE - 1;
        at += LINK_HEAD_SIZE;
        counts.push_back({countAt, (end - at) / GROUP_SIZE + 1});
        at += body[countAt] * GROUP_SIZE;
    }
    counts.push_back({LINK_COUNT_AT, links + (end - at) / LINK_HEAD_SIZE + 1});
    std::erase_if(counts, [](const CountField& count) { return count.fewest > 255; });
    return counts;
}

// Makes a count slightly too high: a receiver is most likely to overlook a small error.
bool DamageCount(Bytes& body, Chance& chance) {
    const std::vector<CountField> counts = FindCountFields(body);
    if (counts.empty()) {
        return false;
    }
    const CountField& count = counts[chance.Below(counts.size())];
    body[count.at] = static_cast<uint8_t>(count.fewest + chance.Below(std::min<size_t>(8, 256 - count.fewest)));
    UpdateCrc(body);
    return true;
}

// Removes a delimiter, or inserts a delimiter inside the body.
bool DamageDelimiter(Bytes& frame, Chance& chance) {
    switch (chance.Below(3)) {
    case 0:
        frame.erase(frame.begin());
        break;
    case 1:
        frame.pop_back();
        break;
    default:
        frame.insert(frame.begin() + ToOffset(2 + chance.Below(frame.size() - 3)), DELIMITER);
    }
    return true;
}

// Replaces an escaped byte. An unescaped DB alone is not damage: a receiver may read DB as a plain byte.
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
    bool isForBody;    // `apply` damages the body, not the frame
    bool mustBreakCrc; // DamageFrame repeats the damage if the CRC is still right (once in 65536 times)
};
constexpr Damage DAMAGES[] = {
    {nullptr, false, false}, // good
    {DamageCrc, true, true},     {DamageLength, true, true}, {DamageDelimiter, false, false},
    {DamageEscape, false, true}, {DamageType, true, false},  {DamageCount, true, false},
};
static_assert(std::size(DAMAGES) == std::size(FRAME_KINDS));

} // namespace

bool DamageFrame(Bytes& frame, FrameKind kind, uint32_t random) {
    const auto& [apply, isForBody, mustBreakCrc] = DAMAGES[static_cast<size_t>(kind)];
    if (apply == nullptr || ClassifyFrame(frame) != FrameKind::good) {
        return false;
    }
    const Bytes body = UnwrapFrame(frame)->body;
    Chance chance(random);
    while (true) {
        Bytes damaged = isForBody ? body : frame;
        if (!apply(damaged, chance)) {
            return false;
        }
        if (isForBody) {
            damaged = WrapFrame(damaged);
        }
        const auto opened = UnwrapFrame(damaged);
        if (!mustBreakCrc || !opened || !opened->isCrcRight) {
            frame = std::move(damaged);
            return true;
        }
    }
}

FrameStream::FrameStream(const StreamOptions& options, uint32_t seed)
    : m_options(options), m_damage(options.damage, seed), m_garbage({options.garbage, {0}}, seed + 1),
      m_random(seed + 2) {}

std::optional<Transmission> FrameStream::Add(Bytes frame) {
    const auto damage = m_damage.Next();
    const FrameKind wanted = damage ? static_cast<FrameKind>(damage->kind) : FrameKind::good;
    const bool isDamaged = damage && DamageFrame(frame, wanted, damage->random);
    const FrameKind kind = isDamaged ? wanted : ClassifyFrame(frame);
    const auto hit = m_garbage.Next();
    const Bytes garbage = hit ? MakeGarbage(hit->random) : Bytes{};
    std::optional<Transmission> full;
    if (m_bytes.size() + garbage.size() + frame.size() > MAX_DATAGRAM) {
        full = TakeRest();
    }
    m_bytes.insert(m_bytes.end(), garbage.begin(), garbage.end());
    m_bytes.insert(m_bytes.end(), frame.begin(), frame.end());
    const bool hasUnpairedDelimiters = kind == FrameKind::wrongDelimiter || std::ranges::count(frame, DELIMITER) != 2;
    m_transmission.frames.push_back({kind, hasUnpairedDelimiters, hit.has_value()});
    return m_transmission.frames.size() == m_options.batch ? TakeRest() : full;
}

std::optional<Transmission> FrameStream::TakeRest() {
    if (m_transmission.frames.empty()) {
        return std::nullopt;
    }
    CutDatagrams();
    m_bytes.clear();
    return std::exchange(m_transmission, {});
}

Bytes FrameStream::MakeGarbage(uint32_t random) {
    constexpr uint32_t MOST = 64;
    Bytes garbage(1 + random % MOST);
    std::ranges::generate(garbage, [this] {
        const auto byte = static_cast<uint8_t>(m_random() % 255);
        return byte < DELIMITER ? byte : static_cast<uint8_t>(byte + 1);
    });
    return garbage;
}

// Splits the bytes at random offsets, also within an escape. Each datagram has at least one byte.
void FrameStream::CutDatagrams() {
    size_t at = 0;
    for (size_t left = std::min<size_t>(m_options.split, m_bytes.size()); left > 0; --left) {
        const size_t rest = m_bytes.size() - at;
        const size_t size = left == 1 ? rest : 1 + m_random() % (rest - left + 1);
        const auto begin = m_bytes.begin() + static_cast<ptrdiff_t>(at);
        m_transmission.datagrams.emplace_back(begin, begin + static_cast<ptrdiff_t>(size));
        at += size;
    }
}

void FrameCount::CountSent(const Transmission& transmission, Time now) {
    for (const auto& [kind, hasUnpairedDelimiters, hasGarbage] : transmission.frames) {
        m_kinds.Add(kind);
        m_withGarbage += hasGarbage ? 1 : 0;
        if (kind == FrameKind::good && m_lastUnpaired && now - *m_lastUnpaired < RECOVERY) {
            ++m_cutGood;
        }
        if (hasUnpairedDelimiters) {
            m_lastUnpaired = now;
        }
    }
}

} // namespace sim
