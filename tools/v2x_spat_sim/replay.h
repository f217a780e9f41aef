// Recorded datagrams, to be sent again. A file holds one datagram per line: milliseconds since the start of the replay,
// a blank, the bytes in hex, with or without blanks between bytes. What follows a '#' is comment; empty lines are
// skipped; times must not go back.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

namespace sim {

inline constexpr size_t MAX_DATAGRAM = 32767; // what the unit's UDP sockets take

struct ReplayDatagram {
    std::chrono::milliseconds time;
    std::vector<uint8_t> bytes; // 1 to MAX_DATAGRAM
};

// Reads a whole replay; `name` stands for the file in messages. Throws std::runtime_error "name:line: reason", or
// "name: reason" when there is no datagram in it.
std::vector<ReplayDatagram> ReadReplay(std::istream& in, const std::string& name);

// The same from a file.
std::vector<ReplayDatagram> ReadReplayFile(const std::string& path);

// How long one round of a replay lasts that is played again and again: one average gap longer than its last time, and
// 1 s when there is no gap.
std::chrono::nanoseconds ReplayRound(const std::vector<ReplayDatagram>& datagrams);

} // namespace sim
