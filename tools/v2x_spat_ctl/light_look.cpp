#include "light_look.h"

#include <algorithm>
#include <iterator>

namespace ctl {
namespace {

constexpr LightLook LOOKS[] = {
    // index: Light
    {"unavailable", "-", Colour::none, "#ffffff", "dots", 1},
    {"dark", "D", Colour::none, "#ffffff", nullptr, 0.6},
    {"flashing red", "r", Colour::red, "#c4262e", "flash", 0.6},
    {"red", "R", Colour::red, "#c4262e", nullptr, 0.6},
    {"flashing green", "g", Colour::green, "#2f9e57", "flash", 1},
    {"permissive green", "G", Colour::green, "#17803d", nullptr, 1},
    {"protected green", "P", Colour::green, "#0b5a28", nullptr, 1},
    {"yellow", "Y", Colour::yellow, "#ffd84a", "hatch", 1},
    {"flashing yellow", "y", Colour::yellow, "#ffd84a", "flash", 1},
    {"unknown", "?", Colour::none, "#ffffff", nullptr, 1},
    {"no record", "", Colour::none, "#ffffff", "no-record", 1},
};
static_assert(std::size(LOOKS) == LIGHTS);

} // namespace

Light FindLight(const std::string& name) {
    const auto* const end = LOOKS + LIGHT_UNKNOWN;
    return static_cast<Light>(std::find_if(LOOKS, end, [&](const auto& row) { return name == row.name; }) - LOOKS);
}

const LightLook& LookOf(Light light) {
    return LOOKS[light];
}

} // namespace ctl
