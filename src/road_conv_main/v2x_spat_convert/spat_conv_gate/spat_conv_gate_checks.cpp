#include "spat_conv_gate_checks.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <iterator>

#include "spat_conv_gate_checks_activity.h"

namespace {

constexpr uint64_t SECOND = 1000000; // microseconds
constexpr uint64_t TENTH = SECOND / 10;
constexpr uint64_t CONSECUTIVE_WITHIN = 2 * SECOND; // longest time between two consecutive records
constexpr uint64_t JUMP_TOLERANCE = 2 * SECOND;
constexpr uint64_t FROZEN_AFTER = 10 * SECOND;
constexpr uint64_t DISAGREE_AFTER = 2 * SECOND;
constexpr uint16_t SATURATED = 2540; // 0.1 s; devices report all longer times as this time or more
constexpr uint8_t PHASE_MAX = 32;    // largest SPAT phase that is checked

using PhaseMask = uint64_t; // bit n: SPAT phase n

// What a light shows. Lights without a colour (unavailable, dark, flashing yellow) make no statement.
enum class Colour : uint8_t { none, red, green, yellow };

constexpr struct {
    const char* name;
    Colour colour;
} LIGHTS[] = {
    {"unavailable", Colour::none},      {"dark", Colour::none},
    {"flashing red", Colour::red},      {"red", Colour::red},
    {"flashing green", Colour::green},  {"permissive green", Colour::green},
    {"protected green", Colour::green}, {"yellow", Colour::yellow},
    {"flashing yellow", Colour::none},
};
static_assert(std::size(LIGHTS) == V2XIPC_LIGHT_FLASHING_YELLOW + 1);

Colour ColourOf(uint8_t light) {
    return light < std::size(LIGHTS) ? LIGHTS[light].colour : Colour::none;
}

double Seconds(uint64_t microseconds) {
    return static_cast<double>(microseconds) / SECOND;
}

double Seconds(uint16_t tenths) {
    return tenths / 10.0;
}

PhaseMask Bit(uint8_t phase) {
    return PhaseMask{1} << phase;
}

template <typename Visit>
void ForEachPhase(PhaseMask phases, Visit visit) {
    for (; phases != 0; phases &= phases - 1) {
        visit(static_cast<uint8_t>(std::countr_zero(phases)));
    }
}

// Phases that a verdict replaces: from a sight on until two records in a row are free of it.
struct Hold {
    PhaseMask held = 0;
    PhaseMask freeOnce = 0; // held phases of which the last record was free

    // `examined` are the phases of a record, `seen` those with a sight.
    void Update(PhaseMask examined, PhaseMask seen) {
        const PhaseMask freeNow = held & examined & ~seen;
        held = (held & ~(freeNow & freeOnce)) | seen;
        freeOnce = (freeOnce | freeNow) & held & ~seen;
    }
};

struct Light {
    uint8_t light = 0;
    uint16_t timeLeft = 0; // 0.1 s
    bool operator==(const Light&) const = default;
};

// One SPAT phase of a source.
struct PhaseState {
    Light last;                  // in the last record that has the phase
    Light frozen;                // while the phase is held as frozen
    uint64_t unchangedSince = 0; // time of the first of the consecutive records with the light `last`
};

struct SourceState {
    uint64_t time = 0; // of the last record with lights
    bool isFresh = false;
    PhaseMask phases = 0; // of the last record with lights
    PhaseMask green = 0;
    PhaseState states[PHASE_MAX + 1]; // index: SPAT phase
    Hold conflict;                    // uses bit 0
    Hold frozen;
    v2xpub_address_t sender; // of the last record with lights
};

// The SPAT phases for which two sources show different colours.
struct Disagreement {
    PhaseMask phases = 0;
    uint64_t since[PHASE_MAX + 1] = {};
};

struct State {
    PhaseMask allowed[V2XSPATCONV_CHECKS] = {}; // bit 0: the check is on; bit n: it is on for phase n
    PhaseMask conflicts[PHASE_MAX + 1] = {};    // by the lower phase of a pair: the higher phases
    uint64_t staleAfter[V2XSPATCONV_SOURCES] = {};
    SourceState sources[V2XSPATCONV_SOURCES];
    Disagreement disagreements[V2XSPATCONV_SOURCES]; // index: sum of the two sources - 1
};
State g_state;

// One record that is being examined.
struct Record {
    const v2xspatconv_sighting_t& sighting;
    SourceState& source;
    PhaseMask phases = 0; // SPAT phases with a light
    PhaseMask red = 0;
    PhaseMask green = 0;
    PhaseMask followed = 0; // phases that the record before has, too, at most CONSECUTIVE_WITHIN ago
    uint64_t elapsed = 0;   // since the record before
    Light lights[PHASE_MAX + 1] = {};
};

bool IsAllowed(e_v2xspatconv_check check, uint8_t phase) {
    return (g_state.allowed[check] & Bit(phase <= PHASE_MAX ? phase : 0)) != 0;
}

// ---- the checks

void ExamineConflict(Record& record) {
    const v2xspatconv_sighting_t& sighting = record.sighting;
    bool isSeen = false;
    ForEachPhase(record.green, [&](uint8_t first) {
        ForEachPhase(record.green & g_state.conflicts[first], [&](uint8_t second) {
            isSeen = true;
            v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_CONFLICT, sighting.source, sighting.now, {first, second},
                                    "SPAT phases %u and %u are both green", first, second);
        });
    });
    record.source.conflict.Update(1, isSeen ? 1 : 0);
}

