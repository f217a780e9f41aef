#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <sstream>

#include "fixture.h"
#include "spat_conv_gate.h"
#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_lights.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xjournal.h"
#include "v2x/v2xlog.h"

namespace {

using testing::ElementsAre;

v2xspatconv_verdict_t g_verdict;
std::string g_seenLights; // number of lights of each examined record

} // namespace

// The checks, with results that the test sets.
void v2xspatconv_ChecksInit(const spat_conv_config_t& /*config*/) {}
v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& sighting) {
    g_seenLights += std::to_string(sighting.lights.count) + (sighting.isFresh ? "f " : " ");
    return g_verdict;
}
uint64_t v2xspatconv_ChecksTick(uint64_t /*now*/) {
    return UINT64_MAX;
}
const v2xspatconv_checkRows_t& v2xspatconv_ChecksGetRows(void) {
    static const v2xspatconv_checkRows_t rows = {{{.isActive = true, .count = 7}}};
    return rows;
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

const std::string HEAD = "02000100 8000 52650100 D5DD "; // region 1, node 2, status, minute 91474, millisecond 56789
const std::string OTHER_HEAD = "03000100 8000 52650100 D5DD ";
const std::string NO_INFORMATION = "01 00 0000 A18C FFFF FFFF FFFF FFFF FF ";

std::string state(const std::string& light) {
    return "01 " + light + " 0000 9600 FFFF FFFF FFFF FFFF FF ";
}

// The lights as "phase:light:time left".
std::string textOf(std::span<const v2xspatconv_light_t> lights) {
    std::ostringstream text;
    for (const v2xspatconv_light_t& light : lights) {
        text << int{light.phase} << ':' << int{light.light} << ':' << light.timeLeft << ' ';
    }
    return text.str();
}

constexpr uint64_t SECOND = 1000000;
constexpr uint64_t START = 1000 * SECOND;

class Gate : public fakes::Fixture {
protected:
    Gate() {
        g_verdict = {};
        g_seenLights.clear();
        setenv("TZ", "UTC", 1);
        tzset();
        fakes::now = 1772714157789000; // 2026-03-05 12:35:57.789: minute 91475, millisecond 57789
        EXPECT_EQ(v2xspatconv_StackInterfaceInit(), 0);
        m_config.m_regionId = 1;
        m_config.m_nodeId = 2;
        m_config.m_learn_machine_info.m_is_enable = true;
        m_config.m_signal_machine_1743_info.m_is_enable = true;
        fakes::logLines.clear();
    }

    // Watches the sources with these times in seconds, and prefers them in this order.
    void configure(std::initializer_list<uint32_t> staleAfter, std::initializer_list<e_v2xspatconv_source> priority) {
        auto* source = m_config.m_guard.m_sources;
        for (const uint32_t seconds : staleAfter) {
            (source++)->m_stale_after = 1000 * seconds;
        }
        for (const auto preferred : priority) {
            m_config.m_guard.m_priority[m_config.m_guard.m_priority_count++] = preferred;
        }
    }
    int32_t report(e_v2xspatconv_source source, const Record& record) {
        constexpr v2xpub_address_t SENDERS[] = {{0xC0A80114, 8001}, {0xC0A8011E, 9001}, {0, 0}};
        return v2xspatconv_GateRecord(source, record.head(), {}, SENDERS[source], m_now);
    }
    // Passes the time to the gate as the main loop does.
    void advance(double second) {
        const uint64_t end = START + static_cast<uint64_t>(std::llround(second * 1e6));
        while (m_now < end) {
            const uint64_t deadline = v2xspatconv_GateTick(m_now);
            EXPECT_GT(deadline, m_now);
            m_now = std::min({deadline, end, m_now + SECOND});
        }
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

    // Each line of the script is "SECOND EVENT -> RECORDS", with the records sent since the line before, and is
    // followed by the lines logged since then. A record is named by its first phase (1 learner, 2 controller, 3 cloud);
    // "-" means without lights, and 0 without phases.
    void play(const std::string& script) {
        v2xspatconv_GateInit(m_config, START);
        std::string seen = "\n";
        std::istringstream lines(script);
        for (std::string line; std::getline(lines, line);) {
            double second = 0;
            std::string event;
            if (line.starts_with(' ') || !(std::istringstream(line) >> second >> event)) {
                continue;
            }
            advance(second);
            happen(event);
            seen += line.substr(0, line.find(" ->")) + " ->";
            for (const Bytes& record : sent()) {
                seen += record.size() < 17 ? " 0" : " " + std::to_string(record[13]) + (record[16] == 0 ? "-" : "");
            }
            const char* separator = " | ";
            for (const fakes::LogLine& logged : fakes::logLines) {
                if (logged.level <= V2XLOG_INFO) {
                    seen += separator + std::to_string(logged.level) + " " + logged.text;
                    separator = "\n    | ";
                }
            }
            seen += (m_config.m_control_path[0] != 0 ? observe() : "") + "\n";
            fakes::logLines.clear();
        }
        EXPECT_EQ(seen, script);
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
            {"other", V2XSPATCONV_CLOUD, OTHER_HEAD + "01 03 01" + state("06")}, // of another intersection
            {"empty", V2XSPATCONV_LEARNER, HEAD + "01 01 00"},                   // of the learner
            {"twice", V2XSPATCONV_1743,
             HEAD + "03 28 01" + state("06") + "01 01" + state("07") + "01 01" + state("03")},
            {"conflict", V2XSPATCONV_LEARNER, HEAD + "01 01 01" + state("05")},
            {"long", V2XSPATCONV_1743, HEAD + "7F 01 01" + state("03") + std::string(2 * 5000, 'F')},
        };
        g_verdict.hasConflict = event == "conflict";
        for (const auto& row : reports) {
            if (event == row.name) {
                EXPECT_EQ(report(row.source, Record(row.record)), event == "long" ? -3 : 0);
            }
        }
        if (event == "stop") {
            v2xspatconv_GateStop();
        } else if (event == "off") {
            v2xspatconv_GateSwitchOff(V2XSPATCONV_LEARNER);
        }
    }

    // What the control socket shows, a line each: the events, then the learner's state and interval and the rows of the
    // phases as "phase:light source@second".
    static std::string observe() {
        std::ostringstream text;
        const auto visit = [&text](v2x_journalKind kind, std::span<const uint8_t> bytes) {
            if (kind == v2x_journalKind::record) {
                const auto& event = *reinterpret_cast<const v2xspatconv_recordEvent_t*>(bytes.data());
                text << "\n    > record " << int{event.source} << (event.isReplaced ? " replaced " : " ")
                     << textOf({reinterpret_cast<const v2xspatconv_light_t*>(&event + 1), event.count})
                     << (event.time == fakes::now ? "." : " wrong time");
            } else {
                const auto& event = *reinterpret_cast<const v2xspatconv_stateEvent_t*>(bytes.data());
                text << "\n    > type " << int(event.type) << " of " << int{event.source} << ", " << int(event.state)
                     << (event.time == fakes::now ? ": " : " wrong time") << event.text;
            }
        };
        while (v2x_journal::Read(visit)) {
        }
        v2xspatconv_unitState_t unit;
        v2xspatconv_GateReadUnit(unit);
        const v2xspatconv_sourceRow_t& learner = unit.sources[V2XSPATCONV_LEARNER];
        text << "\n    = " << int(learner.state) << (learner.isForwarded ? "" : " withheld") << ' ' << learner.interval;
        for (int phase = 1; phase <= V2XSPATCONV_UNIT_PHASES; phase++) {
            if (const v2xspatconv_phaseRow_t& row = unit.phases[phase]; row.time != 0) {
                text << ' ' << phase << ':' << int{row.light} << ' ' << int{row.source} << '@'
                     << static_cast<double>(row.time - START) / 1e6;
            }
        }
        EXPECT_EQ(unit.checks[0][0].count, 7U);
        return text.str();
    }

    spat_conv_config_t m_config = {};
    uint64_t m_now = START;
};

// Phase 7 with two states, phase 9 without states, phase 40 with one, and one more entry of zeros in m_phaseNum.
const std::string BODY =
    "04 07 02 " + state("05") + "01 07 9600 B400 0A00 0B00 0C00 0D00 64 09 00 28 01 " + state("03");
const std::string DARK_7 = "04 07 01 " + NO_INFORMATION;

TEST_F(Gate, WithoutSettingsForwardsEveryRecordUnchanged) {
    const struct {
        std::string record;
        size_t length;
    } cases[] = {
        {HEAD + BODY, 66},
        {OTHER_HEAD + "03 01 01" + state("09"), 34},
        {HEAD + "00", 13},
        {HEAD + "FF 01 01", 13},
    };
    configure({10, 10}, {});
    g_verdict = {.hasConflict = true, .frozen = UINT64_MAX};
    v2xspatconv_GateInit(m_config, START);
    for (const double second : {0.0, 0.5, 30.0, 60.0}) {
        advance(second);
        for (const auto source : V2XSPATCONV_ALL_SOURCES) {
            for (const auto& row : cases) {
                EXPECT_EQ(report(source, Record(row.record)), 0);
                EXPECT_THAT(sent(), ElementsAre(Record(row.record).first(row.length)));
            }
        }
    }
    v2xspatconv_GateStop();
    EXPECT_EQ(report(V2XSPATCONV_LEARNER, Record(HEAD + "7F" + std::string(2 * 5107, 'F'))), -3);
    EXPECT_TRUE(sent().empty());
}

TEST_F(Gate, WatchesTheSources) {
    configure({10, 0, 3}, {});
    play(R"(
9.9 empty -> 0
10.1 tick -> | 3 learner: waiting, no report for 10.0 s since the start
    | 3 cloud: waiting, no report for 10.0 s since the start
19 learner -> 1 | 4 learner 192.168.1.20: fresh, first report 19.0 s after the start
20 1743 -> 2
29 learner -> 1
38 empty -> 0
39.1 tick -> | 3 learner 192.168.1.20: stale, no report for 10.0 s (2 accepted before)
100 learner -> 1
109 learner -> 1
119.1 learner -> 1
128 learner -> 1
137 learner -> 1 | 4 learner 192.168.1.20: fresh again after 108.0 s
1000 tick -> | 3 learner 192.168.1.20: stale, no report for 10.0 s (7 accepted before)
1001 cloud -> 3 | 4 cloud: fresh, first report 1001.0 s after the start
)");
    v2xspatconv_sourceRow_t rows[V2XSPATCONV_SOURCES];
    v2xspatconv_GateGetSources(rows);
    EXPECT_EQ(rows[V2XSPATCONV_LEARNER].state, v2xspatconv_sourceState::stale);
    EXPECT_EQ(rows[V2XSPATCONV_LEARNER].lastAccepted, START + 137 * SECOND);
    EXPECT_EQ(rows[V2XSPATCONV_1743].state, v2xspatconv_sourceState::unwatched);
    EXPECT_TRUE(rows[V2XSPATCONV_1743].isForwarded);
}

TEST_F(Gate, OverdueSourceIsStaleBeforeItsLateRecordCounts) {
    configure({3}, {});
    v2xspatconv_GateInit(m_config, START);
    for (const uint64_t time : {0, 5, 3, 5}) { // no tick in between; a thread may wait for the lock
        m_now = START + time * SECOND;
        happen("learner");
    }
    EXPECT_EQ(fakes::logged("learner 192.168.1.20: stale, no report for 5.0 s (1 accepted before)").size(), 1U);
    EXPECT_EQ(fakes::logged("learner 192.168.1.20: fresh again after 5.0 s").size(), 1U);
    EXPECT_EQ(v2xspatconv_GateTick(m_now), m_now + 3 * SECOND + 1);
    happen("off");
    EXPECT_EQ(v2xspatconv_GateTick(m_now), UINT64_MAX);
}

TEST_F(Gate, ForwardsTheFirstFreshSourceOfThePriority) {
    configure({3, 3}, {V2XSPATCONV_LEARNER, V2XSPATCONV_1743});
    m_config.m_guard.m_on_stale_unavailable = true;
    play(R"(
0.1 1743 -> 2 | 4 1743 192.168.1.30: fresh, first report 0.1 s after the start
    | 4 1743 is forwarded
0.2 learner -> 1 | 4 learner 192.168.1.20: fresh, first report 0.2 s after the start
    | 3 learner is forwarded instead of 1743
1 1743 ->
1 learner -> 1
1 cloud ->
4 1743 ->
4.1 1743 -> 2 | 3 learner 192.168.1.20: stale, no report for 3.0 s (2 accepted before)
    | 3 1743 is forwarded instead of learner
5 learner ->
6 learner ->
6 1743 -> 2
7 learner -> 1 | 4 learner 192.168.1.20: fresh again after 6.0 s
    | 3 learner is forwarded instead of 1743
7 empty -> 0
8 1743 ->
12.1 1743 -> 1- 1- | 3 learner 192.168.1.20: stale, no report for 3.0 s (5 accepted before)
    | 3 1743 is forwarded instead of learner
    | 3 1743 192.168.1.30: stale, no report for 3.0 s (6 accepted before)
)");
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"forwarded", 4}, {"not_fresh", 2}}));
    EXPECT_EQ(countsOf("1743"), (PathCounts{{"forwarded", 3}, {"not_chosen", 3}, {"not_fresh", 1}}));
    EXPECT_EQ(countsOf("down"), (PathCounts{{"not_listed", 1}}));
}

