// The log tool's frames: builds requests to the daemon and reads its answers.
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

// The name that addresses every tag.
inline constexpr const char* ALL_TAGS = "ALL";
// In bytes. A name of this size fills its field, without a NUL.
inline constexpr size_t MAX_TAG_SIZE = 8;

// Request for the levels of all tags.
Bytes ListRequest();

// Request to set a tag's level. A name longer than MAX_TAG_SIZE is truncated.
Bytes SetRequest(const std::string& tag, int16_t level);

// The tags of an answer, in the daemon's order. Throws std::runtime_error with the reason when the answer is invalid.
std::vector<TagLevel> ReadAnswer(std::span<const uint8_t> answer);

// "0 undo" to "7 trace"; other levels as a number alone.
std::string LevelText(int16_t level);

// 0 to 7 from a number or a level's name (undo, fatal, error, warn, info, debug, verbose, trace).
std::optional<int16_t> ParseLevel(const std::string& text);

} // namespace logtool
