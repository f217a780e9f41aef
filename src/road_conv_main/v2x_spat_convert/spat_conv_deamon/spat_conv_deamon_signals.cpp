#include "spat_conv_deamon_signals.h"

#include <atomic>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "spat_conv_deamon_output.h"

namespace {

std::atomic<bool> g_appRunningFlag{true};
std::atomic<int> g_wakeFd{-1}; // an eventfd that a stop request makes readable
std::atomic<int32_t> g_caughtSignals{0};
std::atomic<bool> g_hangup{false}; // true: a SIGHUP has arrived

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "used in a signal handler");

constexpr struct {
    int sig;
    const char* text;
} STOP_SIGNALS[] = {{SIGINT, "Caught SIGINT"}, {SIGQUIT, "Caught SIGQUIT"}, {SIGTERM, "Caught SIGTERM"}};

} // namespace

void sigHandler(int sig, siginfo_t* /*info*/, void* /*ucontext*/) {
    const int savedErrno = errno;
    const char* text = "Caught default";
    int32_t count = 0;
    for (const auto& row : STOP_SIGNALS) {
        if (row.sig == sig) {
            text = row.text;
            count = 1;
        }
    }
    v2xspatconv_PutLineWithNumber(text, g_caughtSignals.fetch_add(count) + count);
    v2xspatconv_RequestStop();
    errno = savedErrno;
}

void v2xspatconv_signalsRegister(void) {
    g_wakeFd.store(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); // a write beyond the file size limit fails, but does not end the daemon
    struct sigaction action = {};
    action.sa_sigaction = sigHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;
    for (const auto& row : STOP_SIGNALS) {
        sigaction(row.sig, &action, nullptr);
    }
    action.sa_sigaction = [](int, siginfo_t*, void*) { g_hangup.store(true); };
    action.sa_flags |= SA_RESTART;
    sigaction(SIGHUP, &action, nullptr);
}

bool v2xspatconv_IsRunning(void) {
    return g_appRunningFlag.load();
}

void v2xspatconv_RequestStop(void) {
    g_appRunningFlag.store(false);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(g_wakeFd.load(), &one, sizeof one);
}

bool v2xspatconv_TakeHangup(void) {
    return g_hangup.exchange(false);
}

void v2xspatconv_SleepUnlessStopped(int32_t milliseconds) {
    // poll ignores a descriptor of -1; in this case only a signal ends the sleep early.
    pollfd wake = {g_wakeFd.load(), POLLIN, 0};
    poll(&wake, 1, milliseconds);
}
