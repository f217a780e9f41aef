// Process-wide settings of Fast DDS.
#pragma once

#include <csignal>

// Redirects the warnings and errors of Fast DDS to v2xlog, turns off its intraprocess delivery, and starts its log
// thread. The log thread inherits the caller's signal mask. Call this function before each participant is created.
void v2xdds_PrepareLibrary();

// Blocks SIGINT, SIGQUIT and SIGTERM in the constructing thread until the object is destroyed. A thread that this
// thread creates while the object exists inherits the signal mask and never receives these signals.
class v2xdds_signalBlocker {
public:
    v2xdds_signalBlocker();
    ~v2xdds_signalBlocker();
    v2xdds_signalBlocker(const v2xdds_signalBlocker&) = delete;
    v2xdds_signalBlocker& operator=(const v2xdds_signalBlocker&) = delete;

private:
    sigset_t m_previousMask;
};