TEST_F(Gate, SendsTheUnavailableRecordEverySecondWhileNoListedSourceIsFresh) {
    configure({3, 3}, {V2XSPATCONV_LEARNER});
    m_config.m_guard.m_on_stale_unavailable = true;
    play(R"(
1 1743 -> | 4 1743 192.168.1.30: fresh, first report 1.0 s after the start
2 learner -> 1 | 4 learner 192.168.1.20: fresh, first report 2.0 s after the start
    | 4 learner is forwarded
3 1743 ->
5.5 1743 -> 1- | 3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)
7.5 stop -> 1- 1- 1-
9 learner -> | 3 1743 192.168.1.30: stale, no report for 3.0 s (3 accepted before)
)");
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"forwarded", 1}, {"after_stop", 1}}));
    EXPECT_EQ(countsOf("gate"), (PathCounts{{"unavailable", 4}}));
}

TEST_F(Gate, UnwatchedCloudNeitherHidesAStaleLearnerNorEndsItsUnavailableRecords) {
    configure({3}, {});
    m_config.m_guard.m_on_stale_unavailable = true;
    m_config.m_corrections.m_spat_down = true;
    play(R"(
2 learner -> 1 | 4 learner 192.168.1.20: fresh, first report 2.0 s after the start
2.5 cloud -> 3
5.1 tick -> 1- | 3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)
6.6 cloud -> 1- 3
7.6 learner -> 1-
7.7 empty ->
7.8 learner ->
8.5 learner -> 1- 1 | 4 learner 192.168.1.20: fresh again after 6.5 s
9 stop -> 1-
12 learner -> | 3 learner 192.168.1.20: stale, no report for 3.0 s (4 accepted before)
)");
    EXPECT_EQ(g_seenLights, "1f 1 1 1 0 1 1f 1 ");
}

