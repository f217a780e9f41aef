// Opens the sockets of the signal devices. Private to the adapters. Main thread.
#pragma once

#include "spat_conv_config.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

// Opens a socket. Returns its handle; null if the socket cannot be opened, which is logged under `tag`.
V2X_UDPSOCKHANDLE v2xspatconv_OpenSignalSocket(v2xlog_tag_t& tag, const v2xpub_SocketInitPara_t& para);

// The receive socket of a device.
struct v2xspatconv_receiveSocket_t {
    e_v2xspatconv_source source;
    const learn_machine_info_t& device;
    v2xpub_msgFunc callback;
};

// Opens the receive socket at the address LocalIp and the port LocalPort of the device, with OnlyFrom as sender filter.
// A line at V2XLOG_WARN reports a socket without filter. Returns true if the socket is open.
bool v2xspatconv_OpenReceiveSocket(v2xlog_tag_t& tag, const v2xspatconv_receiveSocket_t& socket,
                                   const v2xspatconv_guard_t& guard);
