#include "v2xlog_repeat.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {
constexpr size_t kNone = SIZE_MAX;
}

v2xlog_repeat::v2xlog_repeat(const Rule& rule, Report report) : m_rule(rule), m_report(std::move(report)) {}

bool v2xlog_repeat::Count(const v2xlog_line& line, uint64_t times, Clock::time_point now) {
    const size_t index = Find(line, Hash(line), now);
    if (index == kNone || m_entries[index].passed < m_rule.allowed) {
        return false;
    }
    Entry& entry = m_entries[index];
    entry.level = line.level;
    if (entry.counted == 0) {
        m_due = std::min(m_due, entry.start + m_rule.window);
    }
    entry.counted += times;
    return true;
}

void v2xlog_repeat::Pass(const v2xlog_line& line, Clock::time_point now) {
    const size_t hash = Hash(line);
    const size_t known = Find(line, hash, now);
    if (known != kNone) {
        ++m_entries[known].passed;
        return;
    }
    const size_t index = Victim(now);
    Release(index, now);
    const size_t length = std::min(line.text.size(), sizeof(m_texts[index]));
    std::memcpy(m_texts[index], line.text.data(), length);
    m_hashes[index] = hash;
    m_entries[index] = Entry{line.handle, line.level, 1, 0, now, length};
}

void v2xlog_repeat::ReportDue(Clock::time_point now) {
    if (now < m_due) {
        return;
    }
    for (size_t i = 0; i < kEntries; ++i) {
        if (m_entries[i].counted > 0 && Over(i, now)) {
            Release(i, now);
        }
    }
}

void v2xlog_repeat::ReportAll(Clock::time_point now) {
    for (size_t i = 0; i < kEntries; ++i) {
        Release(i, now);
    }
}

size_t v2xlog_repeat::Hash(const v2xlog_line& line) const {
    const size_t level = m_rule.byLevel ? static_cast<size_t>(line.level) : 0;
    const size_t hash =
        std::hash<std::string_view>{}(line.text) ^ std::hash<const void*>{}(line.handle) ^ (level << 60);
    return hash == 0 ? 1 : hash;
}

// The entry of the line's key while its window runs.
size_t v2xlog_repeat::Find(const v2xlog_line& line, size_t hash, Clock::time_point now) const {
    for (size_t i = 0; i < kEntries; ++i) {
        const Entry& entry = m_entries[i];
        if (m_hashes[i] == hash && entry.handle == line.handle && (!m_rule.byLevel || entry.level == line.level) &&
            std::string_view(m_texts[i], entry.length) == line.text && !Over(i, now)) {
            return i;
        }
    }
    return kNone;
}

// The entry to give up for a new key: the first that is free or over, so that few keys touch little memory, else the
// one least used, so that many lines that come once do not push out the few that come in floods; the oldest of equals.
size_t v2xlog_repeat::Victim(Clock::time_point now) const {
    const auto rank = [this, now](size_t index) {
        const Entry& entry = m_entries[index];
        const bool idle = m_hashes[index] == 0 || Over(index, now);
        return idle ? std::pair(uint64_t{0}, Clock::time_point::min())
                    : std::pair(entry.passed + entry.counted, entry.start);
    };
    size_t victim = 0;
    for (size_t i = 1; i < kEntries; ++i) {
        if (rank(i) < rank(victim)) {
            victim = i;
        }
    }
    return victim;
}

void v2xlog_repeat::Release(size_t index, Clock::time_point now) {
    const Entry entry = std::exchange(m_entries[index], Entry{});
    m_hashes[index] = 0;
    if (entry.counted == 0) {
        return;
    }
    UpdateDue();
    const auto span = std::min(now - entry.start, m_rule.window);
    m_report({entry.handle, entry.level, {m_texts[index], entry.length}}, entry.counted,
             std::chrono::ceil<std::chrono::seconds>(span).count());
}

void v2xlog_repeat::UpdateDue() {
    m_due = Clock::time_point::max();
    for (const Entry& entry : m_entries) {
        if (entry.counted > 0) {
            m_due = std::min(m_due, entry.start + m_rule.window);
        }
    }
}
