#include "session.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstring>
#include <random>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/files.h"
#include "text.h"

namespace sim {
namespace {

using std::chrono::nanoseconds;

int RequireOpen(int file, const char* what) {
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return file;
}

int OpenSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return RequireOpen(signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
}

timespec TimeLeft(Clock::time_point deadline) {
    constexpr int64_t SECOND = 1'000'000'000;
    const int64_t left = std::max<int64_t>(nanoseconds(deadline - Clock::now()).count(), 0);
    return {left / SECOND, left % SECOND};
}

} // namespace

Session::Session(std::string role, const RunOptions& options, std::string random)
    : m_role(std::move(role)), m_options(options), m_random(std::move(random)),
      m_seed(options.seed ? *options.seed : std::random_device{}()), m_signals(OpenSignals()),
      m_stop(RequireOpen(eventfd(0, EFD_CLOEXEC), "eventfd")) {}

Session::~Session() {
    close(m_stop);
    close(m_signals);
}

void Session::Write(FILE* file, const std::string& line) {
    const std::string whole = line + '\n';
    const std::lock_guard lock(m_mutex);
    if (file == stdout && m_error != 0) {
        return;
    }
    const bool isWritten = std::fwrite(whole.data(), 1, whole.size(), file) == whole.size() && std::fflush(file) == 0;
    if (!isWritten && file == stdout) {
        m_error = errno;
        Stop();
    }
}

void Session::Note(const std::string& line) {
    if (!m_options.quiet) {
        Write(m_options.json ? stderr : stdout, line);
    }
}

void Session::Print(const std::string& line) {
    if (!m_options.quiet) {
        Write(stdout, line);
    }
}

void Session::Stop() {
    eventfd_write(m_stop, 1);
}

void Session::Announce(const std::string& what) {
    Note(m_role + ": " + what);
    if (!m_random.empty()) {
        Write(m_options.json ? stderr : stdout,
              FormatText("%s: %s with --seed %" PRIu32, m_role.c_str(), m_random.c_str(), m_seed));
    }
}

bool Session::WaitUntil(Clock::time_point deadline) {
    pollfd ends[] = {{m_signals, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (true) {
        const timespec left = TimeLeft(deadline);
        const int ready = ppoll(ends, std::size(ends), deadline == Clock::time_point::max() ? nullptr : &left, nullptr);
        if (ready >= 0) {
            return ready == 0;
        }
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "ppoll");
        }
    }
}

void Session::Finish(Summary summary) {
    if (!m_random.empty()) {
        summary.Add("seed", m_seed);
    }
    const std::string json = summary.Json();
    Write(stdout, m_options.json ? json : m_role + ": " + summary.Text());
    if (!m_options.summaryFile.empty()) {
        tools::WriteFile(m_options.summaryFile, json + '\n');
    }
    if (m_error != 0 && m_error != EPIPE) {
        throw std::runtime_error(std::string("cannot write the output: ") + std::strerror(m_error));
    }
}

Clock::time_point DeadlineAfter(Clock::time_point start, double seconds) {
    if (seconds == 0) {
        return Clock::time_point::max();
    }
    return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace sim
