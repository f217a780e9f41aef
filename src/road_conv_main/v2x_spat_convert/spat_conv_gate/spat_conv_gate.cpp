#include "spat_conv_gate.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <span>

#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_lights.h"
#include "spat_conv_gate_log.h"
#include "spat_conv_gate_sources.h"
#include "spat_conv_gate_unit.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_time.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

enum Decision : uint8_t { FORWARDED, NOT_CHOSEN, NOT_FRESH, NOT_LISTED, AFTER_STOP };

// Counts the decisions on the records of one source, indexed by Decision. The sum is the number of records that the
// source has converted, without records of another intersection.
struct Decisions {
    explicit Decisions(const char* path)
        : counters{{path, "forwarded"},
                   {path, "not_chosen"},
                   {path, "not_fresh"},
                   {path, "not_listed"},
                   {path, "after_stop"}} {}
    v2x_counter counters[AFTER_STOP + 1];
};
// The path of the cloud's records is "down", because the path "cloud" counts the data for the cloud.
Decisions g_decisions[V2XSPATCONV_SOURCES] = {Decisions("learner"), Decisions("1743"), Decisions("down")};
v2x_counter g_otherIntersection{"down", "other_intersection"};
v2x_counter g_replaced{"gate", "replaced"};       // forwarded records with replaced lights
v2x_counter g_unavailable{"gate", "unavailable"}; // unavailable records while no source is fresh, and at the stop

constexpr uint64_t NEVER = UINT64_MAX;
constexpr uint64_t UNAVAILABLE_PERIOD = 1000000; // microseconds
constexpr uint64_t ALL_PHASES = UINT64_MAX;

struct Gate {
    v2xspatconv_guard_t guard = {};
    bool hasCloudLights = false;  // false: records of the cloud carry no lights
    std::optional<uint32_t> home; // id of the unit's intersection
    uint64_t now = 0;             // latest time of any call
    v2xspatconv_sourceWatch sources[V2XSPATCONV_SOURCES];
    std::optional<e_v2xspatconv_source> chosen;     // with m_priority_count: the source that is forwarded
    std::optional<e_v2xspatconv_source> lastChosen; // the last value of `chosen`
    bool wasAnyFresh = false;
    uint64_t nextUnavailable = NEVER; // NEVER: no unavailable records are due
    bool isStopped = false;
    bool hasTemplate = false;
    uint8_t templateRecord[V2XIPC_RECORD_SIZE]; // the last forwarded record of a watched source that carries lights
};

std::mutex g_mutex; // guards g_gate and the checks, and keeps the order of the records
Gate g_gate;

using Buffer = std::span<uint8_t, V2XIPC_RECORD_SIZE>;

std::span<const e_v2xspatconv_source> Priority() {
    return {g_gate.guard.m_priority, g_gate.guard.m_priority_count};
}

bool HasPriority() {
    return g_gate.guard.m_priority_count > 0;
}

bool IsListed(e_v2xspatconv_source source) {
    const auto list = Priority();
    return std::find(list.begin(), list.end(), source) != list.end();
}

bool CarriesLights(e_v2xspatconv_source source) {
    return source != V2XSPATCONV_CLOUD || g_gate.hasCloudLights;
}

bool IsFresh(e_v2xspatconv_source source) {
    return g_gate.sources[source].IsFresh();
}

// Returns true if a source is fresh whose records may be forwarded and carry lights.
bool IsAnyFresh() {
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        if (IsFresh(source) && CarriesLights(source) && (!HasPriority() || IsListed(source))) {
            return true;
        }
    }
    return false;
}

Decision Decide(e_v2xspatconv_source source) {
    const bool isFresh = IsFresh(source);
    if (g_gate.isStopped) {
        return AFTER_STOP;
    }
    if (!HasPriority()) {
        const bool isUnavailable = g_gate.nextUnavailable != NEVER;
        return isUnavailable && g_gate.sources[source].IsWatched() && !isFresh ? NOT_FRESH : FORWARDED;
    }
    if (!IsListed(source)) {
        return NOT_LISTED;
    }
    if (!isFresh) {
        return NOT_FRESH;
    }
    return source == g_gate.chosen ? FORWARDED : NOT_CHOSEN;
}

int32_t Send(v2xspatconv_recordBytes record) {
    return v2xspatconv_SpatNotify(reinterpret_cast<const v2xipc_phases_t*>(record.data()));
}

// Sends a record that the gate has made, and stores its lights. `source` is the source of the original record, or
// V2XSPATCONV_NO_SOURCE. Returns the result of Send.
int32_t SendMade(uint8_t source, v2xspatconv_recordBytes record) {
    const int32_t ret = Send(record);
    if (ret == 0) {
        v2xspatconv_lights_t lights;
        v2xspatconv_ReadLights(record, lights);
        v2xspatconv_UnitHandOver(source, lights, source != V2XSPATCONV_NO_SOURCE, g_gate.now);
    }
    return ret;
}

