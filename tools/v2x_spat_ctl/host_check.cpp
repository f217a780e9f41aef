#include "host_check.h"

#include <algorithm>
#include <cctype>

#include "v2x/v2xpub.h"

namespace ctl {
namespace {

constexpr uint32_t LOOPBACK_NETWORK = 127;

// Returns the name without port and without a dot at its end, in lower case. Returns "" if the port is not a number.
std::string NormalizeHost(std::string_view host) {
    const size_t colon = host.find(':', host.starts_with('[') ? host.find(']') : 0);
    if (colon != std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.find_first_not_of("0123456789") != std::string_view::npos) {
            return "";
        }
        host.remove_suffix(host.size() - colon);
    }
    if (host.ends_with('.')) {
        host.remove_suffix(1);
    }
    std::string name(host);
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name;
}

bool IsLoopback(const std::string& name) {
    v2xpub_addressBlock_t block{};
    const bool isAddress = v2xpub_ParseAddressBlock(name.c_str(), &block) == 0 && block.mask == UINT32_MAX;
    return name == "localhost" || name == "[::1]" || (isAddress && block.network >> 24 == LOOPBACK_NETWORK);
}

} // namespace

bool IsAllowedHost(std::string_view host, const std::vector<std::string>& names) {
    const std::string name = NormalizeHost(host);
    const auto isName = [&name](const std::string& allowed) { return NormalizeHost(allowed) == name; };
    return !name.empty() && (IsLoopback(name) || std::ranges::any_of(names, isName));
}

} // namespace ctl
