#include "spat_conv_signal_machine_1743.h"

#include "spat_conv_gate.h"
#include "spat_conv_interface.h"
#include "spat_conv_link.h"
#include "spat_conv_signal_machine_1743_light.h"
#include "spat_conv_signal_machine_1743_stream.h"
#include "spat_conv_signal_socket.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

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

// Creates the tasks and opens the receive socket. Results as for v2xspatconv_SignalMachine1743InterfaceInit.
int32_t StartReceiving(const spat_conv_config_t& spatconv_cfg) {
    for (const auto& task : TASKS) {
        if (v2xspatconv_TaskCreat("LM_Heart_Data", task.intervals, task.func, nullptr) != 0) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "Creat LM_Heart_Data error");
            return -2;
        }
    }
    initBuffer();
    const v2xspatconv_receiveSocket_t socket = {V2XSPATCONV_1743, spatconv_cfg.m_signal_machine_1743_info,
                                                v2xspatconv_GetSignalMachine1743DataRcv};
    return v2xspatconv_OpenReceiveSocket(g_1743Log, socket, spatconv_cfg.m_guard) ? 0 : -3;
}

} // namespace

int32_t v2xspatconv_SignalMachine1743InterfaceInit(const spat_conv_config_t& spatconv_cfg) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    ret = StartReceiving(spatconv_cfg);
    if (ret != 0) {
        v2xspatconv_GateSwitchOff(V2XSPATCONV_1743);
    }
    return ret;
}

void v2xspatconv_Display1743SignalInfo(void* /*arg*/) {
    V2XLOG(g_1743Log, V2XLOG_DEBUG, "%s start", __func__);
    v2xspatconv_LinkDisplay(g_1743Link, g_1743Log, "Signal machine(1743) is working",
                            "Signal machine(1743) works abnormally");
    V2XLOG(g_1743Log, V2XLOG_DEBUG, "%s end", __func__);
}
