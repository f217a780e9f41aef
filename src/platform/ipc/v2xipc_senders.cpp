// The accepted senders of the daemon's sockets to the stack application and the log tool.
#include <cstring>

#include "v2x/v2xipc.h"

namespace {

constexpr uint32_t LOOPBACK_NETWORK = 127;

// `ip` is a dotted IPv4 address of the port table.
v2xpub_addressBlock_t Parse(const char* ip) {
    v2xpub_addressBlock_t block{};
    v2xpub_ParseAddressBlock(ip, &block);
    return block;
}

bool IsLoopback(const v2xpub_addressBlock_t& block) {
    return block.network >> 24 == LOOPBACK_NETWORK;
}

bool HasLocalIp(const v2x_ipc_config_t& conf) {
    return strcmp(conf.m_local_ip, "0.0.0.0") != 0;
}

} // namespace

v2xpub_senders_t v2xipc_ListStackSenders(const v2x_ipc_config_t& conf) {
    const v2xpub_addressBlock_t stack = Parse(conf.m_rsu_rcv_ip);
    const v2xpub_addressBlock_t local = Parse(conf.m_local_ip);
    if (!HasLocalIp(conf)) {
        return {};
    }
    return {IsLoopback(stack) && !IsLoopback(local) ? 2 : 1, {stack, local}};
}

v2xpub_senders_t v2xipc_ListLogToolSenders(const v2x_ipc_config_t& conf) {
    return HasLocalIp(conf) ? v2xpub_senders_t{1, {Parse(conf.m_local_ip)}} : v2xpub_senders_t{};
}
