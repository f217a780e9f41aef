// Configuration of the daemon: loaded once per process from conf/v2x_spat_convert.cfg below the work directory and from
// the unit's system-information file. Every module reads it through one pointer.
#pragma once

#include <cstdint>

#include "v2x/v2xcfg.h"

#pragma pack(push, 1)

// Identity of the unit: NUL-terminated texts of at most 31 characters, empty when missing from the file.
struct rsu_sysinfo_t {
    char m_device_id[32];
    char m_device_name[32];
    char m_hardware_version[32];
};

// Link to one device.
struct learn_machine_info_t {
    bool m_is_enable;     // the adapter is started only when true
    char m_ip[32];        // the device's dotted IPv4 address
    int32_t m_port;       // the device's UDP port; only the low 16 bits are used
    int32_t m_local_port; // the unit's UDP port; only the low 16 bits are used
};
using signal_machine_1743_info_t = learn_machine_info_t;

// Index: SPAT phase id. Value: the device phase that feeds it; 0 = the phase of the same number.
struct phase_relationship_t {
    uint16_t m_phaseid[256];
};

// true selects the corrected behaviour, false (the default) the legacy one.
struct corrections_t {
    bool m_spat_down;   // cloud SPAT reaches the stack application with status, lights and timing
    bool m_reply_items; // each item of a stack reply is read where the previous one ends
};

struct spat_conv_config_t {
    char m_SysinfoName[128]; // path of the system-information file
    rsu_sysinfo_t m_sysinfo;
    learn_machine_info_t m_learn_machine_info;
    signal_machine_1743_info_t m_signal_machine_1743_info;
    phase_relationship_t m_phase_relationship;
    int32_t m_regionId; // as configured; the message set carries 0 to 65535
    int32_t m_nodeId;
    corrections_t m_corrections;
};

#pragma pack(pop)

// Stores the configuration directory, which is the work directory. Null keeps the previous one. Returns 0. With 64
// characters or more, v2xspatconv_GetCfgDir and v2xspatconv_GetCfgData fail. Call it before the first
// v2xspatconv_GetCfgData.
int32_t v2xspatconv_InitCfg(const char* dir);

// Builds "<directory>/<userPath>" from the first 63 characters of userPath, or the bare name without a directory, and
// stores a pointer to it, valid until the next call. Returns 0; -2 for a null argument; -3 when the directory has 64
// characters or more. Not for concurrent callers.
int32_t v2xspatconv_GetCfgDir(const char* userPath, const char** fullcfgPath);

// Copies the text between the first <tag> in xml and the next </tag> into out_value, a buffer of max_out_len bytes with
// the NUL. It searches for tags and does not parse XML. Returns 0; -2 for a null argument; -3 without a start tag; -4
// without an end tag after it; -5 when the text does not fit. A failure leaves out_value unchanged.
int32_t v2xspatconv_parseXML(const char* xml, const char* tag, char* out_value, int32_t max_out_len);

// Reads the file named by m_SysinfoName into m_sysinfo: a regular file of at most 1 MiB; a relative path starts at the
// current directory. A missing tag or a text of over 31 characters leaves its field unchanged. Returns 0; -2 for null;
// -1 when the file cannot be read.
int32_t v2xspatconv_GetSysinfo(spat_conv_config_t* spatconv_cfg);

// Fills the table from the keys "<node_path>.PhaseID0" to "...PhaseID255", low 16 bits each, and logs a warning for
// each missing key. Returns -2 for a null argument, else always -1: ignore it.
int32_t GetPhaseRelationship(V2X_CFGHANDLE snode, const char* node_path, phase_relationship_t* phase_relationship);

// Loads the configuration at the first call and stores the address of the one record, which never changes afterwards.
// Returns 0; 1 when the configuration file cannot be read or parsed; -2 for a null argument; -3 without
// "rsuSpatConfigInfo.Sysinfoname"; -4 when the system-information file yields no "device_id"; -5 when the work
// directory has 64 characters or more. A failure leaves the pointer unchanged, and the next call retries. Any thread:
// callers wait while one of them loads; after that no call takes a lock.
int32_t v2xspatconv_GetCfgData(const spat_conv_config_t** p_spatconv_cfg);

// Why the last load failed, for people: "file: key: reason", or the reason alone. Never null; valid until the next
// load.
const char* v2xspatconv_GetCfgErrorText(void);
