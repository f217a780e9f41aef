// A file in memory, for parsers that open a path.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// Replaces the content of the process's file in memory by the input. Returns the path of the file.
inline std::string writeMemoryFile(const uint8_t* data, size_t size) {
    static const int file = ::memfd_create("input", MFD_CLOEXEC);
    if (file < 0 || ::ftruncate(file, 0) != 0 || ::pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
        std::perror("cannot write the input to a file in memory");
        std::abort();
    }
    return "/proc/self/fd/" + std::to_string(file);
}