TEST_F(Gate, WatchedCloudCountsIfItCarriesLights) {
    configure({3, 0, 3}, {});
    m_config.m_guard.m_on_stale_unavailable = true;
    const std::string start = R"(
1 learner -> 1 | 4 learner 192.168.1.20: fresh, first report 1.0 s after the start
3 cloud -> 3 | 4 cloud: fresh, first report 3.0 s after the start
)";
    const std::string stale = " | 3 learner 192.168.1.20: stale, no report for 3.0 s (1 accepted before)\n";
    const std::string bothStale = " | 3 cloud: stale, no report for 3.0 s (1 accepted before)\n";
    play(start + "4.1 tick -> 1-" + stale + "6.1 other -> 1- 1- 3" + bothStale);
    EXPECT_EQ(g_seenLights, "1f 0f ");
    EXPECT_EQ(countsOf("down"), (PathCounts{{"forwarded", 1}, {"other_intersection", 1}}));
    m_config.m_corrections.m_spat_down = true;
    m_now = START;
    play(start + "4.1 other -> 3" + stale + "6.1 cloud -> 3-" + bothStale);
    m_config.m_nodeId = 65536; // no valid identity: every intersection is ours
    startCounting();
    play("\n7 other -> 3 | 4 cloud: fresh, first report 7.0 s after the start\n");
    EXPECT_EQ(countsOf("down"), (PathCounts{{"forwarded", 1}}));
}

