// Settings of Fast DDS that hold for the whole process.
#pragma once

#include <csignal>

// Routes the warnings and errors of Fast DDS to this unit's log, turns its delivery within a process off, and starts
// its log thread, which inherits the caller's signal mask. Call before each participant is created.
void v2xdds_PrepareLibrary();

// Blocks SIGINT, SIGQUIT and SIGTERM in the calling thread during its lifetime. Threads that start meanwhile inherit
// the mask, so the main thread receives these signals.
class v2xdds_signalsBlocked {
public:
    v2xdds_signalsBlocked();
    ~v2xdds_signalsBlocked();
    v2xdds_signalsBlocked(const v2xdds_signalsBlocked&) = delete;
    v2xdds_signalsBlocked& operator=(const v2xdds_signalsBlocked&) = delete;

private:
    sigset_t m_before;
};
