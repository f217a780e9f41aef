// The log file, which is rotated by size. After a failure the file is opened again after a back-off. If another process
// moves or removes the file, the file is opened again within a second. Not thread-safe.
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

    // Opens the file if it is closed and the back-off of 2 s has ended. Once a second, checks that the path names the
    // open file, and otherwise opens the file again. Returns true if the file is open.
    bool EnsureOpen(Clock::time_point now);

    // Writes complete lines to the open file and flushes the file. If the write fails, closes the file and returns
    // false.
    bool Write(std::string_view lines, Clock::time_point now);

    const std::string& Path() const { return m_path; }
    // The reason why EnsureOpen or Write failed last.
    const std::string& Reason() const { return m_reason; }

private:
    void Open(Clock::time_point now);
    void Close(Clock::time_point now, const char* reason);
    bool MustReopen(Clock::time_point now);
    void CheckBeforeOpen() const;
    void StoreIdentity(std::FILE* file);

    const std::string m_path;
    const std::filesystem::path m_folder;
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> m_sink; // null while the file is closed
    Clock::time_point m_nextOpen{};
    Clock::time_point m_nextCheck{};
    dev_t m_device = 0; // device of the open file
    ino_t m_inode = 0;  // inode of the open file
    std::string m_reason;
};
