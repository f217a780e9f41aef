#include "spat_conv_interface.h"

#include <cstdio>
#include <mutex>

#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"INTF"};

constexpr uint32_t TASK_PRIORITY = 50;

std::mutex g_statusLock;
service_status_t g_spatconv_st;
service_status_t g_cloud_st;
uint64_t g_cloudTime = 0; // of the last status of the cloud, monotonic, microseconds

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
    V2X_TASKHANDLE unusedHandle = nullptr;
    const int32_t created = v2xpub_TaskCreate(handle != nullptr ? handle : &unusedHandle, &para);
    if (created != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, " Task create error ret=%d", created);
        return ret = -6;
    }
    return ret;
}

void v2xspatconv_SetSpatConvStatus(const service_status_t& st) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    g_spatconv_st = st;
}

void v2xspatconv_GetSpatConvStatus(service_status_t& st) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    st.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT;
    st.run_status = g_spatconv_st.run_status;
}

service_status_t v2xspatconv_CopySpatConvStatus(void) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    return g_spatconv_st;
}

void v2xspatconv_SetCloudStatus(uint8_t run_st) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    g_cloud_st.service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
    g_cloud_st.run_status = run_st;
    g_cloudTime = v2xpub_GetMonotonicTime();
}

uint64_t v2xspatconv_GetCloudStatusTime(void) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    return g_cloudTime;
}

void v2xspatconv_GetCloudStatus(service_status_t& st) {
    const std::lock_guard<std::mutex> guard(g_statusLock);
    st.service_type = V2X_CLOUD_SERVICE_TYPE_CLOUD;
    st.run_status = g_cloud_st.run_status;
}