TEST_F(Gate, ReplacesLightsAndKeepsPhasesAndPadding) {
    const std::string darkHead = "02000100 0000 53650100 BDE1 "; // status 0, present time
    const std::string allDark = darkHead + DARK_7 + "09 00 28 01 " + NO_INFORMATION + "0000";
    const struct {
        v2xspatconv_verdict_t verdict;
        bool onConflict;
        bool onFrozen;
        std::string sent;
    } cases[] = {
        {{false, 0}, true, true, HEAD + BODY + "0000"},
        {{true, 1U << 7}, false, false, HEAD + BODY + "0000"},
        {{true, 1U << 7}, true, true, allDark},
        {{true, 1U << 7}, false, true, HEAD + DARK_7 + "09 00 28 01" + state("03") + "0000"},
    };
    configure({3}, {});
    m_config.m_guard.m_on_stale_unavailable = true;
    for (const auto& row : cases) {
        m_config.m_guard.m_on_conflict_unavailable = row.onConflict;
        m_config.m_guard.m_on_frozen_unavailable = row.onFrozen;
        m_now = START;
        v2xspatconv_GateInit(m_config, START);
        g_verdict = row.verdict;
        report(V2XSPATCONV_LEARNER, Record(HEAD + BODY));
        advance(3.1);
        EXPECT_THAT(sent(), ElementsAre(hex(row.sent), hex(allDark)));
    }
    EXPECT_EQ(countsOf("gate"), (PathCounts{{"replaced", 2}, {"unavailable", 4}}));
}

