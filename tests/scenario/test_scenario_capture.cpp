// Captures of the real daemon: replay, picture and report.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>

#include "unit.h"

namespace {

using testing::HasSubstr;

constexpr size_t PCAP_HEAD = 24;

// The record without its time fields: m_sendTime64, m_moy and m_secMark.
Bytes withoutTimes(Bytes record) {
    for (const auto& [at, size] : {std::pair(4, 8), std::pair(34, 4), std::pair(38, 2)}) {
        std::fill_n(record.begin() + at, size, uint8_t{0});
    }
    return record;
}

class CapturedUnit {
public:
    explicit CapturedUnit(const std::string& device = "") {
        m_unit.device += device;
        writeFile(path("conf/sysinfo.xml"), "<device_id>" + m_unit.device + "</device_id>");
        m_unit.corrections = "SpatDown = true;";
        m_unit.moreGroups = "Control = { Path = \"" + socket() + "\"; };";
        m_unit.startAndWaitReady();
    }
    Unit& unit() { return m_unit; }
    std::string socket() const { return m_unit.folder.path() + "/control"; }
    std::string path(const std::string& file) const { return m_unit.folder.path() + "/" + file; }

    // Starts v2x_spat_ctl; its output goes to the files NAME.out and NAME.err.
    std::unique_ptr<Process> startTool(const std::string& name, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {V2X_BIN "/v2x_spat_ctl", name});
        return std::make_unique<Process>(arguments, std::vector<std::string>{}, path(name + ".out"),
                                         path(name + ".err"));
    }

    std::vector<Bytes> receiveRecords(size_t count) {
        std::vector<Bytes> records;
        while (records.size() < count) {
            auto record = m_unit.receiveRecord();
            if (!record) {
                ADD_FAILURE() << records.size() << " of " << count << " records";
                break;
            }
            records.push_back(withoutTimes(std::move(*record)));
        }
        return records;
    }

    // The device's simulator replays a capture with datagrams to `port`.
    void replay(const std::string& role, const std::string& capture, uint16_t port) {
        const bool isLearner = role == "learner";
        UdpPeer& place = isLearner ? m_unit.learner : m_unit.controller;
        place.release();
        m_unit.startSimulator(role, {"--target",
                                     "127.0.0.1:" + std::to_string(isLearner ? m_unit.reportPort : m_unit.framePort),
                                     "--listen", std::to_string(place.port()), "--replay", capture, "--replay-port",
                                     std::to_string(port), "--speed", "2", "--quiet"});
    }

private:
    Unit m_unit;
};

constexpr size_t REPORTS = 12;
constexpr size_t FRAMES = 5;
constexpr size_t DOCUMENTS = 4;

TEST(ScenarioCapture, ReplayedReadingsGiveTheSameRecords) {
    std::vector<Bytes> records[3];
    CapturedUnit first;
    const std::string capture = first.path("unit.pcap");
    const auto tool = first.startTool("capture", {"-s", first.socket(), "-o", capture, "--json"});
    EXPECT_TRUE(eventually([&] { return readFile(capture).size() == PCAP_HEAD; })); // the daemon has answered
    first.unit().startDevice("learner", 5, {"--count", std::to_string(REPORTS), "--start", "25"});
    records[0] = first.receiveRecords(REPORTS);
    first.unit().startDevice("controller", 5, {"--count", std::to_string(FRAMES)});
    records[1] = first.receiveRecords(FRAMES);
    first.unit().startCloudSimulator({"--rate", "4", "--count", std::to_string(DOCUMENTS), "--phases", "12"});
    records[2] = first.receiveRecords(DOCUMENTS);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(20000), 0);
    EXPECT_THAT(readFile(first.path("capture.out")), HasSubstr("\"lost\":0}"));
    EXPECT_NE(records[0].front(), records[0].back());

    CapturedUnit second("b"); // another device id
    second.replay("learner", capture, first.unit().reportPort);
    EXPECT_EQ(second.receiveRecords(REPORTS), records[0]);
    second.replay("controller", capture, first.unit().framePort);
    EXPECT_EQ(second.receiveRecords(FRAMES), records[1]);
    second.unit().startSimulator("cloud", {"--device", second.unit().device, "--replay", capture});
    EXPECT_EQ(second.receiveRecords(DOCUMENTS), records[2]);
    EXPECT_FALSE(second.unit().receiveRecord(700).has_value());
    EXPECT_GT(counted(second.unit().endSimulator("cloud", 0), "replayed"), DOCUMENTS); // documents of several samples

    const auto picture =
        first.startTool("picture", {"-o", first.path("cycle.svg"), "--from", capture, "--json", "-w", "/nowhere"});
    EXPECT_EQ(picture->wait(20000), 0);
    EXPECT_THAT(readFile(first.path("picture.out")),
                HasSubstr("\"records\":" + std::to_string(REPORTS + FRAMES + DOCUMENTS) + ","));
    EXPECT_THAT(readFile(first.path("cycle.svg")), HasSubstr("Signal timing, intersection 1/2"));
}

