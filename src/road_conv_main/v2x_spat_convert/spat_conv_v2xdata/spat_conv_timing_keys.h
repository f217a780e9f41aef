// The keys of both kinds of timing in the cloud document, in the order of the document. The reader and the writer share
// the tables.
#pragma once

#include "v2x/v2xmsgset.h"

// One time of a phase state: its keys in the document and its member in the message. Exactly one of `mandatory` and
// `optional` is not null.
template <typename Timing>
struct v2xspatconv_timeKey_t {
    const char* down; // key in documents from the cloud
    const char* up;   // key in documents to the cloud
    long Timing::*mandatory;
    long* Timing::*optional;
    bool isEnd; // true: corrected mode stores a missing or invalid time as unknown
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
    {"maxEndUtcTime", "maxEndTime", nullptr, &UTCTiming_t::maxEndUTCTime, false}, // legacy: the two keys differ
    {"likelyEndUtcTime", "likelyEndUtcTime", &UTCTiming_t::likelyEndUTCTime, nullptr, true},
    {"timeConfidence", "timeConfidence", nullptr, &UTCTiming_t::timeConfidence, false},
    {"nextStartUtcTime", "nextStartUtcTime", nullptr, &UTCTiming_t::nextStartUTCTime, false},
    {"nextEndUtcTime", "nextEndUtcTime", nullptr, &UTCTiming_t::nextEndUTCTime, false},
};
