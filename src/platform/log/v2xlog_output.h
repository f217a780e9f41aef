// Where finished lines go: the file, standard error beside it, and standard error alone while the file cannot be
// written. Not thread-safe.
#pragma once

#include "v2xlog_file.h"

#include <cstdint>
#include <optional>
#include <string_view>

#include <spdlog/pattern_formatter.h>

class v2xlog_output {
public:
    using Clock = v2xlog_file::Clock;

    // A null path means no file. `name` is the tag of the lines that this class writes itself.
    v2xlog_output(const char* path, const char* name, bool useStderr);

    // Opens the file. False: that failed, as a line on standard error says.
    bool Open();

    // Writes one line; what cannot be written anywhere is counted and gone.
    void Write(const char* name, int32_t level, std::string_view text) noexcept;

private:
    // A time in which the file could not be written.
    struct Outage {
        Clock::time_point start;
        uint64_t elsewhere = 0;
        uint64_t lost = 0;
        bool reported = false;
    };

    void Append(const char* name, int32_t level, std::string_view text);
    bool ToFile(const char* name, int32_t level, std::string_view text);
    void AppendEndOfOutage(Clock::time_point now);
    void NoteOutage(Clock::time_point now);

    std::optional<v2xlog_file> m_file;
    std::optional<Outage> m_outage;
    char m_name[8]{};
    const bool m_useStderr;
    spdlog::pattern_formatter m_stamp;
    spdlog::memory_buf_t m_buffer;
};
