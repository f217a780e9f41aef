// The keys of the cloud document's two kinds of timing, for its reader and its writer, in the document's order.
#pragma once

#include "v2x/v2xipc_data.h"
#include "v2x/v2xmsgset.h"

// One time of a phase state: its keys, and its member in the message. One of the two members is set.
template <typename Timing>
struct v2xspatconv_timeKey_t {
    const char* down; // the key that is read
    const char* up;   // the key that is written
    long Timing::*mandatory;
    long* Timing::*optional;
    long missing; // corrected value of a mandatory time that is missing or not a number
};

inline constexpr v2xspatconv_timeKey_t<TimeCountingDown_t> V2XSPATCONV_COUNTING_KEYS[] = {
    {"startTime", "startTime", &TimeCountingDown_t::startTime, nullptr, 0},
    {"minEndTime", "minEndTime", nullptr, &TimeCountingDown_t::minEndTime, 0},
    {"maxEndTime", "maxEndTime", nullptr, &TimeCountingDown_t::maxEndTime, 0},
    {"likelyEndTime", "likelyEndTime", &TimeCountingDown_t::likelyEndTime, nullptr, V2XIPC_TIME_UNKNOWN},
    {"timeConfidence", "timeConfidence", nullptr, &TimeCountingDown_t::timeConfidence, 0},
    {"nextStartTime", "nextStartTime", nullptr, &TimeCountingDown_t::nextStartTime, 0},
    {"nextDuration", "nextDuration", nullptr, &TimeCountingDown_t::nextDuration, 0},
};

inline constexpr v2xspatconv_timeKey_t<UTCTiming_t> V2XSPATCONV_UTC_KEYS[] = {
    {"startUtcTime", "startUtcTime", &UTCTiming_t::startUTCTime, nullptr, 0},
    {"minEndUtcTime", "minEndUtcTime", nullptr, &UTCTiming_t::minEndUTCTime, 0},
    {"maxEndUtcTime", "maxEndTime", nullptr, &UTCTiming_t::maxEndUTCTime, 0}, // they differ; the cloud relies on it
    {"likelyEndUtcTime", "likelyEndUtcTime", &UTCTiming_t::likelyEndUTCTime, nullptr, V2XIPC_TIME_UNKNOWN},
    {"timeConfidence", "timeConfidence", nullptr, &UTCTiming_t::timeConfidence, 0},
    {"nextStartUtcTime", "nextStartUtcTime", nullptr, &UTCTiming_t::nextStartUTCTime, 0},
    {"nextEndUtcTime", "nextEndUtcTime", nullptr, &UTCTiming_t::nextEndUTCTime, 0},
};
