// Where lines go: the log file, or standard error while the file cannot be written. Never waits for a reader of
// standard error. Not thread-safe.
#pragma once

#include "v2xlog_file.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <spdlog/pattern_formatter.h>

struct v2xlog_line {
    const char* tag;
    int32_t level; // 1 to 7
    std::string_view text;
    uint64_t suppressed; // lines of the same place that were not written before this one
};

class v2xlog_output {
public:
    using Clock = v2xlog_file::Clock;

    // A null path means no file. `tag` marks the lines that this class writes itself.
    v2xlog_output(const char* path, const char* tag, bool useStderr);

    // Opens the file. False: it cannot be opened, and a line on standard error says why.
    bool Open(Clock::time_point now);

    // Writes one line. A line that neither the file nor standard error takes is counted as lost.
    void Write(const v2xlog_line& line, Clock::time_point now);

private:
    // A time in which the file cannot be written.
    struct Outage {
        Clock::time_point start;
        uint64_t onStderr = 0;
        uint64_t lost = 0;
        bool isReported = false;
    };

    void Append(const v2xlog_line& line);
    void AppendEndOfOutage(Clock::time_point now);
    bool WriteToFile(const v2xlog_line& line, Clock::time_point now);
    void NoteOutage(Clock::time_point now);

    std::optional<v2xlog_file> m_file;
    std::optional<Outage> m_outage;
    const std::string m_tag;
    const bool m_useStderr;
    spdlog::pattern_formatter m_time;
    spdlog::memory_buf_t m_buffer;
};
