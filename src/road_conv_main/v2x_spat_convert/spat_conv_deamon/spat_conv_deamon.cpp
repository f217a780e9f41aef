#include "spat_conv_deamon.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <span>
#include <string>

#include "spat_conv_config.h"
#include "spat_conv_control.h"
#include "spat_conv_deamon_codec_log.h"
#include "spat_conv_deamon_counters.h"
#include "spat_conv_deamon_options.h"
#include "spat_conv_deamon_service.h"
#include "spat_conv_deamon_signals.h"
#include "spat_conv_deamon_status.h"
#include "spat_conv_deamon_threads.h"
#include "spat_conv_gate.h"
#include "spat_conv_interface.h"
#include "spat_conv_interface_tasks.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

constexpr int32_t IPC_CFG_REFUSED = -5; // result of v2xipc_CfgInit
constexpr int32_t ALIVE_MS = 5000;
constexpr uint64_t SECOND = 1000000; // microseconds
constexpr uint64_t COUNTERS_INTERVAL = 60 * SECOND;

// The log tool lists the tags in this order.
constexpr const char* LOG_TAGS[] = {"UDPA", "TASK", "MQPS", "MCFG", "SPAT", "SDDS", "SCFG", "INTF", "SINF",
                                    "SCOM", "DOWN", "SPUP", "VCFG", "UPER", "1743", "QUOR", "LSKU", "VIPC"};

void OpenLog(const v2xspatconv_options_t& options) {
    v2xlog_Init(options.g_logfilePath, "SPAT", 1, 1, 0);
    for (const char* name : LOG_TAGS) {
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag(name, &handle);
        v2xlog_SetTagLevel(handle, options.g_logLevelFlag);
    }
    v2xspatconv_SetCodecLog();
    V2XLOG(g_log, V2XLOG_INFO, "v2x_spat_convert %s starts with work directory %s", V2XSPATCONV_VERSION,
           options.g_workDir);
}

void StartAdapters(const spat_conv_config_t& config) {
    V2XLOG(g_log, V2XLOG_INFO, "signal learner %s, GA/T 1743 controller %s",
           config.m_learn_machine_info.m_is_enable ? "enabled" : "disabled",
           config.m_signal_machine_1743_info.m_is_enable ? "enabled" : "disabled");
    if (config.m_learn_machine_info.m_is_enable) {
        v2xspatconv_QuorSignalLearnerInterfaceInit(config);
    }
    if (config.m_signal_machine_1743_info.m_is_enable) {
        v2xspatconv_SignalMachine1743InterfaceInit(config);
    }
}

v2xspatconv_peers_t ReadPeers() {
    constexpr const char* STATES[] = {"unknown", "answers", "silent"}; // index: v2xspatconv_stackState
    const v2xcloud_comm_ddsinfo& ddsinfo = *v2xspatconv_GetddsInfo();
    return {STATES[static_cast<size_t>(v2xspatconv_GetStackState())],
            v2xspatconv_GetLastAnswer(),
            ddsinfo.cloud_available,
            v2xspatconv_GetCloudStatusTime(),
            ddsinfo.mp_spat_up_topic,
            get_match_cnt(ddsinfo.dds_object, ddsinfo.mp_spat_up_topic)};
}

// Prints why the configuration is refused and requests a stop. Returns `ret`.
int32_t RefuseConfiguration(int32_t ret, const char* reason) {
    fprintf(stderr, "v2x_spat_convert: %s\n", reason);
    v2xspatconv_RequestStop();
    return ret;
}

void UpdateCloudAvailable() {
    v2xcloud_comm_ddsinfo& ddsinfo = *v2xspatconv_GetddsInfo();
    service_status_t cloud = {};
    v2xspatconv_GetCloudStatus(cloud);
    const bool isAvailable = cloud.run_status == V2X_CONV_RUN_STATUS_AVAILABLE;
    if (isAvailable != ddsinfo.cloud_available) {
        V2XLOG(g_log, V2XLOG_INFO, "cloud %s", isAvailable ? "available" : "unavailable");
    }
    ddsinfo.cloud_available = isAvailable;
}

// Sends the status line to the service manager if the line has changed.
void UpdateServiceStatus() {
    static std::string sentLine;
    v2xspatconv_sourceRow_t rows[V2XSPATCONV_SOURCES];
    v2xspatconv_GateGetSources(rows);
    const std::string line = v2xspatconv_FormatStatus(
        rows, v2xspatconv_GetStackState(), v2xspatconv_GetddsInfo()->cloud_available, v2xpub_GetMonotonicTime());
    if (line != sentLine && v2xspatconv_ServiceStatus(line)) {
        sentLine = line;
    }
}

