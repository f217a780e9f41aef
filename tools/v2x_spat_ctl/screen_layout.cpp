#include "screen_layout.h"

#include <algorithm>
#include <cmath>

#include "common/text.h"
#include "format.h"
#include "light_look.h"
#include "lights.h"
#include "status_text.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetInteger;
using tools::GetMember;
using tools::GetNumber;
using tools::GetText;

constexpr int COLUMN_MIN = 40;     // narrowest column of phases, in characters
constexpr int DETAILED_MIN = 72;   // narrowest column with source, device phase and age
constexpr int FIXED_WIDTH = 32;    // phase, block, light and seconds left
constexpr int DETAILS_WIDTH = 26;  // source, device phase and age
constexpr double BAR_SECONDS = 60; // time left of a full bar
constexpr Style COLOUR_STYLES[] = {Style::plain, Style::red, Style::yellow, Style::green}; // index: Colour

// Cuts a line to the width of the screen, or fills the line with blanks of the style `fill`.
Line Fit(Line line, int columns, Style fill = Style::plain) {
    auto room = static_cast<size_t>(columns);
    for (TextSpan& span : line) {
        span.text.resize(std::min(span.text.size(), room));
        room -= span.text.size();
    }
    line.push_back({std::string(room, ' '), fill});
    return line;
}

// ---- head

Line MakeTitle(const UnitView& view) {
    if (view.status == nullptr) {
        return {{" v2x_spat_convert", Style::title}};
    }
    return {{FormatText(" %s  intersection %d/%d  up %s  %s", GetPlainText(view.status, "device").c_str(),
                        GetInteger(view.status, "region"), GetInteger(view.status, "node"),
                        FormatAge(view.status, "uptime").c_str(), GetPlainText(view.status, "version").c_str()),
             Style::title}};
}

// Returns nothing for a source that is off or from which nothing is expected.
Line MakeSource(const cJSON* source) {
    std::vector<std::string> cells = MakeSourceCells(source);
    if (cells.size() < 5) {
        return {};
    }
    const bool isStale = GetText(source, "state") == "stale";
    cells.resize(5); // without the counts
    cells[2] = isStale ? "STALE" : cells[2];
    std::string text = FormatTable({cells}, {10, 16, 10, 12}, 1);
    text.pop_back(); // the line feed
    return {{" " + text, isStale ? Style::alert : Style::plain}};
}

Line MakePeers(const cJSON* status) {
    const bool isAvailable = tools::GetFlag(GetMember(status, "cloud"), "available");
    return {{" stack " + FormatStackState(status) + (isAvailable ? ", cloud available" : ", cloud not available")}};
}

std::vector<Line> MakeHead(const UnitView& view) {
    std::vector<Line> head = {MakeTitle(view)};
    if (!view.failure.empty()) {
        head.push_back({{" NO DAEMON ", Style::alert}, {" retries every second"}});
        head.push_back({{" " + view.failure}});
        return head;
    }
    if (view.status == nullptr) {
        return head; // the first reply has not arrived
    }
    const cJSON* source = nullptr;
    cJSON_ArrayForEach(source, GetMember(view.status, "sources")) {
        if (Line line = MakeSource(source); !line.empty()) {
            head.push_back(line);
        }
    }
    head.push_back(MakePeers(view.status));
    if (!FindProblems(view.status).empty()) {
        std::string problems = FormatBrief(view.status);
        problems.pop_back(); // the line feed
        head.push_back({{" " + problems, Style::alert}});
    }
    return head;
}

// ---- phases

std::string FormatDetails(const std::string& source, const std::string& device, const std::string& age) {
    return FormatText(" %-8s%-6s%11s", source.c_str(), device.c_str(), age.c_str());
}

// Returns the bar for the time left: a part in the style of the light, then blanks.
Line MakeBar(double left, int width, Style style, bool hasColours) {
    const double share = std::min(left / BAR_SECONDS, 1.0);
    const auto filled = static_cast<size_t>(std::lround(std::ceil(share * width)));
    return {{std::string(filled, hasColours && style != Style::plain ? ' ' : '#'), style},
            {std::string(static_cast<size_t>(width) - filled, ' ')}};
}

