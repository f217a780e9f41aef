// The web page. CMake makes the definitions from page.html.
#pragma once

#include <string_view>

namespace ctl {

extern const std::string_view PAGE;        // HTML in UTF-8
extern const std::string_view PAGE_POLICY; // Content-Security-Policy with the hashes of the page's script and style

} // namespace ctl
