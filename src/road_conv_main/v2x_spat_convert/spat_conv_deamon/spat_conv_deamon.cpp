#include "spat_conv_deamon.h"

#include <cstdio>
#include <ctime>

#include "spat_conv_config.h"
#include "spat_conv_deamon_counters.h"
#include "spat_conv_deamon_options.h"
#include "spat_conv_deamon_service.h"
#include "spat_conv_deamon_signals.h"
#include "spat_conv_interface.h"
#include "spat_conv_interface_tasks.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

constexpr int32_t MAIN_LOOP_MS = 5000;
constexpr int32_t COUNTERS_MS = 60000;

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

void UpdateCloudAvailable(v2xcloud_comm_ddsinfo& ddsinfo) {
    service_status_t cloud = {};
    v2xspatconv_GetCloudStatus(cloud);
    const bool isAvailable = cloud.run_status == V2X_CONV_RUN_STATUS_AVAILABLE;
    if (isAvailable != ddsinfo.cloud_available) {
        V2XLOG(g_log, V2XLOG_INFO, "cloud %s", isAvailable ? "available" : "unavailable");
    }
    ddsinfo.cloud_available = isAvailable;
}

} // namespace

int32_t v2xspatconv_init(int32_t argc, char** argv) {
    const v2xspatconv_options_t options = v2xspatconv_ParseOptions(argc, argv);
    OpenLog(options);
    v2xipc_CfgInit(options.g_workDir);
    v2xspatconv_signalsRegister();
    v2xspatconv_InitCfg(options.g_workDir);
    v2xpub_PubSubInit();
    const spat_conv_config_t* config = nullptr;
    const int32_t ret = v2xspatconv_GetCfgData(&config);
    if (ret != 0) {
        fprintf(stderr, "v2x_spat_convert: %s\n", v2xspatconv_GetCfgErrorText());
        v2xspatconv_RequestStop();
        return ret;
    }
    v2xspatconv_StackInterfaceInit();
    StartAdapters(*config);
    service_status_t status = {};
    status.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT;
    status.run_status = V2X_CONV_RUN_STATUS_AVAILABLE;
    v2xspatconv_SetSpatConvStatus(status);
    v2xcloud_ddsInit(config->m_sysinfo.m_device_id);
    v2xspatconv_TaskInit();
    return 0;
}

int32_t v2xspatconv_exec(void) {
    if (v2xspatconv_IsRunning()) {
        v2xspatconv_ServiceReady();
    }
    v2xcloud_comm_ddsinfo* const ddsinfo = v2xspatconv_GetddsInfo();
    const int32_t interval = v2xspatconv_ServiceInterval(MAIN_LOOP_MS);
    int32_t msSinceCounters = 0;
    while (v2xspatconv_IsRunning()) {
        v2xspatconv_ServiceAlive();
        UpdateCloudAvailable(*ddsinfo);
        tzset(); // rereads the time zone, which may change while the daemon runs; localtime_r does not reread it
        v2xspatconv_SleepUnlessStopped(interval);
        msSinceCounters += interval;
        if (msSinceCounters >= COUNTERS_MS) {
            v2xspatconv_LogCounters(false);
            msSinceCounters = 0;
        }
    }
    v2xspatconv_ServiceStopping();
    v2xcloud_ddsExit(ddsinfo);
    v2xspatconv_LogCounters(true);
    V2XLOG(g_log, V2XLOG_INFO, "v2x_spat_convert stops");
    return 0;
}
