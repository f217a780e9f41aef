#include "run_loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace sim {
namespace {

using std::chrono::nanoseconds;

int Opened(int fd, const char* what) {
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return fd;
}

int OpenSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return Opened(signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
}

timespec TimeLeft(Clock::time_point deadline) {
    constexpr int64_t SECOND = 1'000'000'000;
    const int64_t left = std::max<int64_t>(nanoseconds(deadline - Clock::now()).count(), 0);
    return {left / SECOND, left % SECOND};
}

} // namespace

RunLoop::RunLoop() : m_signals(OpenSignals()), m_stop(eventfd(0, EFD_CLOEXEC)) {
    if (m_stop < 0) {
        const int error = errno;
        close(m_signals);
        throw std::system_error(error, std::generic_category(), "eventfd");
    }
}

RunLoop::~RunLoop() {
    close(m_stop);
    close(m_signals);
}

bool RunLoop::WaitUntil(Clock::time_point deadline) {
    pollfd ends[] = {{m_signals, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (true) {
        const timespec left = TimeLeft(deadline);
        const int ready = ppoll(ends, std::size(ends), deadline == Clock::time_point::max() ? nullptr : &left, nullptr);
        if (ready == 0) {
            return true;
        }
        if (ready > 0) {
            return false;
        }
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "ppoll");
        }
    }
}

void RunLoop::Stop() {
    eventfd_write(m_stop, 1);
}

Clock::time_point EndOfRun(Clock::time_point start, double seconds) {
    if (seconds == 0) {
        return Clock::time_point::max();
    }
    return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace sim