TEST_F(Gate, ShowsTheControlSocketWhatWasHandedOver) {
    configure({3}, {});
    m_config.m_control_path[0] = '/';
    m_config.m_guard.m_on_stale_unavailable = true;
    m_config.m_guard.m_on_conflict_unavailable = true;
    fakes::setLogLevel(V2XLOG_ERROR - 1); // events do not depend on the level
    v2x_journal::Select(v2x_journalKind::record, true);
    v2x_journal::Select(v2x_journalKind::state, true);
    play(R"(
1 learner -> 1
    > type 0 of 0, 3: learner 192.168.1.20: fresh, first report 1.0 s after the start
    > record 0 1:3:150 .
    = 3 0 1:3 0@1
2 learner -> 1
    > record 0 1:3:150 .
    = 3 1000000 1:3 0@2
4 twice -> 40
    > record 1 40:6:150 1:7:150 1:3:150 .
    = 3 1000000 1:7 1@4
4 long ->
    = 3 1000000 1:7 1@4
4 conflict -> 1-
    > record 0 replaced 1:0:36001 .
    = 3 1125000 1:0 0@4
4.5 other -> 3
    = 3 1125000 1:0 0@4
5 cloud -> 3
    > record 2 .
    = 3 1125000 1:0 0@4
7.1 tick -> 1-
    > type 0 of 0, 4: learner 192.168.1.20: stale, no report for 3.0 s (3 accepted before)
    > record 255 1:0:36001 .
    = 4 withheld 1125000 1:0 255@7
8 learner ->
    = 4 withheld 1484375 1:0 255@7
8.5 learner -> 1-
    > record 255 1:0:36001 .
    = 4 withheld 1361328 1:0 255@8
9 learner -> 1
    > type 0 of 0, 3: learner 192.168.1.20: fresh again after 5.0 s
    > record 0 1:3:150 .
    = 3 0 1:3 0@9
)");
    configure({3, 3}, {V2XSPATCONV_1743});
    m_now = START;
    play(R"(
1 1743 -> 2
    > type 0 of 1, 3: 1743 192.168.1.30: fresh, first report 1.0 s after the start
    > type 1 of 1, 0: 1743 is forwarded
    > record 1 2:5:150 .
    = 2 withheld 0 2:5 1@1
)");
    v2x_journal::Select(v2x_journalKind::record, false);
    v2x_journal::Select(v2x_journalKind::state, false);
}

