#include "signals.h"

#include <chrono>
#include <csignal>

namespace ctl {
namespace {

volatile std::sig_atomic_t g_wasSignalled = 0;

void OnSignal(int /*signal*/) {
    g_wasSignalled = 1;
}

} // namespace

void CatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal; // without SA_RESTART: a signal ends poll()
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool WasSignalled() {
    return g_wasSignalled != 0;
}

std::string FollowLines(Client& client, double seconds, const std::function<void(const std::string& line)>& visit) {
    using Clock = std::chrono::steady_clock;
    constexpr double NO_LIMIT = 1e9;
    constexpr int CHECK_INTERVAL = 100; // milliseconds; a signal before poll() takes effect within this time
    const auto length = std::chrono::duration<double>(seconds > 0 ? seconds : NO_LIMIT);
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
    try {
        while (!WasSignalled() && Clock::now() < end) {
            if (const auto line = client.ReadLine(CHECK_INTERVAL)) {
                visit(*line);
            }
        }
    } catch (const NoDaemon& reason) {
        return reason.what();
    }
    return "";
}

} // namespace ctl