// UTC marks of the cloud look like countdowns, so that the cloud's times left are not checked.
bool HasTimesLeft(const Record& record) {
    return record.sighting.source != V2XSPATCONV_CLOUD;
}

bool IsJump(const Light& before, const Light& after, uint64_t elapsed) {
    const bool isComparable = before.light == after.light && ColourOf(after.light) != Colour::none &&
                              before.timeLeft != V2XIPC_TIME_UNKNOWN && after.timeLeft != V2XIPC_TIME_UNKNOWN;
    const uint64_t change = TENTH * static_cast<uint64_t>(std::abs(after.timeLeft - before.timeLeft));
    const uint64_t allowed = after.timeLeft > before.timeLeft ? JUMP_TOLERANCE : JUMP_TOLERANCE + elapsed;
    return isComparable && change > allowed;
}

void ExamineJump(Record& record) {
    const PhaseMask phases = HasTimesLeft(record) ? record.followed & g_state.allowed[V2XSPATCONV_CHECK_JUMP] : 0;
    ForEachPhase(phases, [&](uint8_t phase) {
        const Light& before = record.source.states[phase].last;
        const Light& after = record.lights[phase];
        if (IsJump(before, after, record.elapsed)) {
            v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_JUMP, record.sighting.source, record.sighting.now, {phase},
                                    "SPAT phase %u: %s, time left from %.1f s to %.1f s after %.1f s", phase,
                                    v2xspatconv_NameOfLight(after.light), Seconds(before.timeLeft),
                                    Seconds(after.timeLeft), Seconds(record.elapsed));
        }
    });
}

bool CanFreeze(const Light& light) {
    return light.light >= V2XIPC_LIGHT_RED && light.light <= V2XIPC_LIGHT_PROTECTED_GREEN && light.timeLeft > 0 &&
           light.timeLeft < SATURATED;
}

void ExamineFrozen(Record& record) {
    const PhaseMask phases = HasTimesLeft(record) ? record.phases & g_state.allowed[V2XSPATCONV_CHECK_FROZEN] : 0;
    const uint64_t now = record.sighting.now;
    PhaseMask frozen = 0;
    ForEachPhase(phases, [&](uint8_t phase) {
        PhaseState& state = record.source.states[phase];
        const Light& light = record.lights[phase];
        const bool isUnchanged = (record.followed & Bit(phase)) != 0 && light == state.last;
        state.unchangedSince = isUnchanged ? state.unchangedSince : now;
        const uint64_t unchanged = now - state.unchangedSince;
        if (CanFreeze(light) && unchanged >= FROZEN_AFTER) {
            v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_FROZEN, record.sighting.source, now, {phase},
                                    "SPAT phase %u: %s, time left %.1f s for %.1f s", phase,
                                    v2xspatconv_NameOfLight(light.light), Seconds(light.timeLeft), Seconds(unchanged));
            state.frozen = light;
            frozen |= Bit(phase);
        } else if ((record.source.frozen.held & Bit(phase)) != 0 && light == state.frozen) {
            frozen |= Bit(phase); // the same light after a gap
        }
    });
    record.source.frozen.Update(phases, frozen);
}

