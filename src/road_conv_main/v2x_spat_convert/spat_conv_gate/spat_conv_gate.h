// The gate: the one entry for SPAT records of all sources. The gate watches the sources, checks their records, decides
// which records reach the stack application, and sends these records.
//
// Times are monotonic, in microseconds (v2xpub_GetMonotonicTime). All functions may be called on any thread. One lock
// guards decision and sending, so the order on the wire is the order of the decisions. No function waits for a peer.
// Without settings in v2xspatconv_guard_t every record is sent unchanged.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xpub.h"

inline constexpr e_v2xspatconv_source V2XSPATCONV_ALL_SOURCES[V2XSPATCONV_SOURCES] = {
    V2XSPATCONV_LEARNER, V2XSPATCONV_1743, V2XSPATCONV_CLOUD};

// A device phase that one message reports with two different lights.
struct v2xspatconv_duplicate_t {
    uint8_t phase; // device phase
    uint8_t first; // V2XIPC_LIGHT_...
    uint8_t second;
};

// What a source found while it converted one message.
struct v2xspatconv_findings_t {
    uint8_t duplicateCount = 0;                  // number of entries in `duplicates`
    v2xspatconv_duplicate_t duplicates[32] = {}; // the first 32
    uint64_t unmapped[4] = {};                   // bit set of the device phases (0 to 255) that feed no SPAT phase
    uint64_t cutOff = 0; // bit n: the record omits SPAT phase n, because the reported phase count is too small
};

enum class v2xspatconv_sourceState : uint8_t {
    off,       // the source is not enabled, or could not be started
    unwatched, // StaleAfter is 0: the source is never fresh or stale
    waiting,   // watched; no record has been accepted yet
    fresh,     // the last accepted record is at most StaleAfter old
    stale,     // no record for StaleAfter, or too few records since then
};

inline constexpr const char* V2XSPATCONV_STATE_NAMES[] = {"off", "unwatched", "waiting", "fresh", "stale"};

// Copy of the state of one source.
struct v2xspatconv_sourceRow_t {
    v2xspatconv_sourceState state = v2xspatconv_sourceState::off;
    bool isForwarded = false;  // true: records of this source are forwarded at present
    uint64_t accepted = 0;     // accepted records
    uint64_t lastAccepted = 0; // time of the last accepted record; 0: none
    uint64_t interval = 0;     // moving average of the time between two accepted records, microseconds; 0: unknown
    v2xpub_address_t sender;   // of the last accepted record; 0 for the cloud
};

// The light of one SPAT phase, as last handed over to the stack application.
struct v2xspatconv_phaseRow_t {
    uint64_t time = 0;     // of the hand-over; 0: no record has contained the phase
    uint8_t source = 0;    // e_v2xspatconv_source, or V2XSPATCONV_NO_SOURCE
    uint8_t light = 0;     // V2XIPC_LIGHT_...
    uint16_t timeLeft = 0; // 0.1 s at the time of the hand-over, or V2XIPC_TIME_UNKNOWN
};
inline constexpr uint8_t V2XSPATCONV_NO_SOURCE = 255;  // the unavailable record of the gate
inline constexpr uint8_t V2XSPATCONV_UNIT_PHASES = 32; // largest SPAT phase that the gate watches

// The state of one check of one source.
struct v2xspatconv_checkRow_t {
    bool isActive = false;
    uint64_t count = 0;     // sights since the start
    uint64_t lastSight = 0; // time; 0: none
    uint8_t phaseCount = 0; // of the last sight
    uint8_t phases[2] = {}; // SPAT phases; device phases for "duplicate" and "unmapped"
};

// State of the unit at one time.
struct v2xspatconv_unitState_t {
    v2xspatconv_sourceRow_t sources[V2XSPATCONV_SOURCES];
    v2xspatconv_phaseRow_t phases[V2XSPATCONV_UNIT_PHASES + 1]; // index: SPAT phase
    v2xspatconv_checkRow_t checks[V2XSPATCONV_CHECKS][V2XSPATCONV_SOURCES];
};

// Journal entry of the kind `record`: a record was handed over. `count` entries v2xspatconv_light_t follow.
struct v2xspatconv_recordEvent_t {
    uint64_t time;   // wall clock, microseconds
    uint8_t source;  // e_v2xspatconv_source, or V2XSPATCONV_NO_SOURCE
    bool isReplaced; // true: lights were replaced because of a conflict or a frozen phase
    uint16_t count;
};

// The current light of one phase of a record.
struct v2xspatconv_light_t {
    uint8_t phase;     // SPAT phase
    uint8_t light;     // V2XIPC_LIGHT_...
    uint16_t timeLeft; // 0.1 s, or V2XIPC_TIME_UNKNOWN
};

// Journal entry of the kind `state`.
struct v2xspatconv_stateEvent_t {
    enum class Type : uint8_t {
        source,    // the source has the state `state`
        forwarded, // the source is forwarded now
        check,     // the check of the source starts (`isActive`) or ends
    };
    uint64_t time = 0; // wall clock, microseconds
    Type type = Type::source;
    uint8_t source = 0; // e_v2xspatconv_source
    v2xspatconv_sourceState state = v2xspatconv_sourceState::off;
    uint8_t check = 0; // e_v2xspatconv_check
    bool isActive = false;
    uint8_t phaseCount = 0;
    uint8_t phases[32] = {};
    char text[224] = {}; // the line of the log, NUL-terminated
};

// Returns the name of a light (V2XIPC_LIGHT_...), "unknown" for other values. Any thread.
const char* v2xspatconv_NameOfLight(uint8_t light);

// Reads the settings and starts to watch the enabled sources at the time `now`. Main thread, before the sources start.
void v2xspatconv_GateInit(const spat_conv_config_t& config, uint64_t now);

// Sets the state of a source to `off`: the source could not be started.
void v2xspatconv_GateSwitchOff(e_v2xspatconv_source source);

// Takes one record of a source: `record` is a buffer of V2XIPC_RECORD_SIZE bytes, which the caller owns and the gate
// does not change. `sender` is the address of the device. A record is accepted if it has at least one phase entry with
// a state within m_phaseNum. Returns the result of v2xspatconv_SpatNotify, or 0 if the record is withheld. Allocates
// nothing.
int32_t v2xspatconv_GateRecord(e_v2xspatconv_source source, const v2xipc_phases_t* record,
                               const v2xspatconv_findings_t& findings, v2xpub_address_t sender, uint64_t now);

// Does what is due at the time `now`: sources become stale, unavailable records are sent, checks end. Returns the time
// of the next deadline, or UINT64_MAX. Main thread, at most 0.25 s late and at least once a second: a record that is
// accepted between two calls creates a deadline at least one second later.
uint64_t v2xspatconv_GateTick(uint64_t now);

// Ends the gate at a clean stop. If Guard.OnStale is "unavailable", sends the unavailable record once and withholds all
// later records. Main thread.
void v2xspatconv_GateStop(void);

// Copies the newest state of the unit, if the control socket is configured. Never delays another function of the gate.
// One thread at a time.
void v2xspatconv_GateReadUnit(v2xspatconv_unitState_t& unit);

// Copies the states of all sources; `rows` is indexed by e_v2xspatconv_source.
void v2xspatconv_GateGetSources(v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES]);
