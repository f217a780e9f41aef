#include "check.h"

#include <bit>
#include <iterator>
#include <string_view>
#include <vector>

#include "common/json.h"
#include "common/text.h"
#include "options.h"
#include "spat_conv_config.h"
#include "v2x/v2xcfg.h"
#include "v2x/v2xipc.h"

namespace ctl {
namespace {

using tools::FormatText;

constexpr int32_t SPAT_PHASE_MAX = 32;

// What the tool prints about a configuration.
struct Report {
    struct Phase {
        const char* source;
        int32_t phase; // SPAT phase
        int32_t devicePhase;
        const char* from; // origin of the assignment
    };
    struct Port {
        const char* name;
        const char* use; // "receives", "sends" or "off"
        std::string local;
        std::string peer; // the senders of a port that receives, for example "10.0.0.2, 192.168.1.0/24"
    };
    std::vector<std::string> problems;
    std::vector<std::string> notes;
    std::vector<Phase> phases;
    std::vector<Port> ports;
    const spat_conv_config_t* unit = nullptr; // null: the daemon does not start, and there are no phases and ports
};

void AddProblem(void* arg, e_v2xcfg_severity severity, const char* text) {
    Report& report = *static_cast<Report*>(arg);
    (severity == V2XCFG_NOTE ? report.notes : report.problems).emplace_back(text);
}

void AddPhases(const char* source, const v2xspatconv_sourceGuard_t& guard, Report& report) {
    const char* const table = guard.m_has_own_phases ? "own table" : "common table";
    for (int32_t phase = 1; phase <= SPAT_PHASE_MAX; phase++) {
        const uint16_t mapped = guard.m_phaseid[phase];
        report.phases.push_back({source, phase, mapped == 0 ? phase : mapped, mapped == 0 ? "same number" : table});
    }
}

// Returns the senders as "10.0.0.2, 192.168.1.0/24", or "any sender".
std::string DescribeSenders(const v2xpub_senders_t& senders) {
    std::string text;
    for (int32_t i = 0; i < senders.count; i++) {
        const v2xpub_addressBlock_t& block = senders.blocks[i];
        const int prefix = std::popcount(block.mask);
        text += i > 0 ? ", " : "";
        text += v2xpub_FormatIp({block.network, 0}).text;
        text += prefix < 32 ? FormatText("/%d", prefix) : "";
    }
    return senders.count > 0 ? text : "any sender";
}

// Returns "192.168.1.10:8002". The daemon uses the low 16 bits of a port.
std::string FormatEndpoint(const char* ip, int32_t port) {
    return FormatText("%s:%u", ip, static_cast<uint16_t>(port));
}

void AddPortTable(Report& report) {
    const v2x_ipc_config_t* ipc = nullptr;
    v2xipc_GetIpcConfValue(&ipc);
    const std::string stack = FormatEndpoint(ipc->m_rsu_rcv_ip, ipc->m_app_rs_rcvport);
    const std::string requests = FormatEndpoint(ipc->m_local_ip, ipc->m_spat_conv_rcvport);
    report.ports.push_back({"records", "sends", FormatEndpoint(ipc->m_local_ip, ipc->m_spat_conv_sndport), stack});
    report.ports.push_back({"requests", "sends", requests, stack});
    report.ports.push_back({"replies", "receives", requests, DescribeSenders(v2xipc_ListStackSenders(*ipc))});
    report.ports.push_back({"log tool", "receives", FormatEndpoint(ipc->m_local_ip, ipc->m_spatconv_logtool_rcvport),
                            DescribeSenders(v2xipc_ListLogToolSenders(*ipc))});
}

void AddUnit(const spat_conv_config_t& config, Report& report) {
    const learn_machine_info_t adapters[] = {config.m_learn_machine_info, config.m_signal_machine_1743_info};
    for (size_t i = 0; i < std::size(adapters); i++) {
        const v2xspatconv_sourceGuard_t& guard = config.m_guard.m_sources[i];
        const char* const name = V2XSPATCONV_SOURCE_NAMES[i];
        if (adapters[i].m_is_enable) {
            AddPhases(name, guard, report);
            report.ports.push_back({name, "receives", FormatEndpoint(guard.m_local_ip, adapters[i].m_local_port),
                                    DescribeSenders(guard.m_only_from)});
        } else {
            report.ports.push_back({name, "off", "", ""});
        }
    }
    AddPortTable(report);
    report.unit = &config;
}

// ---- text

std::string FormatPhases(const std::vector<Report::Phase>& phases) {
    std::string text;
    const char* source = nullptr;
    for (const Report::Phase& row : phases) {
        if (row.source != source) {
            text += FormatText("\n%s\nSPAT PHASE  DEVICE PHASE  FROM\n", row.source);
            source = row.source;
        }
        text += FormatText("%-12d%-14d%s\n", row.phase, row.devicePhase, row.from);
    }
    return text;
}

std::string FormatPort(const Report::Port& port) {
    const bool isSender = port.use == std::string_view("sends");
    std::string text = FormatText("%s: %s", port.name, port.use);
    if (!port.local.empty()) {
        text += (isSender ? " from " : " on ") + port.local + (isSender ? " to " : " from ") + port.peer;
    }
    return text + "\n";
}

uint32_t GetIntersection(const spat_conv_config_t& config) {
    return static_cast<uint32_t>(config.m_regionId) << 16 | static_cast<uint32_t>(config.m_nodeId);
}

std::string FormatReport(const Report& report) {
    std::string text;
    for (const std::string& problem : report.problems) {
        text += problem + "\n";
    }
    for (const std::string& note : report.notes) {
        text += "note: " + note + "\n";
    }
    text += FormatText("%zu problem%s\n", report.problems.size(), report.problems.size() == 1 ? "" : "s");
    if (report.unit == nullptr) {
        return text + "The daemon does not start with this configuration.\n";
    }
    text += FormatPhases(report.phases);
    text += FormatText("\nregion %d, node %d, intersection id %u, device_id %s\n", report.unit->m_regionId,
                       report.unit->m_nodeId, GetIntersection(*report.unit), report.unit->m_sysinfo.m_device_id);
    for (const Report::Port& port : report.ports) {
        text += FormatPort(port);
    }
    return text;
}

// ---- JSON

void AddTexts(cJSON* json, const char* name, const std::vector<std::string>& texts) {
    cJSON* const array = cJSON_AddArrayToObject(json, name);
    for (const std::string& text : texts) {
        cJSON_AddItemToArray(array, cJSON_CreateString(text.c_str()));
    }
}

// Adds an object to an array and returns the object.
cJSON* AddObject(cJSON* array) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

void AddIdentity(cJSON* json, const spat_conv_config_t& config) {
    cJSON_AddStringToObject(json, "device", config.m_sysinfo.m_device_id);
    cJSON_AddNumberToObject(json, "region", config.m_regionId);
    cJSON_AddNumberToObject(json, "node", config.m_nodeId);
    cJSON_AddNumberToObject(json, "intersection", GetIntersection(config));
}

std::string FormatJson(const Report& report) {
    const tools::Json json(cJSON_CreateObject());
    AddTexts(json.get(), "problems", report.problems);
    AddTexts(json.get(), "notes", report.notes);
    if (report.unit != nullptr) {
        AddIdentity(json.get(), *report.unit);
    }
    cJSON* const phases = cJSON_AddArrayToObject(json.get(), "phases");
    for (const Report::Phase& row : report.phases) {
        cJSON* const phase = AddObject(phases);
        cJSON_AddStringToObject(phase, "source", row.source);
        cJSON_AddNumberToObject(phase, "phase", row.phase);
        cJSON_AddNumberToObject(phase, "device_phase", row.devicePhase);
        cJSON_AddStringToObject(phase, "from", row.from);
    }
    cJSON* const ports = cJSON_AddArrayToObject(json.get(), "ports");
    for (const Report::Port& row : report.ports) {
        cJSON* const port = AddObject(ports);
        cJSON_AddStringToObject(port, "name", row.name);
        cJSON_AddStringToObject(port, "use", row.use);
        cJSON_AddStringToObject(port, "local", row.local.c_str());
        cJSON_AddStringToObject(port, "peer", row.peer.c_str());
    }
    return tools::PrintJson(json.get());
}

} // namespace

CheckResult CheckConfiguration(const std::string& workDir) {
    const Configuration loaded = LoadConfiguration(workDir); // v2xcfg_VisitProblems lists the reason of a failure, too
    Report report;
    v2xcfg_VisitProblems(AddProblem, &report);
    if (!loaded.isPortTableRefused && loaded.unit != nullptr) {
        AddUnit(*loaded.unit, report);
    }
    return {FormatReport(report), FormatJson(report), report.problems.empty()};
}

} // namespace ctl
