// The port table's hosts, for the sockets of this library.
#pragma once

#include "v2x/v2xipc.h"

// Address of the named host in `conf`, or null for a name that is not in the table or an address without its NUL.
const char* v2xipc_HostAddress(const v2x_ipc_config_t& conf, const char* hostName);
