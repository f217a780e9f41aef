// Light status of the controller (GA/T 1743), for the files of its adapter.
#pragma once

#include <cstdint>
#include <span>

#include "spat_conv_link.h"
#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_1743Log{"1743"};

// State of the link to the controller: run status 0 until its first frame or its eleventh silent tick.
inline v2xspatconv_link_t g_1743Link;

// Converts the payload of one frame with a correct CRC. A light-status report becomes a record for the stack
// application and a sign of life, the latter even when the conversion fails. Returns 0; -1 for a frame of another kind
// or shorter than its header (ignored); -3 to -6 when the conversion failed and nothing was sent. Processing task.
int32_t DealSignalMachineDataTable(std::span<const uint8_t> data);
