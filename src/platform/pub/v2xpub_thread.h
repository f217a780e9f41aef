// Creates and names the threads of this library.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <cstdint>
#include <cstring>
#include <string>

struct v2xpub_scheduling {
    int policy = SCHED_OTHER;
    int priority = 0;
};

// Starts a joinable thread with a stack of 512 KiB and with SIGINT, SIGQUIT and SIGTERM blocked. If the process may not
// use real-time scheduling, the thread runs with ordinary scheduling. If the process may use real-time scheduling, but
// not at this priority, the function also logs a warning with the name of the thread. Returns 0 or the error number.
int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg);

// Sets the name of the calling thread to the first 15 characters of `name`, the maximum of the kernel.
void v2xpub_NameThread(const std::string& name);

// Returns true if the process may use real-time scheduling. The first call finds out, and logs a warning for false.
bool v2xpub_IsRealTimeAllowed();

// Returns the text of a character field, which may have no NUL.
template <size_t N>
std::string v2xpub_FieldText(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}
