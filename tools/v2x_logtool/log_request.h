// Builds the log tool's requests to the daemon and parses the daemon's answers.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace logtool {

using Bytes = std::vector<uint8_t>;

struct TagLevel {
    std::string tag;
    int16_t level;
};

// A request with this name sets the level of all tags.
inline constexpr const char* ALL_TAGS = "ALL";
// The maximum size of a tag's name in bytes. On the wire, a name of this size has no NUL.
inline constexpr size_t MAX_TAG_SIZE = 8;

// Returns a request for the levels of all tags.
Bytes MakeListRequest();

// Returns a request to set a tag's level. Truncates a name longer than MAX_TAG_SIZE.
Bytes MakeSetRequest(const std::string& tag, int16_t level);

// Parses the answer to either request. Returns its tags in the daemon's order. Throws std::runtime_error with the
// reason if the answer is invalid or reports an error.
std::vector<TagLevel> ParseAnswer(std::span<const uint8_t> answer);

// Returns "0 undo" to "7 trace". Returns only the number for any other level.
std::string FormatLevel(int16_t level);

// Parses a number from 0 to 7 or a level's name (undo, fatal, error, warn, info, debug, verbose, trace). Returns an
// empty optional for any other text.
std::optional<int16_t> ParseLevel(const std::string& text);

} // namespace logtool
