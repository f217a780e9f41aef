// Encoded messages written as hexadecimal digits, a frame a line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace sim {

// Reads all frames, each of at most `most` bytes; white space, ':', '-', ',' and "0x" may stand between bytes. What
// follows a '#' is comment; empty lines are skipped. `name` stands for the file in messages. Throws std::runtime_error
// "name:line: reason", or "name: reason" when there is no frame in it.
std::vector<std::vector<uint8_t>> ReadFrames(std::istream& in, const std::string& name, size_t most);

// The same from a file.
std::vector<std::vector<uint8_t>> ReadFrameFile(const std::string& path, size_t most);

} // namespace sim
