#include "spat_table.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "IntersectionState.h"
#include "Phase.h"
#include "PhaseState.h"
#include "TimeChangeDetails.h"
#include "common/text.h"

namespace msg {
namespace {

using tools::FormatText;

constexpr long UNKNOWN_TIME = 36001;
constexpr long INVALID_MINUTE = 527040;
constexpr long MINUTES_OF_DAY = 24L * 60;

constexpr std::string_view LIGHTS[] = {
    "unavailable",     "dark",   "flashing-red",   "red", "flashing-green", "permissive-green",
    "protected-green", "yellow", "flashing-yellow"};
static_assert(std::size(LIGHTS) == LightState_flashing_yellow + 1);

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

std::string FormatOptional(const long* value) {
    return value == nullptr ? "-" : std::to_string(*value);
}

// Formats a time in 0.1 s.
std::string FormatTime(const long* mark) {
    return mark == nullptr ? "-" : *mark == UNKNOWN_TIME ? "?" : FormatText("%.1f", static_cast<double>(*mark) * 0.1);
}

// Formats a confidence in steps of 0.5 %.
std::string FormatPercent(const long* confidence) {
    return confidence == nullptr ? "-" : FormatText("%.1f", static_cast<double>(*confidence) * 0.5);
}

// Formats the minute of the year as day of the year, from 1, and time of day.
std::string FormatMinute(const long* moy) {
    if (moy == nullptr) {
        return "moy -";
    }
    if (*moy == INVALID_MINUTE) {
        return FormatText("moy %ld (invalid)", *moy);
    }
    const long minute = *moy % MINUTES_OF_DAY;
    return FormatText("moy %ld (day %ld, %02ld:%02ld)", *moy, *moy / MINUTES_OF_DAY + 1, minute / 60, minute % 60);
}

std::string FormatTimeStamp(const long* milliseconds) {
    return milliseconds == nullptr ? "timeStamp -"
                                   : FormatText("timeStamp %.3f s", static_cast<double>(*milliseconds) * 0.001);
}

// Replaces each character that is not printable by '.'.
std::string FormatName(const DescriptiveName_t& name) {
    std::string text;
    for (int i = 0; i < name.size; ++i) {
        const char character = static_cast<char>(name.buf[i]);
        text += character >= ' ' && character <= '~' ? character : '.';
    }
    return text;
}

std::string FormatStatus(const IntersectionStatusObject_t& status) {
    std::string names;
    for (size_t bit = 0; bit < 8 * static_cast<size_t>(status.size); ++bit) {
        if ((status.buf[bit / 8] >> (7 - bit % 8) & 1) != 0) {
            names += (names.empty() ? "" : ", ");
            names += bit < std::size(STATUS_BITS) ? std::string(STATUS_BITS[bit]) : "bit " + std::to_string(bit);
        }
    }
    return names.empty() ? "none" : names;
}

std::string FormatLight(long light) {
    const auto index = static_cast<size_t>(light);
    return light >= 0 && index < std::size(LIGHTS) ? std::string(LIGHTS[index]) : std::to_string(light);
}

constexpr const char* ROW_FORMAT = "  %5s  %-16s  %-8s  %7s  %7s  %7s  %9s  %11s  %9s  %11s\n";

std::string FormatHeading() {
    return FormatText(ROW_FORMAT, "phase", "light", "timing", "start", "minEnd", "maxEnd", "likelyEnd", "confidence%",
                      "nextStart", "nextEnd/Dur");
}

using Times = std::array<std::string, 7>;

Times FormatTimes(const TimeCountingDown_t& timing) {
    return {FormatTime(&timing.startTime),     FormatTime(timing.minEndTime),        FormatTime(timing.maxEndTime),
            FormatTime(&timing.likelyEndTime), FormatPercent(timing.timeConfidence), FormatTime(timing.nextStartTime),
            FormatTime(timing.nextDuration)};
}

Times FormatTimes(const UTCTiming_t& timing) {
    return {FormatTime(&timing.startUTCTime),     FormatTime(timing.minEndUTCTime),
            FormatTime(timing.maxEndUTCTime),     FormatTime(&timing.likelyEndUTCTime),
            FormatPercent(timing.timeConfidence), FormatTime(timing.nextStartUTCTime),
            FormatTime(timing.nextEndUTCTime)};
}

std::string FormatState(const std::string& phase, const PhaseState_t& state) {
    Times times{"-", "-", "-", "-", "-", "-", "-"};
    const char* timing = "-";
    if (state.timing != nullptr) {
        const TimeChangeDetails_t& details = *state.timing;
        switch (details.present) {
        case TimeChangeDetails_PR_counting:
            timing = "counting";
            times = FormatTimes(details.choice.counting);
            break;
        case TimeChangeDetails_PR_utcTiming:
            timing = "utc";
            times = FormatTimes(details.choice.utcTiming);
            break;
        case TimeChangeDetails_PR_NOTHING:
            timing = "unknown"; // the message has an alternative of a newer edition
            break;
        }
    }
    const std::string light = FormatLight(state.light);
    return FormatText(ROW_FORMAT, phase.c_str(), light.c_str(), timing, times[0].c_str(), times[1].c_str(),
                      times[2].c_str(), times[3].c_str(), times[4].c_str(), times[5].c_str(), times[6].c_str());
}

// Only the row of the first state shows the phase's id.
std::string FormatPhase(const Phase_t& phase) {
    std::string rows;
    for (int i = 0; i < phase.phaseStates.list.count; ++i) {
        rows += FormatState(i == 0 ? std::to_string(phase.id) : "", *phase.phaseStates.list.array[i]);
    }
    return rows;
}

std::string FormatIntersection(const IntersectionState_t& intersection) {
    std::string table = "intersection " + FormatOptional(intersection.intersectionId.region) + "/" +
                        std::to_string(intersection.intersectionId.id) + "  " + FormatMinute(intersection.moy) + "  " +
                        FormatTimeStamp(intersection.timeStamp) + "\n  status: " + FormatStatus(intersection.status) +
                        "\n" + FormatHeading();
    for (int i = 0; i < intersection.phases.list.count; ++i) {
        table += FormatPhase(*intersection.phases.list.array[i]);
    }
    return table;
}

} // namespace

std::string FormatSpat(const SPAT_t& spat) {
    std::string table = FormatMinute(spat.moy) + "  " + FormatTimeStamp(spat.timeStamp);
    if (spat.name != nullptr) {
        table += "  name \"" + FormatName(*spat.name) + "\"";
    }
    table += "\n";
    for (int i = 0; i < spat.intersections.list.count; ++i) {
        table += FormatIntersection(*spat.intersections.list.array[i]);
    }
    return table;
}

} // namespace msg
