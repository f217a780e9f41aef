#include "signals.h"

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

} // namespace ctl
