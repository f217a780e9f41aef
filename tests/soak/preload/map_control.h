// The control file in the library's process.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

// Null without the variable. System calls are made directly, since the library may stand in for their functions, and
// nothing is allocated.
template <typename Control>
Control* mapControl() {
    const char* const path = getenv(Control::VARIABLE);
    if (path == nullptr) {
        return nullptr;
    }
    const auto fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0));
    if (fd < 0) {
        return nullptr;
    }
    void* const place = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    syscall(SYS_close, fd);
    return place == MAP_FAILED ? nullptr : static_cast<Control*>(place);
}
