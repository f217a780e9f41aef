#include "check.h"

#include <bit>
#include <iterator>

#include "common/text.h"
#include "options.h"
#include "spat_conv_config.h"
#include "v2x/v2xcfg.h"
#include "v2x/v2xipc.h"

namespace ctl {
namespace {

using tools::FormatText;

constexpr int32_t SPAT_PHASE_MAX = 32;

struct Problems {
    std::string problems;
    std::string notes;
    int32_t count = 0; // number of problems, without the notes
};

void AddProblem(void* arg, e_v2xcfg_severity severity, const char* text) {
    Problems& result = *static_cast<Problems*>(arg);
    if (severity == V2XCFG_NOTE) {
        result.notes += FormatText("note: %s\n", text);
    } else {
        result.problems += FormatText("%s\n", text);
        result.count++;
    }
}

// Returns the table of the SPAT phases: the device phase of each, and where the assignment comes from.
std::string DescribePhases(const char* name, const v2xspatconv_sourceGuard_t& guard) {
    const char* const table = guard.m_has_own_phases ? "own table" : "common table";
    std::string text = FormatText("%s\nSPAT PHASE  DEVICE PHASE  FROM\n", name);
    for (int32_t phase = 1; phase <= SPAT_PHASE_MAX; phase++) {
        const uint16_t mapped = guard.m_phaseid[phase];
        text += FormatText("%-12d%-14d%s\n", phase, mapped == 0 ? phase : mapped, mapped == 0 ? "same number" : table);
    }
    return text + "\n";
}

std::string DescribeIdentity(const spat_conv_config_t& config) {
    const uint32_t intersection =
        static_cast<uint32_t>(config.m_regionId) << 16 | static_cast<uint32_t>(config.m_nodeId);
    return FormatText("region %d, node %d, intersection id %u, device_id %s\n", config.m_regionId, config.m_nodeId,
                      intersection, config.m_sysinfo.m_device_id);
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

std::string DescribeReceiver(const char* name, const char* ip, int32_t port, const v2xpub_senders_t& senders) {
    return FormatText("%s: receives on %s:%u from %s\n", name, ip, static_cast<uint16_t>(port),
                      DescribeSenders(senders).c_str());
}

std::string DescribePorts() {
    const v2x_ipc_config_t* ipc = nullptr;
    v2xipc_GetIpcConfValue(&ipc);
    const auto stackPort = static_cast<uint16_t>(ipc->m_app_rs_rcvport);
    return FormatText("records: sends from %s:%u to %s:%u\n", ipc->m_local_ip,
                      static_cast<uint16_t>(ipc->m_spat_conv_sndport), ipc->m_rsu_rcv_ip, stackPort) +
           FormatText("requests: sends from %s:%u to %s:%u\n", ipc->m_local_ip,
                      static_cast<uint16_t>(ipc->m_spat_conv_rcvport), ipc->m_rsu_rcv_ip, stackPort) +
           DescribeReceiver("replies", ipc->m_local_ip, ipc->m_spat_conv_rcvport, v2xipc_ListStackSenders(*ipc)) +
           DescribeReceiver("log tool", ipc->m_local_ip, ipc->m_spatconv_logtool_rcvport,
                            v2xipc_ListLogToolSenders(*ipc));
}

std::string DescribeConfig(const spat_conv_config_t& config) {
    const learn_machine_info_t adapters[] = {config.m_learn_machine_info, config.m_signal_machine_1743_info};
    std::string phases;
    std::string ports;
    for (size_t i = 0; i < std::size(adapters); i++) {
        const v2xspatconv_sourceGuard_t& guard = config.m_guard.m_sources[i];
        const char* const name = V2XSPATCONV_SOURCE_NAMES[i];
        if (adapters[i].m_is_enable) {
            phases += DescribePhases(name, guard);
            ports += DescribeReceiver(name, guard.m_local_ip, adapters[i].m_local_port, guard.m_only_from);
        } else {
            ports += FormatText("%s: off\n", name);
        }
    }
    return "\n" + phases + DescribeIdentity(config) + ports + DescribePorts();
}

} // namespace

CheckResult CheckConfiguration(const std::string& workDir) {
    const Configuration loaded = LoadConfiguration(workDir); // v2xcfg_VisitProblems lists the reason of a failure, too
    Problems found;
    v2xcfg_VisitProblems(AddProblem, &found);
    const std::string summary = FormatText("%d problem%s\n", found.count, found.count == 1 ? "" : "s");
    const std::string effective = loaded.isPortTableRefused || loaded.unit == nullptr
                                      ? "The daemon does not start with this configuration.\n"
                                      : DescribeConfig(*loaded.unit);
    return {found.problems + found.notes + summary + effective, found.count == 0};
}

} // namespace ctl