// Makes the unavailable record of a record: no lights, status 0, the present time.
void MakeUnavailable(v2xspatconv_recordBytes record, Buffer out) {
    v2xspatconv_ReplaceLights(record, ALL_PHASES, out);
    const uint64_t time = v2xpub_CommGetCurrentTime64();
    v2xipc_phases_t head;
    memcpy(&head, out.data(), sizeof head);
    head.m_status = 0;
    head.m_moy = static_cast<uint32_t>(GetMoyOfTheYear(g_log, time));
    head.m_secMark = static_cast<uint16_t>(GetSecMarkOfTheMinute(g_log, time));
    memcpy(out.data(), &head, sizeof head);
}

void SendUnavailable() {
    uint8_t record[V2XIPC_RECORD_SIZE];
    MakeUnavailable(g_gate.templateRecord, record);
    SendMade(V2XSPATCONV_NO_SOURCE, record);
    g_unavailable.Add();
}

// Chooses the first fresh source of the list and logs a change.
void UpdateChoice() {
    const auto list = Priority();
    const auto found = std::find_if(list.begin(), list.end(), IsFresh);
    g_gate.chosen = found != list.end() ? std::optional(*found) : std::nullopt;
    if (!g_gate.chosen.has_value() || g_gate.chosen == g_gate.lastChosen) {
        return;
    }
    const char* const name = V2XSPATCONV_SOURCE_NAMES[*g_gate.chosen];
    v2xspatconv_stateEvent_t event = {.type = v2xspatconv_stateEvent_t::Type::forwarded, .source = *g_gate.chosen};
    if (g_gate.lastChosen.has_value()) {
        v2xspatconv_GateLogEvent(event, V2XLOG_WARN, "%s is forwarded instead of %s", name,
                                 V2XSPATCONV_SOURCE_NAMES[*g_gate.lastChosen]);
    } else {
        v2xspatconv_GateLogEvent(event, V2XLOG_INFO, "%s is forwarded", name);
    }
    g_gate.lastChosen = g_gate.chosen;
}

// Starts and ends the unavailable records, and sends the one that is due.
void UpdateUnavailable() {
    const bool isAnyFresh = IsAnyFresh();
    const bool isLastGone = g_gate.wasAnyFresh && !isAnyFresh;
    g_gate.wasAnyFresh = isAnyFresh;
    if (isAnyFresh) {
        g_gate.nextUnavailable = NEVER;
    } else if (isLastGone && g_gate.guard.m_on_stale_unavailable && g_gate.hasTemplate) {
        g_gate.nextUnavailable = g_gate.now;
    }
    if (g_gate.now >= g_gate.nextUnavailable) {
        SendUnavailable();
        const uint64_t next = g_gate.nextUnavailable + UNAVAILABLE_PERIOD;
        g_gate.nextUnavailable = next > g_gate.now ? next : g_gate.now + UNAVAILABLE_PERIOD;
    }
}

// Brings the state to the time `now`. Callers on several threads may be late by the time that they waited for the lock.
// Returns the next deadline.
uint64_t AdvanceTo(uint64_t now) {
    g_gate.now = std::max(g_gate.now, now);
    uint64_t deadline = NEVER;
    for (v2xspatconv_sourceWatch& source : g_gate.sources) {
        deadline = std::min(deadline, source.Advance(g_gate.now));
    }
    UpdateChoice();
    UpdateUnavailable();
    return std::min(deadline, g_gate.nextUnavailable);
}

// Sends the record, or the record without the lights that the verdict replaces. `lights` are those of the record.
// Returns the result of Send.
int32_t SendChecked(e_v2xspatconv_source source, v2xspatconv_recordBytes record, const v2xspatconv_lights_t& lights,
                    const v2xspatconv_verdict_t& verdict) {
    const bool isConflict = verdict.hasConflict && g_gate.guard.m_on_conflict_unavailable;
    const bool isFrozen = verdict.frozen != 0 && g_gate.guard.m_on_frozen_unavailable;
    if (!isConflict && !isFrozen) {
        const int32_t ret = Send(record);
        if (ret == 0) {
            v2xspatconv_UnitHandOver(source, lights, false, g_gate.now);
        }
        return ret;
    }
    uint8_t replacement[V2XIPC_RECORD_SIZE];
    if (isConflict) {
        MakeUnavailable(record, replacement);
    } else {
        v2xspatconv_ReplaceLights(record, verdict.frozen, replacement);
    }
    g_replaced.Add();
    return SendMade(source, replacement);
}

bool IsOtherIntersection(e_v2xspatconv_source source, v2xspatconv_recordBytes record) {
    v2xipc_phases_t head;
    memcpy(&head, record.data(), sizeof head);
    return source == V2XSPATCONV_CLOUD && g_gate.home.has_value() && head.m_intersectionId != *g_gate.home;
}

