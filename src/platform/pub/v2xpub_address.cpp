// Addresses of senders: pure computations, without a socket.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>

#include "v2x/v2xpub.h"

namespace {

constexpr int32_t ADDRESS_BITS = 32;

// Returns the mask of a prefix of 0 to 32 bits.
uint32_t MakeMask(int32_t prefix) {
    return prefix == 0 ? 0 : UINT32_MAX << (ADDRESS_BITS - prefix);
}

} // namespace

v2xpub_address_t v2xpub_ReadAddress(const void* addr, int16_t addrLen) {
    sockaddr_in sender{};
    if (addr == nullptr || addrLen < static_cast<int16_t>(sizeof sender)) {
        return {};
    }
    std::memcpy(&sender, addr, sizeof sender);
    return {ntohl(sender.sin_addr.s_addr), ntohs(sender.sin_port)};
}

v2xpub_ipText_t v2xpub_FormatIp(v2xpub_address_t address) {
    v2xpub_ipText_t text{};
    const in_addr ip{htonl(address.ip)};
    inet_ntop(AF_INET, &ip, text.text, sizeof text.text);
    return text;
}

const char* v2xpub_CheckLocalAddress(const char* text) {
    in_addr address{};
    if (inet_pton(AF_INET, text, &address) != 1) {
        return "is not a dotted IPv4 address";
    }
    const bool isUnicast = !IN_MULTICAST(ntohl(address.s_addr)) && address.s_addr != INADDR_BROADCAST;
    return isUnicast ? nullptr : "is a multicast or broadcast address";
}

int32_t v2xpub_ParseAddressBlock(const char* text, v2xpub_addressBlock_t* block) {
    if (text == nullptr || block == nullptr) {
        return -2;
    }
    const char* const slash = std::strchr(text, '/');
    const std::string ip = slash != nullptr ? std::string(text, slash) : text;
    int32_t prefix = ADDRESS_BITS;
    if (slash != nullptr) {
        const char* const end = slash + std::strlen(slash);
        const auto [stop, error] = std::from_chars(slash + 1, end, prefix);
        if (error != std::errc{} || stop != end || prefix < 0 || prefix > ADDRESS_BITS) {
            return -2;
        }
    }
    in_addr address{};
    const uint32_t mask = MakeMask(prefix);
    if (inet_pton(AF_INET, ip.c_str(), &address) != 1 || (ntohl(address.s_addr) & ~mask) != 0) {
        return -2;
    }
    *block = {ntohl(address.s_addr), mask};
    return 0;
}

bool v2xpub_IsSender(const v2xpub_senders_t& senders, uint32_t ip) {
    const v2xpub_addressBlock_t* const end = senders.blocks + senders.count;
    return senders.count == 0 ||
           std::any_of(senders.blocks, end, [ip](const auto& block) { return (ip & block.mask) == block.network; });
}
