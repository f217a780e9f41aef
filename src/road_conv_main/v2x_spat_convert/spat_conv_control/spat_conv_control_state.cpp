#include "spat_conv_control_state.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "spat_conv_control_events.h"
#include "spat_conv_control_json.h"
#include "spat_conv_gate.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xpub.h"

namespace {

using Config = spat_conv_config_t;

// State of the unit at one time. Times are in microseconds.
struct Snapshot {
    const Config& config;
    v2xspatconv_unitState_t unit;
    uint64_t refused[V2XSPATCONV_SOURCES]; // datagrams that the sender filter has refused
    uint64_t now;                          // monotonic
    uint64_t wallTime;
};

// Adds the refused datagrams of one socket to the array `refused`.
void CountRefused(void* refused, const char* name, const v2xpub_UdpSocketStats_t* stats) {
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        if (strcmp(name, V2XSPATCONV_SOCKET_NAMES[source]) == 0) {
            static_cast<uint64_t*>(refused)[source] += stats->refusedSender;
        }
    }
}

uint64_t AgeOf(const Snapshot& snapshot, uint64_t time) {
    return snapshot.now - std::min(snapshot.now, time);
}

// Adds the time since `time`, or null if `time` is 0.
void AddAge(cJSON* object, const Snapshot& snapshot, uint64_t time) {
    if (time != 0) {
        v2xspatconv_AddSeconds(object, "age", AgeOf(snapshot, time));
    } else {
        cJSON_AddNullToObject(object, "age");
    }
}

bool IsRequired(const Config& config, e_v2xspatconv_source source) {
    const v2xspatconv_guard_t& guard = config.m_guard;
    if (source == V2XSPATCONV_CLOUD) {
        return guard.m_sources[source].m_stale_after != 0;
    }
    const bool isEnabled[] = {config.m_learn_machine_info.m_is_enable, config.m_signal_machine_1743_info.m_is_enable};
    const auto* const end = guard.m_priority + guard.m_priority_count;
    return isEnabled[source] && (guard.m_priority_count == 0 || std::find(guard.m_priority, end, source) != end);
}

// Adds the records per second, or null if they are unknown. The rate falls while no record arrives.
void AddRate(cJSON* object, const Snapshot& snapshot, const v2xspatconv_sourceRow_t& row) {
    if (row.interval == 0) {
        cJSON_AddNullToObject(object, "rate");
        return;
    }
    const uint64_t interval = std::max(row.interval, AgeOf(snapshot, row.lastAccepted));
    cJSON_AddNumberToObject(object, "rate", std::round(1e8 / static_cast<double>(interval)) / 100);
}

void AddSource(cJSON* sources, const Snapshot& snapshot, e_v2xspatconv_source source) {
    const v2xspatconv_sourceRow_t& row = snapshot.unit.sources[source];
    cJSON* const object = v2xspatconv_AppendObject(sources);
    cJSON_AddStringToObject(object, "source", V2XSPATCONV_SOURCE_NAMES[source]);
    cJSON_AddStringToObject(object, "state", V2XSPATCONV_STATE_NAMES[static_cast<size_t>(row.state)]);
    cJSON_AddBoolToObject(object, "required", IsRequired(snapshot.config, source));
    cJSON_AddBoolToObject(object, "forwarded", row.isForwarded);
    v2xspatconv_AddText(object, "peer", row.sender.ip != 0 ? v2xpub_FormatIp(row.sender).text : nullptr);
    AddAge(object, snapshot, row.lastAccepted);
    AddRate(object, snapshot, row);
    cJSON_AddNumberToObject(object, "accepted", static_cast<double>(row.accepted));
    cJSON_AddNumberToObject(object, "refused", static_cast<double>(snapshot.refused[source]));
    v2xspatconv_AddSeconds(object, "stale_after",
                           uint64_t{1000} * snapshot.config.m_guard.m_sources[source].m_stale_after);
}

void AddPeers(cJSON* reply, const Snapshot& snapshot, const v2xspatconv_peers_t& peers) {
    const v2x_ipc_config_t* ipc = nullptr;
    v2xipc_GetIpcConfValue(&ipc);
    const std::string address =
        std::string(ipc->m_rsu_rcv_ip) + ":" + std::to_string(static_cast<uint16_t>(ipc->m_app_rs_rcvport));
    cJSON* const stack = cJSON_AddObjectToObject(reply, "stack");
    cJSON_AddStringToObject(stack, "state", peers.stackState);
    cJSON_AddStringToObject(stack, "peer", address.c_str());
    AddAge(stack, snapshot, peers.lastAnswer);
    cJSON* const cloud = cJSON_AddObjectToObject(reply, "cloud");
    cJSON_AddBoolToObject(cloud, "available", peers.isCloudAvailable);
    AddAge(cloud, snapshot, peers.lastCloudStatus);
    v2xspatconv_AddText(cloud, "topic", peers.upTopic);
    cJSON_AddNumberToObject(cloud, "readers", peers.upReaders);
}

