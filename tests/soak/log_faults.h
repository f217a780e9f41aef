// What a plan does to the file system, for the life of the program.
#pragma once

#include <string>

// From the first call on, which is best made before there is a thread: what is mounted is seen by this process and
// those that it starts, and is gone with them. Why that is not so; "" when it is.
const std::string& ownMounts();

// By its mode, of root by the immutable flag. Whether it was done.
bool setWritable(const std::string& folder, bool on);
void setAllWritable(const std::string& path); // with every folder in it
