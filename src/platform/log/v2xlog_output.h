// Writes lines to the log file, and to standard error while the file cannot be written. Drops a line that would block
// on standard error. Not thread-safe.
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
    uint64_t suppressed; // lines that the log statement suppressed before this line
};

class v2xlog_output {
public:
    using Clock = v2xlog_file::Clock;

    // If `path` is null, no file is written. `tag` is the tag of the lines about outages.
    v2xlog_output(const char* path, const char* tag, bool useStderr);

    // Opens the file. If the file cannot be opened, writes the reason to standard error and returns false.
    bool Open(Clock::time_point now);

    // Writes one line. Counts the line as lost if neither the file nor standard error accepts the line.
    void Write(const v2xlog_line& line, Clock::time_point now);

private:
    // A period during which the file cannot be written.
    struct Outage {
        Clock::time_point start;
        uint64_t onStderr = 0;   // lines written to standard error
        uint64_t lost = 0;       // lines written nowhere
        bool isReported = false; // true after the report was written to standard error
    };

    void Append(const v2xlog_line& line);
    void AppendEndOfOutage(Clock::time_point now);
    bool WriteToFile(const v2xlog_line& line, Clock::time_point now);
    void ReportOutage(Clock::time_point now);

    std::optional<v2xlog_file> m_file;
    std::optional<Outage> m_outage;
    const std::string m_tag;
    const bool m_useStderr;
    spdlog::pattern_formatter m_time;
    spdlog::memory_buf_t m_buffer;
};
