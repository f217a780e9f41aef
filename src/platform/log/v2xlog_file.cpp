#include "v2xlog_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <spdlog/pattern_formatter.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr size_t kMaxBytes = size_t{10} * 1024 * 1024;
constexpr size_t kOldFiles = 5;
constexpr auto kBackOff = std::chrono::seconds(2);
constexpr auto kLookEvery = std::chrono::seconds(1);
constexpr int kOpenFlags = O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;

const char* ErrorText(int error) {
    const char* const text = strerrordesc_np(error);
    return text == nullptr ? "unknown error" : text;
}

class Refusal : public std::exception {
public:
    explicit Refusal(const char* reason) : m_reason(reason) {}
    const char* what() const noexcept override { return m_reason; }

private:
    const char* m_reason;
};

// The sink's failures come with errno; with none the exception's own text is the reason.
[[noreturn]] void Refuse(const char* reason) {
    errno = 0;
    throw Refusal(reason);
}

const char* CauseOf(const std::exception& failure) {
    return errno != 0 ? ErrorText(errno) : failure.what();
}

bool EndsInsideLine(int fd) {
    char last = '\n';
    const off_t size = ::lseek(fd, 0, SEEK_END);
    return size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n';
}

// Relative paths are bound to the folder at start, as a later rebuild may find another working directory.
std::string AbsolutePath(const char* path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? std::string(path) : absolute.string();
}

// EPERM: the folder bears the immutable flag, which root meets, too.
bool CanRename(const std::filesystem::path& folder) {
    return ::access(folder.c_str(), W_OK | X_OK) == 0 || (errno != EACCES && errno != EROFS && errno != EPERM);
}

} // namespace

v2xlog_file::v2xlog_file(const char* path) : m_path(AbsolutePath(path)) {}

bool v2xlog_file::Ready(Clock::time_point now) {
    if (m_sink != nullptr && TakenAway(now)) {
        m_sink.reset();
        m_nextOpen = now;
    }
    if (m_sink == nullptr && now >= m_nextOpen) {
        Open(now);
    }
    return m_sink != nullptr;
}

bool v2xlog_file::Write(std::string_view lines, Clock::time_point now) {
    errno = 0;
    try {
        m_sink->log(spdlog::details::log_msg({}, spdlog::level::info, {lines.data(), lines.size()}));
        m_sink->flush();
        m_torn = false;
        return true;
    } catch (const std::exception& failure) {
        Close(now, CauseOf(failure));
    }
    return false;
}

void v2xlog_file::Open(Clock::time_point now) {
    errno = 0;
    try {
        spdlog::file_event_handlers handlers;
        handlers.before_open = [this](const spdlog::filename_t&) { Prepare(); };
        handlers.after_open = [this](const spdlog::filename_t&, std::FILE* file) { NoteIdentity(file); };
        m_sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(m_path, kMaxBytes, kOldFiles, false, handlers);
        m_sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, ""));
        m_nextLook = now + kLookEvery;
    } catch (const std::exception& failure) {
        Close(now, CauseOf(failure));
    }
}

void v2xlog_file::Close(Clock::time_point now, const char* reason) {
    std::snprintf(m_reason, sizeof(m_reason), "%s", reason);
    m_sink.reset();
    m_nextOpen = now + kBackOff;
}

// Whether the path names another file than the open one, or none. The sink's own rotation passes NoteIdentity.
bool v2xlog_file::TakenAway(Clock::time_point now) {
    if (now < m_nextLook) {
        return false;
    }
    m_nextLook = now + kLookEvery;
    struct stat found {};
    if (!CanRename(std::filesystem::path(m_path).parent_path())) {
        return true;
    }
    if (::stat(m_path.c_str(), &found) != 0) {
        return errno == ENOENT || errno == ENOTDIR;
    }
    return found.st_dev != m_device || found.st_ino != m_inode;
}

// Runs before the sink opens the file, at the start and in a rotation: tells at once what the sink would find out after
// sleeping between several tries, and keeps it from files that are none (a device, a pipe). The path itself must not be
// a symbolic link, because rotation would rename the link.
void v2xlog_file::Prepare() {
    const std::filesystem::path folder = std::filesystem::path(m_path).parent_path();
    std::error_code error;
    if (!folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    struct stat found {};
    if (!error && ::lstat(m_path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) {
        Refuse("not a regular file");
    }
    // The sink would wipe the file when it cannot rename it.
    if (!error && !CanRename(folder)) {
        Refuse("the folder cannot be written, the file could not be rotated");
    }
    const int file = error ? -1 : ::open(m_path.c_str(), kOpenFlags, 0644);
    if (file < 0) {
        Refuse(ErrorText(error ? error.value() : errno));
    }
    m_torn = EndsInsideLine(file);
    ::close(file);
}

void v2xlog_file::NoteIdentity(std::FILE* file) {
    const int fd = ::fileno(file);
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    struct stat found {};
    if (::fstat(fd, &found) == 0) {
        m_device = found.st_dev;
        m_inode = found.st_ino;
    }
}
