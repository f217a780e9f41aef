// A look at a configuration text before libconfig sees it. libconfig 1.5 takes some texts otherwise than they read, and
// can end the process on others; what is let through here it takes as written.
#pragma once

#include <cstdint>
#include <string_view>

struct v2xcfg_fault {
    unsigned line; // from 1
    char reason[128];
};

// False: the text is refused, and `fault` says where and why. Refused are
//   - integers beyond the signed 32 bits (64 with the suffix L) and floating-point numbers beyond a double: cut
//   silently;
//   - strings and comments without an end, and \x00 in a string: dropped silently;
//   - strings where no value belongs: their memory is lost;
//   - @include: opens other files, up to the end of the process;
//   - brackets that do not match or are nested more than 32 deep, names over 64 characters, more than 1000 settings:
//     libconfig's time grows with the square of the settings;
//   - bytes that belong to no token.
// Anything else that is wrong is libconfig's to find. Else `settings` is how many the text names.
bool v2xcfg_Scan(std::string_view text, v2xcfg_fault& fault, int32_t& settings);
