// Reads the lights of an IPC SPAT record and replaces them. Private to the gate.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_gate.h"
#include "v2x/v2xipc_data.h"

inline constexpr int32_t V2XSPATCONV_LIGHTS_MAX = 127; // largest m_phaseNum

struct v2xspatconv_lights_t {
    int32_t count = 0;
    v2xspatconv_light_t rows[V2XSPATCONV_LIGHTS_MAX];
};

using v2xspatconv_recordBytes = std::span<const uint8_t, V2XIPC_RECORD_SIZE>;

// Reads the entries within m_phaseNum that have a state, in the order of the record. The current state of an entry is
// the first state with start time 0, or else the first state. The time left is unknown for a state with another start
// time: the times of a cloud document may be marks of the UTC hour. Entries beyond the buffer are ignored.
void v2xspatconv_ReadLights(v2xspatconv_recordBytes record, v2xspatconv_lights_t& lights);

// Copies the record to `out` with each phase of `phases` (bit n: SPAT phase n; phases above 63 have bit 0) reduced to
// one state without information: light unavailable, mode 1, start 0, unknown end, no optional times. The entries keep
// their order; m_phaseNum and entries without a state are unchanged.
void v2xspatconv_ReplaceLights(v2xspatconv_recordBytes record, uint64_t phases,
                               std::span<uint8_t, V2XIPC_RECORD_SIZE> out);
