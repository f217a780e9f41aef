#include "spat_conv_config_review.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "spat_conv_config_log.h"
#include "v2x/v2xipc.h"

namespace {

constexpr int32_t PORT_MAX = 65535;
constexpr int32_t IDENTITY_MAX = 65535;

void Report(V2X_CFGHANDLE root, e_v2xcfg_severity severity, const char* key, const std::string& reason) {
    v2xcfg_Report(&g_scfgLog, severity, root, key, reason.c_str());
}

struct RangeRow {
    const char* key;
    int32_t lowest;
    int32_t highest;
    e_v2xcfg_severity severity; // V2XCFG_ERROR: the value is a port, which the adapter truncates to 16 bits
};

constexpr RangeRow RANGES[] = {
    {"rsuSpatConfigInfo.LearnMachine.Port", 1, PORT_MAX, V2XCFG_ERROR},
    {"rsuSpatConfigInfo.LearnMachine.LocalPort", 1, PORT_MAX, V2XCFG_ERROR},
    {"rsuSpatConfigInfo.SignalMachine1743.Port", 1, PORT_MAX, V2XCFG_ERROR},
    {"rsuSpatConfigInfo.SignalMachine1743.LocalPort", 1, PORT_MAX, V2XCFG_ERROR},
    {"rsuSpatConfigInfo.regionId", 0, IDENTITY_MAX, V2XCFG_WARNING},
    {"rsuSpatConfigInfo.nodeId", 0, IDENTITY_MAX, V2XCFG_WARNING},
};

void ReviewRange(V2X_CFGHANDLE root, const RangeRow& row) {
    int32_t value = 0;
    if (v2xcfg_GetNodeValue(root, V2XCFG_TYPE_INT32, row.key, &value, nullptr) != 0 ||
        (value >= row.lowest && value <= row.highest)) {
        return;
    }
    std::string reason =
        std::to_string(value) + " is outside " + std::to_string(row.lowest) + " to " + std::to_string(row.highest);
    if (row.severity == V2XCFG_ERROR) {
        reason += ", the daemon uses port " + std::to_string(static_cast<uint16_t>(value));
    }
    Report(root, row.severity, row.key, reason);
}

// A port on which this machine receives.
struct Port {
    const char* key;
    uint16_t number;
};

// Returns the local ports of the port table, 0 for a port that the kernel chooses.
std::vector<Port> ListIpcPorts() {
    const v2x_ipc_config_t* ipc = nullptr;
    v2xipc_GetIpcConfValue(&ipc);
    v2xpub_addressBlock_t stack{};
    v2xpub_ParseAddressBlock(ipc->m_rsu_rcv_ip, &stack);
    const bool isStackHere = stack.network >> 24 == 127;
    return {{"ipc.spat_conv_sndport", static_cast<uint16_t>(ipc->m_spat_conv_sndport)},
            {"ipc.spat_conv_rcvport", static_cast<uint16_t>(ipc->m_spat_conv_rcvport)},
            {"ipc.spatconv_logtool_rcvport", static_cast<uint16_t>(ipc->m_spatconv_logtool_rcvport)},
            {"ipc.app_rs_rcvport", static_cast<uint16_t>(isStackHere ? ipc->m_app_rs_rcvport : 0)}};
}

struct AdapterRow {
    const char* portKey;
    const char* sendersKey;
    learn_machine_info_t spat_conv_config_t::*adapter;
    e_v2xspatconv_source source;
};

constexpr AdapterRow ADAPTERS[] = {
    {"rsuSpatConfigInfo.LearnMachine.LocalPort", "rsuSpatConfigInfo.LearnMachine.OnlyFrom",
     &spat_conv_config_t::m_learn_machine_info, V2XSPATCONV_LEARNER},
    {"rsuSpatConfigInfo.SignalMachine1743.LocalPort", "rsuSpatConfigInfo.SignalMachine1743.OnlyFrom",
     &spat_conv_config_t::m_signal_machine_1743_info, V2XSPATCONV_1743},
};

// Compares the adapter's port with `ports` and appends the port.
void ReviewAdapter(V2X_CFGHANDLE root, const spat_conv_config_t& config, const AdapterRow& row,
                   std::vector<Port>& ports) {
    const learn_machine_info_t& adapter = config.*row.adapter;
    if (!adapter.m_is_enable) {
        return;
    }
    const auto number = static_cast<uint16_t>(adapter.m_local_port);
    const auto same = std::find_if(ports.begin(), ports.end(), [&](const Port& port) { return port.number == number; });
    if (number != 0 && same != ports.end()) {
        Report(root, V2XCFG_WARNING, row.portKey, "port " + std::to_string(number) + " is also " + same->key);
    }
    ports.push_back({row.portKey, number});
    if (config.m_guard.m_sources[row.source].m_only_from.count == 0) {
        v2xcfg_Report(nullptr, V2XCFG_NOTE, root, row.sendersKey, "missing, every sender is accepted");
    }
}

void ReviewLearnerIp(V2X_CFGHANDLE root, const spat_conv_config_t& config) {
    constexpr char KEY[] = "rsuSpatConfigInfo.LearnMachine.Ip";
    const learn_machine_info_t& learner = config.m_learn_machine_info;
    v2xpub_addressBlock_t ip{};
    if (!learner.m_is_enable) {
        return;
    }
    if (strchr(learner.m_ip, '/') != nullptr || v2xpub_ParseAddressBlock(learner.m_ip, &ip) != 0) {
        v2xcfg_Report(nullptr, V2XCFG_WARNING, root, KEY,
                      "missing or not a dotted IPv4 address, the learner gets no heartbeats"); // the adapter logs this
    } else if (!v2xpub_IsSender(config.m_guard.m_sources[V2XSPATCONV_LEARNER].m_only_from, ip.network)) {
        Report(root, V2XCFG_WARNING, KEY, std::string(learner.m_ip) + " is not in OnlyFrom, its reports are refused");
    }
}

// Returns true if a source whose records carry lights is watched.
bool IsAnyWatched(const spat_conv_config_t& config) {
    const auto& sources = config.m_guard.m_sources;
    const auto isWatched = [&](e_v2xspatconv_source source) { return sources[source].m_stale_after != 0; };
    return (config.m_learn_machine_info.m_is_enable && isWatched(V2XSPATCONV_LEARNER)) ||
           (config.m_signal_machine_1743_info.m_is_enable && isWatched(V2XSPATCONV_1743)) ||
           (config.m_corrections.m_spat_down && isWatched(V2XSPATCONV_CLOUD));
}

bool IsAnyDeviceEnabled(const spat_conv_config_t& config) {
    return config.m_learn_machine_info.m_is_enable || config.m_signal_machine_1743_info.m_is_enable;
}

// Reports reactions that never take effect.
void ReviewReactions(V2X_CFGHANDLE root, const spat_conv_config_t& config) {
    const v2xspatconv_guard_t& guard = config.m_guard;
    const struct {
        const char* key;
        bool isUseless;
        const char* reason;
    } rows[] = {
        {"rsuSpatConfigInfo.Guard.OnStale",
         guard.m_on_stale_unavailable && IsAnyDeviceEnabled(config) && !IsAnyWatched(config),
         "\"unavailable\" has no effect, no enabled source is watched"},
        {"rsuSpatConfigInfo.Guard.OnConflict", guard.m_on_conflict_unavailable && guard.m_conflict_count == 0,
         "\"unavailable\" has no effect without Guard.Conflicts"},
        {"rsuSpatConfigInfo.Guard.OnFrozen",
         guard.m_on_frozen_unavailable && (guard.m_ignore[V2XSPATCONV_CHECK_FROZEN] & 1) != 0,
         "\"unavailable\" has no effect, Guard.Ignore contains frozen"},
    };
    for (const auto& row : rows) {
        if (row.isUseless) {
            Report(root, V2XCFG_WARNING, row.key, row.reason);
        }
    }
}

} // namespace

void v2xspatconv_Review(V2X_CFGHANDLE root, const spat_conv_config_t& config,
                        const std::vector<const char*>& knownKeys) {
    v2xcfg_ReportUnknownKeys(&g_scfgLog, root, knownKeys.data(), static_cast<int32_t>(knownKeys.size()));
    for (const RangeRow& row : RANGES) {
        ReviewRange(root, row);
    }
    std::vector<Port> ports = ListIpcPorts();
    ReviewLearnerIp(root, config);
    ReviewReactions(root, config);
    for (const AdapterRow& row : ADAPTERS) {
        ReviewAdapter(root, config, row, ports);
    }
    if (!IsAnyDeviceEnabled(config)) {
        v2xcfg_Report(nullptr, V2XCFG_NOTE, root, "rsuSpatConfigInfo.LearnMachine.IsEnable",
                      "no adapter is enabled, the cloud is the only source");
    }
    if (config.m_guard.m_conflict_count == 0) {
        v2xcfg_Report(nullptr, V2XCFG_NOTE, root, "rsuSpatConfigInfo.Guard.Conflicts",
                      "missing, the check conflict finds nothing");
    }
}
