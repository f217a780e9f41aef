// The checks with records written here, and with the messages of the simulator, which the adapters convert.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "cloud_traffic.h"
#include "device_test.h"
#include "journal_entries.h"
#include "learner_report.h"
#include "light_frame.h"
#include "source.h"
#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_log.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_spatdown.h"
#include "v2x/v2xlog.h"

using testing::ElementsAre;

// A call of the gate: writes its lines at the end.
struct Call {
    Call() { v2xspatconv_GateLogSelect(&lines); }
    ~Call() { v2xspatconv_GateLogWrite(lines); }
    v2xspatconv_gateLines_t lines;
};

// Replaces the gate: the checks examine each record, and nothing is sent.
int32_t v2xspatconv_GateRecord(e_v2xspatconv_source source, const v2xipc_phases_t* record,
                               const v2xspatconv_findings_t& findings, v2xpub_address_t sender, uint64_t now) {
    const Call call;
    v2xspatconv_lights_t lights;
    const auto* bytes = reinterpret_cast<const uint8_t*>(record);
    v2xspatconv_ReadLights(v2xspatconv_recordBytes(bytes, V2XIPC_RECORD_SIZE), lights);
    v2xspatconv_ChecksExamine({source, lights, findings, sender, true, now});
    return 0;
}
void v2xspatconv_GateSwitchOff(e_v2xspatconv_source /*source*/) {}
namespace {

constexpr uint64_t START = 1000000000; // monotonic time, in microseconds
#ifdef __SANITIZE_ADDRESS__
constexpr int DAY = 3600; // a whole day takes 20 s with the sanitizers
#else
constexpr int DAY = 86400; // seconds
#endif

class Checks : public DeviceTest {
protected:
    Checks() {
        v2xspatconv_guard_t& guard = m_config->m_guard;
        constexpr uint8_t CONFLICTS[][2] = {{2, 1}, {1, 4}};
        guard.m_conflict_count = 2;
        std::memcpy(guard.m_conflicts, CONFLICTS, sizeof CONFLICTS);
        guard.m_sources[V2XSPATCONV_LEARNER].m_stale_after = 3000;
        guard.m_sources[V2XSPATCONV_1743].m_stale_after = 1500;
        guard.m_sources[V2XSPATCONV_CLOUD].m_stale_after = 3000;
        v2xspatconv_ChecksInit(*m_config);
    }

    // Examines "SOURCE MILLISECONDS PHASE:LIGHT:TIME_LEFT ...". The source is L (learner), C (controller) or D (cloud).
    // Returns the verdict as "conflict frozen", in hexadecimal digits.
    std::string examine(const std::string& step, v2xpub_address_t sender = {1, 1}) {
        const Call call;
        std::istringstream in(step);
        char source = 0;
        uint64_t time = 0;
        in >> source >> time;
        v2xspatconv_lights_t lights;
        unsigned phase = 0;
        unsigned light = 0;
        char colon = 0;
        while (in >> phase >> colon >> light >> colon >> lights.rows[lights.count].timeLeft) {
            lights.rows[lights.count].phase = static_cast<uint8_t>(phase);
            lights.rows[lights.count++].light = static_cast<uint8_t>(light);
        }
        const auto index = static_cast<e_v2xspatconv_source>(std::string("LCD").find(source));
        const auto verdict = v2xspatconv_ChecksExamine({index, lights, m_findings, sender, true, START + 1000 * time});
        std::ostringstream out;
        out << std::hex << verdict.hasConflict << " " << verdict.frozen;
        return out.str();
    }
    static uint64_t tick(uint64_t time) {
        const Call call;
        return v2xspatconv_ChecksTick(START + time) - START;
    }
    // Examines steps, separated by ";", after a new start. Returns the verdicts.
    std::string verdicts(const std::string& plan) {
        v2xspatconv_ChecksInit(*m_config);
        startCounting();
        std::istringstream in(plan);
        std::string all;
        for (std::string step; std::getline(in, step, ';');) {
            all += examine(step) + "; ";
        }
        return all;
    }
    // Returns the counters as "NAME COUNT ...".
    std::string count(const std::string& plan) {
        verdicts(plan);
        return counts();
    }
    static std::string counts() {
        std::string text;
        for (const auto& [name, number] : countsOf("check")) {
            text += (text.empty() ? "" : " ") + name + " " + std::to_string(number);
        }
        return text;
    }

