// The port table. The values in conf/v2x_ipc.cfg replace the built-in defaults.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "v2x/v2xcfg.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"

namespace {

using Conf = v2x_ipc_config_t;

constexpr char CONF_FILE[] = "conf/v2x_ipc.cfg";
constexpr char HOST_KEY[] = "ipc.hosts.RSU_RCV";
constexpr char LOCAL_IP_KEY[] = "ipc.local_ip";
constexpr char LOCAL_IP_NAME[] = "local_ip";
constexpr int32_t PORT_MAX = 65535;
constexpr Conf DEFAULTS{20001, 20002, 20003, 20010, "127.0.0.1", "0.0.0.0"};

v2xlog_tag_t g_log{"VIPC"};
Conf g_conf = DEFAULTS;
char g_errorText[512] = "";

struct PortRow {
    const char* key;
    int16_t Conf::*field;
    int32_t lowest; // lowest valid port; 0 lets the kernel choose a port that the daemon only sends from
};

constexpr PortRow PORTS[] = {
    {"ipc.spat_conv_sndport", &Conf::m_spat_conv_sndport, 0},
    {"ipc.spat_conv_rcvport", &Conf::m_spat_conv_rcvport, 0},
    {"ipc.spatconv_logtool_rcvport", &Conf::m_spatconv_logtool_rcvport, 1},
    {"ipc.app_rs_rcvport", &Conf::m_app_rs_rcvport, 1},
};

struct ConfFile {
    const char* path;
    V2X_CFGHANDLE tree;
};

// Reads a value and returns true on success. Logs an invalid value, but not a missing key.
bool ReadValue(const ConfFile& file, e_v2xcfg_type type, const char* key, void* value, int32_t* length) {
    const int32_t result = v2xcfg_GetNodeValue(file.tree, type, key, value, length);
    if (result != 0 && result != -1) {
        V2XLOG(g_log, V2XLOG_ERROR, "%s; using the default", v2xcfg_GetErrorText());
    }
    return result == 0;
}

// Collects a problem that is already logged without its line.
void Collect(const ConfFile& file, const char* key, const std::string& reason) {
    v2xcfg_Report(nullptr, V2XCFG_ERROR, file.tree, key, reason.c_str());
}

void ReadPort(const ConfFile& file, const PortRow& row, Conf& conf) {
    int32_t port = 0;
    if (!ReadValue(file, V2XCFG_TYPE_INT32, row.key, &port, nullptr)) {
        return;
    }
    if (port < row.lowest || port > PORT_MAX) {
        V2XLOG(g_log, V2XLOG_ERROR, "%s: %s: port %d out of range (%d to %d); using the default", file.path, row.key,
               port, row.lowest, PORT_MAX);
        Collect(file, row.key,
                std::to_string(port) + " is outside " + std::to_string(row.lowest) + " to " + std::to_string(PORT_MAX));
        return;
    }
    conf.*row.field = static_cast<int16_t>(static_cast<uint16_t>(port));
}

bool IsAddress(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

// Returns true for an address in 127.0.0.0/8. `text` is a valid address.
bool IsLoopback(const char* text) {
    in_addr address{};
    inet_pton(AF_INET, text, &address);
    return ntohl(address.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

void ReadHost(const ConfFile& file, Conf& conf) {
    char text[sizeof conf.m_rsu_rcv_ip] = "";
    int32_t length = sizeof text - 1;
    if (!ReadValue(file, V2XCFG_TYPE_STRING, HOST_KEY, text, &length)) {
        return;
    }
    if (!IsAddress(text)) {
        V2XLOG(g_log, V2XLOG_ERROR, "%s: %s: \"%s\" is not a dotted IPv4 address; using the default", file.path,
               HOST_KEY, text);
        Collect(file, HOST_KEY, "\"" + std::string(text) + "\" is not a dotted IPv4 address");
        return;
    }
    std::memcpy(conf.m_rsu_rcv_ip, text, sizeof text);
}

std::vector<const char*> ListKnownKeys() {
    std::vector<const char*> known = {HOST_KEY, LOCAL_IP_KEY};
    for (const PortRow& row : PORTS) {
        known.push_back(row.key);
    }
    return known;
}

// Reports two rows with the same port at the row that the file contains.
void ReportEqualPorts(const ConfFile& file, const PortRow& row, const PortRow& other) {
    int32_t port = 0;
    const bool isInFile = v2xcfg_GetNodeValue(file.tree, V2XCFG_TYPE_INT32, row.key, &port, nullptr) == 0;
    const PortRow& shown = isInFile ? row : other;
    const std::string reason = std::string("the port is also ") + (isInFile ? other : row).key;
    v2xcfg_Report(&g_log, V2XCFG_WARNING, file.tree, shown.key, reason.c_str());
}

// Looks for two rows with the same port. A stack application on another host can use any port.
void ReviewPorts(const ConfFile& file, const Conf& conf) {
    const bool isStackHere = IsLoopback(conf.m_rsu_rcv_ip);
    for (const PortRow* row = PORTS; row != std::end(PORTS); row++) {
        const int16_t port = isStackHere || row->field != &Conf::m_app_rs_rcvport ? conf.*row->field : int16_t{0};
        for (const PortRow* other = PORTS; other != row; other++) {
            if (port != 0 && port == conf.*other->field) {
                ReportEqualPorts(file, *row, *other);
            }
        }
    }
}

// Keeps the configuration library's last error text as the reason. Returns -5.
int32_t Refuse() {
    snprintf(g_errorText, sizeof g_errorText, "%s", v2xcfg_GetErrorText());
    return -5;
}

// Reports an invalid local address. Returns -5.
int32_t RefuseLocalIp(const ConfFile& file, const std::string& reason) {
    v2xcfg_Report(&g_log, V2XCFG_ERROR, file.tree, LOCAL_IP_KEY, reason.c_str());
    return Refuse();
}

// Returns true if a line of the regular file contains the name of the local address.
bool MentionsLocalIp(const char* path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) { // opening a FIFO would block
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    std::string line;
    while (std::getline(file, line)) {
        if (line.find(LOCAL_IP_NAME) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Handles a file that cannot be parsed. A local address that is not read would open the sockets to every sender.
int32_t HandleParseFailure(const ConfFile& file) {
    if (MentionsLocalIp(file.path)) {
        return Refuse();
    }
    V2XLOG(g_log, V2XLOG_ERROR, "%s; using the defaults for all ports and hosts", v2xcfg_GetErrorText());
    return -3;
}

// Refuses a local address that has no effect, since its key or group is wrong. Returns 0; -5 if refused.
int32_t RefuseLocalIpElsewhere(const ConfFile& file, const std::vector<const char*>& known) {
    int32_t count = 0;
    const bool isRefused =
        (MentionsLocalIp(file.path) &&
         v2xcfg_GetNodeValue(file.tree, V2XCFG_TYPE_GROUP, "ipc", &count, nullptr) == -3) ||
        v2xcfg_RejectLookalike(&g_log, file.tree, known.data(), static_cast<int32_t>(known.size()), LOCAL_IP_KEY);
    return isRefused ? Refuse() : 0;
}

// Reads the local address; the host has been read. Returns 0; -5 if the configuration is refused.
int32_t ReadLocalIp(const ConfFile& file, Conf& conf) {
    char text[sizeof conf.m_local_ip] = "";
    int32_t length = sizeof text - 1;
    const int32_t result = v2xcfg_GetNodeValue(file.tree, V2XCFG_TYPE_STRING, LOCAL_IP_KEY, text, &length);
    if (result != 0) {
        return result == -1 ? 0 : Refuse();
    }
    if (const char* const reason = v2xpub_CheckLocalAddress(text)) {
        return RefuseLocalIp(file, "\"" + std::string(text) + "\" " + reason);
    }
    if (IsLoopback(text) && !IsLoopback(conf.m_rsu_rcv_ip)) {
        return RefuseLocalIp(file, "a socket at " + std::string(text) + " cannot reach " + HOST_KEY + " " +
                                       conf.m_rsu_rcv_ip);
    }
    std::memcpy(conf.m_local_ip, text, sizeof text);
    return 0;
}

} // namespace

int32_t v2xipc_CfgInit(const char* workDir) {
    if (workDir == nullptr) {
        return -2;
    }
    g_conf = DEFAULTS;
    const std::string path = *workDir == '\0' ? CONF_FILE : std::string(workDir) + "/" + CONF_FILE;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        V2XLOG(g_log, V2XLOG_INFO, "%s: no such file; using the defaults for all ports and hosts", path.c_str());
        return 0;
    }
    ConfFile file{path.c_str(), nullptr};
    if (v2xcfg_InitContext(&file.tree, file.path) != 0) {
        return HandleParseFailure(file);
    }
    for (const PortRow& row : PORTS) {
        ReadPort(file, row, g_conf);
    }
    ReadHost(file, g_conf);
    const std::vector<const char*> known = ListKnownKeys();
    const int32_t refused = RefuseLocalIpElsewhere(file, known);
    v2xcfg_ReportUnknownKeys(&g_log, file.tree, known.data(), static_cast<int32_t>(known.size()));
    ReviewPorts(file, g_conf);
    const int32_t result = refused != 0 ? refused : ReadLocalIp(file, g_conf);
    v2xcfg_ExitContext(file.tree);
    return result;
}

const char* v2xipc_GetCfgErrorText(void) {
    return g_errorText;
}

void v2xipc_VisitSettings(v2xipc_settingFun visit, void* arg) {
    visit(arg, LOCAL_IP_KEY, g_conf.m_local_ip, 0);
    for (const PortRow& row : PORTS) {
        visit(arg, row.key, nullptr, static_cast<uint16_t>(g_conf.*row.field));
    }
    visit(arg, HOST_KEY, g_conf.m_rsu_rcv_ip, 0);
}

int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** conf) {
    if (conf == nullptr) {
        return -2;
    }
    *conf = &g_conf;
    return 0;
}
