// Converts the light status of the controller (GA/T 1743). Private to the controller's adapter.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_link.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

inline v2xlog_tag_t g_1743Log{"1743"};

// State of the link to the controller. The run status is 0 until the first light-status report or the eleventh link
// check.
inline v2xspatconv_link_t g_1743Link;

// Converts the payload of one frame with a correct CRC. If the frame is a light-status report, hands a record to the
// gate, with the sender of the last datagram; the report counts as accepted by the link even if the conversion fails.
// Returns 0; -1 if the frame is no light-status report or shorter than its header (ignored); -3 to -6 if the conversion
// fails (nothing is sent). Processing task.
int32_t DealSignalMachineDataTable(std::span<const uint8_t> data, v2xpub_address_t sender);
