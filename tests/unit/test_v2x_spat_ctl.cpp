// What v2x_spat_ctl prints and shows for the lines of the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "lights.h"
#include "reply_text.h"
#include "screen_layout.h"
#include "status_text.h"

using namespace ctl;
using testing::HasSubstr;
using tools::ParseJsonObject;

namespace {

const std::string FRESH = R"({"source":"learner","state":"fresh","required":true,"forwarded":true,
    "peer":"192.168.1.20","age":0.31,"rate":2.0,"accepted":4102,"refused":0,"stale_after":3})";
const std::string STALE = R"({"source":"learner","state":"stale","required":true,"forwarded":false,
    "peer":"192.168.1.20","age":71.23,"rate":0,"accepted":4102,"refused":7,"stale_after":3})";
const std::string WAITING = R"({"source":"1743","state":"waiting","required":true,"forwarded":false,
    "peer":null,"age":null,"rate":0,"accepted":0,"refused":0,"stale_after":10})";
const std::string UNUSED = R"({"source":"1743","state":"off","required":false,"forwarded":false,
    "peer":null,"age":null,"rate":0,"accepted":0,"refused":0,"stale_after":10},
    {"source":"cloud","state":"unwatched","required":false,"forwarded":true,
    "peer":null,"age":null,"rate":0,"accepted":0,"refused":0,"stale_after":0})";
const std::string ANSWERS = R"({"state":"answers","peer":"127.0.0.1:20010","age":0.2})";
const std::string NO_YELLOW = R"({"check":"no_yellow","source":"learner","active":false,"count":3,
    "last":"2026-11-22T12:01:07.250Z","age":700,"phases":[5]})";
const std::string CONFLICT = R"({"check":"conflict","source":"1743","active":true,"count":1,
    "last":"2026-11-19T12:01:07.250Z","age":275000,"phases":[1,4]})";

const std::string DUPLICATE = R"({"check":"duplicate","source":"1743","active":true,"count":1,
    "last":"2026-11-22T12:01:07.250Z","age":1,"phases":[9]})";

tools::Json MakeStatus(const std::string& sources, const std::string& stack, const std::string& checks) {
    return ParseJsonObject(
        R"({"reply":"status","version":"v1","release":"1.2.3","pid":812,"uptime":274000,"device":"RSU0001","region":1,
        "node":2,"intersection":65538,"sources":[)" +
        sources + R"(],"stack":)" + stack +
        R"(,"cloud":{"available":true,"age":2.5,"topic":"rsu/RSU0001/spat/up","readers":1},"checks":[)" + checks +
        "]}");
}

class SpatCtl : public testing::Test {
protected:
    SpatCtl() {
        setenv("TZ", "UTC-8", 1);
        tzset();
    }
    ~SpatCtl() override {
        unsetenv("TZ");
        tzset();
    }
};

TEST_F(SpatCtl, PrintsStatusInColumnsAndLocalTime) {
    const tools::Json status = MakeStatus(FRESH + "," + UNUSED, ANSWERS, NO_YELLOW);
    EXPECT_EQ(FormatStatus(status.get(), ClockState::synchronised),
              "v2x_spat_convert v1 (release 1.2.3), pid 812, up 3 d 04 h, intersection 1/2\n"
              "SOURCE    PEER            STATE    AGE     RATE    ACCEPTED  REFUSED\n"
              "learner * 192.168.1.20    fresh    0.3 s   2.0/s   4102      0\n"
              "1743      -               off\n"
              "cloud     -               unwatched\n"
              "stack     127.0.0.1:20010 answers, 0.2 s ago\n"
              "cloud     available, 2.5 s ago; 1 reader of rsu/RSU0001/spat/up\n"
              "clock     synchronised\n"
              "checks    no_yellow 3 (last 20:01:07, phase 5)\n");
    const tools::Json other =
        MakeStatus(STALE, R"({"state":"unknown","peer":"127.0.0.1:20010","age":null})", NO_YELLOW + "," + CONFLICT);
    const std::string text = FormatStatus(other.get(), ClockState::unknown);
    EXPECT_THAT(text, HasSubstr("\nlearner   192.168.1.20    stale    71.2 s  -       4102      7\n"));
    EXPECT_THAT(text, HasSubstr("\nstack     127.0.0.1:20010 not asked yet\n"));
    EXPECT_THAT(text, HasSubstr("\nchecks    no_yellow 3 (learner, last 20:01:07, phase 5); conflict 1 (active, 1743, "
                                "last 3 d 04 h ago, phases 1, 4)\n"));
}

