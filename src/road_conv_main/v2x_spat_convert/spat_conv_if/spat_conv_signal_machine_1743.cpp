#include "spat_conv_signal_machine_1743.h"

#include "spat_conv_interface.h"
#include "spat_conv_link.h"
#include "spat_conv_signal_machine_1743_light.h"
#include "spat_conv_signal_machine_1743_stream.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

V2X_UDPSOCKHANDLE g_udp_recv_from_signal_machine = nullptr;

// Task function: performs the periodic link check.
void DealSignalMachineStatus(void* /*arg*/) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    v2xspatconv_LinkCheck(g_1743Link, false);
}

// Legacy: both tasks have the name of the learner's heartbeat task.
constexpr struct {
    uint32_t intervals; // microseconds
    v2xpub_taskFun func;
} TASKS[] = {{1000000, DealSignalMachineStatus}, {500000, DealSignalMachine1743DataRcv}};

v2xpub_SocketInitPara_t ReceivePara(const signal_machine_1743_info_t& machine) {
    return {.m_sockName = "1743_RECV_SG",
            .m_localIP = "0.0.0.0",
            .m_svrPort = static_cast<uint16_t>(machine.m_local_port),
            .m_cliPort = 0,
            .m_svrEnable = 1,
            .m_cliEnable = 0,
            .f_msgFunc = v2xspatconv_GetSignalMachine1743DataRcv};
}

} // namespace

int32_t v2xspatconv_SignalMachine1743InterfaceInit(const spat_conv_config_t& spatconv_cfg) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    for (const auto& task : TASKS) {
        if (v2xspatconv_TaskCreat("LM_Heart_Data", task.intervals, task.func, nullptr) != 0) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "Creat LM_Heart_Data error");
            return ret = -2;
        }
    }
    initBuffer();
    const v2xpub_SocketInitPara_t para = ReceivePara(spatconv_cfg.m_signal_machine_1743_info);
    const int32_t opened = v2xpub_UdpSocketInit(&g_udp_recv_from_signal_machine, &para, 0);
    if (opened != 0) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "v2xpub_UdpSocketInit end ret=%d", opened);
        return ret = -3;
    }
    return ret;
}

void v2xspatconv_Display1743SignalInfo(void* /*arg*/) {
    V2XLOG(g_1743Log, V2XLOG_DEBUG, "%s start", __func__);
    v2xspatconv_LinkDisplay(g_1743Link, g_1743Log, "Signal machine(1743) is working",
                            "Signal machine(1743) works abnormally");
    V2XLOG(g_1743Log, V2XLOG_DEBUG, "%s end", __func__);
}
