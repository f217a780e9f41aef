// Faults in a preloaded library, and what it counts.
#pragma once

#include <fcntl.h>
#include <new>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "preload/control.h"
#include "process.h"

// The file that a plan shares with a preloaded library, in a unit's work folder.
template <typename Control>
class Shared {
public:
    explicit Shared(const TempFolder& folder) : m_path(folder.path() + "/" + Control::VARIABLE) {
        const int fd = open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        const bool sized = ftruncate(fd, sizeof(Control)) == 0;
        m_place = sized ? mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
        close(fd);
        if (m_place == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ~Shared() { munmap(m_place, sizeof(Control)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    Control* operator->() const { return static_cast<Control*>(m_place); }
    const std::string& path() const { return m_path; }
    // For Unit::start(): `library` looks at this file.
    std::vector<std::string> environment(const std::string& library) const {
        return {"LD_PRELOAD=" V2X_PRELOAD "/" + library + ".so", std::string(Control::VARIABLE) + "=" + m_path};
    }

private:
    std::string m_path;
    void* m_place;
};

using Faults = Shared<fault_control>;

constexpr uint64_t FOR_GOOD = UINT64_MAX;

// From now on the calls of this kind from the `first` to the `last` fail, counted from 1.
inline void arm(const Faults& faults, fault_call call, int error, uint64_t first, uint64_t last) {
    const uint64_t made = faults->counts[call];
    faults->call = FAULT_NONE;
    faults->fired = 0;
    faults->error = error;
    faults->first = made + first;
    faults->last = last == FOR_GOOD ? FOR_GOOD : made + last;
    faults->call = call;
}
