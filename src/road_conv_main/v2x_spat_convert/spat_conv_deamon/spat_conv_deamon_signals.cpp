#include "spat_conv_deamon_signals.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

std::atomic<bool> g_appRunningFlag{true};
std::atomic<int> g_wakeFd{-1}; // becomes readable with a stop request
std::atomic<int32_t> g_caughtSignals{0};

static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "used in a signal handler");

constexpr struct {
    int sig;
    const char* name;
} STOP_SIGNALS[] = {{SIGINT, "SIGINT"}, {SIGQUIT, "SIGQUIT"}, {SIGTERM, "SIGTERM"}};

// A line for standard output, made without the C library's printing, which a signal handler must not call.
class SignalLine {
public:
    void add(const char* text) {
        while (*text != '\0' && m_length < sizeof m_text) {
            m_text[m_length++] = *text++;
        }
    }
    void add(int32_t number) {
        char digits[12];
        char* first = digits + sizeof digits;
        *--first = '\0';
        do {
            *--first = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number > 0);
        add(first);
    }
    // Nobody may read standard output: a full pipe must not hold up the stop.
    void write() const {
        pollfd out = {STDOUT_FILENO, POLLOUT, 0};
        if (poll(&out, 1, 0) == 1 && (out.revents & POLLOUT) != 0) {
            [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, m_text, m_length);
        }
    }

private:
    char m_text[64];
    size_t m_length = 0;
};

} // namespace

void sigHandler(int sig, siginfo_t* /*info*/, void* /*ucontext*/) {
    const int savedErrno = errno;
    const char* name = "default";
    for (const auto& row : STOP_SIGNALS) {
        if (row.sig == sig) {
            name = row.name;
            g_caughtSignals.fetch_add(1);
        }
    }
    SignalLine line;
    line.add("Caught ");
    line.add(name);
    line.add(" (");
    line.add(g_caughtSignals.load());
    line.add(")\n");
    line.write();
    v2xspatconv_RequestStop();
    errno = savedErrno;
}

void v2xspatconv_signalsRegister(void) {
    g_wakeFd.store(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN); // a log at the process's file size limit is an error to be reported
    struct sigaction action = {};
    action.sa_sigaction = sigHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO;
    for (const auto& row : STOP_SIGNALS) {
        sigaction(row.sig, &action, nullptr);
    }
}

bool v2xspatconv_IsRunning(void) {
    return g_appRunningFlag.load();
}

void v2xspatconv_RequestStop(void) {
    g_appRunningFlag.store(false);
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(g_wakeFd.load(), &one, sizeof one);
}

void v2xspatconv_SleepUnlessStopped(int32_t milliseconds) {
    // Without a descriptor (-1) poll passes the entry over, and the signal itself ends the sleep.
    pollfd wake = {g_wakeFd.load(), POLLIN, 0};
    poll(&wake, 1, milliseconds);
}
