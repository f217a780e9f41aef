// What can happen to the log of a unit.
#pragma once

#include <string>
#include <sys/resource.h>

#include "unit.h"

std::string folderOf(const Unit& unit);

// From the first call on, which is best made before there is a thread: what is mounted is seen by this process and
// those that it starts, and is gone with them. Why that is not so; "" when it is.
const std::string& ownMounts();

// A small file system at a folder for the life of this.
class Mounted {
public:
    explicit Mounted(const std::string& path);
    ~Mounted();
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;
    const std::string& why() const { return m_why; } // it is not mounted; "" when it is

private:
    std::string m_folder;
    std::string m_why;
};

// Writes a file until nothing more finds room.
void fill(const std::string& path);

// By its mode, of root by the immutable flag. Whether it was done.
bool setWritable(const std::string& folder, bool on);
void setAllWritable(const std::string& path); // with every folder in it
std::string whyAlwaysWritable();              // why it cannot be done; "" when it can

// As many descriptors of the daemon that no number below is free, but for the log file's own.
rlim_t numbersInUse(const Unit& unit);
bool limitDescriptors(const Unit& unit, rlim_t soft);

// A log that is to rotate after a few lines more than the daemon writes at its start.
void fillLog(const Unit& unit);
void traceAll(const Unit& unit); // level 7
