// Configuration of the daemon: loaded once per process from conf/v2x_spat_convert.cfg below the work directory and from
// the unit's system-information file, then read by every module through one pointer.
#pragma once

#include <cstdint>

#include "v2x/v2xcfg.h"

#pragma pack(push, 1)

// Identity of the unit; texts NUL-terminated, at most 31 characters, empty when the file does not give them.
struct rsu_sysinfo_t {
    char m_device_id[32];
    char m_device_name[32];
    char m_hardware_version[32];
};

// Link to one device.
struct learn_machine_info_t {
    bool m_is_enable;     // the adapter is started only when true
    char m_ip[32];        // the device's dotted IPv4 address
    int32_t m_port;       // the device's UDP port; the low 16 bits count
    int32_t m_local_port; // the unit's UDP port; the low 16 bits count
};
using signal_machine_1743_info_t = learn_machine_info_t;

// Index: SPAT phase id. Value: the device phase that feeds it; 0 = the phase of the same number.
struct phase_relationship_t {
    uint16_t m_phaseid[256];
};

// Settled behaviours that are replaced by corrected ones where true; false without the key.
struct corrections_t {
    bool m_spat_down;   // the cloud's SPAT reaches the stack application with status, lights and timing
    bool m_reply_items; // the stack application's items are found behind one another, however many
};

struct spat_conv_config_t {
    char m_SysinfoName[128]; // path of the system-information file
    rsu_sysinfo_t m_sysinfo;
    learn_machine_info_t m_learn_machine_info;
    signal_machine_1743_info_t m_signal_machine_1743_info;
    phase_relationship_t m_phase_relationship;
    int32_t m_regionId; // as configured; 0 to 65535 is what the message set carries
    int32_t m_nodeId;
    corrections_t m_corrections;
};

#pragma pack(pop)

// Remembers the configuration directory (the work directory, at most 63 characters; a longer one is cut, which is
// logged). Null keeps the one set before. Returns 0. Before the first v2xspatconv_GetCfgData.
int32_t v2xspatconv_InitCfg(const char* dir);

// Builds "<directory>/<userPath>" (the bare name when no directory is set) from at most 63 characters of userPath, cut
// at 127 characters, and stores a pointer to it, valid until the next call. Returns 0, -2 for a null argument.
// Not for concurrent callers.
int32_t v2xspatconv_GetCfgDir(const char* userPath, const char** fullcfgPath);

// Copies what stands between the first <tag> in xml and the next </tag>, byte for byte, into out_value (max_out_len
// bytes with the NUL). It is a tag scanner, not an XML parser. Returns 0; -2 for a null argument; -3 without a start
// tag; -4 without an end tag behind it; -5 when the content does not fit (out_value unchanged).
int32_t v2xspatconv_parseXML(const char* xml, const char* tag, char* out_value, int32_t max_out_len);

// Reads the file named by m_SysinfoName (a relative path counts from the current directory; a regular file of at most
// 1 MiB) into m_sysinfo. A tag that is missing or too long leaves its field as it was. Returns 0; -2 for null; -1 when
// the file cannot be read.
int32_t v2xspatconv_GetSysinfo(spat_conv_config_t* spatconv_cfg);

// Fills the table from the keys "<node_path>.PhaseID0" to "...PhaseID255", low 16 bits each; one warning for each key
// that is missing. Returns -2 for a null argument, else -1, also when every key was read: callers ignore it.
int32_t GetPhaseRelationship(V2X_CFGHANDLE snode, const char* node_path, phase_relationship_t* phase_relationship);

// Loads the configuration at the first call and stores the address of the one record, which never changes afterwards.
// Returns 0; 1 when the configuration file cannot be read or parsed; -2 for a null argument; -3 without
// "rsuSpatConfigInfo.Sysinfoname"; -4 when the system information holds no "device_id". After a failure the pointer is
// left alone and the next call tries again. Any thread; callers of a loading call wait for it, later ones take no lock.
int32_t v2xspatconv_GetCfgData(const spat_conv_config_t** p_spatconv_cfg);

// Why the last load failed, as "file: key: reason", for people. Valid until the next load; never null.
const char* v2xspatconv_GetCfgErrorText(void);