void ExamineNoYellow(Record& record) {
    const PhaseMask phases = record.source.green & record.red & record.followed;
    ForEachPhase(phases & g_state.allowed[V2XSPATCONV_CHECK_NO_YELLOW], [&](uint8_t phase) {
        v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_NO_YELLOW, record.sighting.source, record.sighting.now, {phase},
                                "SPAT phase %u: from %s to red without yellow", phase,
                                v2xspatconv_NameOfLight(record.source.states[phase].last.light));
    });
}

void ExamineDuplicate(Record& record) {
    const v2xspatconv_findings_t& findings = record.sighting.findings;
    for (int32_t i = 0; i < findings.duplicateCount; i++) {
        const auto& [phase, first, second] = findings.duplicates[i];
        if (IsAllowed(V2XSPATCONV_CHECK_DUPLICATE, phase)) {
            v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_DUPLICATE, record.sighting.source, record.sighting.now, {phase},
                                    "device phase %u has two lights: %s and %s", phase, v2xspatconv_NameOfLight(first),
                                    v2xspatconv_NameOfLight(second));
        }
    }
}

// Returns the phases that the record and the last record of the other source show in different colours.
PhaseMask CompareColours(const Record& record, e_v2xspatconv_source other) {
    const SourceState& state = g_state.sources[other];
    const uint64_t newest = std::min(CONSECUTIVE_WITHIN, g_state.staleAfter[other]);
    if (!record.sighting.isFresh || !state.isFresh || record.sighting.now - state.time > newest) {
        return 0;
    }
    PhaseMask different = 0;
    ForEachPhase(record.phases & state.phases, [&](uint8_t phase) {
        const Colour ours = ColourOf(record.lights[phase].light);
        const Colour theirs = ColourOf(state.states[phase].last.light);
        if (ours != Colour::none && theirs != Colour::none && ours != theirs) {
            different |= Bit(phase);
        }
    });
    return different;
}

void ComparePair(const Record& record, e_v2xspatconv_source other) {
    const e_v2xspatconv_source source = record.sighting.source;
    const uint64_t now = record.sighting.now;
    Disagreement& disagreement = g_state.disagreements[source + other - 1];
    const PhaseMask phases = CompareColours(record, other);
    ForEachPhase(phases & ~disagreement.phases, [&](uint8_t phase) { disagreement.since[phase] = now; });
    disagreement.phases = phases;
    ForEachPhase(phases & g_state.allowed[V2XSPATCONV_CHECK_DISAGREE], [&](uint8_t phase) {
        const uint64_t elapsed = now - disagreement.since[phase];
        if (elapsed > DISAGREE_AFTER) {
            const char* shown[V2XSPATCONV_SOURCES] = {};
            shown[source] = v2xspatconv_NameOfLight(record.lights[phase].light);
            shown[other] = v2xspatconv_NameOfLight(g_state.sources[other].states[phase].last.light);
            const e_v2xspatconv_source first = std::min(source, other);
            const e_v2xspatconv_source second = std::max(source, other);
            v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_DISAGREE, first, now, {phase},
                                    "SPAT phase %u: %s, but %s from %s, for %.1f s", phase, shown[first], shown[second],
                                    V2XSPATCONV_SOURCE_NAMES[second], Seconds(elapsed));
        }
    });
}

void ExamineDisagree(Record& record) {
    for (const e_v2xspatconv_source other : V2XSPATCONV_ALL_SOURCES) {
        if (other != record.sighting.source) {
            ComparePair(record, other);
        }
    }
}

void ExamineSender(Record& record) {
    const v2xspatconv_sighting_t& sighting = record.sighting;
    const v2xpub_address_t before = record.source.sender;
    const bool isOther = before.ip != 0 && sighting.sender.ip != 0 && before.ip != sighting.sender.ip;
    const uint64_t staleAfter = g_state.staleAfter[sighting.source]; // 0: not watched
    if (isOther && staleAfter > 0 && record.elapsed <= staleAfter) {
        v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_SENDER, sighting.source, sighting.now, {},
                                "records from %s and %s within %.1f s", v2xpub_FormatIp(before).text,
                                v2xpub_FormatIp(sighting.sender).text, Seconds(record.elapsed));
    }
}

void ExamineUnmapped(Record& record) {
    const v2xspatconv_sighting_t& sighting = record.sighting;
    for (size_t word = 0; word < std::size(sighting.findings.unmapped); word++) {
        ForEachPhase(sighting.findings.unmapped[word], [&](uint8_t bit) {
            const auto phase = static_cast<uint8_t>(64 * word + bit);
            if (IsAllowed(V2XSPATCONV_CHECK_UNMAPPED, phase)) {
                v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_UNMAPPED, sighting.source, sighting.now, {phase},
                                        "device phase %u feeds no SPAT phase", phase);
            }
        });
    }
}

