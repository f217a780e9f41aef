#include "spat_conv_control.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include "spat_conv_control_server.h"
#include "spat_conv_control_socket.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

constexpr int NICE = 10;               // the readings come first
constexpr uint32_t START_DELAY = 1000; // microseconds

struct Control {
    v2xspatconv_controlSocket socket;
    v2xspatconv_controlContext_t context;
    int stop; // event descriptor that ends the thread
    V2X_TASKHANDLE thread;
};
Control g_control = {{}, {}, -1, nullptr};

// Runs on the thread of the control socket until ControlStop.
void Serve(void* /*arg*/) {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), NICE);
    v2xspatconv_controlServer server(g_control.socket.Descriptor(), g_control.stop, g_control.context);
    const int ret = server.Run();
    if (ret < 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "control socket %s: %s", g_control.context.config->m_control_path, strerror(-ret));
        shutdown(g_control.socket.Descriptor(), SHUT_RDWR); // refuses further clients
    }
}

// Returns the reason of a failure, or "".
std::string StartThread() {
    v2xpub_TaskInitPara_t para = {};
    snprintf(para.m_taskName, sizeof para.m_taskName, "%s", V2XSPATCONV_CONTROL_THREAD);
    para.m_tskType = V2XTASK_TYPE_OTHER;
    para.m_intervals = START_DELAY;
    para.m_isOneShot = true;
    para.f_tskFunExec = Serve;
    g_control.stop = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (g_control.stop < 0) {
        return strerror(errno);
    }
    return v2xpub_TaskCreate(&g_control.thread, &para) == 0 ? "" : "cannot start its thread";
}

} // namespace

void v2xspatconv_ControlInit(const spat_conv_config_t& config, const v2xspatconv_controlUnit_t& unit) {
    const char* const path = config.m_control_path;
    if (*path == '\0') {
        return;
    }
    g_control.context = {&config, unit, v2xpub_GetMonotonicTime(), v2xpub_CommGetCurrentTime64()};
    std::string reason = g_control.socket.Open(path);
    if (reason.empty()) {
        reason = StartThread();
    }
    if (reason.empty()) {
        V2XLOG(g_log, V2XLOG_INFO, "control socket %s is open", path);
    } else {
        V2XLOG(g_log, V2XLOG_ERROR, "control socket %s: %s", path, reason.c_str());
        v2xspatconv_ControlStop();
    }
}

void v2xspatconv_ControlStop(void) {
    if (g_control.thread != nullptr) {
        eventfd_write(g_control.stop, 1);
        v2xpub_TaskDelete(g_control.thread);
        g_control.thread = nullptr;
    }
    if (g_control.stop >= 0) {
        close(g_control.stop);
        g_control.stop = -1;
    }
    if (g_control.socket.Descriptor() >= 0) {
        g_control.socket.Close();
    }
}
