#include "options.h"

#include "client.h"
#include "spat_conv_config.h"
#include "v2x/v2xipc.h"

namespace ctl {

const char* const DEFAULT_WORK_DIR = V2X_WORK_DIR;

Configuration LoadConfiguration(const std::string& workDir) {
    constexpr int32_t IPC_CFG_REFUSED = -5; // result of v2xipc_CfgInit
    Configuration loaded{};
    loaded.isPortTableRefused = v2xipc_CfgInit(workDir.c_str()) == IPC_CFG_REFUSED;
    v2xspatconv_InitCfg(workDir.c_str());
    v2xspatconv_GetCfgData(&loaded.unit);
    return loaded;
}

std::string FindSocket(const DaemonOptions& options) {
    if (!options.socket.empty()) {
        return options.socket;
    }
    const Configuration loaded = LoadConfiguration(options.workDir);
    if (loaded.unit == nullptr) {
        throw NoDaemon(v2xspatconv_GetCfgErrorText() + std::string("; name the control socket with --socket"));
    }
    if (loaded.unit->m_control_path[0] == '\0') {
        throw NoDaemon(options.workDir + "/conf/v2x_spat_convert.cfg: Control.Path is missing, so the daemon has no " +
                       "control socket");
    }
    return loaded.unit->m_control_path;
}

} // namespace ctl