TEST_F(SpatCtl, FindsProblemsForMonitoring) {
    const std::string silent = R"({"state":"silent","peer":"127.0.0.1:20010","age":9})";
    const struct {
        tools::Json status;
        std::string brief;
    } rows[] = {
        {MakeStatus(FRESH + "," + UNUSED, ANSWERS, NO_YELLOW), "OK: learner fresh 0.3 s, stack answers\n"},
        {MakeStatus(UNUSED, ANSWERS, ""), "OK: stack answers\n"},
        {MakeStatus(STALE + "," + UNUSED, ANSWERS, ""), "PROBLEM: learner stale 71.2 s\n"},
        {MakeStatus(FRESH + "," + WAITING, ANSWERS, ""), "PROBLEM: 1743 waiting\n"},
        {MakeStatus(FRESH, ANSWERS, DUPLICATE), "PROBLEM: duplicate active (device phase 9)\n"},
        {MakeStatus(FRESH, silent, CONFLICT), "PROBLEM: stack silent, conflict active (phases 1, 4)\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FormatBrief(row.status.get()), row.brief);
        EXPECT_EQ(FindProblems(row.status.get()).empty(), row.brief.starts_with("OK"));
    }
}

TEST_F(SpatCtl, PrintsOneLineForEachEvent) {
    const struct {
        const char* line;
        const char* text;
    } rows[] = {
        {R"({"event":"record","time":"2026-11-22T12:04:41.123Z","source":"learner","replaced":false,"lights":[
             {"phase":1,"light":"red","time_left":12.3},{"phase":2,"light":"dark","time_left":null}]})",
         "20:04:41.123 record learner 1 red 12.3, 2 dark -\n"},
        {R"({"event":"record","time":"2026-11-22T12:04:41.123Z","source":null,"replaced":true,"lights":[]})",
         "20:04:41.123 record daemon replaced\n"},
        {R"({"event":"source","time":"2026-11-22T20:04:41.123Z","text":"learner: stale\u001b[2J","state":"stale"})",
         "04:04:41.123 source learner: stale?[2J\n"},
        {R"({"event":"check","time":"2026-11-22T12:04:41.123Z","text":"check no_yellow: \u009b2J\u00e4"})",
         "20:04:41.123 check no_yellow: ?2J\u00e4\n"},
        {R"({"event":"stack","time":"2026-11-22T12:04:41.003Z","state":"silent"})", "20:04:41.003 stack silent\n"},
        {R"({"event":"cloud","time":"soon","available":false})", "soon cloud not available\n"},
        {R"({"lost":12})", "lost 12 events\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FormatEvent(ParseJsonObject(row.line).get()), row.text);
    }
}

TEST_F(SpatCtl, PrintsTables) {
    EXPECT_EQ(FormatCounters(
                  ParseJsonObject(R"({"counters":{"learner":{"accepted":41,"invalid":0},"ipc":{"\u001b":1}}})").get()),
              "PATH     COUNTER   COUNT\nlearner  accepted  41\nlearner  invalid   0\nipc      ?         1\n");
    EXPECT_EQ(FormatLevels(ParseJsonObject(R"({"levels":[{"tag":"SPAT","level":4},{"tag":"1743","level":9}]})").get()),
              "TAG   LEVEL\nSPAT  4 info\n1743  9\n");
    EXPECT_EQ(FormatConfig(ParseJsonObject(R"({"settings":[{"file":"a.cfg","key":"k","value":["x"],"default":false},
              {"file":"b.cfg","key":"n","value":2,"default":true}]})")
                               .get()),
              "# a.cfg\nk = [\"x\"]\n# b.cfg\nn = 2  # default\n");
}

const std::string TWO_LIGHTS = R"({"lights":[
    {"phase":1,"light":"red","time_left":12.3,"age":0.3,"source":"learner","device_phase":7},
    {"phase":12,"light":"unavailable","time_left":null,"age":0.3,"source":null,"device_phase":null}]})";

