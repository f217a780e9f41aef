// The content of the full-screen view, without a terminal.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/json.h"

namespace ctl {

enum class Style : uint8_t {
    plain,
    bold,
    dim,   // old values
    title, // first line
    alert, // what a person must see
    red,   // background of a light and its bar
    yellow,
    green,
};
inline constexpr int STYLES = 8;

struct TextSpan {
    std::string text;
    Style style = Style::plain;
};
using Line = std::vector<TextSpan>;

// What the view shows. The replies are null before they arrive and while there is no connection.
struct UnitView {
    const cJSON* status = nullptr;
    const cJSON* lights = nullptr;
    double sinceLights = 0; // seconds since the reply `lights` arrived
    std::string failure;    // why there is no connection; empty: connected
};

struct ScreenSize {
    int rows;
    int columns;
    bool hasColours; // false: bars consist of characters instead of coloured blanks
};

struct Screen {
    std::vector<Line> lines; // one line for each row; none is longer than the screen is wide
    int scroll;              // number of phase rows above the first visible one, limited to the valid range
    int page;                // number of phase rows that are visible at once
};

// Arranges the view: title, sources, peers, active checks, phases, help. `scroll` is the wanted number of phase rows
// above the first visible one. Phases that do not fit appear in two columns if the screen is wide enough.
Screen LayOut(const UnitView& view, const ScreenSize& size, int scroll);

} // namespace ctl
