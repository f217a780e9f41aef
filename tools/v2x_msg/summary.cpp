#include "summary.h"

#include <algorithm>
#include <cinttypes>
#include <ctime>

#include "common/text.h"

namespace msg {
namespace {

std::string FormatRow(const char* name, uint64_t frames, uint64_t bytes) {
    return tools::FormatText("%-26s  %10" PRIu64 "  %12" PRIu64 "\n", name, frames, bytes);
}

} // namespace

void Summary::Add(const Frame& frame) {
    Row& row = m_rows[static_cast<size_t>(&FindKind(*frame.decoded.message) - MESSAGE_KINDS.data())];
    ++row.frames;
    row.bytes += frame.size;
    m_newer += frame.decoded.notes.empty() ? 0 : 1;
    if (frame.packet != 0) {
        m_first = std::min(m_first, frame.time);
        m_last = std::max(m_last, frame.time);
    }
}

std::string Summary::Format(size_t bad) const {
    std::string text = tools::FormatText("%-26s  %10s  %12s\n", "type", "frames", "bytes");
    Row all;
    for (size_t i = 0; i < m_rows.size(); ++i) {
        const Row& row = m_rows[i];
        text += row.frames == 0 ? "" : FormatRow(MESSAGE_KINDS[i].name, row.frames, row.bytes);
        all.frames += row.frames;
        all.bytes += row.bytes;
    }
    text += FormatRow("all", all.frames, all.bytes);
    text += tools::FormatText("%-26s  %10zu\n", "bad frames", bad);
    if (m_newer != 0) {
        text += tools::FormatText("%-26s  %10" PRIu64 "\n", "with newer parts", m_newer);
    }
    if (m_first <= m_last) {
        text += "first packet  " + FormatTime(m_first) + "\nlast packet   " + FormatTime(m_last) + "\n";
    }
    return text;
}

std::string FormatTime(uint64_t microseconds) {
    constexpr uint64_t SECOND = 1'000'000;
    const auto seconds = static_cast<time_t>(microseconds / SECOND);
    tm utc{};
    gmtime_r(&seconds, &utc);
    return tools::FormatText("%04d-%02d-%02dT%02d:%02d:%02d.%06uZ", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                             utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<unsigned>(microseconds % SECOND));
}

} // namespace msg
