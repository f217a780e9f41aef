// Records in the datagrams between the daemon, the stack application and the log tool. They are packed and
// little-endian.
//
// A structure is the fixed part of a record; the variable part follows directly. Copy records with memcpy, and keep no
// pointer or reference to a packed field.
#pragma once

#include <cstddef>
#include <cstdint>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "wire records are copied byte for byte");

#pragma pack(push, 1)

// IPC frame header, followed by m_packLen payload bytes.
struct v2xipc_dataHead_t {
    uint8_t m_headFlag[2]; // 0xA5 0x5A
    uint8_t m_inc;         // 4 in every frame that the daemon sends
    uint8_t m_direction;   // 0 in every frame that the daemon sends
    uint64_t m_sendTime64; // microseconds since 1970-01-01 UTC
    uint16_t m_cmdType;    // V2XIPC_CMD_...
    uint16_t m_packLen;    // payload bytes after the header
    uint8_t m_checkSum;    // the daemon sends 0 and ignores the received value
};

// RSU data block, the payload of a frame, followed by m_dataLen bytes.
struct v2xipc_rsuData_t {
    int32_t m_dataType; // V2XIPC_DATA_...
    int32_t m_dataNo;   // 24 in a SPAT record, 1 in a request, the number of items in a reply
    uint16_t m_dataLen; // number of bytes after this record
    uint8_t m_checkSum; // the daemon sends 0 and ignores the received value
};

// IPC SPAT record: the signal state of an intersection, followed by m_phaseNum entries v2xipc_phase_t without gaps.
struct v2xipc_phases_t {
    uint32_t m_intersectionId; // region << 16 | node
    uint16_t m_status;         // bits of IntersectionStatusObject
    uint32_t m_moy;            // minute of the year, local time
    uint16_t m_secMark;        // millisecond within the minute, 0 to 59999
    int8_t m_phaseNum;         // number of phases as the device or the cloud reports it; negative means 0
};

// Phase entry, followed by m_phaseStateNum entries v2xipc_pahseState_t.
struct v2xipc_phase_t {
    uint8_t m_phaseId;
    uint8_t m_phaseStateNum;
};

// Phase state. Times are in 0.1 s. An optional field (m_opt_) with all bits set is absent.
struct v2xipc_pahseState_t {
    int8_t m_stateMode;   // V2XIPC_STATE_MODE_COUNTING
    uint8_t m_lightState; // V2XIPC_LIGHT_...
    uint16_t m_startTime; // time until the state begins; 0 for the current state
    uint16_t m_endTime;   // time until the state most likely ends, or V2XIPC_TIME_UNKNOWN
    int16_t m_opt_maxendTime;
    int16_t m_opt_minendTime;
    int16_t m_opt_nextStartTime;
    int16_t m_opt_nextDuration;
    int8_t m_opt_timeConfidence;
};

// Item of a reply, followed by m_uper_dataLen bytes: one MessageFrame in unaligned PER (ITU-T X.691).
struct v2xipc_pc5Data_t {
    uint16_t m_uper_dataLen;
};

// Payload of the log tool's frames, followed by m_dataLen bytes: entries v2xipc_logData_t.
struct v2xipc_logCmd_t {
    uint8_t m_logCmd;  // V2XIPC_LOG_...
    int16_t m_result;  // 0 in every reply
    int16_t m_dataLen; // number of bytes after this record
};

// A log tag and its level.
struct v2xipc_logData_t {
    uint8_t m_tagName[8]; // NUL-padded
    int16_t m_level;      // v2xlog_level
};

#pragma pack(pop)

inline constexpr uint8_t V2XIPC_HEAD_FLAG[2] = {0xA5, 0x5A};
inline constexpr uint8_t V2XIPC_INC = 4;

inline constexpr uint16_t V2XIPC_CMD_TO_STACK = 20;   // daemon to stack application: SPAT record, or request for SPAT
inline constexpr uint16_t V2XIPC_CMD_FROM_STACK = 21; // stack application to daemon: SPAT as encoded messages

inline constexpr uint16_t V2XIPC_CMD_LOG_REQUEST = 50; // log tool to daemon
inline constexpr uint16_t V2XIPC_CMD_LOG_REPLY = 51;   // daemon to log tool

