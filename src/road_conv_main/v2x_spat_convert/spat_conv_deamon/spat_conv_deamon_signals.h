// Signals of the daemon. SIGINT, SIGQUIT and SIGTERM request a stop. SIGHUP is noted.
#pragma once

#include <csignal>
#include <cstdint>

// Installs sigHandler for SIGINT, SIGQUIT and SIGTERM, notes SIGHUP, and ignores SIGPIPE and SIGXFSZ. Main thread,
// before any other thread starts.
void v2xspatconv_signalsRegister(void);

// Prints the caught signal and the number of stop signals since the start, then requests a stop. Async-signal-safe.
void sigHandler(int sig, siginfo_t* info, void* ucontext);

// Returns the running flag: true until a stop request. Any thread.
bool v2xspatconv_IsRunning(void);

// Clears the running flag and ends v2xspatconv_SleepUnlessStopped. Any thread; async-signal-safe.
void v2xspatconv_RequestStop(void);

// Returns true if a SIGHUP has arrived since the last call. Any thread.
bool v2xspatconv_TakeHangup(void);

// Sleeps for `milliseconds` or until a signal or a stop request. After a stop request the function returns at
// once. Main thread.
void v2xspatconv_SleepUnlessStopped(int32_t milliseconds);
