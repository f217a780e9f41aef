#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <iterator>
#include <sstream>

#include "fixture.h"
#include "spat_conv_gate.h"
#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_lights.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xlog.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

v2xspatconv_verdict_t g_verdict;
std::vector<std::string> g_seen; // records that the checks examined: "source lights fresh"

} // namespace

// The checks, with results that the test sets.
void v2xspatconv_ChecksInit(const spat_conv_config_t& /*config*/) {}
v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& sighting) {
    g_seen.push_back(std::string(V2XSPATCONV_SOURCE_NAMES[sighting.source]) + " " +
                     std::to_string(sighting.lights.count) + (sighting.isFresh ? " fresh" : ""));
    return g_verdict;
}
uint64_t v2xspatconv_ChecksTick(uint64_t /*now*/) {
    return UINT64_MAX;
}

namespace {

// A record in the buffer that every source uses.
struct Record {
    explicit Record(const std::string& hexDigits) {
        const Bytes start = hex(hexDigits);
        std::copy(start.begin(), start.end(), bytes);
    }
    Bytes first(size_t length) const { return {bytes, bytes + length}; }
    const v2xipc_phases_t* head() const { return reinterpret_cast<const v2xipc_phases_t*>(bytes); }
    uint8_t bytes[V2XIPC_RECORD_SIZE] = {};
};

// Region 1, node 2, status 0x0080, minute 91474, millisecond 56789.
const std::string HEAD = "02000100 8000 52650100 D5DD ";
const std::string OTHER_HEAD = "03000100 8000 52650100 D5DD ";
const std::string NO_INFORMATION = "01 00 0000 A18C FFFF FFFF FFFF FFFF FF ";

std::string state(const std::string& light) {
    return "01 " + light + " 0000 9600 FFFF FFFF FFFF FFFF FF ";
}

constexpr uint64_t SECOND = 1000000;
constexpr uint64_t START = 1000 * SECOND;
constexpr v2xpub_address_t SENDERS[] = {{0xC0A80114, 8001}, {0xC0A8011E, 9001}, {0, 0}};

class Gate : public fakes::Fixture {
protected:
    Gate() {
        g_verdict = {};
        g_seen.clear();
        setenv("TZ", "UTC", 1);
        tzset();
        fakes::now = 1772714096789000; // 2026-03-05 12:34:56.789: minute 91474, millisecond 56789
        EXPECT_EQ(v2xspatconv_StackInterfaceInit(), 0);
        m_config.m_regionId = 1;
        m_config.m_nodeId = 2;
        m_config.m_learn_machine_info.m_is_enable = true;
        m_config.m_signal_machine_1743_info.m_is_enable = true;
        fakes::logLines.clear();
    }

    void watch(std::initializer_list<uint32_t> staleAfterSeconds) {
        int32_t source = 0;
        for (const uint32_t seconds : staleAfterSeconds) {
            m_config.m_guard.m_sources[source++].m_stale_after = 1000 * seconds;
        }
    }
    void prefer(std::initializer_list<e_v2xspatconv_source> sources) {
        for (const auto source : sources) {
            m_config.m_guard.m_priority[m_config.m_guard.m_priority_count++] = source;
        }
    }
    void init() {
        v2xspatconv_GateInit(m_config, START);
        m_now = START;
    }

    // Passes the time to the gate as the main loop does.
    void advance(double second) {
        const uint64_t end = START + static_cast<uint64_t>(std::llround(second * 1e6));
        while (m_now < end) {
            const uint64_t deadline = v2xspatconv_GateTick(m_now);
            EXPECT_GT(deadline, m_now);
            m_now = std::min(deadline, end);
        }
    }
    int32_t report(e_v2xspatconv_source source, const Record& record) {
        return v2xspatconv_GateRecord(source, record.head(), {}, SENDERS[source], m_now);
    }

    // The payloads sent to the stack application since the last call.
    static std::vector<Bytes> sent() {
        std::vector<Bytes> records;
        for (const fakes::Datagram& datagram : fakes::sent) {
            records.emplace_back(datagram.bytes.begin() + 28, datagram.bytes.end());
        }
        fakes::sent.clear();
        return records;
    }

