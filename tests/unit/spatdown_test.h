// Documents for the tests of SPAT down.
#pragma once

#include <string>
#include <vector>

#include "fixture.h"

// Phases with each kind of timing, two states each.
inline const std::string FOUR_PHASES = R"([
    {"phaseId":1,"phaseStates":[
        {"light":3,"timing":{"counting":{"startTime":0,"minEndTime":100,"maxEndTime":200,"likelyEndTime":150,
            "timeConfidence":200,"nextStartTime":500,"nextDuration":300}}},
        {"light":5,"timing":{"counting":{"startTime":150,"likelyEndTime":450}}}]},
    {"phaseId":2,"phaseStates":[
        {"light":6,"timing":{"utcTiming":{"startUtcTime":36000,"minEndUtcTime":10,"maxEndUtcTime":20,
            "likelyEndUtcTime":36001,"timeConfidence":199,"nextStartUtcTime":39,"nextEndUtcTime":40}}},
        {"light":7}]},
    {"phaseId":3,"phaseStates":[
        {"light":8,"timing":{"utcTiming":{"startUtcTime":9,"likelyEndUtcTime":9,"minEndUtcTime":90},
            "counting":{"startTime":1,"likelyEndTime":2}}},
        {"light":1,"timing":{}}]},
    {"phaseId":260,"phaseStates":[
        {"light":259,"timing":{"counting":{"startTime":65543,"likelyEndTime":-1,"minEndTime":-25,"maxEndTime":1e10}}},
        {"timing":{"utcTiming":{"maxEndTime":50}}}]}
])";

// These phases in a corrected record: each head, then its states.
inline const char FOUR_PHASES_RECORD[] = R"(
    01 02  01 03 0000 9600 1400 0A00 3200 1E00 01
           01 05 9600 C201 FFFF FFFF FFFF FFFF FF
    02 02  01 06 A08C A18C 0200 0100 0300 0400 00
           00 07 0000 A18C FFFF FFFF FFFF FFFF FF
    03 02  01 08 0100 0200 FFFF FFFF FFFF FFFF FF
           00 01 0000 A18C FFFF FFFF FFFF FFFF FF
    04 02  01 00 0700 A18C CCCC FEFF FFFF FFFF FF
           01 00 0000 A18C FFFF FFFF FFFF FFFF FF)";

inline std::string intersection(const std::string& identity, const std::string& status, const std::string& phases) {
    return R"({"intersectionId":)" + identity + R"(,"status":)" + status + R"(,"phases":)" + phases + "}";
}

inline std::string document(const std::string& intersections) {
    return R"({"name":"Crossing 7","intersections":[)" + intersections + "]}";
}

using Lines = std::vector<std::string>;
using fakes::takeLog;