    v2xspatconv_findings_t m_findings;
};

// One record a second, up to `last` seconds.
std::string everySecond(const std::string& lights, int last) {
    std::string plan;
    for (int second = 0; second <= last; second++) {
        plan += "L" + std::to_string(1000 * second) + " " + lights + ";";
    }
    return plan;
}

TEST_F(Checks, SeeTheirFaultAndNothingJustInsideTheLimits) {
    const std::pair<std::string, std::string> cases[] = {
        // conflict: pairs 1-2 and 1-4
        {"L0 1:5:90 2:6:90", "conflict 1"},
        {"D0 1:4:90 4:5:90 2:5:90", "conflict 2"},
        {"L0 2:5:90 4:5:90; L500 1:5:90 2:7:90; L1000 1:8:90 2:5:90", ""},
        // jump
        {"L0 1:3:300; L1000 1:3:320; L2000 1:3:290; L4000 1:3:250", ""},
        {"L0 1:3:300; L1000 1:3:321", "jump 1"},
        {"L0 1:3:300; L1000 1:3:269", "jump 1"},
        {"L0 1:3:300; L2000 1:3:259", "jump 1"},
        {"L0 1:3:300; L2001 1:3:900", ""},
        {"L0 1:3:300; L500 2:3:300; L1000 1:3:900", ""},
        {"L0 1:5:300; L500 1:7:30; L1000 1:3:900; L1500 1:3:36001; L2000 1:3:300; L2500 1:0:0; L3000 1:0:900", ""},
        {"L0 1:1:300; L500 1:1:900; L1000 1:8:300; L1500 1:8:900", ""},
        {"D0 1:3:300; D500 1:3:900", ""},
        // frozen
        {everySecond("1:3:2530 2:6:10", 10), "frozen 2"},
        {everySecond("1:3:2530", 9) + "L9999 1:3:2530", ""},
        {everySecond("1:3:2540 2:3:0 3:7:200 4:8:200 5:1:200 6:0:36001", 20), ""},
        {everySecond("1:3:200", 6) + "L8001 1:3:200; L10000 1:3:200; L11000 1:3:200", ""},
        {everySecond("1:3:200", 6) + "L7000 2:3:200; L8000 1:3:200; L9000 1:3:200; L10000 1:3:200", ""},
        // no_yellow
        {"L0 5:4:90 6:5:90 7:6:90; L2000 5:3:90 6:3:90 7:3:90", "no_yellow 3"},
        {"D0 1:5:90; D1000 1:3:90", "no_yellow 1"},
        {"L0 1:5:90; L2001 1:3:90", ""},
        {"L0 5:5:30 6:5:30 7:8:30 8:1:30; L500 5:7:30 6:0:30 7:3:30 8:3:30; L1000 5:3:90 6:3:90", ""},
        // disagree: the controller's records count for 1.5 s
        {"L0 1:3:90; C0 1:5:90; L1000 1:3:80; C1000 1:5:80; L2000 1:3:70; C2000 1:5:70; L2001 1:3:70", "disagree 1"},
        {"L0 1:3:90; C1000 1:6:90; L2000 1:3:70; C3000 1:6:70", ""},
        {"L0 1:3:90; D0 1:5:90; L1000 1:3:80; D1500 1:0:90; D2000 1:5:90; L3000 1:3:60", ""},
        {"L0 1:5:90; D0 1:6:90; L1500 1:5:80; D1500 1:6:80; L3000 1:5:60; D3000 1:6:60", ""},
        {"L0 1:3:90; C0 1:5:90; L1600 1:3:70; C1700 1:5:70; L2100 1:3:60", ""},
        {"L0 1:3:90; D0 1:8:90 2:0:90; L1500 1:3:80 2:3:90; D3000 1:8:90 2:0:90; L3000 1:3:60 2:3:60", ""},
        // phases that are not checked
        {"D0 0:5:90 33:5:90 255:5:90; D500 0:3:90 33:3:90 255:3:90", ""},
    };
    for (const auto& [plan, counters] : cases) {
        EXPECT_EQ(count(plan), counters) << plan;
    }
    m_config->m_guard.m_ignore[V2XSPATCONV_CHECK_CONFLICT] = 1U << 4;
    m_config->m_guard.m_ignore[V2XSPATCONV_CHECK_NO_YELLOW] = 1;
    EXPECT_EQ(count("L0 1:5:90 2:6:90 4:5:90; L500 1:3:90"), "conflict 1") << "with Ignore";
}

TEST_F(Checks, SeeFindingsAndSenders) {
    m_findings.duplicateCount = 2;
    m_findings.duplicates[0] = {200, V2XIPC_LIGHT_RED, V2XIPC_LIGHT_YELLOW};
    m_findings.duplicates[1] = {5, V2XIPC_LIGHT_RED, V2XIPC_LIGHT_YELLOW};
    m_findings.unmapped[3] = 1;
    m_findings.cutOff = 1U << 7;
    m_config->m_guard.m_ignore[V2XSPATCONV_CHECK_DUPLICATE] = 1U << 5;
    m_config->m_guard.m_sources[V2XSPATCONV_CLOUD].m_stale_after = 0;
    EXPECT_EQ(count("L0; L500"), "cut_off 2 duplicate 2 unmapped 2") << "without lights";
    EXPECT_THAT(messages("SPAT"),
                ElementsAre("3 check duplicate: learner: device phase 200 has two lights: red and yellow",
                            "4 check unmapped: learner: device phase 192 feeds no SPAT phase",
                            "4 check cut_off: learner: SPAT phase 7 is left out, because the reported phase count is "
                            "too small"));
    m_findings = {};
    startCounting();
    const uint32_t learner = 0xC0A80114;
    examine("L1000 1:3:90", {learner, 1});
    examine("L1500 1:3:90", {learner, 2});
    examine("L1600", {learner + 1, 2});
    examine("L4501 1:3:60", {learner + 1, 1}); // after StaleAfter
    examine("D4600 1:3:60", {learner, 1});
    examine("D4600 1:3:60", {learner + 1, 1}); // not watched
    EXPECT_EQ(counts(), "");
    examine("L7501 1:3:30", {learner, 1});
    EXPECT_EQ(counts(), "sender 1");
    EXPECT_THAT(messages("SPAT"),
                ElementsAre("3 check sender: learner: records from 192.168.1.21 and 192.168.1.20 within 3.0 s"));
}

TEST_F(Checks, LogStartAndEndOfAnActivity) {
    examine("L0 1:5:300 2:5:300 4:5:300");
    examine("L1000 1:5:390 2:3:300 4:5:290");
    examine("L2000 2:5:900");
    examine("C2000 2:3:900");
    examine("L3000 2:5:900");
    examine("C3000 2:3:900");
    examine("L4100 2:5:890");
    EXPECT_THAT(messages("SPAT"),
                ElementsAre("3 check conflict: learner: SPAT phases 1 and 2 are both green",
                            "3 check jump: learner: SPAT phase 1: permissive green, time left from 30.0 s to 39.0 s "
                            "after 1.0 s",
                            "3 check no_yellow: learner: SPAT phase 2: from permissive green to red without yellow",
                            "3 check disagree: learner: SPAT phase 2: permissive green, but red from 1743, for 2.1 s"));
    EXPECT_EQ(counts(), "conflict 3 disagree 1 jump 1 no_yellow 1");
    EXPECT_EQ(tick(60999999), 61000000U);
    EXPECT_THAT(messages("SPAT"), ElementsAre());
    EXPECT_EQ(tick(61000000), 64100000U);
    EXPECT_THAT(messages("SPAT"),
                ElementsAre("4 check conflict: learner: not seen for a minute, 3 times before, SPAT phases 1 2 4",
                            "4 check jump: learner: not seen for a minute, 1 times before, SPAT phases 1",
                            "4 check no_yellow: learner: not seen for a minute, 1 times before, SPAT phases 2"));
    EXPECT_EQ(tick(70000000), UINT64_MAX - START);
}

TEST_F(Checks, HoldVerdictsUntilTwoRecordsInARowAreFree) {
    EXPECT_EQ(
        verdicts("L0 1:5:90 2:5:90; L500 2:7:30; L1000 1:5:90 2:5:90; L1500 2:7:30; C2000 1:5:90; L2500; L9000 1:5:90"),
        "1 0; 1 0; 1 0; 1 0; 0 0; 1 0; 0 0; ");
    // Frozen until 10 s; the same light after a gap; phase 3 is free, then phase 4.
    const std::string plan = "L10500 3:3:190 4:3:200; L30000 3:3:200 4:3:200; L30500 3:3:190 4:3:190;"
                             "L31000 3:3:190 4:3:200; L31500 4:5:200; L32000 4:5:200";
    EXPECT_EQ(verdicts(everySecond("3:3:200 4:3:200", 10) + plan),
              "0 0; 0 0; 0 0; 0 0; 0 0; 0 0; 0 0; 0 0; 0 0; 0 0; 0 18; 0 18; 0 18; 0 18; 0 10; 0 10; 0 0; ");
}

TEST_F(Checks, KeepRowsAndReportChangesOfActivities) {
    v2x_journal::Select(v2x_journalKind::state, true);
    m_findings.unmapped[3] = 1;
    examine("L0 1:5:300 2:5:300");
    examine("L1000 1:5:290 4:5:300");
    tick(61000000);
    examine("L70000 1:5:300 2:5:300");
    v2x_journal::Select(v2x_journalKind::state, false);
    const auto& rows = v2xspatconv_ChecksGetRows();
    const auto& [isActive, count, lastSight, phaseCount, phases] =
        rows[V2XSPATCONV_CHECK_CONFLICT][V2XSPATCONV_LEARNER];
    EXPECT_EQ(std::tuple(isActive, count, lastSight, phaseCount), std::tuple(true, 3, START + 70000000, 2));
    EXPECT_THAT(phases, ElementsAre(1, 2));
    EXPECT_EQ(rows[V2XSPATCONV_CHECK_UNMAPPED][V2XSPATCONV_LEARNER].count, 3U);
    EXPECT_FALSE(rows[V2XSPATCONV_CHECK_UNMAPPED][V2XSPATCONV_LEARNER].isActive) << "a notice";
    EXPECT_EQ(tick(130000000), UINT64_MAX - START);
    EXPECT_FALSE(isActive);
    const auto format = [](const v2xspatconv_stateEvent_t& event, const Bytes&) {
        return (event.isActive ? "starts, last phase " : "ends, last phase ") +
               std::to_string(event.phases[event.phaseCount - 1]) + ": " + event.text;
    };
    const std::string start = "starts, last phase 2: check conflict: learner: SPAT phases 1 and 2 are both green";
    EXPECT_THAT(takeEntries<v2xspatconv_stateEvent_t>(format),
                ElementsAre(start,
                            "ends, last phase 4: check conflict: learner: not seen for a minute, 2 times before, SPAT "
                            "phases 1 2 4",
                            start));
}

// ---- messages of the simulator

Bytes encodeFrame(std::span<const sim::PhaseLight> lights) {
    return sim::WrapFrame(sim::AppendCrc(sim::EncodePayload(lights, {}, 0)));
}

Bytes encodeDocument(std::span<const sim::PhaseLight> lights) {
    const std::string text = sim::PlanDocument(lights, {1, 2});
    return {text.begin(), text.end()};
}

void receiveReport(const Bytes& message) {
    fakes::receive("QUOR_RECV_SG", message);
}

void receiveFrame(const Bytes& message) {
    fakes::receive("1743_RECV_SG", message);
    fakes::tasks.back().run(); // the processing task
}

void receiveDocument(const Bytes& message) {
    for (std::string& sample : sim::CutDocument({message.begin(), message.end()}, 1024)) {
        v2xspatconv_ddsRecvSpatDown(sample.data(), static_cast<unsigned>(sample.size()));
    }
}

// A simulated source and the adapter that converts its messages.
struct Simulated {
    int rate; // messages per second
    sim::PlanSource::Encode encode;
    void (*receive)(const Bytes& message);
};
const Simulated LEARNER = {2, sim::EncodeReport, receiveReport};
const Simulated CONTROLLER = {1, encodeFrame, receiveFrame};
const Simulated CLOUD = {1, encodeDocument, receiveDocument};

class SimulatedChecks : public Checks {
protected:
    SimulatedChecks() {
        m_config->m_corrections.m_spat_down = true;
        EXPECT_EQ(v2xspatconv_QuorSignalLearnerInterfaceInit(*m_config), 0);
        EXPECT_EQ(v2xspatconv_SignalMachine1743InterfaceInit(*m_config), 0);
        fakes::setLogLevel(V2XLOG_INFO);
    }