    // One step: at this second this happens; then these records were sent and these lines of level 1 to 4 were logged
    // since the step before. A record is named by its first phase (1 learner, 2 controller, 3 cloud), "-" means without
    // lights and "0" means without phases.
    struct Step {
        double second;
        std::string event;
        std::string sent;
        std::vector<std::string> lines = {};
    };
    void play(const std::vector<Step>& steps) {
        init();
        for (const Step& step : steps) {
            SCOPED_TRACE("at " + std::to_string(step.second) + " " + step.event);
            advance(step.second);
            happen(step.event);
            std::string seen;
            for (const Bytes& record : sent()) {
                const bool isEmpty = record.size() < 17;
                seen += (isEmpty ? "0" : std::to_string(record[13]) + (record[16] == 0 ? "-" : "")) + " ";
            }
            EXPECT_EQ(seen, step.sent + (step.sent.empty() ? "" : " "));
            std::vector<std::string> lines;
            for (const fakes::LogLine& line : fakes::logLines) {
                if (line.level <= V2XLOG_INFO) {
                    EXPECT_EQ(line.tag, "SPAT");
                    lines.push_back(std::to_string(line.level) + " " + line.text);
                }
            }
            fakes::logLines.clear();
            EXPECT_EQ(lines, step.lines);
        }
    }
    void happen(const std::string& event) {
        const struct {
            const char* name;
            e_v2xspatconv_source source;
            std::string record;
        } reports[] = {
            {"learner", V2XSPATCONV_LEARNER, HEAD + "01 01 01" + state("03")},
            {"1743", V2XSPATCONV_1743, HEAD + "01 02 01" + state("05")},
            {"cloud", V2XSPATCONV_CLOUD, HEAD + "01 03 01" + state("06")},
            {"cloud of another intersection", V2XSPATCONV_CLOUD, OTHER_HEAD + "01 03 01" + state("06")},
            {"learner without entries", V2XSPATCONV_LEARNER, HEAD + "00"},
            {"learner without states", V2XSPATCONV_LEARNER, HEAD + "01 01 00"},
        };
        for (const auto& row : reports) {
            if (event == row.name) {
                EXPECT_EQ(report(row.source, Record(row.record)), 0);
                return;
            }
        }
        if (event == "stop") {
            v2xspatconv_GateStop();
            return;
        }
        EXPECT_EQ(event, "") << "unknown event";
    }

