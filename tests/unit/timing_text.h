// A phase state's timing as text.
#pragma once

#include <string>

#include "v2x/v2xmsgset.h"

inline std::string text(const long* member) {
    return member == nullptr ? "-" : std::to_string(*member);
}

// Its kind and times: start, likely end, latest end, earliest end, next start, next duration or end, confidence.
inline std::string timingText(const TimeChangeDetails_t* timing) {
    const auto join = [](const char* kind, auto... members) { return (kind + ... + (" " + text(members))); };
    if (timing == nullptr) {
        return "none";
    }
    if (timing->present == TimeChangeDetails_PR_counting) {
        const TimeCountingDown_t& t = timing->choice.counting;
        return join("counting", &t.startTime, &t.likelyEndTime, t.maxEndTime, t.minEndTime, t.nextStartTime,
                    t.nextDuration, t.timeConfidence);
    }
    if (timing->present == TimeChangeDetails_PR_utcTiming) {
        const UTCTiming_t& t = timing->choice.utcTiming;
        return join("utc", &t.startUTCTime, &t.likelyEndUTCTime, t.maxEndUTCTime, t.minEndUTCTime, t.nextStartUTCTime,
                    t.nextEndUTCTime, t.timeConfidence);
    }
    return "nothing chosen";
}
