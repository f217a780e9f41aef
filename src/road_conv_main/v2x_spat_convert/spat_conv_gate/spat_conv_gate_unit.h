// State of the unit and its events, for the control socket. Private to the gate; the caller holds the gate's lock.
#pragma once

#include <cstdint>

#include "spat_conv_gate.h"
#include "spat_conv_gate_lights.h"

// Forgets the phases. If `isPublished` is false, the functions below do nothing.
void v2xspatconv_UnitInit(bool isPublished);

// Stores the lights of a record that was handed over at the time `now`, and writes the event. `source` is
// e_v2xspatconv_source or V2XSPATCONV_NO_SOURCE.
void v2xspatconv_UnitHandOver(uint8_t source, const v2xspatconv_lights_t& lights, bool isReplaced, uint64_t now);

// Returns the state to publish, with the phases and the checks; null if nothing is published. The caller fills in the
// sources, then calls v2xspatconv_UnitPublish.
v2xspatconv_unitState_t* v2xspatconv_UnitPrepare(void);

// Publishes this state for v2xspatconv_GateReadUnit. Never waits.
void v2xspatconv_UnitPublish(void);
