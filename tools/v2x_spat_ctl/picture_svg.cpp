#include "picture_svg.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iterator>

#include "common/text.h"

namespace ctl {
namespace {

using tools::FormatText;

constexpr uint64_t SECOND = 1'000'000; // microseconds

// Layout in pixels.
constexpr double LEFT = 90;
constexpr double RIGHT = 30;
constexpr double TOP = 92; // of the first row
constexpr double ROW_HEIGHT = 28;
constexpr double BAR_HEIGHT = 20;
constexpr double LEGEND_WIDTH = 150; // of one entry
constexpr double LINE_HEIGHT = 18;
constexpr double MIN_PLOT_WIDTH = 700;
constexpr double MAX_PLOT_WIDTH = 1600;
constexpr double PIXELS_PER_SECOND = 12;
constexpr double LETTER_WIDTH = 11;   // the narrowest bar with a letter
constexpr double DURATION_WIDTH = 48; // the narrowest bar with its duration
constexpr size_t MAX_MARKS = 20;

constexpr const char* DEFINITIONS = R"svg(<defs>
<pattern id="dots" width="6" height="6" patternUnits="userSpaceOnUse">
<circle cx="3" cy="3" r="1" fill="#777"/></pattern>
<pattern id="hatch" width="6" height="6" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
<path d="M0 0V6" stroke="#000" stroke-opacity="0.45" stroke-width="2"/></pattern>
<pattern id="flash" width="8" height="8" patternUnits="userSpaceOnUse">
<path d="M0 0V8" stroke="#fff" stroke-width="5"/></pattern>
<pattern id="no-record" width="7" height="7" patternUnits="userSpaceOnUse" patternTransform="rotate(-45)">
<path d="M0 0V7" stroke="#888" stroke-width="1.5"/></pattern>
</defs>
)svg";

// Replaces the characters that XML reserves, and those that are not printable ASCII.
std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        default:
            escaped += character >= ' ' && character <= '~' ? character : '?';
        }
    }
    return escaped;
}

tm ToLocalTime(uint64_t time) {
    const auto seconds = static_cast<time_t>(time / SECOND);
    tm local{};
    localtime_r(&seconds, &local);
    return local;
}