TEST_F(SpatCtl, PrintsLightsWithTheSecondsLeftNow) {
    const tools::Json lights = ParseJsonObject(TWO_LIGHTS);
    const tools::Json status = MakeStatus(FRESH, ANSWERS, "");
    EXPECT_EQ(FormatLights(status.get(), lights.get(), false),
              "PHASE  LIGHT        LEFT    AGE    SOURCE   DEVICE PHASE\n"
              "1      red          12.0 s  0.3 s  learner  7\n"
              "12     unavailable  -       0.3 s  daemon   -\n");
    EXPECT_THAT(FormatLights(status.get(), lights.get(), true),
                HasSubstr("\n1      \x1B[31mred\x1B[0m          12.0 s"));
    EXPECT_EQ(CountDown(tools::GetMember(lights.get(), "lights")->child, 13), 0.0);
}

TEST_F(SpatCtl, MarksOldLights) {
    const struct {
        std::string sources;
        const char* source;
        double age;
        bool isOld;
    } rows[] = {
        {FRESH, R"("learner")", 2.9, false}, {FRESH, R"("learner")", 3.1, true}, // stale_after 3
        {STALE, R"("learner")", 0.1, true},  {FRESH, "null", 2.9, false},
        {FRESH, "null", 3.1, true},          {UNUSED, R"("cloud")", 9.9, false}, // not watched
        {UNUSED, R"("cloud")", 10.1, true},
    };
    for (const auto& row : rows) {
        const tools::Json lights = ParseJsonObject(R"({"lights":[{"phase":1,"light":"red","time_left":90,"age":)" +
                                                   std::to_string(row.age) + R"(,"source":)" + row.source + "}]}");
        const std::string text = FormatLights(MakeStatus(row.sources, ANSWERS, "").get(), lights.get(), true);
        EXPECT_EQ(text.find("red    STALE") != std::string::npos, row.isOld) << text;
        EXPECT_EQ(text.find("\x1B[31m") == std::string::npos, row.isOld) << text;
    }
}

// ---- screen

// Returns the rows as text, and checks that each fills the width of the screen.
std::vector<std::string> RowsOf(const Screen& screen, const ScreenSize& size) {
    std::vector<std::string> rows;
    for (const Line& line : screen.lines) {
        std::string text;
        for (const TextSpan& span : line) {
            text += span.text;
        }
        EXPECT_EQ(text.size(), static_cast<size_t>(size.columns)) << text;
        rows.push_back(text);
    }
    EXPECT_EQ(rows.size(), static_cast<size_t>(size.rows));
    return rows;
}

tools::Json MakeLights(int phases) {
    std::string text;
    for (int phase = 1; phase <= phases; phase++) {
        text += (phase > 1 ? R"(,{"phase":)" : R"({"phase":)") + std::to_string(phase) +
                R"(,"light":"red","time_left":30.0,"age":0.5,"source":"learner","device_phase":1})";
    }
    return ParseJsonObject(R"({"lights":[)" + text + "]}");
}

TEST_F(SpatCtl, ScreenCountsDownBetweenReplies) {
    const tools::Json status = MakeStatus(FRESH + "," + UNUSED, ANSWERS, "");
    const tools::Json lights = ParseJsonObject(TWO_LIGHTS);
    const ScreenSize size{24, 80, false};
    const auto rows = RowsOf(LayOut({status.get(), lights.get(), 2.0, ""}, size, 0), size);
    EXPECT_THAT(rows[0], HasSubstr("RSU0001  intersection 1/2 "));
    EXPECT_THAT(rows[1], HasSubstr("learner * 192.168.1.20    fresh "));
    EXPECT_EQ(rows[2].find(" stack answers, cloud available "), 0U);
    EXPECT_EQ(rows[4].find("  1 [R] red                10.0 ####  "), 0U) << rows[4]; // 4 of 21 for 10 of 60 s
    EXPECT_THAT(rows[5], HasSubstr(" daemon  -     "));
}

