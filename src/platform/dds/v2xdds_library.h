// Process-wide settings of Fast DDS.
#pragma once

#include <csignal>

// Redirects the warnings and errors of Fast DDS to v2xlog, turns off intraprocess delivery, and starts the log thread
// of Fast DDS. The log thread inherits the caller's signal mask. Call this function before each participant is created.
void v2xdds_PrepareLibrary();

// Blocks SIGINT, SIGQUIT and SIGTERM in the calling thread while the object exists. Threads that the calling thread
// creates during this time inherit the signal mask and never receive these signals.
class v2xdds_signalBlocker {
public:
    v2xdds_signalBlocker();
    ~v2xdds_signalBlocker();
    v2xdds_signalBlocker(const v2xdds_signalBlocker&) = delete;
    v2xdds_signalBlocker& operator=(const v2xdds_signalBlocker&) = delete;

private:
    sigset_t m_previousMask;
};
