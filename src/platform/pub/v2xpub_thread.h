// Threads of this library: small stack, blocked stop signals, a name, a scheduling class.
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

// Starts a joinable thread with a stack of 512 KiB and with SIGINT, SIGQUIT and SIGTERM blocked. When the process may
// not use the real-time class, the thread runs with ordinary scheduling; a warning names the thread unless a warning
// for the whole process was logged. Returns 0 or the error number.
int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg);

// Names the calling thread by the first 15 characters, the kernel's maximum.
void v2xpub_NameThread(const std::string& name);

// Whether the process may use real-time scheduling. Tried once; logs one warning when it may not.
bool v2xpub_RealTimeAllowed();

// The text of a character field that may lack its NUL.
template <size_t N>
std::string v2xpub_FieldText(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}