void ExamineCutOff(Record& record) {
    const v2xspatconv_sighting_t& sighting = record.sighting;
    ForEachPhase(sighting.findings.cutOff & g_state.allowed[V2XSPATCONV_CHECK_CUT_OFF], [&](uint8_t phase) {
        v2xspatconv_ActivitySee(V2XSPATCONV_CHECK_CUT_OFF, sighting.source, sighting.now, {phase},
                                "SPAT phase %u is left out, because the reported phase count is too small", phase);
    });
}

// Index: e_v2xspatconv_check.
constexpr struct {
    void (*examine)(Record& record);
    bool needsLights; // `examine` must not be called for a record without lights
} CHECKS[] = {
    {ExamineConflict, true}, {ExamineJump, true},       {ExamineFrozen, true},
    {ExamineNoYellow, true}, {ExamineDuplicate, false}, {ExamineDisagree, true},
    {ExamineSender, true},   {ExamineUnmapped, false},  {ExamineCutOff, false},
};
static_assert(std::size(CHECKS) == V2XSPATCONV_CHECKS);

// ---- records

void ReadLight(Record& record, const v2xspatconv_light_t& row) {
    if (row.phase == 0 || row.phase > PHASE_MAX) {
        return;
    }
    if ((record.phases & Bit(row.phase)) == 0) {
        record.lights[row.phase] = {row.light, row.timeLeft};
        record.phases |= Bit(row.phase);
        record.red |= row.light == V2XIPC_LIGHT_RED ? Bit(row.phase) : 0;
    }
    record.green |= ColourOf(row.light) == Colour::green ? Bit(row.phase) : 0;
}

void ReadRecord(Record& record) {
    const v2xspatconv_lights_t& lights = record.sighting.lights;
    for (int32_t i = 0; i < lights.count; i++) {
        ReadLight(record, lights.rows[i]);
    }
    record.elapsed = record.sighting.now - record.source.time;
    record.followed = record.elapsed <= CONSECUTIVE_WITHIN ? record.phases & record.source.phases : 0;
}

void StoreRecord(const Record& record) {
    SourceState& source = record.source;
    source.time = record.sighting.now;
    source.isFresh = record.sighting.isFresh;
    source.sender = record.sighting.sender;
    source.phases = record.phases;
    source.green = record.green;
    ForEachPhase(record.phases, [&](uint8_t phase) { source.states[phase].last = record.lights[phase]; });
}

} // namespace

const char* v2xspatconv_NameOfLight(uint8_t light) {
    return light < std::size(LIGHTS) ? LIGHTS[light].name : "unknown";
}

void v2xspatconv_ChecksInit(const spat_conv_config_t& config) {
    const v2xspatconv_guard_t& guard = config.m_guard;
    g_state = {};
    v2xspatconv_ActivityClear();
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        const uint64_t ignored = guard.m_ignore[check];
        g_state.allowed[check] = (ignored & 1) != 0 ? 0 : ~ignored;
    }
    for (int32_t source = 0; source < V2XSPATCONV_SOURCES; source++) {
        g_state.staleAfter[source] = guard.m_sources[source].m_stale_after * uint64_t{1000};
    }
    const PhaseMask allowed = g_state.allowed[V2XSPATCONV_CHECK_CONFLICT];
    for (int32_t i = 0; i < guard.m_conflict_count; i++) {
        const auto [first, second] = std::minmax(guard.m_conflicts[i][0], guard.m_conflicts[i][1]);
        if ((allowed & Bit(first)) != 0) {
            g_state.conflicts[first] |= Bit(second) & allowed;
        }
    }
}

v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& sighting) {
    SourceState& source = g_state.sources[sighting.source];
    Record record = {.sighting = sighting, .source = source};
    const bool hasLights = sighting.lights.count > 0;
    ReadRecord(record);
    for (size_t check = 0; check < std::size(CHECKS); check++) {
        if (g_state.allowed[check] != 0 && (hasLights || !CHECKS[check].needsLights)) {
            CHECKS[check].examine(record);
        }
    }
    if (hasLights) {
        StoreRecord(record);
    }
    return {source.conflict.held != 0, source.frozen.held};
}
