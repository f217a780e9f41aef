#include "frame_stream.h"

#include <algorithm>
#include <utility>

#include "replay.h"

namespace sim {

FrameStream::FrameStream(const StreamOptions& options, uint32_t seed)
    : m_options(options), m_garbage(options.garbage, 1, seed + 1), m_random(seed + 2) {}

std::optional<Load> FrameStream::Add(const std::vector<uint8_t>& frame, FrameKind kind) {
    const auto hit = m_garbage.Next();
    const std::vector<uint8_t> garbage = hit ? MakeGarbage(hit->random) : std::vector<uint8_t>{};
    std::optional<Load> full;
    if (m_bytes.size() + garbage.size() + frame.size() > MAX_DATAGRAM) {
        full = Rest();
    }
    m_bytes.insert(m_bytes.end(), garbage.begin(), garbage.end());
    m_bytes.insert(m_bytes.end(), frame.begin(), frame.end());
    const bool movesDelimiters = kind == FrameKind::wrongDelimiter || std::ranges::count(frame, DELIMITER) != 2;
    m_load.frames.push_back({kind, movesDelimiters, hit.has_value()});
    return m_load.frames.size() == m_options.batch ? Rest() : full;
}

std::optional<Load> FrameStream::Rest() {
    if (m_load.frames.empty()) {
        return std::nullopt;
    }
    CutLoad();
    m_bytes.clear();
    return std::exchange(m_load, {});
}

std::vector<uint8_t> FrameStream::MakeGarbage(uint32_t random) {
    constexpr uint32_t MOST = 64;
    std::vector<uint8_t> garbage(1 + random % MOST);
    std::ranges::generate(garbage, [this] {
        const auto byte = static_cast<uint8_t>(m_random() % 255);
        return byte < DELIMITER ? byte : static_cast<uint8_t>(byte + 1);
    });
    return garbage;
}

// Anywhere, within an escape too, but leaving at least one byte for each datagram.
void FrameStream::CutLoad() {
    size_t at = 0;
    for (size_t left = std::min<size_t>(m_options.split, m_bytes.size()); left > 0; --left) {
        const size_t rest = m_bytes.size() - at;
        const size_t size = left == 1 ? rest : 1 + m_random() % (rest - left + 1);
        const auto begin = m_bytes.begin() + static_cast<ptrdiff_t>(at);
        m_load.datagrams.emplace_back(begin, begin + static_cast<ptrdiff_t>(size));
        at += size;
    }
}

void FrameCount::Sent(const Load& load, Time now) {
    for (const auto& [kind, movesDelimiters, hasGarbage] : load.frames) {
        ++m_all;
        ++m_byKind[static_cast<size_t>(kind)];
        m_withGarbage += hasGarbage ? 1 : 0;
        if (kind == FrameKind::good && m_moved && now - *m_moved < RECOVERY) {
            ++m_cutGood;
        }
        if (movesDelimiters) {
            m_moved = now;
        }
    }
}

void FrameCount::Torn(Time now) {
    m_moved = now;
}

} // namespace sim
