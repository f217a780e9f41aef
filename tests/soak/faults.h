// Faults in a preloaded library, and what it counts.
#pragma once

#include <new>
#include <string>
#include <vector>

#include "preload/control.h"
#include "process.h"

// The file that a plan shares with a preloaded library, in a unit's work folder.
template <typename Control>
class Shared {
public:
    explicit Shared(const TempFolder& folder) : m_path(folder.path() + "/" + Control::VARIABLE) {
        writeFile(m_path, std::string(sizeof(Control), '\0'));
        m_control = mapControl<Control>(m_path.c_str());
        if (m_control == nullptr) {
            throw std::bad_alloc();
        }
    }
    ~Shared() { munmap(m_control, sizeof(Control)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    Control* operator->() const { return m_control; }
    const std::string& path() const { return m_path; }
    // For Unit::start(): `library` looks at this file.
    std::vector<std::string> environment(const std::string& library) const {
        return {"LD_PRELOAD=" V2X_PRELOAD "/" + library + ".so", std::string(Control::VARIABLE) + "=" + m_path};
    }

private:
    std::string m_path;
    Control* m_control;
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