Line MakePhase(const UnitView& view, const cJSON* light, int columns, bool hasColours) {
    const LightLook& look = LookOf(FindLight(GetText(light, "light")));
    const bool isOld = IsOld(view.status, light, view.sinceLights);
    const std::optional<double> left = CountDown(light, view.sinceLights);
    const Style style = isOld ? Style::dim : COLOUR_STYLES[static_cast<int>(look.colour)];
    const std::string seconds = isOld ? "STALE" : left ? FormatText("%.1f", *left) : "-";
    Line line = {{FormatText("%3d ", GetInteger(light, "phase"))},
                 {FormatText(hasColours ? " %s " : "[%s]", look.letter), style},
                 {FormatText(" %-16s %6s ", GetPlainText(light, "light").c_str(), seconds.c_str()),
                  isOld ? Style::dim : Style::plain}};
    const bool isDetailed = columns >= DETAILED_MIN;
    const int width = std::max(columns - FIXED_WIDTH - (isDetailed ? DETAILS_WIDTH : 0) - 1, 0);
    for (const TextSpan& span : MakeBar(isOld ? 0 : left.value_or(0), width, style, hasColours)) {
        line.push_back(span);
    }
    if (isDetailed) {
        line.push_back({FormatDetails(FormatSource(light), FormatDevicePhase(light),
                                      FormatDuration(GetNumber(light, "age") + view.sinceLights))});
    }
    return line;
}

Line MakePhaseHead(int columns) {
    const std::string text = FormatText("%-4s%-20s %6s %s", "PH", "LIGHT", "LEFT", "0-60 s");
    const std::string details = columns >= DETAILED_MIN ? FormatDetails("SOURCE", "DEVICE", "AGE") : "";
    return Fit({{FormatText("%-*s%s", columns - DETAILS_WIDTH - 1, text.c_str(), details.c_str()), Style::bold}},
               columns);
}

// The phases in columns: a column has `height` phases, of which `visible` are on the screen.
struct Grid {
    int columns;
    int height;
    int visible;
};

Grid MakeGrid(int phases, const ScreenSize& size, int rows) {
    const int visible = std::max(rows, 0);
    const int columns = phases > visible && size.columns >= 2 * COLUMN_MIN ? 2 : 1;
    return {columns, (phases + columns - 1) / columns, visible};
}

Line MakePhaseRow(const UnitView& view, const ScreenSize& size, const Grid& grid, int row) {
    const int width = size.columns / grid.columns;
    Line line;
    for (int column = 0; column < grid.columns; column++) {
        const int index = column * grid.height + row;
        const cJSON* const light =
            row < grid.height ? cJSON_GetArrayItem(GetMember(view.lights, "lights"), index) : nullptr;
        const Line cell = Fit(light != nullptr ? MakePhase(view, light, width, size.hasColours) : Line{}, width);
        line.insert(line.end(), cell.begin(), cell.end());
    }
    return line;
}

Line MakeHelp(const Grid& grid, int phases, int scroll) {
    const bool isScrolled = grid.height > grid.visible;
    const std::string position = FormatText("  row %d of %d, arrows scroll", scroll + 1, grid.height);
    return {{" q quit", Style::bold}, {FormatText("  %d phases", phases) + (isScrolled ? position : "")}};
}

} // namespace

Screen LayOut(const UnitView& view, const ScreenSize& size, int scroll) {
    Screen screen{MakeHead(view), 0, 0};
    const int phases = cJSON_GetArraySize(GetMember(view.lights, "lights"));
    const Grid grid = MakeGrid(phases, size, size.rows - static_cast<int>(screen.lines.size()) - 2);
    screen.scroll = std::clamp(scroll, 0, std::max(grid.height - grid.visible, 0));
    screen.page = grid.visible;
    Line heads;
    for (int column = 0; column < grid.columns && phases > 0; column++) {
        const Line head = MakePhaseHead(size.columns / grid.columns);
        heads.insert(heads.end(), head.begin(), head.end());
    }
    screen.lines.push_back(heads);
    for (int row = 0; row < grid.visible; row++) {
        screen.lines.push_back(MakePhaseRow(view, size, grid, screen.scroll + row));
    }
    screen.lines.push_back(MakeHelp(grid, phases, screen.scroll));
    screen.lines.resize(static_cast<size_t>(std::max(size.rows, 0)));
    for (Line& line : screen.lines) {
        line = Fit(line, size.columns, &line == screen.lines.data() ? Style::title : Style::plain);
    }
    return screen;
}

} // namespace ctl