TEST(ScenarioCapture, LearnerReplaysCapturesOfOtherPrograms) {
    const TempFolder folder;
    const std::string capture = folder.path() + "/capture";
    // From 192.168.1.20:8001 to 192.168.1.1:8002.
    const std::string packet = "45 00 001F 0000 4000 40 11 0000 C0A80114 C0A80101 1F41 1F42 000B 0000 303132";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"0100", "2D", "020000000001 020000000002 0800"},                 // tcpdump -i eth0
        {"0100", "31", "020000000001 020000000002 8100 000A 0800"},       // with a VLAN tag
        {"7100", "2F", "0000 0001 0006 0200000000010000 0800"},           // tcpdump -i any, version 1
        {"1401", "33", "0800 0000 00000002 0001 00 06 0200000000010000"}, // tcpdump -i any, version 2
    };
    for (const auto& [linkType, size, head] : rows) {
        const Bytes bytes = hex("D4C3B2A1 0200 0400 00000000 00000000 FFFF0000" + linkType + "0000 1A103F67 00000000" +
                                size + "000000" + size + "000000" + head + packet);
        writeFile(capture, {bytes.begin(), bytes.end()});
        UdpPeer daemon;
        UdpPeer place;
        place.release();
        const Process learner({V2X_BIN "/v2x_spat_sim", "learner", "--replay", capture, "--replay-port", "8002",
                               "--target", "127.0.0.1:" + std::to_string(daemon.port()), "--listen",
                               std::to_string(place.port())},
                              {}, folder.path() + "/out", folder.path() + "/err");
        EXPECT_EQ(daemon.receive(), hex("303132")) << head << readFile(folder.path() + "/err");
    }
}

// Returns the output of a shell command.
std::string outputOf(const std::string& command, const std::string& file) {
    Process shell({"/bin/sh", "-c", command}, {}, file, file + ".err");
    EXPECT_EQ(shell.wait(20000), 0) << command;
    return readFile(file);
}

TEST(ScenarioCapture, BugreportNamesTheMissingParts) {
    CapturedUnit captured;
    const std::string archive = captured.path("report.tar.gz");
    const std::vector<std::string> arguments = {"-w", captured.path(""), "-o", archive};
    const std::string list = "tar -tzf " + archive + " | sed 's:[^/]*/::' | sort | tr '\n' ' '";
    const std::string missing = "tar -xzOf " + archive + " --wildcards '*/missing.txt'";

    const auto report = captured.startTool("bugreport", arguments);
    EXPECT_TRUE(eventually(
        [&] { return readFile(captured.path("bugreport.err")).find("capturing for 10 s") != std::string::npos; }));
    report->signal(SIGINT); // ends the capture
    EXPECT_EQ(report->wait(20000), 0);
    EXPECT_EQ(outputOf(list, captured.path("list")),
              " README capture.pcap check.txt conf/ conf/sysinfo.xml conf/v2x_ipc.cfg conf/v2x_spat_convert.cfg "
              "config.json counters.json levels.json lights.json log/ log/spat_conv.log status.json versions.txt ");

    captured.unit().daemon->signal(SIGTERM);
    EXPECT_EQ(captured.unit().daemon->wait(20000), 0);
    EXPECT_EQ(captured.startTool("bugreport", arguments)->wait(20000), 0);
    EXPECT_EQ(outputOf(list, captured.path("list")),
              " README check.txt conf/ conf/sysinfo.xml conf/v2x_ipc.cfg conf/v2x_spat_convert.cfg log/ "
              "log/spat_conv.log missing.txt versions.txt ");
    EXPECT_THAT(outputOf(missing, captured.path("missing")),
                testing::StartsWith("replies of the daemon and capture: " + captured.socket() + ": "));
}

} // namespace
