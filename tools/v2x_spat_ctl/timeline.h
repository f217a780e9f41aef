// The lights of an intersection over time, for the signal-timing diagram.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "light_look.h"

namespace ctl {

struct PhaseLight {
    int phase; // SPAT phase
    Light light;
    uint64_t validTime = 3'000'000; // microseconds from the record to LIGHT_NO_RECORD, unless another record follows
};

// All times are microseconds since 1970.
struct LightSpan {
    uint64_t begin;
    uint64_t end;
    Light light;
};

struct Interval {
    uint64_t begin;
    uint64_t end;
};

struct PhaseRow {
    std::vector<LightSpan> lights;   // without gaps, from the first record with the phase to the end
    std::vector<Interval> conflicts; // the phase and a conflicting phase are green
};

// Something that happened during the diagram.
struct Mark {
    uint64_t time;
    std::string text;
};

struct Timeline {
    std::string unit; // "intersection 1/2"
    uint64_t begin = 0;
    uint64_t end = 0;
    std::map<int, PhaseRow> phases;
    std::vector<Mark> marks;
    uint64_t records = 0;
};

using Conflicts = std::vector<std::pair<int, int>>; // pairs of phases that are never green together

// Builds a timeline from records in the order of time.
class TimelineBuilder {
public:
    explicit TimelineBuilder(Conflicts conflicts) : m_conflicts(std::move(conflicts)) {}

    // A time before the latest one counts as the latest one.
    void AddRecord(uint64_t time, std::span<const PhaseLight> lights);
    void AddMark(uint64_t time, const std::string& text);

    uint64_t Records() const { return m_timeline.records; }
    // Returns the time of the first record, and of the latest record or mark. Both are 0 without a record.
    Interval Covered() const { return {m_begin, m_latest}; }

    // Returns the timeline from the first record to `end`, which is at least the latest time. Call Finish once.
    Timeline Finish(const std::string& unit, uint64_t end);

private:
    struct OpenSpan {
        uint64_t begin;
        uint64_t validUntil; // of the latest record with the phase
        Light light;
        bool isConflict;
    };

    bool IsConflict(int phase, std::span<const PhaseLight> lights) const;
    // Ends the open span at `time`. If its light is valid for a shorter time, LIGHT_NO_RECORD follows.
    void Close(int phase, const OpenSpan& open, uint64_t time);

    Conflicts m_conflicts;
    Timeline m_timeline;
    std::map<int, OpenSpan> m_open;
    uint64_t m_begin = 0;
    uint64_t m_latest = 0;
};

} // namespace ctl