    spat_conv_config_t m_config = {};
    uint64_t m_now = START;
};

TEST_F(Gate, WithoutSettingsForwardsEveryRecordUnchanged) {
    const struct {
        std::string record;
        size_t length;
    } cases[] = {
        {HEAD + "01 01 01" + state("03"), 30},
        {HEAD + "01 01 02" + state("03") + state("05"), 45},
        {OTHER_HEAD + "03 01 01" + state("09"), 34}, // two entries of zeros
        {HEAD + "00", 13},
        {HEAD + "FF 01 01", 13},
    };
    watch({10, 10});
    m_config.m_guard.m_conflict_count = 1;
    g_verdict = {.hasConflict = true, .frozen = UINT64_MAX};
    init();
    for (const double second : {0.0, 0.5, 30.0, 60.0}) {
        advance(second);
        for (const auto source : V2XSPATCONV_ALL_SOURCES) {
            for (const auto& row : cases) {
                const Record record(row.record);
                EXPECT_EQ(report(source, record), 0);
                EXPECT_THAT(sent(), ElementsAre(record.first(row.length)));
            }
        }
    }
    v2xspatconv_GateStop();
    Record tooLong(HEAD + "02 01 FF");
    tooLong.bytes[13 + 2 + 255 * 15 + 1] = 255;
    EXPECT_EQ(report(V2XSPATCONV_LEARNER, tooLong), -3);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Gate, SourceIsFreshAgainWithTheThirdRecordAfterItsSilence) {
    watch({3});
    play({
        {0.4, "learner", "1", {"4 learner 192.168.1.20: fresh, first report 0.4 s after the start"}},
        {3.4, "learner", "1"}, // exactly StaleAfter
        {6.4, "", ""},
        {6.5, "", "", {"3 learner 192.168.1.20: stale, no report for 3.0 s (2 accepted before)"}},
        {59, "learner", "1"},
        {60, "learner", "1"},
        {63.1, "learner", "1"}, // too late
        {64, "learner", "1"},
        {65, "learner", "1", {"4 learner 192.168.1.20: fresh again after 61.6 s"}},
        {70, "", "", {"3 learner 192.168.1.20: stale, no report for 3.0 s (7 accepted before)"}},
        {1000, "", ""},
    });
}

TEST_F(Gate, DeviceWithLongPeriodBecomesFreshAgain) {
    watch({10});
    play({
        {9, "learner", "1", {"4 learner 192.168.1.20: fresh, first report 9.0 s after the start"}},
        {100, "learner", "1", {"3 learner 192.168.1.20: stale, no report for 10.0 s (1 accepted before)"}},
        {109, "learner", "1"},
        {118, "learner", "1", {"4 learner 192.168.1.20: fresh again after 109.0 s"}},
        {127, "learner", "1"},
    });
}

TEST_F(Gate, OverdueSourceIsStaleBeforeItsLateRecordCounts) {
    watch({3});
    init();
    happen("learner");
    m_now += 5 * SECOND; // no tick in between
    happen("learner");
    EXPECT_EQ(fakes::logged("learner 192.168.1.20: stale, no report for 5.0 s (1 accepted before)").size(), 1U);
    m_now -= 2 * SECOND; // a thread that waited for the lock
    happen("learner");
    happen("learner");
    EXPECT_EQ(fakes::logged("learner 192.168.1.20: fresh again after 5.0 s").size(), 1U);
}

TEST_F(Gate, WaitingSourceIsLoggedOnceAndTriggersNothing) {
    watch({3, 3, 3});
    prefer({V2XSPATCONV_LEARNER, V2XSPATCONV_CLOUD});
    m_config.m_guard.m_on_stale_unavailable = true;
    m_config.m_corrections.m_spat_down = true;
    m_config.m_signal_machine_1743_info.m_is_enable = false;
    play({
        {9.9, "", ""},
        {10, "", ""},
        {10.1,
         "",
         "",
         {"3 learner: waiting, no report for 10.0 s since the start",
          "3 cloud: waiting, no report for 10.0 s since the start"}},
        {80, "", ""},
        {80.5, "cloud", "3", {"4 cloud: fresh, first report 80.5 s after the start", "4 cloud is forwarded"}},
    });
    v2xspatconv_sourceRow_t rows[V2XSPATCONV_SOURCES];
    v2xspatconv_GateGetSources(rows);
    EXPECT_EQ(rows[V2XSPATCONV_LEARNER].state, v2xspatconv_sourceState::waiting);
    EXPECT_EQ(rows[V2XSPATCONV_1743].state, v2xspatconv_sourceState::off);
    EXPECT_EQ(rows[V2XSPATCONV_CLOUD].state, v2xspatconv_sourceState::fresh);
    EXPECT_EQ(rows[V2XSPATCONV_CLOUD].accepted, 1U);
    EXPECT_EQ(rows[V2XSPATCONV_CLOUD].lastAccepted, START + 80 * SECOND + SECOND / 2);
    EXPECT_FALSE(rows[V2XSPATCONV_LEARNER].isForwarded);
    EXPECT_TRUE(rows[V2XSPATCONV_CLOUD].isForwarded);
}

TEST_F(Gate, ForwardsTheFirstFreshSourceOfThePriority) {
    watch({3, 3});
    prefer({V2XSPATCONV_LEARNER, V2XSPATCONV_1743});
    const std::string stale = "3 learner 192.168.1.20: stale, no report for 3.0 s (2 accepted before)";
    play({
        {0.1, "1743", "2", {"4 1743 192.168.1.30: fresh, first report 0.1 s after the start", "4 1743 is forwarded"}},
        {0.2,
         "learner",
         "1",
         {"4 learner 192.168.1.20: fresh, first report 0.2 s after the start",
          "3 learner is forwarded instead of 1743"}},
        {1, "1743", ""},
        {1, "learner", "1"},
        {1, "cloud", ""},
        {3.9, "1743", ""},
        {4, "1743", ""},
        {4.1, "1743", "2", {stale, "3 1743 is forwarded instead of learner"}},
        {5, "learner", ""},
        {6, "learner", ""},
        {6, "1743", "2"},
        {7,
         "learner",
         "1",
         {"4 learner 192.168.1.20: fresh again after 6.0 s", "3 learner is forwarded instead of 1743"}},
        {7, "learner without entries", "0"},
        {7.1, "1743", ""},
        {20,
         "1743",
         "",
         {"3 learner 192.168.1.20: stale, no report for 3.0 s (5 accepted before)",
          "3 1743 is forwarded instead of learner",
          "3 1743 192.168.1.30: stale, no report for 3.0 s (7 accepted before)"}},
    });
    // 6 and 8 records
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"forwarded", 4}, {"not_fresh", 2}}));
    EXPECT_EQ(countsOf("1743"), (PathCounts{{"forwarded", 3}, {"not_chosen", 4}, {"not_fresh", 1}}));
    EXPECT_EQ(countsOf("down"), (PathCounts{{"not_listed", 1}}));
}

