// Records the lines that the codec library logs on any thread.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "v2xapp_log.h"

namespace codec_log {

inline std::mutex mutex;
inline std::vector<std::string> lines; // each as "TAG level text"

inline bool isWarningOrError(const char*, int32_t level) {
    return level <= V2XCODEC_LOG_WARN;
}

inline void record(const char* tag, int32_t level, const char*, int32_t, const char*, const char* text) {
    const std::lock_guard guard(mutex);
    lines.push_back(std::string(tag) + " " + std::to_string(level) + " " + text);
}

inline constexpr v2xcodec_log_t CALLBACKS = {isWarningOrError, record};

// Errors and warnings since the last call. The first call starts the recording.
inline std::vector<std::string> takeLog() {
    v2xcodec_setLog(&CALLBACKS);
    const std::lock_guard guard(mutex);
    return std::exchange(lines, {});
}

} // namespace codec_log