inline constexpr uint8_t V2XIPC_LOG_REPORT = 1; // requests the levels of all tags
inline constexpr uint8_t V2XIPC_LOG_SET = 2;    // sets the level of the first entry's tag, or of all tags for "ALL"

inline constexpr int32_t V2XIPC_DATA_SPAT_RECORD = 1;
inline constexpr int32_t V2XIPC_DATA_SPAT_UPER = 11;
inline constexpr int32_t V2XIPC_DATA_NO_SPAT_RECORD = 24; // m_dataNo of every SPAT record

// Size in bytes of every buffer for an IPC SPAT record with its phases.
inline constexpr int32_t V2XIPC_RECORD_SIZE = 5120;

// Values of m_lightState: LightState of the message set (T/CSAE 53, SPAT).
enum e_v2xipc_lightState : uint8_t {
    V2XIPC_LIGHT_UNAVAILABLE = 0,
    V2XIPC_LIGHT_DARK = 1,
    V2XIPC_LIGHT_FLASHING_RED = 2,
    V2XIPC_LIGHT_RED = 3,
    V2XIPC_LIGHT_FLASHING_GREEN = 4,
    V2XIPC_LIGHT_PERMISSIVE_GREEN = 5,
    V2XIPC_LIGHT_PROTECTED_GREEN = 6,
    V2XIPC_LIGHT_YELLOW = 7,
    V2XIPC_LIGHT_FLASHING_YELLOW = 8,
};

inline constexpr int8_t V2XIPC_STATE_MODE_COUNTING = 1;
inline constexpr uint16_t V2XIPC_TIME_UNKNOWN = 36001; // TimeMark of the message set: the time is unknown
inline constexpr int16_t V2XIPC_OPT_ABSENT = -1;
inline constexpr int8_t V2XIPC_OPT_CONFIDENCE_ABSENT = -1;

static_assert(sizeof(v2xipc_dataHead_t) == 17 && offsetof(v2xipc_dataHead_t, m_sendTime64) == 4 &&
              offsetof(v2xipc_dataHead_t, m_cmdType) == 12 && offsetof(v2xipc_dataHead_t, m_packLen) == 14 &&
              offsetof(v2xipc_dataHead_t, m_checkSum) == 16);
static_assert(sizeof(v2xipc_rsuData_t) == 11 && offsetof(v2xipc_rsuData_t, m_dataNo) == 4 &&
              offsetof(v2xipc_rsuData_t, m_dataLen) == 8 && offsetof(v2xipc_rsuData_t, m_checkSum) == 10);
static_assert(sizeof(v2xipc_pc5Data_t) == 2);
static_assert(sizeof(v2xipc_logCmd_t) == 5 && offsetof(v2xipc_logCmd_t, m_result) == 1 &&
              offsetof(v2xipc_logCmd_t, m_dataLen) == 3);
static_assert(sizeof(v2xipc_logData_t) == 10 && offsetof(v2xipc_logData_t, m_level) == 8);
static_assert(sizeof(v2xipc_phases_t) == 13 && offsetof(v2xipc_phases_t, m_status) == 4 &&
              offsetof(v2xipc_phases_t, m_moy) == 6 && offsetof(v2xipc_phases_t, m_secMark) == 10 &&
              offsetof(v2xipc_phases_t, m_phaseNum) == 12);
static_assert(sizeof(v2xipc_phase_t) == 2 && offsetof(v2xipc_phase_t, m_phaseStateNum) == 1);
static_assert(sizeof(v2xipc_pahseState_t) == 15 && offsetof(v2xipc_pahseState_t, m_lightState) == 1 &&
              offsetof(v2xipc_pahseState_t, m_startTime) == 2 && offsetof(v2xipc_pahseState_t, m_endTime) == 4 &&
              offsetof(v2xipc_pahseState_t, m_opt_maxendTime) == 6 &&
              offsetof(v2xipc_pahseState_t, m_opt_minendTime) == 8 &&
              offsetof(v2xipc_pahseState_t, m_opt_nextStartTime) == 10 &&
              offsetof(v2xipc_pahseState_t, m_opt_nextDuration) == 12 &&
              offsetof(v2xipc_pahseState_t, m_opt_timeConfidence) == 14);
