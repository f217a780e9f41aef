#include "spat_conv_config.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "spat_conv_config_guard.h"
#include "spat_conv_config_log.h"
#include "spat_conv_config_review.h"
#include "spat_conv_config_rows.h"
#include "v2x/v2xlog.h"

namespace {

char g_configDir[64];
bool g_isDirTooLong = false; // true: the work directory is too long for g_configDir, and g_configDir is empty
char g_configPath[128];
spat_conv_config_t g_spatconv_cfg;
V2X_CFGHANDLE gp_convcfg_root = nullptr;
std::mutex g_convcfg_lock; // locked during a load, which changes the variables above
std::atomic<bool> g_convcfg_active{false};
char g_errorText[512] = "";

// Reads one key into its field. A missing or invalid value leaves the field 0. The configuration library logs an
// invalid value. Returns the result of v2xcfg_GetNodeValue.
int32_t ReadRow(const v2xspatconv_keyRow_t& row) {
    int32_t length = row.length;
    char* field = reinterpret_cast<char*>(&g_spatconv_cfg) + row.offset;
    return v2xcfg_GetNodeValue(gp_convcfg_root, row.type, row.key, field, &length);
}

// Returns the names of all keys. In a name, a '#' at the end means 0 to 255.
std::vector<const char*> ListKeys() {
    std::vector<const char*> keys = {V2XSPATCONV_SYSINFO_ROW.key, V2XSPATCONV_PHASE_KEYS};
    for (const v2xspatconv_keyRow_t& row : V2XSPATCONV_OPTIONAL_ROWS) {
        keys.push_back(row.key);
    }
    for (const v2xspatconv_keyRow_t& row : V2XSPATCONV_IDENTITY_ROWS) {
        keys.push_back(row.key);
    }
    v2xspatconv_AddGuardKeys(keys);
    return keys;
}

// Reads the identity of the road-side unit. Returns 0; -3 if the key of the system-information file is missing; -4 if
// no device_id can be read from the file. Without the identity the load fails.
int32_t LoadSysinfo() {
    if (ReadRow(V2XSPATCONV_SYSINFO_ROW) != 0) {
        V2XLOG(g_scfgLog, V2XLOG_WARN, "%s node error ", V2XSPATCONV_SYSINFO_ROW.key);
        snprintf(g_errorText, sizeof g_errorText, "%s", v2xcfg_GetErrorText());
        v2xcfg_Collect(V2XCFG_ERROR, g_errorText);
        return -3;
    }
    const int32_t read = v2xspatconv_GetSysinfo(&g_spatconv_cfg);
    if (g_spatconv_cfg.m_sysinfo.m_device_id[0] == '\0') {
        const char* reason = read == 0 ? "missing, empty or longer than 31 characters" : "the file cannot be read";
        snprintf(g_errorText, sizeof g_errorText, "%s: device_id: %s", g_spatconv_cfg.m_SysinfoName, reason);
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "%s", g_errorText);
        v2xcfg_Collect(V2XCFG_ERROR, g_errorText);
        return -4;
    }
    return 0;
}

// Fills the record from the open configuration file and reports all problems. Returns 0, the result of LoadSysinfo, or
// -6 for an invalid setting of the guard.
int32_t LoadTree() {
    const int32_t ret = LoadSysinfo();
    for (const v2xspatconv_keyRow_t& row : V2XSPATCONV_OPTIONAL_ROWS) {
        ReadRow(row);
    }
    GetPhaseRelationship(gp_convcfg_root, V2XSPATCONV_PHASE_GROUP, &g_spatconv_cfg.m_phase_relationship);
    for (const v2xspatconv_keyRow_t& row : V2XSPATCONV_IDENTITY_ROWS) {
        if (ReadRow(row) != 0) {
            V2XLOG(g_scfgLog, V2XLOG_WARN, "%s node error", row.key);
        }
    }
    const std::string guardError = v2xspatconv_ReadGuard(gp_convcfg_root, g_spatconv_cfg);
    v2xspatconv_Review(gp_convcfg_root, g_spatconv_cfg, ListKeys());
    if (ret != 0 || guardError.empty()) {
        return ret;
    }
    snprintf(g_errorText, sizeof g_errorText, "%s", guardError.c_str());
    return -6;
}