// Returns the local time of day.
std::string FormatClock(uint64_t time) {
    const tm local = ToLocalTime(time);
    return FormatText("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
}

std::string FormatPeriod(uint64_t begin, uint64_t end) {
    const tm local = ToLocalTime(begin);
    return FormatText("%04d-%02d-%02d ", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday) + FormatClock(begin) +
           " to " + FormatClock(end) + " " + local.tm_zone;
}

double ToSeconds(uint64_t microseconds) {
    return static_cast<double>(microseconds) / static_cast<double>(SECOND);
}

// Returns the smallest step in seconds that has at least `width` pixels.
uint64_t ChooseStep(double pixelsPerSecond, double width) {
    constexpr uint64_t STEPS[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 21600};
    const auto* const step = std::ranges::find_if(
        STEPS, [&](uint64_t seconds) { return static_cast<double>(seconds) * pixelsPerSecond >= width; });
    return step != std::end(STEPS) ? *step : static_cast<uint64_t>(std::ceil(width / pixelsPerSecond));
}

class Drawing {
public:
    explicit Drawing(const Timeline& timeline)
        : m_timeline(timeline), m_seconds(std::max(ToSeconds(timeline.end - timeline.begin), 1.0)),
          m_plotWidth(std::clamp(m_seconds * PIXELS_PER_SECOND, MIN_PLOT_WIDTH, MAX_PLOT_WIDTH)),
          m_bottom(TOP + ROW_HEIGHT * static_cast<double>(timeline.phases.size())) {}

    std::string Draw() {
        DrawHead();
        DrawAxis();
        DrawFlags();
        double y = TOP;
        for (const auto& [phase, row] : m_timeline.phases) {
            DrawRow(phase, row, y);
            y += ROW_HEIGHT;
        }
        const double bottom = ListMarks(DrawLegend(m_bottom + 56));
        const double width = LEFT + m_plotWidth + RIGHT;
        return FormatText("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                          "viewBox=\"0 0 %.0f %.0f\" font-family=\"DejaVu Sans, Arial, sans-serif\" font-size=\"12\">\n"
                          "<rect width=\"100%%\" height=\"100%%\" fill=\"#fff\"/>\n",
                          width, bottom, width, bottom) +
               DEFINITIONS + m_body + "</svg>\n";
    }

private:
    double X(uint64_t time) const { return LEFT + ToSeconds(time - m_timeline.begin) / m_seconds * m_plotWidth; }

    void Text(double x, double y, const std::string& attributes, const std::string& text) {
        m_body += FormatText("<text x=\"%.1f\" y=\"%.1f\"%s>", x, y, attributes.c_str()) + Escape(text) + "</text>\n";
    }

    void Rect(double x, double y, double width, double height, const std::string& attributes) {
        m_body += FormatText("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"%s/>", x, y, width, height,
                             attributes.c_str());
    }

    void Line(double x, double y, double toY, const char* colour) {
        m_body += FormatText("<path d=\"M%.1f %.1fV%.1f\" stroke=\"%s\"/>\n", x, y, toY, colour);
    }

    void DrawHead() {
        const std::string title = "Signal timing, " + m_timeline.unit;
        m_body += "<title>" + Escape(title) + "</title>\n";
        Text(LEFT, 24, " font-size=\"17\" font-weight=\"bold\"", title);
        Text(LEFT, 44, "",
             FormatPeriod(m_timeline.begin, m_timeline.end) +
                 FormatText(", %.0f s, %zu phases", m_seconds, m_timeline.phases.size()));
    }

    // Draws a tick each second if there is room, and a label with the clock time every few seconds.
    void DrawAxis() {
        const double pixelsPerSecond = m_plotWidth / m_seconds;
        const uint64_t tick = ChooseStep(pixelsPerSecond, 4);
        const uint64_t label = ChooseStep(pixelsPerSecond, 66);
        const uint64_t first = (m_timeline.begin + SECOND - 1) / SECOND;
        for (uint64_t second = (first + tick - 1) / tick * tick; second * SECOND <= m_timeline.end; second += tick) {
            const double x = X(second * SECOND);
            const bool isLabel = second % label == 0;
            const bool isFifth = second % (5 * tick) == 0;
            if (isLabel) {
                Line(x, TOP - 6, m_bottom, "#ccc");
                Text(x, m_bottom + 28, " text-anchor=\"middle\" font-size=\"11\"", FormatClock(second * SECOND));
            }
            Line(x, m_bottom, m_bottom + (isLabel ? 14 : isFifth ? 10 : 6), "#000");
        }
        m_body += FormatText("<path d=\"M%.1f %.1fH%.1f\" stroke=\"#000\"/>\n", LEFT, m_bottom, LEFT + m_plotWidth);
    }

    void DrawRow(int phase, const PhaseRow& row, double y) {
        Text(LEFT - 10, y + ROW_HEIGHT / 2 + 4, " text-anchor=\"end\"", FormatText("phase %d", phase));
        for (const LightSpan& span : row.lights) {
            m_isUsed[span.light] = true;
            const double seconds = ToSeconds(span.end - span.begin);
            const std::string title = FormatText("phase %d %s, %.1f s from ", phase, LookOf(span.light).name, seconds) +
                                      FormatClock(span.begin);
            m_body += "<g><title>" + title + "</title>";
            DrawBar(X(span.begin), y, X(span.end) - X(span.begin), span.light, FormatText("%.1f", seconds));
            m_body += "</g>\n";
        }
        for (const Interval& conflict : row.conflicts) {
            m_hasConflict = true;
            DrawConflict(X(conflict.begin), y, X(conflict.end) - X(conflict.begin));
        }
    }

    void DrawBar(double x, double y, double width, Light light, const std::string& duration) {
        const LightLook& look = LookOf(light);
        const bool hasWhiteInk = look.colour == Colour::red || look.colour == Colour::green;
        const double height = BAR_HEIGHT * look.height;
        const double top = y + (ROW_HEIGHT - height) / 2;
        Rect(x, top, width, height,
             FormatText(" fill=\"%s\"%s", look.fill,
                        light == LIGHT_NO_RECORD ? "" : " stroke=\"#000\" stroke-width=\"0.6\""));
        if (look.pattern != nullptr) {
            Rect(x, top, width, height, FormatText(" fill=\"url(#%s)\"", look.pattern));
        }
        if (width < LETTER_WIDTH || *look.letter == '\0') {
            return;
        }
        const std::string text = look.letter + (width >= DURATION_WIDTH && !duration.empty() ? " " + duration : "");
        if (look.pattern != nullptr) { // a plain ground for the letters
            const double ground = 4 + 7 * static_cast<double>(text.size());
            Rect(x + (width - ground) / 2, top + height / 2 - 6, ground, 12, FormatText(" fill=\"%s\"", look.fill));
        }
        Text(x + width / 2, y + ROW_HEIGHT / 2 + 4,
             FormatText(" text-anchor=\"middle\" font-size=\"%d\" fill=\"%s\"", look.height < 1 ? 10 : 11,
                        hasWhiteInk ? "#fff" : "#000"),
             text);
    }

    void DrawConflict(double x, double y, double width) {
        Rect(x, y + 1, std::max(width, 2.0), ROW_HEIGHT - 2,
             " class=\"conflict\" fill=\"none\" stroke=\"#000\" stroke-width=\"3\"");
        Rect(x, y + 1, 9, 13, " fill=\"#000\"");
        Text(x + 5, y + 12, " text-anchor=\"middle\" font-weight=\"bold\" fill=\"#fff\"", "!");
    }

    size_t ShownMarks() const { return std::min(m_timeline.marks.size(), MAX_MARKS); }

    // Draws the number of each mark above the rows. Numbers of close marks are side by side.
    void DrawFlags() {
        constexpr double RADIUS = 9;
        constexpr double DISTANCE = 2 * RADIUS + 1;
        double nextX = 0;
        double maxX = LEFT + m_plotWidth + RIGHT - RADIUS - DISTANCE * static_cast<double>(ShownMarks());
        for (size_t number = 0; number < ShownMarks(); ++number) {
            const double x = X(m_timeline.marks[number].time);
            maxX += DISTANCE;
            const double flagX = std::min(std::max(x, nextX), maxX);
            nextX = flagX + DISTANCE;
            m_body += FormatText("<path d=\"M%.1f %.1fL%.1f %.1fV%.1f\" fill=\"none\" stroke=\"#000\" "
                                 "stroke-dasharray=\"2 3\"/>\n",
                                 flagX, TOP - 14, x, TOP - 6, m_bottom);
            m_body += FormatText("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.0f\" fill=\"#fff\" stroke=\"#000\"/>", flagX,
                                 TOP - 22, RADIUS);
            Text(flagX, TOP - 18, " text-anchor=\"middle\" font-size=\"11\"", std::to_string(number + 1));
        }
    }

    // Draws the lights that the diagram contains. Returns the bottom of the legend.
    double DrawLegend(double y) {
        double x = LEFT;
        const auto advance = [&] {
            x += LEGEND_WIDTH;
            if (x + LEGEND_WIDTH > LEFT + m_plotWidth + RIGHT) {
                x = LEFT;
                y += ROW_HEIGHT;
            }
        };
        for (size_t light = 0; light < LIGHTS; ++light) {
            if (m_isUsed[light]) {
                DrawBar(x, y, 24, static_cast<Light>(light), "");
                Text(x + 30, y + ROW_HEIGHT / 2 + 4, "", LookOf(static_cast<Light>(light)).name);
                advance();
            }
        }
        if (m_hasConflict) {
            DrawConflict(x, y, 24);
            Text(x + 30, y + ROW_HEIGHT / 2 + 4, "", "conflict");
        }
        return y + ROW_HEIGHT;
    }

    // Prints the marks with their numbers. Returns the bottom of the list.
    double ListMarks(double y) {
        for (size_t number = 0; number < ShownMarks(); ++number) {
            const Mark& mark = m_timeline.marks[number];
            y += LINE_HEIGHT;
            Text(LEFT, y, "", FormatText("%zu. ", number + 1) + FormatClock(mark.time) + " " + mark.text);
        }
        if (m_timeline.marks.size() > MAX_MARKS) {
            y += LINE_HEIGHT;
            Text(LEFT, y, "", FormatText("and %zu more", m_timeline.marks.size() - MAX_MARKS));
        }
        return y + LINE_HEIGHT;
    }

    const Timeline& m_timeline;
    const double m_seconds;
    const double m_plotWidth;
    const double m_bottom; // of the last row
    bool m_isUsed[LIGHTS] = {};
    bool m_hasConflict = false;
    std::string m_body;
};

} // namespace

std::string DrawTimeline(const Timeline& timeline) {
    return Drawing(timeline).Draw();
}

} // namespace ctl
