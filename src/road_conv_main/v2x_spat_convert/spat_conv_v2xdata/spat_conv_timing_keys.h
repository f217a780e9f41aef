// The keys of the cloud document's two kinds of timing, for its reader and its writer, in the document's order.
#pragma once

#include "v2x/v2xmsgset.h"

// One time of a phase state: its keys, and its member in the message. One of the two members is set.
template <typename Timing>
struct v2xspatconv_timeKey_t {
    const char* down; // the key that is read
    const char* up;   // the key that is written
    long Timing::*mandatory;
    long* Timing::*optional;
    bool isEnd; // corrected mode: missing, not a number or out of range means unknown
};

inline constexpr v2xspatconv_timeKey_t<TimeCountingDown_t> V2XSPATCONV_COUNTING_KEYS[] = {
    {"startTime", "startTime", &TimeCountingDown_t::startTime, nullptr, false},
    {"minEndTime", "minEndTime", nullptr, &TimeCountingDown_t::minEndTime, false},
    {"maxEndTime", "maxEndTime", nullptr, &TimeCountingDown_t::maxEndTime, false},
    {"likelyEndTime", "likelyEndTime", &TimeCountingDown_t::likelyEndTime, nullptr, true},
    {"timeConfidence", "timeConfidence", nullptr, &TimeCountingDown_t::timeConfidence, false},
    {"nextStartTime", "nextStartTime", nullptr, &TimeCountingDown_t::nextStartTime, false},
    {"nextDuration", "nextDuration", nullptr, &TimeCountingDown_t::nextDuration, false},
};

inline constexpr v2xspatconv_timeKey_t<UTCTiming_t> V2XSPATCONV_UTC_KEYS[] = {
    {"startUtcTime", "startUtcTime", &UTCTiming_t::startUTCTime, nullptr, false},
    {"minEndUtcTime", "minEndUtcTime", nullptr, &UTCTiming_t::minEndUTCTime, false},
    {"maxEndUtcTime", "maxEndTime", nullptr, &UTCTiming_t::maxEndUTCTime, false}, // they differ; the cloud relies on it
    {"likelyEndUtcTime", "likelyEndUtcTime", &UTCTiming_t::likelyEndUTCTime, nullptr, true},
    {"timeConfidence", "timeConfidence", nullptr, &UTCTiming_t::timeConfidence, false},
    {"nextStartUtcTime", "nextStartUtcTime", nullptr, &UTCTiming_t::nextStartUTCTime, false},
    {"nextEndUtcTime", "nextEndUtcTime", nullptr, &UTCTiming_t::nextEndUTCTime, false},
};
