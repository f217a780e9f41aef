#include "timeline.h"

#include <algorithm>

#include "v2x/v2xipc_data.h"

namespace ctl {
namespace {

bool IsGreen(Light light) {
    return light == V2XIPC_LIGHT_FLASHING_GREEN || light == V2XIPC_LIGHT_PERMISSIVE_GREEN ||
           light == V2XIPC_LIGHT_PROTECTED_GREEN;
}

} // namespace

void TimelineBuilder::AddRecord(uint64_t time, std::span<const PhaseLight> lights) {
    time = std::max(time, m_latest);
    m_latest = time;
    if (m_timeline.records++ == 0) {
        m_begin = time;
    }
    for (const auto& [phase, given, validTime] : lights) {
        const Light light = std::min(given, LIGHT_UNKNOWN);
        const bool isConflict = IsGreen(light) && IsConflict(phase, lights);
        const auto [row, isNew] = m_open.try_emplace(phase, OpenSpan{time, time, light, isConflict});
        OpenSpan& open = row->second;
        const bool isOld = time > open.validUntil;
        if (!isNew && (isOld || open.light != light || open.isConflict != isConflict)) {
            Close(phase, open, time);
            open = {time, time, light, isConflict};
        }
        open.validUntil = time + validTime;
    }
}

void TimelineBuilder::AddMark(uint64_t time, const std::string& text) {
    m_latest = std::max(time, m_latest);
    m_timeline.marks.push_back({m_latest, text});
}

bool TimelineBuilder::IsConflict(int phase, std::span<const PhaseLight> lights) const {
    return std::ranges::any_of(m_conflicts, [&](const std::pair<int, int>& pair) {
        const int other = pair.first == phase ? pair.second : pair.second == phase ? pair.first : 0;
        return std::ranges::any_of(lights,
                                   [&](const PhaseLight& row) { return row.phase == other && IsGreen(row.light); });
    });
}

void TimelineBuilder::Close(int phase, const OpenSpan& open, uint64_t time) {
    PhaseRow& row = m_timeline.phases[phase];
    const uint64_t end = std::min(time, open.validUntil);
    if (end > open.begin) {
        // A conflict that starts or ends does not split the span of the light.
        const bool isContinued =
            !row.lights.empty() && row.lights.back().light == open.light && row.lights.back().end == open.begin;
        if (isContinued) {
            row.lights.back().end = end;
        } else {
            row.lights.push_back({open.begin, end, open.light});
        }
        if (open.isConflict) {
            row.conflicts.push_back({open.begin, end});
        }
    }
    if (time > end) {
        row.lights.push_back({end, time, LIGHT_NO_RECORD});
    }
}

Timeline TimelineBuilder::Finish(const std::string& unit, uint64_t end) {
    end = std::max(end, m_latest);
    for (const auto& [phase, open] : m_open) {
        Close(phase, open, end);
    }
    std::erase_if(m_timeline.marks, [this](const Mark& mark) { return mark.time < m_begin; });
    m_timeline.unit = unit;
    m_timeline.begin = m_begin;
    m_timeline.end = end;
    return std::move(m_timeline);
}

} // namespace ctl
