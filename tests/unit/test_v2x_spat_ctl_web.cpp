// The web server's parts: metrics, host names, distribution of events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "event_hub.h"
#include "host_check.h"
#include "metrics.h"

namespace {

using namespace std::chrono_literals;
using ctl::ClockState;
using ctl::EventHub;
using testing::HasSubstr;
using testing::Not;

constexpr const char* STATUS =
    R"({"reply":"status","version":"v1","release":"1.2.3","device":"RSU\"1","started":"2026-11-22T20:04:41.125Z","sources":[
    {"source":"learner","state":"stale","required":true,"forwarded":false,"peer":"10.0.0.1","age":71.25,"rate":0,
     "accepted":4102,"refused":3},
    {"source":"1743","state":"off","required":false,"forwarded":false,"peer":null,"age":null,"rate":0,"accepted":0,
     "refused":0}],
    "stack":{"state":"silent","peer":"127.0.0.1:20010","age":null},
    "cloud":{"available":true,"topic":"t","readers":2},
    "checks":[{"check":"no_yellow","source":"learner","active":true,"count":3}]})";
constexpr const char* COUNTERS = R"({"reply":"counters","counters":{"learner":{"accepted":7,"bad_length":0}}})";

std::string formatExample(ClockState clock) {
    return ctl::FormatMetrics(tools::ParseJsonObject(STATUS).get(), tools::ParseJsonObject(COUNTERS).get(), clock);
}

TEST(V2xSpatCtlWeb, MetricsHaveTheValuesOfTheReplies) {
    const std::string text = formatExample(ClockState::synchronised);
    const char* const lines[] = {
        "v2x_spat_up 1",
        R"(v2x_spat_info{version="v1",release="1.2.3",device="RSU\"1"} 1)",
        "v2x_spat_start_time_seconds 1795377881.125",
        R"(v2x_spat_source_state{source="learner",state="stale"} 1)",
        R"(v2x_spat_source_state{source="learner",state="fresh"} 0)",
        R"(v2x_spat_source_age_seconds{source="learner"} 71.25)",
        R"(v2x_spat_source_forwarded{source="learner"} 0)",
        "v2x_spat_stack_up 0",
        R"(v2x_spat_check_active{check="no_yellow",source="learner"} 1)",
        R"(v2x_spat_check_sights_total{check="no_yellow",source="learner"} 3)",
        R"(v2x_spat_events_total{path="learner",name="accepted"} 7)",
        "v2x_spat_clock_synchronised 1",
    };
    for (const std::string line : lines) {
        EXPECT_THAT("\n" + text, HasSubstr("\n" + line + "\n"));
    }
}

TEST(V2xSpatCtlWeb, MetricsLeaveOutUnknownValues) {
    const std::string text = formatExample(ClockState::unknown);
    for (const char* const part : {"age_seconds{source=\"1743\"}", "stack_age", "clock"}) {
        EXPECT_THAT(text, Not(HasSubstr(part)));
    }
}

TEST(V2xSpatCtlWeb, OnlyKnownHostNamesAreAllowed) {
    const std::vector<std::string> names = {"192.168.1.5", "RSU1.example.org"};
    for (const char* const host : {"localhost", "LocalHost:8080", "localhost.", "127.0.0.1:8080", "127.1.2.3", "[::1]",
                                   "[::1]:8080", "192.168.1.5:9000", "rsu1.example.org"}) {
        EXPECT_TRUE(ctl::IsAllowedHost(host, names)) << host;
    }
    for (const char* const host :
         {"", ":8080", "192.168.1.6", "128.0.0.1", "evil.example", "localhost.evil.example", "127.0.0.1.evil.example",
          "localhost:80@evil", "evil.example:127.0.0.1", "[::1", "[::2]", "x.rsu1.example.org"}) {
        EXPECT_FALSE(ctl::IsAllowedHost(host, names)) << host;
    }
}

TEST(V2xSpatCtlWeb, StreamsGetEachEventInOrder) {
    EventHub hub;
    hub.SetDaemon(true);
    hub.SetDaemon(true); // no change
    const auto first = hub.Open();
    hub.Publish("1");
    const auto second = hub.Open();
    hub.Publish("2");
    hub.SetDaemon(false);
    EXPECT_EQ(first->Take(0ms), "data: {\"daemon\":true}\n\ndata: 1\n\ndata: 2\n\ndata: {\"daemon\":false}\n\n");
    EXPECT_EQ(second->Take(0ms), "data: {\"daemon\":true}\n\ndata: 2\n\ndata: {\"daemon\":false}\n\n");
    EXPECT_EQ(first->Take(0ms), "");
    hub.Publish("3");
    hub.Stop();
    EXPECT_EQ(first->Take(0ms), std::nullopt);
}

TEST(V2xSpatCtlWeb, StreamThatIsNotReadLosesItsOldestEvents) {
    EventHub hub;
    const auto slow = hub.Open();
    const auto reader = hub.Open();
    const std::string line(EventHub::BUFFER_MAX / 4, 'x');
    for (const char number : {'1', '2', '3', '4', '5', '6'}) {
        hub.Publish(number + line.substr(1));
        EXPECT_THAT(reader->Take(0ms).value(), HasSubstr(number + line.substr(1)));
    }
    const std::string rest = slow->Take(0ms).value();
    EXPECT_THAT(rest, testing::StartsWith("data: {\"lost\":3}\n\ndata: 3xx")); // the line {"daemon":false} and two more
    EXPECT_THAT(rest, HasSubstr("data: 6xx"));
    EXPECT_EQ(slow->Take(0ms), "");
    hub.AddLost(5);
    hub.AddLost(7);
    EXPECT_EQ(slow->Take(0ms), "data: {\"lost\":12}\n\n");
}

} // namespace
