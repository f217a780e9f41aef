// Fast DDS as a whole, as this process uses it: its settings and its own log.
#pragma once

#include <csignal>

// Routes the library's log to this unit's at warning and above, lets topics within one process travel as between two,
// and starts the library's log thread, which has the caller's signal mask. Call before each participant.
void v2xdds_PrepareLibrary();

// Blocks SIGINT, SIGQUIT and SIGTERM in the calling thread while it lives: threads started meanwhile leave them to the
// main thread.
class v2xdds_signalsBlocked {
public:
    v2xdds_signalsBlocked();
    ~v2xdds_signalsBlocked();
    v2xdds_signalsBlocked(const v2xdds_signalsBlocked&) = delete;
    v2xdds_signalsBlocked& operator=(const v2xdds_signalsBlocked&) = delete;

private:
    sigset_t m_before;
};
