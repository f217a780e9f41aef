#include "spat_conv_interface.h"

#include <cstdio>
#include <mutex>

#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"INTF"};

constexpr uint32_t TASK_PRIORITY = 50;

std::mutex g_statusLock;
service_status_t g_spatconv_st;
service_status_t g_cloud_st;

struct TaskRow {
    const char* name;
    uint32_t intervals; // microseconds
    v2xpub_taskFun func;
    const char* message; // on failure
    int32_t code;        // on failure
};

constexpr TaskRow TASKS[] = {
    {"spat_conv_stat", 5000000, SendSpatConvStatusToCommSoft, "Creat spat_conv_status error", -2},
    {"Get_SPAT_Data", 600000, SendGetSpatDataToAPPTaskFun, "Creat Get_SPAT_Data error", -3},
    {"Deal_SPAT_Data", 300000, DealSpatDataRecvTaskFun, "Creat Deal_SPAT_Data error", -4},
    {"DIS_QUOR_SIGN", 5000000, v2xspatconv_DisplayQuorSignalInfo, "Creat DIS_QUOR_SIGN error", -5},
    {"DIS_1743_SIGN", 5000000, v2xspatconv_Display1743SignalInfo, "Creat DIS_1743_SIGN error", -6},
};

} // namespace

int32_t v2xspatconv_TaskCreat(const char* taskname, uint32_t intervals, v2xpub_taskFun func, V2X_TASKHANDLE* handle) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (taskname == nullptr || func == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    v2xpub_TaskInitPara_t para = {};
    snprintf(para.m_taskName, sizeof para.m_taskName, "%s", taskname);
    para.m_priority = TASK_PRIORITY;
    para.m_intervals = intervals;
    para.m_tskType = V2XTASK_TYPE_RR;
    para.f_tskFunExec = func;
    V2X_TASKHANDLE unnamed = nullptr;
    const int32_t created = v2xpub_TaskCreate(handle != nullptr ? handle : &unnamed, &para);
    if (created != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, " Task create error ret=%d", created);
        return ret = -6;
    }
    return ret;
}

int32_t v2xspatconv_TaskInit(void) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    for (const TaskRow& row : TASKS) {
        if (v2xspatconv_TaskCreat(row.name, row.intervals, row.func, nullptr) != 0) {
            V2XLOG(g_log, V2XLOG_ERROR, "%s", row.message);
            return ret = row.code;
        }
    }
    return ret;
}

void SendSpatConvStatusToCommSoft(void* /*arg*/) {
    const v2xcloud_comm_ddsinfo* ddsinfo = v2xspatconv_GetddsInfo();
    if (ddsinfo == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "Get ddsinfo failed!");
        return;
    }
    service_status_t status;
    {
        const std::lock_guard<std::mutex> guard(g_statusLock);
        status = g_spatconv_st;
    }
    v2xcloud_ddsSend(ddsinfo->dds_object, ddsinfo->mp_spat_conv_send_topic, &status, sizeof status);
}

void v2xspatconv_SetSpatConvStatus(const service_status_t* st) {
    if (st == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> guard(g_statusLock);
    g_spatconv_st = *st;
}

void v2xspatconv_GetSpatConvStatus(service_status_t* st) {
    if (st == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> guard(g_statusLock);
    st->service_type = V2X_CLOUD_SERVICE_TYPE_SPAT;
    st->run_status = g_spatconv_st.run_status;
}

void v2xspatconv_SetCloudStatus(uint8_t run_st) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    g_cloud_st.service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
    g_cloud_st.run_status = run_st;
}

void v2xspatconv_GetCloudStatus(service_status_t* st) {
    if (st == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> guard(g_statusLock);
    st->service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
    st->run_status = g_cloud_st.run_status;
}
