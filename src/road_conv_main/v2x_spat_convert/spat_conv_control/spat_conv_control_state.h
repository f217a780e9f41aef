// The replies "status" and "lights" of the control socket. Private to the control socket.
#pragma once

#include <cjson/cJSON.h>

#include "spat_conv_control_requests.h"

// Add the members of the reply. Thread of the control socket.
void v2xspatconv_AddStatus(cJSON* reply, const v2xspatconv_controlContext_t& context);
void v2xspatconv_AddLights(cJSON* reply, const v2xspatconv_controlContext_t& context);
