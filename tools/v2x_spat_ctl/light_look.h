// The lights: names, letters and colours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ctl {

// Codes of m_lightState, and two of the tools.
using Light = uint8_t;
inline constexpr Light LIGHT_UNKNOWN = 9;
inline constexpr Light LIGHT_NO_RECORD = 10;
inline constexpr size_t LIGHTS = 11;

enum class Colour { none, red, yellow, green };

// How a light looks. Letter, height and pattern distinguish the lights without colours.
struct LightLook {
    const char* name;    // as in the daemon's lines
    const char* letter;  // empty for LIGHT_NO_RECORD
    Colour colour;       // on a terminal
    const char* fill;    // in the diagram
    const char* pattern; // drawn over the fill, or null
    double height;       // share of a full bar
};

// Returns the code of a light by its name in the daemon's lines, LIGHT_UNKNOWN for another name.
Light FindLight(const std::string& name);

// Returns the look of a code below LIGHTS.
const LightLook& LookOf(Light light);

} // namespace ctl