std::string lightsOf(const Record& record) {
    v2xspatconv_lights_t lights;
    v2xspatconv_ReadLights(v2xspatconv_recordBytes(record.bytes), lights);
    return textOf({lights.rows, static_cast<size_t>(lights.count)});
}

TEST(Lights, ReadsTheCurrentStateOfEachEntryWithinTheRecord) {
    const std::string later = "01 07 9600 B400 FFFF FFFF FFFF FFFF FF";
    const std::string evenLater = "01 03 B400 A18C FFFF FFFF FFFF FFFF FF";
    const struct {
        std::string record;
        std::string lights;
    } cases[] = {
        {"02 01 02" + later + state("05") + "FF 01" + state("08"), "1:5:150 255:8:150 "},
        {"01 02 02" + evenLater + later, "2:3:36001 "}, // without a present state the first one
        {"01 01 01" + state("03") + "02 01" + state("03"), "1:3:150 "},
        {"7F 01 01" + state("03"), "1:3:150 "},
        {"80 01 01" + state("03"), ""},
        {"02 01 00 02 01" + state("03"), "2:3:150 "},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(lightsOf(Record(HEAD + row.record)), row.lights) << row.record;
    }
    Record full(HEAD + "7F 01 FF" + state("03")); // the first entry ends at byte 3840
    for (const auto& [at, states, lights] : {std::tuple{3840, 85, "1:3:150 2:0:0 "},
                                             {3840, 86, "1:3:150 "},
                                             {3860, 84, "1:3:150 "}}) { // without their head the 84 states would fit
        full.bytes[at] = 2;
        full.bytes[at + 1] = static_cast<uint8_t>(states);
        EXPECT_EQ(lightsOf(full), lights);
        full.bytes[at + 1] = 0;
    }
}

TEST(Lights, ReplacesInsideTheRecord) {
    Record full(HEAD + "03 01 FF" + state("03"));
    full.bytes[3841] = 86; // exceeds the record
    Record out("");
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(full.bytes), 0, out.bytes);
    full.bytes[3841] = 0;
    EXPECT_EQ(out.first(V2XIPC_RECORD_SIZE), full.first(V2XIPC_RECORD_SIZE));
    const Record high(HEAD + "02 47 01" + state("03") + "00 01" + state("03")); // phases above 63 have bit 0
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(high.bytes), 1U << (0x47 - 64), out.bytes);
    EXPECT_EQ(out.first(V2XIPC_RECORD_SIZE), high.first(V2XIPC_RECORD_SIZE));
    v2xspatconv_ReplaceLights(v2xspatconv_recordBytes(high.bytes), 1, out.bytes);
    EXPECT_EQ(out.first(60), Record(HEAD + "02 47 01" + NO_INFORMATION + "00 01" + NO_INFORMATION).first(60));
}

} // namespace