void AddCheck(cJSON* checks, const Snapshot& snapshot, int32_t check, e_v2xspatconv_source source) {
    const v2xspatconv_checkRow_t& row = snapshot.unit.checks[check][source];
    if (row.count == 0) {
        return;
    }
    const uint64_t age = AgeOf(snapshot, row.lastSight);
    cJSON* const object = v2xspatconv_AppendObject(checks);
    cJSON_AddStringToObject(object, "check", V2XSPATCONV_CHECK_NAMES[check]);
    cJSON_AddStringToObject(object, "source", V2XSPATCONV_SOURCE_NAMES[source]);
    cJSON_AddBoolToObject(object, "active", row.isActive);
    cJSON_AddNumberToObject(object, "count", static_cast<double>(row.count));
    cJSON_AddStringToObject(object, "last", v2xspatconv_FormatTime(snapshot.wallTime - age).c_str());
    v2xspatconv_AddSeconds(object, "age", age);
    v2xspatconv_AddPhases(object, {row.phases, std::min<size_t>(row.phaseCount, std::size(row.phases))});
}

Snapshot TakeSnapshot(const Config& config) {
    Snapshot snapshot = {config, {}, {}, 0, 0};
    v2xspatconv_GateReadUnit(snapshot.unit);
    v2xpub_UdpSocketVisitStats(CountRefused, snapshot.refused);
    snapshot.now = v2xpub_GetMonotonicTime();
    snapshot.wallTime = v2xpub_CommGetCurrentTime64();
    return snapshot;
}

// Adds the phase of the source that feeds a SPAT phase.
void AddDevicePhase(cJSON* object, const Config& config, uint8_t phase, uint8_t source) {
    if (source != V2XSPATCONV_LEARNER && source != V2XSPATCONV_1743) {
        cJSON_AddNullToObject(object, "device_phase");
        return;
    }
    const uint16_t mapped = config.m_guard.m_sources[source].m_phaseid[phase];
    cJSON_AddNumberToObject(object, "device_phase", mapped != 0 ? mapped : phase);
}

} // namespace

void v2xspatconv_AddStatus(cJSON* reply, const v2xspatconv_controlContext_t& context) {
    const Config& config = *context.config;
    const Snapshot snapshot = TakeSnapshot(config);
    const uint32_t intersection =
        static_cast<uint32_t>(config.m_regionId) << 16 | static_cast<uint32_t>(config.m_nodeId);
    cJSON_AddStringToObject(reply, "version", context.unit.version);
    cJSON_AddStringToObject(reply, "release", context.unit.release);
    cJSON_AddNumberToObject(reply, "pid", getpid());
    v2xspatconv_AddSeconds(reply, "uptime", AgeOf(snapshot, context.start));
    cJSON_AddStringToObject(reply, "started", v2xspatconv_FormatTime(context.startWall).c_str());
    cJSON_AddStringToObject(reply, "device", config.m_sysinfo.m_device_id);
    cJSON_AddNumberToObject(reply, "region", config.m_regionId);
    cJSON_AddNumberToObject(reply, "node", config.m_nodeId);
    cJSON_AddNumberToObject(reply, "intersection", intersection);
    cJSON* const sources = cJSON_AddArrayToObject(reply, "sources");
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        AddSource(sources, snapshot, source);
    }
    AddPeers(reply, snapshot, context.unit.readPeers());
    cJSON* const checks = cJSON_AddArrayToObject(reply, "checks");
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        for (const auto source : V2XSPATCONV_ALL_SOURCES) {
            AddCheck(checks, snapshot, check, source);
        }
    }
}

void v2xspatconv_AddLights(cJSON* reply, const v2xspatconv_controlContext_t& context) {
    const Snapshot snapshot = TakeSnapshot(*context.config);
    cJSON* const lights = cJSON_AddArrayToObject(reply, "lights");
    for (uint8_t phase = 1; phase <= V2XSPATCONV_UNIT_PHASES; phase++) {
        const v2xspatconv_phaseRow_t& row = snapshot.unit.phases[phase];
        if (row.time == 0) {
            continue;
        }
        cJSON* const object = v2xspatconv_AppendObject(lights);
        cJSON_AddNumberToObject(object, "phase", phase);
        AddDevicePhase(object, *context.config, phase, row.source);
        cJSON_AddStringToObject(object, "light", v2xspatconv_NameOfLight(row.light));
        v2xspatconv_AddTimeLeft(object, row.timeLeft);
        AddAge(object, snapshot, row.time);
        v2xspatconv_AddText(object, "source", v2xspatconv_NameOfSource(row.source));
    }
}
