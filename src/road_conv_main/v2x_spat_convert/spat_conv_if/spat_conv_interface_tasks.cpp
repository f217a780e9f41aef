#include "spat_conv_interface_tasks.h"

#include "spat_conv_interface.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_stack_interface_poll.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"INTF"};

// Publishes the daemon's status record to the communication software.
void SendSpatConvStatusToCommSoft(void* /*arg*/) {
    const v2xcloud_comm_ddsinfo* ddsinfo = v2xspatconv_GetddsInfo();
    const service_status_t status = v2xspatconv_CopySpatConvStatus();
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_spat_conv_send_topic, &status, sizeof status);
}

constexpr struct {
    const char* name;
    uint32_t intervals; // microseconds
    v2xpub_taskFun func;
    const char* message; // logged if the task cannot be created
    int32_t code;        // result of v2xspatconv_TaskInit if the task cannot be created
} TASKS[] = {
    {"spat_conv_stat", 5000000, SendSpatConvStatusToCommSoft, "Creat spat_conv_status error", -2},
    {"Get_SPAT_Data", 600000, SendGetSpatDataToAPPTaskFun, "Creat Get_SPAT_Data error", -3},
    {"Deal_SPAT_Data", 300000, DealSpatDataRecvTaskFun, "Creat Deal_SPAT_Data error", -4},
    {"DIS_QUOR_SIGN", 5000000, v2xspatconv_DisplayQuorSignalInfo, "Creat DIS_QUOR_SIGN error", -5},
    {"DIS_1743_SIGN", 5000000, v2xspatconv_Display1743SignalInfo, "Creat DIS_1743_SIGN error", -6},
};

} // namespace

int32_t v2xspatconv_TaskInit(void) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    for (const auto& row : TASKS) {
        if (v2xspatconv_TaskCreat(row.name, row.intervals, row.func, nullptr) != 0) {
            V2XLOG(g_log, V2XLOG_ERROR, "%s", row.message);
            return ret = row.code;
        }
    }
    return ret;
}
