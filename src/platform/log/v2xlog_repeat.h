// Counts lines that come too often: of one key, `allowed` lines pass within a window that opens with the first of them,
// the rest is counted, and when the window is over the count is reported once. Knows no clock and no lock of its own.
#pragma once

#include "v2x/v2xlog.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

// One line on its way: tag (null: the default tag while that is not registered), level, text without its time stamp.
struct v2xlog_line {
    V2X_LOGHANDLE handle;
    int32_t level;
    std::string_view text;
};

class v2xlog_repeat {
public:
    using Clock = std::chrono::steady_clock;

    struct Rule {
        uint32_t allowed;       // lines of one key that pass in one window, 1 or more
        Clock::duration window; // from the first line of a key
        bool byLevel;           // lines of different levels have different keys
    };
    // Called with the key's text and tag, the level of the latest counted line, how many were counted, and the seconds
    // that they span. The text lives until the call returns.
    using Report = std::function<void(const v2xlog_line& line, uint64_t count, int64_t seconds)>;

    v2xlog_repeat(const Rule& rule, Report report);

    // True when the line is one too many: it is counted, `times` times, and not to be written.
    bool Count(const v2xlog_line& line, uint64_t times, Clock::time_point now);

    // Notes a line that is being written. When there is no room a key is forgotten, its count reported.
    void Pass(const v2xlog_line& line, Clock::time_point now);

    // When the next count is to be reported, time_point::max() while there is none.
    Clock::time_point Due() const { return m_due; }

    // Reports the counts whose windows are over at `now`; ReportAll those whose windows still run as well.
    void ReportDue(Clock::time_point now);
    void ReportAll(Clock::time_point now);

private:
    static constexpr size_t kEntries = 64;

    struct Entry {
        V2X_LOGHANDLE handle = nullptr;
        int32_t level = 0;
        uint32_t passed = 0;
        uint64_t counted = 0;
        Clock::time_point start{};
        size_t length = 0;
    };

    size_t Hash(const v2xlog_line& line) const;
    size_t Find(const v2xlog_line& line, size_t hash, Clock::time_point now) const;
    bool Over(size_t index, Clock::time_point now) const { return now - m_entries[index].start >= m_rule.window; }
    size_t Victim(Clock::time_point now) const;
    void Release(size_t index, Clock::time_point now);
    void UpdateDue();

    const Rule m_rule;
    const Report m_report;
    Clock::time_point m_due = Clock::time_point::max();
    std::array<size_t, kEntries> m_hashes{}; // 0: the entry is free
    std::array<Entry, kEntries> m_entries{};
    char m_texts[kEntries][V2XLOG_TEXT_SIZE]; // apart from the rest, so that unused ones take no memory
};
