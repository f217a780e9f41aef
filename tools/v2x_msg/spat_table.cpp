#include "message_tables.h"

#include <string_view>

#include "IntersectionState.h"
#include "Phase.h"
#include "PhaseState.h"
#include "TimeChangeDetails.h"
#include "table.h"
#include "value_text.h"

namespace msg {
namespace {

constexpr std::string_view STATUS_BITS[] = {"manualControlIsEnabled",
                                            "stopTimeIsActivated",
                                            "failureFlash",
                                            "preemptIsActive",
                                            "signalPriorityIsActive",
                                            "fixedTimeOperation",
                                            "trafficDependentOperation",
                                            "standbyOperation",
                                            "failureMode",
                                            "off",
                                            "recentMAPmessageUpdate",
                                            "recentChangeInMAPassignedLanesIDsUsed",
                                            "noValidMAPisAvailableAtThisTime",
                                            "noValidSPATisAvailableAtThisTime"};
static_assert(std::size(STATUS_BITS) == IntersectionStatusObject_noValidSPATisAvailableAtThisTime + 1);

std::string FormatTime(const long* mark) {
    return FormatNumber(mark, TIME_MARK);
}

std::string FormatMoment(const long* moy, const long* timeStamp) {
    return "moy " + FormatMinute(moy) + "  timeStamp " + FormatNumber(timeStamp, MILLISECONDS) +
           (timeStamp == nullptr ? "" : " s");
}

Cells FormatCounting(const TimeCountingDown_t& timing) {
    return {"counting",
            FormatTime(&timing.startTime),
            FormatTime(timing.minEndTime),
            FormatTime(timing.maxEndTime),
            FormatTime(&timing.likelyEndTime),
            FormatNumber(timing.timeConfidence, CONFIDENCE),
            FormatTime(timing.nextStartTime),
            FormatTime(timing.nextDuration)};
}

Cells FormatUtc(const UTCTiming_t& timing) {
    return {"utc",
            FormatTime(&timing.startUTCTime),
            FormatTime(timing.minEndUTCTime),
            FormatTime(timing.maxEndUTCTime),
            FormatTime(&timing.likelyEndUTCTime),
            FormatNumber(timing.timeConfidence, CONFIDENCE),
            FormatTime(timing.nextStartUTCTime),
            FormatTime(timing.nextEndUTCTime)};
}

Cells FormatTiming(const TimeChangeDetails_t* timing) {
    if (timing != nullptr && timing->present == TimeChangeDetails_PR_counting) {
        return FormatCounting(timing->choice.counting);
    }
    if (timing != nullptr && timing->present == TimeChangeDetails_PR_utcTiming) {
        return FormatUtc(timing->choice.utcTiming);
    }
    const char* const kind = timing == nullptr ? "-" : "unknown"; // the alternative is of a newer edition
    return {kind, "-", "-", "-", "-", "-", "-", "-"};
}

// Only the row of the first state shows the phase's id.
void AddPhase(const Phase_t& phase, Table& table) {
    std::string id = std::to_string(phase.id);
    for (const PhaseState_t* state : Items(&phase.phaseStates)) {
        Cells row = FormatTiming(state->timing);
        row.insert(row.begin(), {id, FormatEnumerated(asn_DEF_LightState, &state->light)});
        table.Add(std::move(row));
        id.clear();
    }
}

std::string FormatIntersection(const IntersectionState_t& intersection) {
    Table table({{"phase"},
                 {"light", Align::left},
                 {"timing", Align::left},
                 {"start"},
                 {"minEnd"},
                 {"maxEnd"},
                 {"likelyEnd"},
                 {"confidence%"},
                 {"nextStart"},
                 {"nextEnd/Dur"}});
    for (const Phase_t* phase : Items(&intersection.phases)) {
        AddPhase(*phase, table);
    }
    return "intersection " + FormatNode(intersection.intersectionId) + "  " +
           FormatMoment(intersection.moy, intersection.timeStamp) +
           "\n  status: " + FormatBits(&intersection.status, STATUS_BITS) + "\n" + table.Format();
}

} // namespace

std::string FormatSpat(const SPAT_t& spat) {
    std::string text = FormatMoment(spat.moy, spat.timeStamp) +
                       (spat.name == nullptr ? "" : "  name " + FormatQuoted(*spat.name)) + "\n";
    for (const IntersectionState_t* intersection : Items(&spat.intersections)) {
        text += FormatIntersection(*intersection);
    }
    return text;
}

} // namespace msg
