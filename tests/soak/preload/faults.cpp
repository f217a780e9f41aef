// Preloaded into a program: lets a chosen call fail, and counts calls. See control.h.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <execinfo.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "control.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

// Where a program is when it crashes goes to a file beside the control file, a frame a line.
constexpr int DEPTH = 64;
constexpr int CRASHES[] = {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
char g_path[512];
std::atomic<bool> g_isWritten{false};

// Of the first thread that crashes: others wait for the end.
void writeFrames(int sig) {
    while (g_isWritten.exchange(true)) {
        pause();
    }
    void* frames[DEPTH];
    const int count = backtrace(frames, DEPTH);
    const auto fd =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, g_path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (fd >= 0) {
        backtrace_symbols_fd(frames, count, fd);
    }
    signal(sig, SIG_DFL);
    raise(sig);
}

void watchCrashes(const char* controlPath) {
    snprintf(g_path, sizeof g_path, "%s.frames", controlPath);
    for (const int sig : CRASHES) {
        struct sigaction action = {};
        action.sa_handler = writeFrames;
        sigaction(sig, &action, nullptr);
    }
}

// The first call comes from the loader, before any constructor has run and before there are threads.
fault_control* control() {
    static constinit fault_control* mapped = nullptr;
    static constinit bool isKnown = false;
    if (!isKnown && environ != nullptr) {
        isKnown = true;
        mapped = mapControl<fault_control>();
        if (mapped != nullptr) {
            watchCrashes(getenv(fault_control::VARIABLE));
        }
    }
    return mapped;
}

// Whether this call is to fail; errno is set then.
bool fails(fault_call call) {
    fault_control* const faults = control();
    if (faults == nullptr) {
        return false;
    }
    const uint64_t number = faults->counts[call].fetch_add(1) + 1;
    if (faults->call.load() != call || number < faults->first.load() || number > faults->last.load()) {
        return false;
    }
    faults->fired.fetch_add(1);
    errno = faults->error.load();
    return true;
}

// Threads of libraries are called as the main thread is.
bool isOnOwnThread() {
    char name[16] = "";
    return prctl(PR_GET_NAME, name) == 0 && strncmp(name, program_invocation_short_name, sizeof name - 1) != 0;
}

std::atomic<bool> g_isUncounted{false}; // what this library allocates itself

bool allocationFails() {
    return !g_isUncounted && control() != nullptr &&
           (fails(FAULT_ALLOCATION) || (isOnOwnThread() && fails(FAULT_ALLOCATION_OWN)));
}

template <typename... Arguments>
long callKernel(fault_call call, long number, Arguments... arguments) {
    return fails(call) ? -1 : syscall(number, arguments...);
}

int pollUntil(fault_call call, pollfd* entries, nfds_t count, const timespec* wait, const sigset_t* mask) {
    constexpr size_t MASK_BYTES = 8;
    timespec left = wait != nullptr ? *wait : timespec{}; // the kernel writes to it
    return static_cast<int>(
        callKernel(call, SYS_ppoll, entries, count, wait != nullptr ? &left : nullptr, mask, MASK_BYTES));
}

// Made ready for a crash, in which it could not load what it needs.
void prepareBacktrace() {
    void* frame = nullptr;
    g_isUncounted = true;
    backtrace(&frame, 1);
    g_isUncounted = false;
}

using Entry = int(int, char**, char**);
Entry* g_entry = nullptr;

// Stands in for main.
int enter(int argc, char** argv, char** variables) {
    if (fault_control* const faults = control(); faults != nullptr) {
        faults->beforeMain = faults->counts[FAULT_ALLOCATION].load();
        prepareBacktrace();
    }
    return g_entry(argc, argv, variables);
}

} // namespace

extern "C" {

int __libc_start_main(Entry* entry, int argc, char** argv, void (*init)(), void (*fini)(), void (*loaderFini)(),
                      void* stackEnd) {
    const auto next = reinterpret_cast<decltype(&__libc_start_main)>(dlsym(RTLD_NEXT, "__libc_start_main"));
    g_entry = entry;
    return next(enter, argc, argv, init, fini, loaderFini, stackEnd);
}

void* malloc(size_t size) {
    return allocationFails() ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return allocationFails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* old, size_t size) {
    return allocationFails() ? nullptr : __libc_realloc(old, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    return allocationFails() ? nullptr : __libc_memalign(alignment, size);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    return callKernel(FAULT_RECVMSG, SYS_recvmsg, fd, message, flags);
}

ssize_t recvfrom(int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length) {
    return callKernel(FAULT_RECVFROM, SYS_recvfrom, fd, data, size, flags, from, length);
}

ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length) {
    return callKernel(FAULT_SENDTO, SYS_sendto, fd, data, size, flags, to, length);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return callKernel(FAULT_SENDMSG, SYS_sendmsg, fd, message, flags);
}

int poll(pollfd* entries, nfds_t count, int milliseconds) {
    const timespec wait = {milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return pollUntil(FAULT_POLL, entries, count, milliseconds < 0 ? nullptr : &wait, nullptr);
}

int ppoll(pollfd* entries, nfds_t count, const timespec* wait, const sigset_t* mask) {
    return pollUntil(FAULT_PPOLL, entries, count, wait, mask);
}

ssize_t write(int fd, const void* data, size_t size) {
    return callKernel(FAULT_WRITE, SYS_write, fd, data, size);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    return static_cast<int>(callKernel(FAULT_OPEN, SYS_openat, AT_FDCWD, path, flags, mode));
}
}
