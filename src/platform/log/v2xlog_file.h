// The log file: rotated by size, rebuilt with a back-off after any failure and when another process took it away.
// Not thread-safe; nothing is thrown except by the constructor (memory).
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

#include <spdlog/sinks/rotating_file_sink.h>

class v2xlog_file {
public:
    using Clock = std::chrono::steady_clock;

    explicit v2xlog_file(const char* path);
    v2xlog_file(const v2xlog_file&) = delete;
    v2xlog_file& operator=(const v2xlog_file&) = delete;

    // Whether the file is open; opens it first when that is due (2 s after a failure, at once when it was taken away).
    bool Ready(Clock::time_point now);

    // Writes finished lines and flushes them. False: the file could not be written and is closed.
    bool Write(std::string_view lines, Clock::time_point now);

    // Whether the file found when opening ends in the middle of a line.
    bool Torn() const { return m_torn; }

    const std::string& Path() const { return m_path; }
    // Why the last Ready or Write failed; always a text.
    const char* Reason() const { return m_reason; }

private:
    void Open(Clock::time_point now);
    void Close(Clock::time_point now, const char* reason);
    bool TakenAway(Clock::time_point now);
    void Prepare();
    void NoteIdentity(std::FILE* file);

    std::string m_path;
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> m_sink;
    Clock::time_point m_nextOpen{};
    Clock::time_point m_nextLook{};
    dev_t m_device = 0;
    ino_t m_inode = 0;
    bool m_torn = false;
    char m_reason[256] = "not opened";
};
