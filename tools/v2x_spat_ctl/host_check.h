// Protects the web server against DNS rebinding: a page of another site must not reach it under that site's name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Returns true if the Host header of a request names localhost, a loop-back address or one of `names`. The header may
// have a port. The case of letters and a dot at the end of a name have no meaning.
bool IsAllowedHost(std::string_view host, const std::vector<std::string>& names);

} // namespace ctl