std::optional<uint32_t> MakeHome(const spat_conv_config_t& config) {
    const bool isValid = config.m_regionId >= 0 && config.m_regionId <= UINT16_MAX && config.m_nodeId >= 0 &&
                         config.m_nodeId <= UINT16_MAX;
    const auto id = static_cast<uint32_t>(config.m_regionId) << 16 | static_cast<uint32_t>(config.m_nodeId);
    return isValid ? std::optional(id) : std::nullopt;
}

void FillSources(v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES]) {
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        rows[source] = g_gate.sources[source].Row();
        rows[source].isForwarded = rows[source].state != v2xspatconv_sourceState::off && Decide(source) == FORWARDED;
    }
}

// Holds the gate's lock. Publishes the state of the unit before the release, and writes the log lines of the call after
// the release.
class Session {
public:
    Session() {
        g_mutex.lock();
        v2xspatconv_GateLogSelect(&m_lines);
    }
    ~Session() {
        if (v2xspatconv_unitState_t* const unit = v2xspatconv_UnitPrepare(); unit != nullptr) {
            FillSources(unit->sources);
            v2xspatconv_UnitPublish();
        }
        v2xspatconv_GateLogSelect(nullptr);
        g_mutex.unlock();
        v2xspatconv_GateLogWrite(m_lines);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

private:
    v2xspatconv_gateLines_t m_lines;
};

} // namespace

void v2xspatconv_GateInit(const spat_conv_config_t& config, uint64_t now) {
    const Session session;
    g_gate = {};
    g_gate.guard = config.m_guard;
    g_gate.hasCloudLights = config.m_corrections.m_spat_down;
    g_gate.home = MakeHome(config);
    g_gate.now = now;
    const bool isEnabled[V2XSPATCONV_SOURCES] = {config.m_learn_machine_info.m_is_enable,
                                                 config.m_signal_machine_1743_info.m_is_enable, true};
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        const uint64_t staleAfter = uint64_t{1000} * config.m_guard.m_sources[source].m_stale_after;
        g_gate.sources[source].Init(source, isEnabled[source], staleAfter, now);
    }
    v2xspatconv_ChecksInit(config);
    v2xspatconv_UnitInit(config.m_control_path[0] != '\0');
}

void v2xspatconv_GateSwitchOff(e_v2xspatconv_source source) {
    const Session session;
    g_gate.sources[source].SwitchOff();
}

int32_t v2xspatconv_GateRecord(e_v2xspatconv_source source, const v2xipc_phases_t* record,
                               const v2xspatconv_findings_t& findings, v2xpub_address_t sender, uint64_t now) {
    const v2xspatconv_recordBytes bytes{reinterpret_cast<const uint8_t*>(record), V2XIPC_RECORD_SIZE};
    const Session session;
    if (!g_gate.isStopped && IsOtherIntersection(source, bytes)) {
        g_otherIntersection.Add();
        return Send(bytes);
    }
    AdvanceTo(now);
    v2xspatconv_lights_t lights;
    v2xspatconv_ReadLights(bytes, lights);
    if (lights.count > 0) {
        g_gate.sources[source].Accept(sender, g_gate.now);
        UpdateChoice();
        UpdateUnavailable();
    }
    lights.count = CarriesLights(source) ? lights.count : 0;
    const v2xspatconv_verdict_t verdict =
        v2xspatconv_ChecksExamine({source, lights, findings, sender, IsFresh(source), g_gate.now});
    const Decision decision = Decide(source);
    g_decisions[source].counters[decision].Add();
    if (decision != FORWARDED) {
        return 0;
    }
    const int32_t ret = SendChecked(source, bytes, lights, verdict);
    if (ret == 0 && lights.count > 0 && g_gate.guard.m_on_stale_unavailable && g_gate.sources[source].IsWatched()) {
        std::copy(bytes.begin(), bytes.end(), g_gate.templateRecord);
        g_gate.hasTemplate = true;
    }
    return ret;
}

uint64_t v2xspatconv_GateTick(uint64_t now) {
    const Session session;
    const uint64_t sourceDeadline = AdvanceTo(now);
    return std::min(sourceDeadline, v2xspatconv_ChecksTick(g_gate.now));
}

void v2xspatconv_GateStop(void) {
    const Session session;
    if (!g_gate.guard.m_on_stale_unavailable) {
        return;
    }
    if (g_gate.hasTemplate) {
        SendUnavailable();
    }
    g_gate.isStopped = true;
    g_gate.hasTemplate = false;
    g_gate.nextUnavailable = NEVER;
}

void v2xspatconv_GateGetSources(v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES]) {
    const Session session;
    FillSources(rows);
}
