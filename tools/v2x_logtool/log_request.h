// The log tool's frames: requests to a daemon, and what its answers say.
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

// "ALL" as a tag's name stands for all of them.
inline constexpr const char* ALL_TAGS = "ALL";
inline constexpr size_t MAX_TAG_SIZE = 8;

// Request for the levels of all tags.
Bytes ListRequest();

// Request to set a tag's level. A name of more than MAX_TAG_SIZE bytes is cut.
Bytes SetRequest(const std::string& tag, int16_t level);

// The tags that an answer lists, in the daemon's order. Throws std::runtime_error with what is wrong with the answer.
std::vector<TagLevel> ReadAnswer(std::span<const uint8_t> answer);

// "0 undo" to "7 trace"; a number alone for any other level.
std::string LevelText(int16_t level);

// 0 to 7 from a number or a level's name (undo, fatal, error, warn, info, debug, verbose, trace).
std::optional<int16_t> ParseLevel(const std::string& text);

} // namespace logtool