bool g_isAnyStuck = false; // a thread makes no progress; main thread only

void CheckThreads() {
    g_isAnyStuck = !v2xspatconv_CheckThreads(v2xpub_GetMonotonicTime());
}

void FeedWatchdog() {
    if (!g_isAnyStuck) {
        v2xspatconv_ServiceAlive();
    }
}

void LogChangedCounters() {
    v2xspatconv_LogCounters(false);
}

// A job of the main loop. Times are monotonic, in microseconds.
struct Job {
    uint64_t interval;
    void (*run)();
    uint64_t next;
};

// Runs the jobs that are due and returns the next deadline.
uint64_t RunJobs(std::span<Job> jobs, uint64_t now) {
    uint64_t deadline = UINT64_MAX;
    for (Job& job : jobs) {
        if (now >= job.next) {
            job.run();
            job.next += ((now - job.next) / job.interval + 1) * job.interval; // without drift: jobs share wake-ups
        }
        deadline = std::min(deadline, job.next);
    }
    return deadline;
}

void RunMainLoop() {
    const uint64_t start = v2xpub_GetMonotonicTime();
    const auto aliveInterval = uint64_t{1000} * static_cast<uint64_t>(v2xspatconv_ServiceInterval(ALIVE_MS));
    Job jobs[] = {
        {SECOND, CheckThreads, start},
        {aliveInterval, FeedWatchdog, start},
        {5 * SECOND, tzset, start}, // rereads the time zone, which may change; localtime_r does not reread it
        {SECOND, UpdateCloudAvailable, start},
        {SECOND, UpdateServiceStatus, start},
        {COUNTERS_INTERVAL, LogChangedCounters, start + COUNTERS_INTERVAL},
    };
    while (v2xspatconv_IsRunning()) {
        if (v2xspatconv_TakeHangup()) {
            V2XLOG(g_log, V2XLOG_INFO, "SIGHUP ignored, restart the daemon to apply a changed configuration");
        }
        const uint64_t now = v2xpub_GetMonotonicTime();
        const uint64_t gateDeadline = v2xspatconv_GateTick(now);
        const uint64_t deadline = std::min(gateDeadline, RunJobs(jobs, now));
        v2xspatconv_SleepUnlessStopped(static_cast<int32_t>((deadline - std::min(deadline, now) + 999) / 1000));
    }
}

} // namespace

int32_t v2xspatconv_init(int32_t argc, char** argv) {
    const v2xspatconv_options_t options = v2xspatconv_ParseOptions(argc, argv);
    OpenLog(options);
    const int32_t ipcRet = v2xipc_CfgInit(options.g_workDir);
    v2xspatconv_signalsRegister();
    v2xspatconv_InitCfg(options.g_workDir);
    v2xpub_PubSubInit();
    if (ipcRet == IPC_CFG_REFUSED) {
        return RefuseConfiguration(ipcRet, v2xipc_GetCfgErrorText());
    }
    const spat_conv_config_t* config = nullptr;
    const int32_t ret = v2xspatconv_GetCfgData(&config);
    if (ret != 0) {
        return RefuseConfiguration(ret, v2xspatconv_GetCfgErrorText());
    }
    v2xspatconv_StackInterfaceInit();
    v2xspatconv_GateInit(*config, v2xpub_GetMonotonicTime());
    StartAdapters(*config);
    service_status_t status = {};
    status.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT;
    status.run_status = V2X_CONV_RUN_STATUS_AVAILABLE;
    v2xspatconv_SetSpatConvStatus(status);
    v2xcloud_ddsInit(config->m_sysinfo.m_device_id);
    v2xspatconv_TaskInit();
    v2xspatconv_ControlInit(*config, {V2XSPATCONV_VERSION, V2X_VERSION, ReadPeers});
    return 0;
}

int32_t v2xspatconv_exec(void) {
    if (v2xspatconv_IsRunning()) {
        v2xspatconv_ServiceReady();
    }
    RunMainLoop();
    v2xspatconv_ServiceStopping();
    v2xspatconv_ControlStop();
    v2xspatconv_GateStop();
    v2xcloud_ddsExit(v2xspatconv_GetddsInfo());
    v2xspatconv_LogCounters(true);
    V2XLOG(g_log, V2XLOG_INFO, "v2x_spat_convert stops");
    return 0;
}
