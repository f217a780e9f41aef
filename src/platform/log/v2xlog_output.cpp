#include "v2xlog_output.h"

#include "v2x/v2xlog.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <poll.h>
#include <unistd.h>

#include <spdlog/fmt/fmt.h>

namespace {

constexpr char LETTERS[] = "?FEWIDVT"; // indexed by level
static_assert(sizeof(LETTERS) == V2XLOG_TRACE + 2);

// Writes one line with its newline to standard error and truncates it to PIPE_BUF (4096) bytes. Drops the line and
// returns false if the write would block or fails. POSIX: a writable pipe accepts PIPE_BUF bytes without blocking.
bool WriteToStderr(std::string_view line) {
    char truncated[PIPE_BUF];
    if (line.size() > sizeof(truncated)) {
        std::memcpy(truncated, line.data(), sizeof(truncated) - 1);
        truncated[sizeof(truncated) - 1] = '\n';
        line = {truncated, sizeof(truncated)};
    }
    pollfd error{STDERR_FILENO, POLLOUT, 0};
    const bool isReady = ::poll(&error, 1, 0) == 1 && (error.revents & (POLLOUT | POLLERR)) == POLLOUT;
    return isReady && ::write(STDERR_FILENO, line.data(), line.size()) > 0;
}

} // namespace

v2xlog_output::v2xlog_output(const char* path, const char* tag, bool useStderr)
    : m_tag(tag), m_useStderr(useStderr), m_time("%Y-%m-%d %H:%M:%S.%e ", spdlog::pattern_time_type::local, "") {
    if (path != nullptr) {
        m_file.emplace(path);
    }
}

bool v2xlog_output::Open(Clock::time_point now) {
    if (!m_file || m_file->EnsureOpen(now)) {
        return true;
    }
    ReportOutage(now);
    return false;
}

void v2xlog_output::Write(const v2xlog_line& line, Clock::time_point now) {
    const bool isInFile = m_file && WriteToFile(line, now);
    if (!m_useStderr && (isInFile || !m_file)) {
        return;
    }
    m_buffer.clear();
    Append(line);
    const bool isOnStderr = WriteToStderr({m_buffer.data(), m_buffer.size()});
    if (m_outage) {
        ++(isOnStderr ? m_outage->onStderr : m_outage->lost);
    }
}

void v2xlog_output::Append(const v2xlog_line& line) {
    m_time.format(spdlog::details::log_msg({}, spdlog::level::info, {}), m_buffer);
    m_buffer.push_back(LETTERS[line.level]);
    m_buffer.push_back(' ');
    m_buffer.append(std::string_view(line.tag));
    m_buffer.push_back(' ');
    m_buffer.append(line.text);
    if (line.suppressed > 0) {
        fmt::format_to(std::back_inserter(m_buffer), " [{} more]", line.suppressed);
    }
    m_buffer.push_back('\n');
}

void v2xlog_output::AppendEndOfOutage(Clock::time_point now) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - m_outage->start).count();
    const std::string text = fmt::format(
        "v2xlog: this file could not be written for {} s: {} lines were written to standard error, {} were lost",
        seconds, m_outage->onStderr, m_outage->lost);
    Append({m_tag.c_str(), V2XLOG_WARN, text, 0});
}

// Writes the line that ends an outage and the next line together. Otherwise a disk with only a few free bytes would end
// the outage repeatedly.
bool v2xlog_output::WriteToFile(const v2xlog_line& line, Clock::time_point now) {
    if (m_file->EnsureOpen(now)) {
        m_buffer.clear();
        if (m_outage) {
            AppendEndOfOutage(now);
        }
        Append(line);
        if (m_file->Write({m_buffer.data(), m_buffer.size()}, now)) {
            m_outage.reset();
            return true;
        }
    }
    ReportOutage(now);
    return false;
}

void v2xlog_output::ReportOutage(Clock::time_point now) {
    if (!m_outage) {
        m_outage = Outage{now};
    }
    if (!m_outage->isReported) {
        m_outage->isReported = WriteToStderr(
            fmt::format("v2xlog: cannot write {:.3500}: {}; logging to standard error until the file can be written\n",
                        m_file->Path(), m_file->Reason()));
    }
}
