// The events that v2x_spat_ctl captures and draws.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bytes.h"
#include "capture.h"
#include "event_time.h"
#include "picture.h"
#include "picture_svg.h"
#include "temp_folder.h"
#include "v2x/v2xipc_data.h"

using namespace ctl;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr uint64_t SECOND = 1'000'000;
constexpr uint64_t BEGIN = 1'732'186'138 * SECOND;
constexpr Light RED = V2XIPC_LIGHT_RED;
constexpr Light GREEN = V2XIPC_LIGHT_PERMISSIVE_GREEN;
constexpr Light YELLOW = V2XIPC_LIGHT_YELLOW;

// "begin-end light" in seconds since BEGIN.
std::vector<std::string> spansOf(const Timeline& timeline, int phase) {
    std::vector<std::string> texts;
    for (const LightSpan& span : timeline.phases.at(phase).lights) {
        texts.push_back(std::to_string((span.begin - BEGIN) / SECOND) + "-" +
                        std::to_string((span.end - BEGIN) / SECOND) + " " + LookOf(span.light).name);
    }
    return texts;
}

TEST(EventTime, AcceptsTheFormatOfTheDaemonOnly) {
    EXPECT_EQ(ParseTime("2024-11-21T10:48:58.683Z"), 1732186138'683000);
    for (const char* const wrong : {"", "2024-11-21T10:48:58Z", "2024-11-21T10:48:58.683", "2024-11-21T10:48:58.68Z",
                                    "1960-11-21T10:48:58.683Z", "2024-11-21T10:48:58.683Z "}) {
        EXPECT_THROW(ParseTime(wrong), std::runtime_error) << wrong;
    }
}

TEST(Capture, WritesOnePacketForEachEvent) {
    const TempFolder folder;
    const std::string path = folder.path() + "/capture.pcap";
    CaptureResult result;
    tools::CaptureWriter writer(path);
    const std::string time = R"("time":"2024-11-21T10:48:58.683Z",)";
    const std::string lines[] = {
        R"({"reply":"tap"})",
        R"({"event":"datagram",)" + time +
            R"("sent":false,"local":"0.0.0.0:8002","remote":"192.168.1.20:8001","bytes":"FEFE"})",
        R"({"event":"datagram",)" + time +
            R"("sent":true,"local":"0.0.0.0:20001","remote":"127.0.0.1:20010","bytes":"00"})",
        R"({"event":"sample",)" + time + R"("sent":true,"topic":"a/b","bytes":"30"})",
        R"({"lost":12})",
    };
    for (const std::string& line : lines) {
        WriteEvent(tools::ParseJsonObject(line).get(), writer, result);
    }
    EXPECT_EQ(std::tie(result.datagrams, result.samples, result.lost), std::tuple(2U, 1U, 12U));
    std::vector<std::string> packets;
    tools::ReadCapture(path, [&](const tools::Datagram& datagram) {
        EXPECT_EQ(datagram.time, 1732186138'683000U);
        packets.push_back(std::string(v2xpub_FormatIp(datagram.source).text) + ":" +
                          std::to_string(datagram.source.port) + " " + v2xpub_FormatIp(datagram.destination).text +
                          ":" + std::to_string(datagram.destination.port) + " " +
                          std::to_string(datagram.payload.size()));
    });
    EXPECT_THAT(packets, ElementsAre("192.168.1.20:8001 0.0.0.0:8002 2", "127.0.0.1:20001 127.0.0.1:20010 1",
                                     "127.0.0.1:57399 127.0.0.1:57399 13"));
}

TEST(Timeline, HasASpanForEachLight) {
    TimelineBuilder builder({});
    const std::pair<uint64_t, std::vector<PhaseLight>> records[] = {
        {0, {{1, GREEN}, {2, RED}}}, {2, {{1, GREEN}, {2, RED}}}, {4, {{1, YELLOW}, {2, RED}}},
        {7, {{1, RED}, {2, GREEN}}}, {5, {{1, RED}, {2, RED}}}, // the clock steps back
        {20, {{1, RED}, {3, 200}}},  {21, {{1, RED}, {3, RED}}},
    };
    for (const auto& [seconds, lights] : records) {
        builder.AddRecord(BEGIN + seconds * SECOND, lights);
    }
    const Timeline timeline = builder.Finish("unit", BEGIN + 30 * SECOND);
    EXPECT_THAT(spansOf(timeline, 1), ElementsAre("0-4 permissive green", "4-7 yellow", "7-10 red", "10-20 no record",
                                                  "20-24 red", "24-30 no record"));
    EXPECT_THAT(spansOf(timeline, 2), ElementsAre("0-10 red", "10-30 no record"));
    EXPECT_THAT(spansOf(timeline, 3), ElementsAre("20-21 unknown", "21-24 red", "24-30 no record"));
}

TEST(Timeline, MarksBothPhasesOfAConflict) {
    TimelineBuilder builder({{1, 2}, {3, 1}});
    const std::vector<PhaseLight> records[] = {
        {{1, GREEN}, {2, RED}, {3, RED}},
        {{1, GREEN}, {2, V2XIPC_LIGHT_FLASHING_GREEN}, {3, RED}},
        {{1, GREEN}, {2, YELLOW}, {3, RED}},
    };
    for (uint64_t second = 0; second < std::size(records); second++) {
        builder.AddRecord(BEGIN + second * SECOND, records[second]);
    }
    const Timeline timeline = builder.Finish("unit", BEGIN + 3 * SECOND);
    for (const int phase : {1, 2}) {
        const auto& conflicts = timeline.phases.at(phase).conflicts;
        ASSERT_EQ(conflicts.size(), 1U) << phase;
        EXPECT_EQ(conflicts[0].begin, BEGIN + SECOND);
        EXPECT_EQ(conflicts[0].end, BEGIN + 2 * SECOND);
    }
    EXPECT_TRUE(timeline.phases.at(3).conflicts.empty());
    EXPECT_THAT(spansOf(timeline, 1), ElementsAre("0-3 permissive green")); // a conflict does not split the bar
}

TEST(Picture, ShowsRecordsAndMarks) {
    TimelineBuilder builder({{1, 2}});
    const std::string time = R"("time":"2024-11-21T10:48:58.000Z")";
    for (const std::string& line :
         {R"({"event":"source","time":"2024-11-21T10:48:57.000Z","text":"before the first record"})" + std::string(),
          R"({"event":"record",)" + time +
              R"(,"lights":[{"phase":1,"light":"permissive green"},{"phase":2,"light":"protected green"}]})",
          R"({"event":"check","time":"2024-11-21T10:48:59.000Z","text":"conflict <1> & \u00e4"})" + std::string(),
          R"({"lost":7})" + std::string()}) {
        AddLine(tools::ParseJsonObject(line).get(), nullptr, builder);
    }
    const Timeline timeline = builder.Finish("A&B", BEGIN + 10 * SECOND);
    ASSERT_EQ(timeline.marks.size(), 2U);
    EXPECT_EQ(timeline.marks[0].time, BEGIN + SECOND);
    EXPECT_EQ(timeline.marks[1].text, "7 events lost");
    const std::string svg = DrawTimeline(timeline);
    EXPECT_THAT(svg, HasSubstr(">Signal timing, A&amp;B</text>"));
    EXPECT_THAT(svg, HasSubstr(">phase 2</text>"));
    EXPECT_THAT(svg, HasSubstr("conflict &lt;1&gt; &amp; ??"));
    EXPECT_THAT(svg, HasSubstr("<g><title>phase 1 permissive green, 3.0 s from "));
    EXPECT_THAT(svg, HasSubstr("url(#no-record)"));
    EXPECT_THAT(svg, HasSubstr("class=\"conflict\""));
}

TEST(Picture, EndsALightWhenItIsOld) {
    const tools::Json status = tools::ParseJsonObject(R"({"sources":[{"source":"learner","stale_after":5}]})");
    TimelineBuilder builder({});
    for (const char* const line : {
             R"({"reply":"lights","time":"2024-11-21T10:48:58.000Z","lights":[
                 {"phase":1,"light":"red","age":90,"source":"learner"},
                 {"phase":2,"light":"red","age":1,"source":"learner"},
                 {"phase":3,"light":"red","age":0,"source":null}]})",
             R"({"event":"record","time":"2024-11-21T10:49:08.000Z","source":"learner","lights":[
                 {"phase":3,"light":"yellow"}]})"}) {
        AddLine(tools::ParseJsonObject(line).get(), status.get(), builder);
    }
    const Timeline timeline = builder.Finish("unit", BEGIN + 20 * SECOND);
    EXPECT_THAT(spansOf(timeline, 1), ElementsAre("0-20 no record"));
    EXPECT_THAT(spansOf(timeline, 2), ElementsAre("0-4 red", "4-20 no record"));
    EXPECT_THAT(spansOf(timeline, 3), ElementsAre("0-3 red", "3-10 no record", "10-15 yellow", "15-20 no record"));
}

TEST(Picture, KeepsNumbersOfMarksInTheDrawing) {
    TimelineBuilder builder({});
    builder.AddRecord(BEGIN, std::vector<PhaseLight>{{1, RED}});
    for (int mark = 0; mark < 25; mark++) {
        builder.AddMark(BEGIN + 2 * SECOND, "check");
    }
    const std::string svg = DrawTimeline(builder.Finish("unit", BEGIN + 2 * SECOND));
    EXPECT_THAT(svg, HasSubstr(" width=\"820\""));
    ASSERT_THAT(svg, HasSubstr("<circle "));
    EXPECT_EQ(svg.rfind("<circle cx=\"811.0\""), svg.rfind("<circle ")); // the last number; its radius is 9
}

} // namespace