TEST_F(SpatCtl, ScreenMarksStaleSourceAndItsLights) {
    const tools::Json status = MakeStatus(STALE + "," + UNUSED, ANSWERS, CONFLICT);
    const tools::Json lights = MakeLights(2);
    const ScreenSize size{24, 80, true};
    const Screen screen = LayOut({status.get(), lights.get(), 0, ""}, size, 0);
    const auto rows = RowsOf(screen, size);
    EXPECT_THAT(rows[1], HasSubstr("learner   192.168.1.20    STALE     71.2 s "));
    EXPECT_EQ(screen.lines[1][0].style, Style::alert);
    EXPECT_THAT(rows[3], HasSubstr(" PROBLEM: learner stale 71.2 s, conflict active (phases 1, 4) "));
    EXPECT_EQ(rows[5].find("  1  R  red               STALE      "), 0U) << rows[5];
    EXPECT_EQ(screen.lines[5][1].style, Style::dim);
}

TEST_F(SpatCtl, ScreenMarksLightsThatRecordsNoLongerContain) {
    const tools::Json status = MakeStatus(FRESH, ANSWERS, "");
    const tools::Json lights = MakeLights(1);
    const ScreenSize size{24, 80, true};
    EXPECT_THAT(RowsOf(LayOut({status.get(), lights.get(), 2.4, ""}, size, 0), size)[4], HasSubstr(" 27.1 "));
    EXPECT_THAT(RowsOf(LayOut({status.get(), lights.get(), 2.6, ""}, size, 0), size)[4], HasSubstr(" STALE "));
}

TEST_F(SpatCtl, ScreenShows32PhasesInTwoColumnsOrScrolls) {
    const tools::Json status = MakeStatus(FRESH, ANSWERS, "");
    const tools::Json lights = MakeLights(32);
    const UnitView view{status.get(), lights.get(), 0, ""};
    const ScreenSize wide{24, 80, true};
    const auto rows = RowsOf(LayOut(view, wide, 0), wide);
    EXPECT_EQ(rows[4].find(" 17  R  red"), 40U);
    EXPECT_EQ(rows[19].find(" 32  R  red"), 40U);
    const ScreenSize narrow{10, 40, true};
    const Screen end = LayOut(view, narrow, 1000);
    EXPECT_EQ(end.scroll, 27);
    EXPECT_EQ(RowsOf(end, narrow)[8].find(" 32  R  red"), 0U);
    EXPECT_EQ(LayOut(view, narrow, -3).scroll, 0);
}

TEST_F(SpatCtl, ScreenShowsNoLightsWithoutDaemon) {
    const ScreenSize size{24, 80, true};
    const auto rows = RowsOf(LayOut({nullptr, nullptr, 0, "/run/x: the daemon does not run"}, size, 0), size);
    EXPECT_EQ(rows[1].find(" NO DAEMON "), 0U);
    EXPECT_EQ(rows[2].find(" /run/x: the daemon does not run "), 0U);
}

// Run with the address and undefined-behaviour sanitizers.
TEST_F(SpatCtl, SurvivesMembersOfWrongTypesAndAnyScreenSize) {
    const tools::Json wrong = ParseJsonObject(R"({"sources":[1,{"source":5,"state":null,"age":1e999},{"accepted":"x"}],
        "stack":[],"cloud":1,"checks":[null,{"active":true,"age":-1e999,"phases":["a",1e99]}],
        "counters":[1,[2],{"x":null}],"levels":{},"settings":[[]],
        "lights":[7,{"phase":1e99,"light":[],"time_left":1e999,"age":-1e999},
        {"time_left":1e999,"age":1e999,"device_phase":"x"}],"event":"record","uptime":1e999})");
    for (const auto format : {FormatCounters, FormatConfig, FormatLevels, FormatEvent}) {
        EXPECT_FALSE(format(wrong.get()).empty());
    }
    EXPECT_FALSE(FormatStatus(wrong.get(), ClockState::unknown).empty());
    EXPECT_FALSE(FormatLights(wrong.get(), wrong.get(), true).empty());
    for (const int columns : {1, 39, 79, 80, 300}) {
        for (const int rows : {1, 3, 10, 100}) {
            const ScreenSize size{rows, columns, false};
            RowsOf(LayOut({wrong.get(), wrong.get(), 1, ""}, size, 5), size);
        }
    }
}

} // namespace