    // Returns the names of the checks that have seen something, and the number of messages.
    std::string play(const Simulated& simulated, const sim::FaultOptions& faults, int seconds) {
        sim::PlanSource source(simulated.rate, {}, {}, simulated.encode, faults);
        v2xspatconv_ChecksInit(*m_config);
        startCounting();
        int messages = 0;
        for (int i = 0; i < seconds * simulated.rate; i++) {
            fakes::monotonic = START + static_cast<uint64_t>(i * 1e6 / simulated.rate);
            const Bytes message = source.TakeNext();
            if (!message.empty()) {
                simulated.receive(message);
                messages++;
            }
        }
        std::string text;
        for (const auto& [name, number] : countsOf("check")) {
            text += name + " ";
        }
        return text + std::to_string(messages);
    }
};

TEST_F(SimulatedChecks, SeeNothingInADayOfTheNormalPlans) {
    EXPECT_EQ(play(LEARNER, {}, DAY), std::to_string(2 * DAY));
    EXPECT_EQ(play(CONTROLLER, {}, DAY), std::to_string(DAY));
    EXPECT_EQ(play(CLOUD, {}, 600), "600");
}

TEST_F(SimulatedChecks, SeeTheFaultsOfTheSimulator) {
    const struct {
        const char* fault;
        const char* seen; // in the records of a device
        bool isForCloud;
    } cases[] = {
        {"conflict", "conflict ", true},
        {"jump", "jump ", false},
        {"frozen", "frozen jump no_yellow ", false},
        {"no_yellow", "no_yellow ", true},
        {"duplicate", "duplicate ", false},
        {"unmapped", "unmapped ", false},
    };
    for (const auto& [fault, seen, isForCloud] : cases) {
        EXPECT_EQ(play(LEARNER, {fault, 1}, 180), std::string(seen) + "360");
        EXPECT_EQ(play(CONTROLLER, {fault, 1}, 180), std::string(seen) + "180");
        EXPECT_EQ(play(CLOUD, {isForCloud ? fault : "", 1}, 180), (isForCloud ? seen : "") + std::string("180"));
    }
    EXPECT_EQ(play(LEARNER, {"silence", 1}, 180), "318") << "twice 10 s without a message";
}

} // namespace
