// The keys of the settings without a reader of their own, and the tags of the system-information file. Private to the
// configuration.
#pragma once

#include <cstddef>
#include <cstdint>

#include "spat_conv_config.h"

struct v2xspatconv_keyRow_t {
    const char* key;
    e_v2xcfg_type type;
    int32_t length; // maximum length of a string in characters; 0 for other types
    size_t offset;  // offset of the field in spat_conv_config_t, in bytes
};

#define CFG_ROW(key, type, length, member)                                                                             \
    { "rsuSpatConfigInfo." key, type, length, offsetof(spat_conv_config_t, member) }

inline constexpr v2xspatconv_keyRow_t V2XSPATCONV_SYSINFO_ROW =
    CFG_ROW("Sysinfoname", V2XCFG_TYPE_STRING, 127, m_SysinfoName);

// A missing key is not logged.
inline constexpr v2xspatconv_keyRow_t V2XSPATCONV_OPTIONAL_ROWS[] = {
    CFG_ROW("LearnMachine.IsEnable", V2XCFG_TYPE_BOOL, 0, m_learn_machine_info.m_is_enable),
    CFG_ROW("LearnMachine.Ip", V2XCFG_TYPE_STRING, 31, m_learn_machine_info.m_ip),
    CFG_ROW("LearnMachine.Port", V2XCFG_TYPE_INT32, 0, m_learn_machine_info.m_port),
    CFG_ROW("LearnMachine.LocalPort", V2XCFG_TYPE_INT32, 0, m_learn_machine_info.m_local_port),
    CFG_ROW("SignalMachine1743.IsEnable", V2XCFG_TYPE_BOOL, 0, m_signal_machine_1743_info.m_is_enable),
    CFG_ROW("SignalMachine1743.Ip", V2XCFG_TYPE_STRING, 31, m_signal_machine_1743_info.m_ip),
    CFG_ROW("SignalMachine1743.Port", V2XCFG_TYPE_INT32, 0, m_signal_machine_1743_info.m_port),
    CFG_ROW("SignalMachine1743.LocalPort", V2XCFG_TYPE_INT32, 0, m_signal_machine_1743_info.m_local_port),
    CFG_ROW("Corrections.SpatDown", V2XCFG_TYPE_BOOL, 0, m_corrections.m_spat_down),
    CFG_ROW("Corrections.ReplyItems", V2XCFG_TYPE_BOOL, 0, m_corrections.m_reply_items),
    CFG_ROW("Corrections.QuietLog", V2XCFG_TYPE_BOOL, 0, m_corrections.m_quiet_log),
};

inline constexpr v2xspatconv_keyRow_t V2XSPATCONV_IDENTITY_ROWS[] = {
    CFG_ROW("nodeId", V2XCFG_TYPE_INT32, 0, m_nodeId),
    CFG_ROW("regionId", V2XCFG_TYPE_INT32, 0, m_regionId),
};

#undef CFG_ROW

inline constexpr char V2XSPATCONV_PHASE_GROUP[] = "rsuSpatConfigInfo.PhaseRelationship";
inline constexpr char V2XSPATCONV_PHASE_KEYS[] = "rsuSpatConfigInfo.PhaseRelationship.PhaseID#";

struct v2xspatconv_tagRow_t {
    const char* tag;
    char (rsu_sysinfo_t::*field)[32];
};

inline constexpr v2xspatconv_tagRow_t V2XSPATCONV_SYSINFO_TAGS[] = {
    {"device_id", &rsu_sysinfo_t::m_device_id},
    {"device_name", &rsu_sysinfo_t::m_device_name},
    {"module_hardware_version", &rsu_sysinfo_t::m_hardware_version},
};
