// The log file: rotated by size, opened again with a back-off after a failure, opened again at once when another
// process moved or removed it. Not thread-safe.
#pragma once

#include <chrono>
#include <filesystem>
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

    // Opens the file when it is closed and the back-off of 2 s is over. Checks once a second that the path still names
    // the open file. Returns whether the file is open.
    bool Ready(Clock::time_point now);

    // Writes complete lines to the open file and flushes them. False: the write failed and the file is closed.
    bool Write(std::string_view lines, Clock::time_point now);

    const std::string& Path() const { return m_path; }
    // Why the last Ready or Write failed.
    const std::string& Reason() const { return m_reason; }

private:
    void Open(Clock::time_point now);
    void Close(Clock::time_point now, const char* reason);
    bool IsReplaced(Clock::time_point now);
    void CheckBeforeOpen() const;
    void NoteIdentity(std::FILE* file);

    const std::string m_path;
    const std::filesystem::path m_folder;
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> m_sink; // null while the file is closed
    Clock::time_point m_nextOpen{};
    Clock::time_point m_nextCheck{};
    dev_t m_device = 0;
    ino_t m_inode = 0;
    std::string m_reason;
};
