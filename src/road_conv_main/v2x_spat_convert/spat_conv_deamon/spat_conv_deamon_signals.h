// Stop requests of the daemon: SIGINT, SIGQUIT and SIGTERM.
#pragma once

#include <csignal>
#include <cstdint>

// Ignores SIGPIPE and SIGXFSZ, and gives SIGINT, SIGQUIT and SIGTERM to sigHandler. Main thread, before any other
// thread starts.
void v2xspatconv_signalsRegister(void);

// Prints which signal was caught and how many so far, and clears the running flag. Async-signal-safe.
void sigHandler(int sig, siginfo_t* info, void* ucontext);

// The running flag: set from the start of the process until a stop request.
bool v2xspatconv_IsRunning(void);
void v2xspatconv_RequestStop(void);

// Sleeps for `milliseconds`, or until a stop request, including one that came before the call. Main thread.
void v2xspatconv_SleepUnlessStopped(int32_t milliseconds);
