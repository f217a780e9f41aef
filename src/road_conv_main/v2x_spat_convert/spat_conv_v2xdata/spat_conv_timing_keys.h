// The keys of the cloud document's two kinds of timing, for its reader and its writer, in the document's order.
#pragma once

#include "v2x/v2xmsgset.h"

// A time of a phase state: its keys, and where the message has it; one of the two members is set.
template <typename Timing>
struct v2xspatconv_timeKey_t {
    const char* down; // the key that is read
    const char* up;   // the key that is written
    long Timing::*mandatory;
    long* Timing::*optional;
};

inline constexpr v2xspatconv_timeKey_t<TimeCountingDown_t> V2XSPATCONV_COUNTING_KEYS[] = {
    {"startTime", "startTime", &TimeCountingDown_t::startTime, nullptr},
    {"minEndTime", "minEndTime", nullptr, &TimeCountingDown_t::minEndTime},
    {"maxEndTime", "maxEndTime", nullptr, &TimeCountingDown_t::maxEndTime},
    {"likelyEndTime", "likelyEndTime", &TimeCountingDown_t::likelyEndTime, nullptr},
    {"timeConfidence", "timeConfidence", nullptr, &TimeCountingDown_t::timeConfidence},
    {"nextStartTime", "nextStartTime", nullptr, &TimeCountingDown_t::nextStartTime},
    {"nextDuration", "nextDuration", nullptr, &TimeCountingDown_t::nextDuration},
};

inline constexpr v2xspatconv_timeKey_t<UTCTiming_t> V2XSPATCONV_UTC_KEYS[] = {
    {"startUtcTime", "startUtcTime", &UTCTiming_t::startUTCTime, nullptr},
    {"minEndUtcTime", "minEndUtcTime", nullptr, &UTCTiming_t::minEndUTCTime},
    {"maxEndUtcTime", "maxEndTime", nullptr, &UTCTiming_t::maxEndUTCTime}, // the two differ, and the cloud relies on it
    {"likelyEndUtcTime", "likelyEndUtcTime", &UTCTiming_t::likelyEndUTCTime, nullptr},
    {"timeConfidence", "timeConfidence", nullptr, &UTCTiming_t::timeConfidence},
    {"nextStartUtcTime", "nextStartUtcTime", nullptr, &UTCTiming_t::nextStartUTCTime},
    {"nextEndUtcTime", "nextEndUtcTime", nullptr, &UTCTiming_t::nextEndUTCTime},
};
