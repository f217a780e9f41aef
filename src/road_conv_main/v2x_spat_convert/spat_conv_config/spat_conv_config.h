// Configuration of the daemon. The first successful load in a process reads conf/v2x_spat_convert.cfg in the work
// directory and the system-information file of the road-side unit. All modules read the same record.
#pragma once

#include <cstdint>

#include "v2x/v2xcfg.h"

#pragma pack(push, 1)

// Identity of the road-side unit: NUL-terminated texts of at most 31 characters. A text that the file lacks is empty.
struct rsu_sysinfo_t {
    char m_device_id[32];
    char m_device_name[32];
    char m_hardware_version[32];
};

// Settings of the adapter of one signal device.
struct learn_machine_info_t {
    bool m_is_enable;     // true: the daemon starts the adapter
    char m_ip[32];        // IPv4 address of the device, dotted decimal
    int32_t m_port;       // UDP port of the device; the adapter reads the low 16 bits
    int32_t m_local_port; // UDP port of the daemon; the adapter reads the low 16 bits
};
using signal_machine_1743_info_t = learn_machine_info_t;

// m_phaseid[i] is the device phase that becomes SPAT phase i; 0 selects device phase i.
struct phase_relationship_t {
    uint16_t m_phaseid[256];
};

// true selects the corrected behaviour, false (the default) the legacy behaviour.
struct corrections_t {
    bool m_spat_down;   // true: cloud SPAT reaches the stack application with status, lights and timing
    bool m_reply_items; // true: each item of a stack reply starts at the end of the previous item
};

struct spat_conv_config_t {
    char m_SysinfoName[128]; // path of the system-information file
    rsu_sysinfo_t m_sysinfo;
    learn_machine_info_t m_learn_machine_info;
    signal_machine_1743_info_t m_signal_machine_1743_info;
    phase_relationship_t m_phase_relationship;
    int32_t m_regionId; // RoadRegulatorID, 0 to 65535; checked when a record is filled
    int32_t m_nodeId;   // NodeID, 0 to 65535; checked when a record is filled
    corrections_t m_corrections;
};

#pragma pack(pop)

// Stores the work directory. Null keeps the previous directory. Returns 0. If the directory has 64 characters or more,
// later calls of v2xspatconv_GetCfgDir and v2xspatconv_GetCfgData fail. Main thread, before the first call of
// v2xspatconv_GetCfgData.
int32_t v2xspatconv_InitCfg(const char* dir);

// Builds "<work directory>/<userPath>", or "<userPath>" if no directory is stored, and stores the address of the text
// in *fullcfgPath. userPath is truncated to 63 characters. The text is valid until the next call. Returns 0; -2 for a
// null argument; -3 if the directory has 64 characters or more. Not thread-safe.
int32_t v2xspatconv_GetCfgDir(const char* userPath, const char** fullcfgPath);

// Copies the text between the first <tag> in xml and the next </tag> into out_value, a buffer of max_out_len bytes
// including the NUL. The function searches for the tags only; it does not parse XML. Returns 0; -2 for a null argument;
// -3 if the start tag is missing; -4 if no end tag follows; -5 if the text does not fit. On failure out_value stays
// unchanged. Any thread.
int32_t v2xspatconv_parseXML(const char* xml, const char* tag, char* out_value, int32_t max_out_len);

// Reads the file m_SysinfoName into m_sysinfo. The file must be a regular file of at most 1 MiB; a relative name starts
// at the current directory. A field stays unchanged if its tag is missing or its text exceeds 31 characters. Returns 0;
// -2 for a null argument; -1 if the file cannot be read.
int32_t v2xspatconv_GetSysinfo(spat_conv_config_t* spatconv_cfg);

// Fills the table from the keys "<node_path>.PhaseID0" to "<node_path>.PhaseID255" and logs a warning for each missing
// key. Each value is truncated to its low 16 bits. Returns -2 for a null argument. Legacy: returns -1 on success.
int32_t GetPhaseRelationship(V2X_CFGHANDLE snode, const char* node_path, phase_relationship_t* phase_relationship);

// Stores the address of the configuration in *p_spatconv_cfg. The first call loads the configuration; after a
// successful load the configuration never changes. Returns 0; 1 if the configuration file cannot be read or parsed; -2
// for a null argument; -3 if the key "rsuSpatConfigInfo.Sysinfoname" is missing; -4 if no "device_id" can be read from
// the system-information file; -5 if the work directory has 64 characters or more. On failure *p_spatconv_cfg stays
// unchanged, and the next call loads again. Any thread. Callers wait while another thread loads; calls after a
// successful load take no lock.
int32_t v2xspatconv_GetCfgData(const spat_conv_config_t** p_spatconv_cfg);

// Returns the reason of the last failed load for the operator: "file: key: reason" or only the reason. Never null;
// valid until the next load.
const char* v2xspatconv_GetCfgErrorText(void);
