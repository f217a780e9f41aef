// Configuration of the daemon. The first successful load in a process reads conf/v2x_spat_convert.cfg in the work
// directory and the system-information file of the road-side unit. All modules read the same record.
#pragma once

#include <cstddef>
#include <cstdint>

#include "v2x/v2xcfg.h"
#include "v2x/v2xpub.h"

// The sources of SPAT records.
enum e_v2xspatconv_source : uint8_t {
    V2XSPATCONV_LEARNER = 0,
    V2XSPATCONV_1743 = 1,
    V2XSPATCONV_CLOUD = 2,
};
inline constexpr int32_t V2XSPATCONV_SOURCES = 3;
inline constexpr const char* V2XSPATCONV_SOURCE_NAMES[V2XSPATCONV_SOURCES] = {"learner", "1743", "cloud"};
// Names of the UDP sockets that receive the reports of the sources.
inline constexpr const char* V2XSPATCONV_SOCKET_NAMES[V2XSPATCONV_SOURCES] = {"QUOR_RECV_SG", "1743_RECV_SG", ""};

// The plausibility checks of the gate.
enum e_v2xspatconv_check : uint8_t {
    V2XSPATCONV_CHECK_CONFLICT = 0,
    V2XSPATCONV_CHECK_JUMP,
    V2XSPATCONV_CHECK_FROZEN,
    V2XSPATCONV_CHECK_NO_YELLOW,
    V2XSPATCONV_CHECK_DUPLICATE,
    V2XSPATCONV_CHECK_DISAGREE,
    V2XSPATCONV_CHECK_SENDER,
    V2XSPATCONV_CHECK_UNMAPPED,
    V2XSPATCONV_CHECK_CUT_OFF,
};
inline constexpr int32_t V2XSPATCONV_CHECKS = 9;
inline constexpr const char* V2XSPATCONV_CHECK_NAMES[V2XSPATCONV_CHECKS] = {
    "conflict", "jump", "frozen", "no_yellow", "duplicate", "disagree", "sender", "unmapped", "cut_off"};

inline constexpr int32_t V2XSPATCONV_CONFLICTS_MAX = 200; // maximum number of pairs in Guard.Conflicts

// Guard settings of one source. The cloud has only m_stale_after.
struct v2xspatconv_sourceGuard_t {
    char m_local_ip[32];          // dotted IPv4 address that the local port is bound to; "0.0.0.0": all addresses
    v2xpub_senders_t m_only_from; // accepted senders
    uint32_t m_stale_after;       // milliseconds, 1000 to 3600000; 0: the source is not watched
    bool m_has_own_phases;        // true: the device has a phase table of its own
    uint16_t m_phaseid[256];      // as in phase_relationship_t: the device's own table, or a copy of the common table
};

// Settings of the checks and of the choice between the sources. With all fields 0 every record is forwarded unchanged.
struct v2xspatconv_guard_t {
    v2xspatconv_sourceGuard_t m_sources[V2XSPATCONV_SOURCES]; // index: e_v2xspatconv_source
    uint8_t m_priority_count;                                 // number of entries in m_priority; 0: all are forwarded
    e_v2xspatconv_source m_priority[V2XSPATCONV_SOURCES];     // the preferred source first
    bool m_on_stale_unavailable;    // true: the unavailable record is sent while no source is fresh
    bool m_on_conflict_unavailable; // true: the unavailable record replaces a record with a conflict
    bool m_on_frozen_unavailable;   // true: the unavailable state replaces the state of a frozen phase
    uint16_t m_conflict_count;      // number of entries in m_conflicts
    uint8_t m_conflicts[V2XSPATCONV_CONFLICTS_MAX][2]; // pairs of SPAT phases, 1 to 32, that are never green together
    uint64_t m_ignore[V2XSPATCONV_CHECKS]; // bit 0: the check is off; bit n: the check is off for phase n (1 to 32)
};

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
    bool m_quiet_log;   // true: lines that a healthy unit writes all the time have level 7
};

#pragma pack(pop)

// Packed up to m_control_path. m_guard has its natural alignment, so that references to its fields are valid.
struct spat_conv_config_t {
    char m_SysinfoName[128]; // path of the system-information file
    rsu_sysinfo_t m_sysinfo;
    learn_machine_info_t m_learn_machine_info;
    signal_machine_1743_info_t m_signal_machine_1743_info;
    phase_relationship_t m_phase_relationship;
    [[gnu::packed]] int32_t m_regionId; // RoadRegulatorID, 0 to 65535; checked when a record is filled
    [[gnu::packed]] int32_t m_nodeId;   // NodeID, 0 to 65535; checked when a record is filled
    corrections_t m_corrections;
    char m_control_path[108]; // path of the control socket; empty: no socket
    v2xspatconv_guard_t m_guard;
};
static_assert(offsetof(spat_conv_config_t, m_corrections) == 128 + 96 + 2 * 41 + 512 + 2 * sizeof(int32_t));

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
// key. With Corrections.QuietLog these warnings have level 7. Each value is truncated to its low 16 bits. Returns -2
// for a null argument. Legacy: returns -1 on success.
int32_t GetPhaseRelationship(V2X_CFGHANDLE snode, const char* node_path, phase_relationship_t* phase_relationship);

// Stores the address of the configuration in *p_spatconv_cfg. The first call loads the configuration; after a
// successful load the configuration never changes. Returns 0; 1 if the configuration file cannot be read or parsed; -2
// for a null argument; -3 if the key "rsuSpatConfigInfo.Sysinfoname" is missing; -4 if no "device_id" can be read from
// the system-information file; -5 if the work directory has 64 characters or more; -6 for an invalid setting of the
// guard. On failure *p_spatconv_cfg stays unchanged, and the next call loads again. The load reports all problems of
// the file with v2xcfg_Report. Any thread. Callers wait while another thread loads; calls after a successful load take
// no lock.
int32_t v2xspatconv_GetCfgData(const spat_conv_config_t** p_spatconv_cfg);

// Returns the reason of the last failed load for the operator: "file:line: key: reason", without an unknown line or
// key. Never null; valid until the next load.
const char* v2xspatconv_GetCfgErrorText(void);