TEST_F(Gate, SendsTheUnavailableRecordEverySecondWhileNoSourceIsFresh) {
    watch({3});
    m_config.m_guard.m_on_stale_unavailable = true;
    m_config.m_corrections.m_spat_down = true;
    play({
        {1, "cloud", "3"}, // not watched
        {2, "learner", "1", {"4 learner 192.168.1.20: fresh, first report 2.0 s after the start"}},
        {2.5, "cloud", "3"},
        {5, "", ""},
        {5.9, "", "1-", {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)"}},
        {6.5, "", "1-"},
        {6.6, "cloud", "3"},
        {8.5, "", "1- 1-"},
        {8.6, "learner", ""},
        {8.7, "learner without states", ""},
        {8.8, "learner", ""},
        {9.5, "learner", "1- 1", {"4 learner 192.168.1.20: fresh again after 7.5 s"}},
        {12, "", ""},
        {13, "", "1-", {"3 learner 192.168.1.20: stale, no report for 3.0 s (4 accepted before)"}},
        {13.1, "stop", "1-"},
        {20, "learner", ""},
    });
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"forwarded", 2}, {"not_fresh", 3}, {"after_stop", 1}}));
    EXPECT_EQ(countsOf("down"), (PathCounts{{"forwarded", 3}}));
    EXPECT_EQ(countsOf("gate"), (PathCounts{{"unavailable", 7}}));
}

