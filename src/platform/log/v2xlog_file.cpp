#include "v2xlog_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <spdlog/pattern_formatter.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr size_t MAX_BYTES = size_t{10} * 1024 * 1024;
constexpr size_t OLD_FILES = 5;
constexpr auto BACK_OFF = std::chrono::seconds(2);
constexpr auto CHECK_PERIOD = std::chrono::seconds(1);
constexpr int OPEN_FLAGS = O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;

std::filesystem::path FolderOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

// Returns false if the folder is not writable, because rotation then cannot rename the files. access() fails with EPERM
// if the folder has the immutable flag.
bool CanRename(const std::filesystem::path& folder) {
    return ::access(folder.c_str(), W_OK | X_OK) == 0 || (errno != EACCES && errno != EROFS && errno != EPERM);
}

} // namespace

v2xlog_file::v2xlog_file(const char* path) : m_path(path), m_folder(FolderOf(m_path)) {}

bool v2xlog_file::EnsureOpen(Clock::time_point now) {
    if (m_sink != nullptr && MustReopen(now)) {
        m_sink.reset();
        m_nextOpen = now;
    }
    if (m_sink == nullptr && now >= m_nextOpen) {
        Open(now);
    }
    return m_sink != nullptr;
}

bool v2xlog_file::Write(std::string_view lines, Clock::time_point now) {
    try {
        m_sink->log(spdlog::details::log_msg({}, {}, {}, spdlog::level::info, {lines.data(), lines.size()}));
        m_sink->flush();
        return true;
    } catch (const spdlog::spdlog_ex& failure) {
        Close(now, failure.what());
        return false;
    }
}

void v2xlog_file::Open(Clock::time_point now) {
    try {
        spdlog::file_event_handlers handlers;
        handlers.before_open = [this](const spdlog::filename_t&) { CheckBeforeOpen(); };
        handlers.after_open = [this](const spdlog::filename_t&, std::FILE* file) { StoreIdentity(file); };
        m_sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(m_path, MAX_BYTES, OLD_FILES, false, handlers);
        m_sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, ""));
        m_nextCheck = now + CHECK_PERIOD;
    } catch (const spdlog::spdlog_ex& failure) {
        Close(now, failure.what());
    }
}

void v2xlog_file::Close(Clock::time_point now, const char* reason) {
    m_reason = reason;
    m_sink.reset();
    m_nextOpen = now + BACK_OFF;
}

// Returns true if the path names no file or another file than the open file, or if the folder is not writable. Checks
// once a second. A rotation does not require a reopen, because the sink then calls StoreIdentity for the new file.
bool v2xlog_file::MustReopen(Clock::time_point now) {
    if (now < m_nextCheck) {
        return false;
    }
    m_nextCheck = now + CHECK_PERIOD;
    struct stat found {};
    if (!CanRename(m_folder)) {
        return true;
    }
    if (::stat(m_path.c_str(), &found) != 0) {
        return errno == ENOENT || errno == ENOTDIR;
    }
    return found.st_dev != m_device || found.st_ino != m_inode;
}

// The sink calls this function before it opens the file, also in a rotation. Throws spdlog_ex if the sink would fail
// after five tries with pauses, would block (a pipe), or would lose data: the sink truncates a file that it cannot
// rename, and it renames a symbolic link instead of the file.
void v2xlog_file::CheckBeforeOpen() const {
    std::error_code error;
    std::filesystem::create_directories(m_folder, error);
    if (error) {
        spdlog::throw_spdlog_ex(error.message());
    }
    struct stat found {};
    if (::lstat(m_path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) {
        spdlog::throw_spdlog_ex("not a regular file");
    }
    if (!CanRename(m_folder)) {
        spdlog::throw_spdlog_ex("the folder is not writable, so the file cannot be rotated");
    }
    const int file = ::open(m_path.c_str(), OPEN_FLAGS, 0644);
    if (file < 0) {
        spdlog::throw_spdlog_ex(std::strerror(errno));
    }
    ::close(file);
}

void v2xlog_file::StoreIdentity(std::FILE* file) {
    struct stat found {};
    if (::fstat(::fileno(file), &found) == 0) {
        m_device = found.st_dev;
        m_inode = found.st_ino;
    }
}