// Loads the configuration. The caller has locked g_convcfg_lock. Results as for v2xspatconv_GetCfgData.
int32_t Load() {
    const char* path = nullptr;
    if (v2xspatconv_GetCfgDir("conf/v2x_spat_convert.cfg", &path) != 0) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "%s", g_errorText);
        v2xcfg_Collect(V2XCFG_ERROR, g_errorText);
        return -5;
    }
    if (v2xcfg_InitContext(&gp_convcfg_root, path) != 0) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "v2xcfg_InitContext error %s", path);
        snprintf(g_errorText, sizeof g_errorText, "%s", v2xcfg_GetErrorText());
        return 1;
    }
    g_spatconv_cfg = {};
    const int32_t ret = LoadTree();
    v2xcfg_ExitContext(gp_convcfg_root);
    gp_convcfg_root = nullptr;
    g_convcfg_active.store(ret == 0, std::memory_order_release);
    return ret;
}

} // namespace

int32_t v2xspatconv_InitCfg(const char* dir) {
    if (dir != nullptr) {
        const size_t length = strlen(dir);
        g_isDirTooLong = length >= sizeof g_configDir;
        snprintf(g_configDir, sizeof g_configDir, "%s", g_isDirTooLong ? "" : dir);
        if (g_isDirTooLong) {
            snprintf(g_errorText, sizeof g_errorText,
                     "work directory %.400s is too long: %zu characters, at most %zu are allowed", dir, length,
                     sizeof g_configDir - 1);
        }
    }
    V2XLOG(g_scfgLog, V2XLOG_INFO, "configDir = %s!", dir != nullptr ? dir : g_configDir);
    return 0;
}

int32_t v2xspatconv_GetCfgDir(const char* userPath, const char** fullcfgPath) {
    if (userPath == nullptr || fullcfgPath == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "input param error");
        return -2;
    }
    if (g_isDirTooLong) {
        return -3;
    }
    const char* separator = g_configDir[0] == '\0' ? "" : "/";
    snprintf(g_configPath, sizeof g_configPath, "%s%s%.63s", g_configDir, separator, userPath);
    *fullcfgPath = g_configPath;
    return 0;
}

int32_t GetPhaseRelationship(V2X_CFGHANDLE snode, const char* node_path, phase_relationship_t* phase_relationship) {
    int32_t ret = -1;
    V2XLOG_TRACE_SCOPE(g_scfgLog, ret);
    if (snode == nullptr || node_path == nullptr || phase_relationship == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const int32_t missingLevel = g_spatconv_cfg.m_corrections.m_quiet_log ? V2XLOG_TRACE : V2XLOG_WARN;
    for (int32_t i = 0; i < 256; i++) {
        char key[256];
        int32_t value = 0;
        snprintf(key, sizeof key, "%s.PhaseID%d", node_path, i);
        if (v2xcfg_GetNodeValue(snode, V2XCFG_TYPE_INT32, key, &value, nullptr) != 0) {
            V2XLOG(g_scfgLog, missingLevel, "%s node error", key);
            continue;
        }
        if (const char* const reason = v2xspatconv_CheckPhases(i, value)) {
            v2xcfg_Report(&g_scfgLog, V2XCFG_WARNING, snode, key, reason);
        }
        phase_relationship->m_phaseid[i] = static_cast<uint16_t>(value);
    }
    return ret;
}

int32_t v2xspatconv_GetCfgData(const spat_conv_config_t** p_spatconv_cfg) {
    if (p_spatconv_cfg == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "input param error");
        return -2;
    }
    if (!g_convcfg_active.load(std::memory_order_acquire)) {
        int32_t ret = 0;
        V2XLOG_TRACE_SCOPE(g_scfgLog, ret);
        const std::lock_guard<std::mutex> guard(g_convcfg_lock);
        if (!g_convcfg_active.load(std::memory_order_relaxed)) {
            ret = Load();
        }
        if (ret != 0) {
            return ret;
        }
    }
    *p_spatconv_cfg = &g_spatconv_cfg;
    return 0;
}

const char* v2xspatconv_GetCfgErrorText(void) {
    return g_errorText;
}