TEST_F(Gate, UnlistedSourceDoesNotEndTheUnavailableRecords) {
    watch({3, 3});
    prefer({V2XSPATCONV_LEARNER});
    m_config.m_guard.m_on_stale_unavailable = true;
    play({
        {1,
         "learner",
         "1",
         {"4 learner 192.168.1.20: fresh, first report 1.0 s after the start", "4 learner is forwarded"}},
        {3, "1743", "", {"4 1743 192.168.1.30: fresh, first report 3.0 s after the start"}},
        {4.5, "1743", "1-", {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)"}},
        {5.5, "", "1-"},
    });
}

TEST_F(Gate, StopOfAFreshSourceSendsOneUnavailableRecord) {
    watch({3});
    m_config.m_guard.m_on_stale_unavailable = true;
    play({
        {1, "learner", "1", {"4 learner 192.168.1.20: fresh, first report 1.0 s after the start"}},
        {2, "stop", "1-"},
        {6, "learner", "", {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)"}},
    });
}

TEST_F(Gate, UnavailableRecordIsMadeOfTheLastForwardedRecord) {
    watch({3, 3});
    prefer({V2XSPATCONV_LEARNER, V2XSPATCONV_1743});
    m_config.m_guard.m_on_stale_unavailable = true;
    const std::string stale1743 = "3 1743 192.168.1.30: stale, no report for 3.0 s (";
    play({
        {1,
         "learner",
         "1",
         {"4 learner 192.168.1.20: fresh, first report 1.0 s after the start", "4 learner is forwarded"}},
        {2, "1743", "", {"4 1743 192.168.1.30: fresh, first report 2.0 s after the start"}},
        {4.9,
         "",
         "",
         {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)",
          "3 1743 is forwarded instead of learner"}},
        {5.5, "", "1-", {stale1743 + "1 accepted before)"}},
        {6, "1743", ""},
        {7, "1743", "1-"},
        {8, "1743", "1- 2", {"4 1743 192.168.1.30: fresh again after 6.0 s"}},
        {11.1, "", "2-", {stale1743 + "4 accepted before)"}},
    });
}

TEST_F(Gate, CloudRecordsWithoutLightsNeitherHideNorReplaceTheLearner) {
    watch({3, 0, 10});
    m_config.m_guard.m_on_stale_unavailable = true;
    play({
        {0.5, "learner", "1", {"4 learner 192.168.1.20: fresh, first report 0.5 s after the start"}},
        {1, "cloud", "3", {"4 cloud: fresh, first report 1.0 s after the start"}},
        {3.6, "", "1-", {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)"}},
        {4, "cloud", "3"},
        {4.6, "", "1-"},
    });
    EXPECT_THAT(g_seen, ElementsAre("learner 1 fresh", "cloud 0 fresh", "cloud 0 fresh"));
}

TEST_F(Gate, WatchedCloudGetsTheUnavailableRecord) {
    watch({0, 0, 3});
    m_config.m_guard.m_on_stale_unavailable = true;
    m_config.m_corrections.m_spat_down = true;
    play({
        {1, "cloud", "3", {"4 cloud: fresh, first report 1.0 s after the start"}},
        {1, "learner", "1"},
        {2, "cloud of another intersection", "3"},
        {4.1, "", "3-", {"3 cloud: stale, no report for 3.0 s (1 accepted before)"}},
        {4.2, "cloud of another intersection", "3"},
        {4.3, "learner", "1"},
        {5.1, "cloud", "3-"},
    });
    EXPECT_EQ(countsOf("down"), (PathCounts{{"forwarded", 1}, {"not_fresh", 1}, {"other_intersection", 2}}));
}

TEST_F(Gate, EveryIntersectionIsOursWithoutValidIdentity) {
    m_config.m_nodeId = 65536;
    play({{1, "cloud of another intersection", "3"}});
    EXPECT_EQ(countsOf("down"), (PathCounts{{"forwarded", 1}}));
}

TEST_F(Gate, RecordWithoutStateIsNoSignOfLife) {
    watch({3});
    play({
        {1, "learner without entries", "0"},
        {2, "learner without states", "0"},
        {11,
         "learner",
         "1",
         {"3 learner: waiting, no report for 10.0 s since the start",
          "4 learner 192.168.1.20: fresh, first report 11.0 s after the start"}},
        {13, "learner without entries", "0"},
        {14.1, "", "", {"3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)"}},
    });
}

TEST_F(Gate, SwitchedOffSourceIsNotWatched) {
    watch({3});
    init();
    EXPECT_EQ(v2xspatconv_GateTick(START), START + SECOND / 4);
    v2xspatconv_GateSwitchOff(V2XSPATCONV_LEARNER);
    EXPECT_EQ(v2xspatconv_GateTick(START), UINT64_MAX);
    advance(20);
    EXPECT_THAT(fakes::takeLog(), IsEmpty());
}

// Phase 7 with two states, phase 9 without states, phase 40 with one, and one more entry of zeros in m_phaseNum.
const std::string BODY =
    "04 07 02 " + state("05") + "01 07 9600 B400 0A00 0B00 0C00 0D00 64 09 00 28 01 " + state("03");
constexpr size_t BODY_LENGTH = 13 + 32 + 2 + 17 + 2;

TEST_F(Gate, UnavailableRecordKeepsPhasesAndPadding) {
    watch({3});
    m_config.m_guard.m_on_stale_unavailable = true;
    init();
    const Record record(HEAD + BODY);
    report(V2XSPATCONV_LEARNER, record);
    EXPECT_THAT(sent(), ElementsAre(record.first(BODY_LENGTH)));
    fakes::now += 61 * SECOND;
    advance(3.1);
    const Bytes expected =
        hex("02000100 0000 53650100 BDE1 04 07 01" + NO_INFORMATION + "09 00 28 01" + NO_INFORMATION + "0000");
    EXPECT_THAT(sent(), ElementsAre(expected));
}

TEST_F(Gate, ReplacesTheLightsOfConflictsAndOfFrozenPhases) {
    const std::string replaced = "07 01" + NO_INFORMATION;
    const std::string kept = BODY.substr(3);
    const struct {
        v2xspatconv_verdict_t verdict;
        bool onConflict;
        bool onFrozen;
        std::string sent;
        uint64_t count;
    } cases[] = {
        {{false, 0}, true, true, HEAD + BODY, 0},
        {{true, 1U << 7}, false, false, HEAD + BODY, 0},
        {{true, 1U << 7}, true, true, "02000100 0000 53650100 BDE1 04" + replaced + "09 00 28 01" + NO_INFORMATION, 1},
        {{true, 1U << 7}, false, true, HEAD + "04" + replaced + "09 00 28 01" + state("03"), 1},
        {{true, 1U << 9 | uint64_t{1} << 40},
         false,
         true,
         HEAD + BODY.substr(0, BODY.size() - state("03").size()) + NO_INFORMATION,
         1},
    };
    fakes::now += 61 * SECOND;
    for (const auto& row : cases) {
        startCounting();
        m_config.m_guard.m_on_conflict_unavailable = row.onConflict;
        m_config.m_guard.m_on_frozen_unavailable = row.onFrozen;
        init();
        g_verdict = row.verdict;
        report(V2XSPATCONV_LEARNER, Record(HEAD + BODY));
        EXPECT_THAT(sent(), ElementsAre(Record(row.sent).first(hex(row.sent).size() + 2)));
        EXPECT_EQ(countsOf("gate"), row.count > 0 ? PathCounts({{"replaced", row.count}}) : PathCounts());
    }
}

// The lights as "phase:light:time left".
std::string lightsOf(const Record& record) {
    v2xspatconv_lights_t lights;
    v2xspatconv_ReadLights(v2xspatconv_recordBytes(record.bytes), lights);
    std::ostringstream text;
    for (int32_t i = 0; i < lights.count; i++) {
        const v2xspatconv_light_t& light = lights.rows[i];
        text << int{light.phase} << ':' << int{light.light} << ':' << light.timeLeft << ' ';
    }
    return text.str();
}

TEST(Lights, ReadsTheCurrentStateOfEachEntry) {
    const std::string later = "01 07 9600 B400 FFFF FFFF FFFF FFFF FF";
    const std::string evenLater = "01 03 B400 A18C FFFF FFFF FFFF FFFF FF";
    const struct {
        std::string record;
        std::string lights;
    } cases[] = {
        {HEAD + "01 01 01" + state("03"), "1:3:150 "},
        {HEAD + "02 01 02" + later + state("05") + "FF 01" + state("08"), "1:5:150 255:8:150 "},
        {HEAD + "01 02 02" + evenLater + later, "2:3:36001 "}, // without a present state the first one
        {HEAD + "01 01 01" + state("03") + "02 01" + state("03"), "1:3:150 "},
        {HEAD + "7F 01 01" + state("03"), "1:3:150 "},
        {HEAD + "00 01 01" + state("03"), ""},
        {HEAD + "80 01 01" + state("03"), ""},
        {HEAD + "02 01 00 02 01" + state("03"), "2:3:150 "},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(lightsOf(Record(row.record)), row.lights) << row.record;
    }
    Record full(HEAD + "7F 01 FF" + state("03")); // 3827 bytes; the next entry ends at the end of the record or later
    full.bytes[13 + 3827] = 2;
    full.bytes[13 + 3827 + 1] = 85;
    EXPECT_EQ(lightsOf(full), "1:3:150 2:0:0 ");
    full.bytes[13 + 3827 + 1] = 86;
    EXPECT_EQ(lightsOf(full), "1:3:150 ");
    full.bytes[13 + 3827 + 1] = 0;
    full.bytes[13 + 3827 + 20 + 1] = 84; // the states fit, but not with their entry's head
    EXPECT_EQ(lightsOf(full), "1:3:150 ");
    Record many(HEAD + "7F");
    for (size_t i = 0; i < 127; i++) {
        many.bytes[13 + 17 * i + 1] = 1;
    }
    EXPECT_EQ(lightsOf(many).size(), 127 * sizeof("0:0:0"));
}

TEST(Lights, ReplacesInsideTheRecord) {
    Record full(HEAD + "03 01 FF" + state("03"));
    full.bytes[13 + 3827] = 2;
    full.bytes[13 + 3827 + 1] = 86; // exceeds the record
    Record out("");
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(full.bytes), 0, out.bytes);
    EXPECT_EQ(out.first(13 + 3827), full.first(13 + 3827));
    EXPECT_EQ(Bytes(std::begin(out.bytes) + 13 + 3827, std::end(out.bytes)), Bytes(V2XIPC_RECORD_SIZE - 13 - 3827));
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(full.bytes), 1U << 1, out.bytes);
    EXPECT_EQ(out.first(31), Record(HEAD + "03 01 01" + NO_INFORMATION).first(31));
    const Record high(HEAD + "02 47 01" + state("03") + "00 01" + state("03"));
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(high.bytes), 1U << (0x47 - 64), out.bytes);
    EXPECT_EQ(out.first(V2XIPC_RECORD_SIZE), high.first(V2XIPC_RECORD_SIZE));
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(high.bytes), 1, out.bytes);
    EXPECT_EQ(out.first(60), Record(HEAD + "02 47 01" + NO_INFORMATION + "00 01" + NO_INFORMATION).first(60));
}

} // namespace
