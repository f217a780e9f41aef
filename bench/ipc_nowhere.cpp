// Implements the IPC library's interface. Its send functions discard the data, so that a benchmark measures no kernel
// time.
#include <benchmark/benchmark.h>

#include "v2x/v2xipc.h"

struct v2xipc_socket {};

namespace {
const v2x_ipc_config_t conf = {20001, 20002, 20003, 20010, "127.0.0.1", "0.0.0.0"};
v2xipc_socket socket;
} // namespace

int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** result) {
    *result = &conf;
    return 0;
}

int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t*, const v2xpub_SocketInitPara_t*) {
    *handle = &socket;
    return 0;
}

int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE, const v2x_ipc_config_t*, const char*, int16_t) {
    return 0;
}

int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE, const v2x_ipc_config_t*, int32_t,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t*) {
    benchmark::DoNotOptimize(request->mp_data);
    benchmark::ClobberMemory();
    return 0;
}

int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE, const v2x_ipc_config_t*, const v2xpub_UdpSocketDataHead_t*,
                              const void*, int16_t) {
    return 0;
}
