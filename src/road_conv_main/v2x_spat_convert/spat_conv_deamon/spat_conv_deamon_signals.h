// Stop requests of the daemon. SIGINT, SIGQUIT and SIGTERM request a stop.
#pragma once

#include <csignal>
#include <cstdint>

// Installs sigHandler for SIGINT, SIGQUIT and SIGTERM, and ignores SIGPIPE and SIGXFSZ. Main thread, before any other
// thread starts.
void v2xspatconv_signalsRegister(void);

// Prints the caught signal and the number of stop signals since the start, then requests a stop. Async-signal-safe.
void sigHandler(int sig, siginfo_t* info, void* ucontext);

// Returns the running flag: true until a stop request. Any thread.
bool v2xspatconv_IsRunning(void);

// Clears the running flag and ends v2xspatconv_SleepUnlessStopped. Any thread; async-signal-safe.
void v2xspatconv_RequestStop(void);

// Sleeps for `milliseconds` or until a stop request. After a stop request the function returns at once. Main thread.
void v2xspatconv_SleepUnlessStopped(int32_t milliseconds);
