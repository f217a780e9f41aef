// The tool for operators, run as its user would run it.
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "process.h"
#include "unit.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class ScenarioTool : public testing::Test {
protected:
    // Runs the tool; a `launcher` is the command line in front of it. Returns the exit status.
    int run(const std::vector<std::string>& arguments, std::vector<std::string> launcher = {}) {
        launcher.push_back(V2X_BIN "/v2x_spat_ctl");
        launcher.insert(launcher.end(), arguments.begin(), arguments.end());
        Process tool(launcher, {}, m_folder.path() + "/out", m_folder.path() + "/err");
        const int status = tool.wait(60000);
        m_output = readFile(m_folder.path() + "/out");
        m_error = readFile(m_folder.path() + "/err");
        return status;
    }
    bool prints(const std::string& text) const { return m_output.find(text) != std::string::npos; }

    const TempFolder m_folder;
    std::string m_output;
    std::string m_error;
};

class ScenarioCheck : public ScenarioTool {
protected:
    ScenarioCheck() {
        std::filesystem::copy(V2X_CONF, m_folder.path() + "/conf");
        const std::string sample = readFile(m_cfg);
        const std::string fixed = "/opt/v2x_service/conf";
        writeFile(m_cfg, std::string(sample).replace(sample.find(fixed), fixed.size(), m_folder.path() + "/conf"));
    }

    const std::string m_cfg = m_folder.path() + "/conf/v2x_spat_convert.cfg";
    const std::string m_ipc = m_folder.path() + "/conf/v2x_ipc.cfg";
};

TEST_F(ScenarioCheck, FindsNoProblemInTheSample) {
    EXPECT_EQ(run({"check", "-w", m_folder.path()}), 0) << m_output;
    EXPECT_TRUE(m_output.starts_with("note: " + m_cfg + ": rsuSpatConfigInfo.Guard.Conflicts: ")) << m_output;
    EXPECT_TRUE(prints("\n0 problems\n")) << m_output;
    EXPECT_TRUE(prints("\nregion 1, node 2, intersection id 65538, device_id RSU0001\n"
                       "learner: receives on 0.0.0.0:8002 from 192.168.1.20\n1743: off\n"
                       "records: sends from 127.0.0.1:20001 to 127.0.0.1:20010\n"
                       "requests: sends from 127.0.0.1:20002 to 127.0.0.1:20010\n"
                       "replies: receives on 127.0.0.1:20002 from 127.0.0.1\n"
                       "log tool: receives on 127.0.0.1:20003 from 127.0.0.1\n"))
        << m_output;
}

TEST_F(ScenarioCheck, PrintsTheOriginOfEachPhase) {
    writeFile(m_cfg, "rsuSpatConfigInfo = { Sysinfoname = \"" + m_folder.path() + "/conf/sysinfo.xml\";\n" + R"(
        LearnMachine = { IsEnable = true; Ip = "127.0.0.1"; LocalPort = 8002; PhaseRelationship = { PhaseID2 = 5; }; };
        SignalMachine1743 = { IsEnable = true; LocalPort = 70000; };
        PhaseRelationship = { PhaseID3 = 7; }; };)");
    EXPECT_EQ(run({"check", "-w", m_folder.path()}), 1);
    EXPECT_TRUE(prints("\nlearner\nSPAT PHASE  DEVICE PHASE  FROM\n1           1             same number\n"
                       "2           5             own table\n3           3             same number\n"))
        << m_output;
    EXPECT_TRUE(prints("\n3           7             common table\n")) << m_output;
    EXPECT_TRUE(prints("\n1743: receives on 0.0.0.0:4464 from any sender\n")) << m_output;
    EXPECT_TRUE(prints("IsEnable: both adapters are enabled without Guard.SourcePriority")) << m_output;
    EXPECT_TRUE(prints("LocalPort: 70000 is outside 1 to 65535, the daemon uses port 4464\n")) << m_output;
}

TEST_F(ScenarioCheck, PrintsJson) {
    EXPECT_EQ(run({"check", "--json", "-w", m_folder.path()}), 0);
    EXPECT_THAT(m_output,
                StartsWith("{\"problems\":[],\"notes\":[\"" + m_cfg + ": rsuSpatConfigInfo.Guard.Conflicts: "));
    EXPECT_THAT(m_output,
                HasSubstr(R"("intersection":65538,"phases":[{"source":"learner","phase":1,"device_phase":1,)"));
    EXPECT_THAT(m_output,
                EndsWith(R"({"name":"log tool","use":"receives","local":"127.0.0.1:20003","peer":"127.0.0.1"}]})"
                         "\n"));
}

TEST_F(ScenarioCheck, PrintsEachOfTenMistakesWithItsLine) {
    writeFile(m_folder.path() + "/sysinfo.xml", "<device_id>RSU1</device_id>\n<device_name>west");
    writeFile(m_ipc, "ipc = {\n  spat_conv_sndport = 70000;\n  logtool_rcvport = 20003;\n};\n");
    writeFile(m_cfg, "rsuSpatConfigInfo = {\n  Sysinfoname = \"" + m_folder.path() + "/sysinfo.xml\";\n" +
                         R"(  LearnMachine = {
    IsEnable = "yes";
    LocalPort = 8002;
    OnlyFrom = "192.168.1.300";
  };
  SignalMachine1743 = { IsEnable = true; LocalPort = 20003; StaleAfter = 0.5; };
  PhaseRelationship = { PhaseId3 = 7;
    PhaseID40 = 1; };
  regionId = 65536;
};
)");
    EXPECT_EQ(run({"check", "-w", m_folder.path()}), 1);
    const std::string group = ": rsuSpatConfigInfo.";
    const std::string problems[] = {
        m_ipc + ":2: ipc.spat_conv_sndport: 70000 is outside 0 to 65535",
        m_ipc + ":3: ipc.logtool_rcvport: unknown key logtool_rcvport",
        m_folder.path() + "/sysinfo.xml:2: device_name: no end tag, or more than 31 characters",
        m_cfg + ":4" + group + "LearnMachine.IsEnable: expected a boolean, found a string",
        m_cfg + ":6" + group +
            "LearnMachine.OnlyFrom: \"192.168.1.300\" is not an IPv4 address or block such as 192.168.1.0/24",
        m_cfg + ":8" + group + "SignalMachine1743.LocalPort: port 20003 is also ipc.spatconv_logtool_rcvport",
        m_cfg + ":8" + group + "SignalMachine1743.StaleAfter: expected 0, or 1 to 3600 seconds",
        m_cfg + ":9" + group + "PhaseRelationship.PhaseId3: unknown key PhaseId3, did you mean PhaseID3?",
        m_cfg + ":10" + group + "PhaseRelationship.PhaseID40: the SPAT phase is outside 1 to 32",
        m_cfg + ":11" + group + "regionId: 65536 is outside 0 to 65535",
    };
    for (const std::string& problem : problems) {
        EXPECT_TRUE(("\n" + m_output).find("\n" + problem + "\n") != std::string::npos) << problem;
    }
    EXPECT_TRUE(prints("\n10 problems\nThe daemon does not start with this configuration.\n")) << m_output;
}

TEST_F(ScenarioCheck, PrintsNoTablesForRefusedPortTable) {
    writeFile(m_ipc, "ipc = {\n  local_ip = 127;\n};\n");
    EXPECT_EQ(run({"check", "-w", m_folder.path()}), 1);
    EXPECT_TRUE(m_output.starts_with(m_ipc + ":2: ipc.local_ip: expected a string, found an integer\n")) << m_output;
    EXPECT_TRUE(m_output.ends_with("\n1 problem\nThe daemon does not start with this configuration.\n")) << m_output;
}

TEST_F(ScenarioCheck, DistinguishesProblemsFromWrongUsage) {
    EXPECT_EQ(run({"check", "-w", m_folder.path() + "/missing"}), 1);
    EXPECT_EQ(m_output, m_folder.path() + "/missing/conf/v2x_spat_convert.cfg: No such file or directory\n1 problem\n"
                                          "The daemon does not start with this configuration.\n");
    EXPECT_EQ(run({"check", "-w", std::string(64, 'd')}), 1);
    EXPECT_TRUE(prints("is too long: 64 characters, at most 63 are allowed\n1 problem\n")) << m_output;
    EXPECT_EQ(run({"check", "--wrong"}), 2);
    EXPECT_EQ(run({}), 2);
}

// ---- with another program at the control socket

class ScenarioPeer : public ScenarioTool {
protected:
    // Runs a shell command with the tool as $0. The program at the socket sends `text`, then ends the connection.
    int askPeer(const std::string& command, const std::string& text) {
        sockaddr_un address{AF_UNIX, {}};
        m_socket.copy(address.sun_path, sizeof address.sun_path - 1);
        unlink(m_socket.c_str());
        const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener, 1), 0);
        std::thread peer([&] {
            const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            for (size_t sent = 0; sent < text.size();) {
                const ssize_t size = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
                sent = size > 0 ? sent + static_cast<size_t>(size) : text.size();
            }
            close(connection);
        });
        const int status = run({m_socket}, {"/bin/sh", "-c", command});
        shutdown(listener, SHUT_RDWR); // ends accept4 if the tool has not connected
        peer.join();
        close(listener);
        return status;
    }
    const std::string m_socket = m_folder.path() + "/control";
};

TEST_F(ScenarioPeer, EndsWithStatus2ForInvalidLines) {
    const std::pair<std::string, std::string> rows[] = {
        {"hello\u009B\x1B\n", "expected a JSON object, found \"hello??\"\n"},
        {R"({"error":"too many\u001b"})"
         "\n",
         "too many?\n"},
        {std::string(size_t{3} << 20, 'x'), "a line is longer than 1 MiB\n"},
        {R"({"reply":"lights"})"
         "\n",
         "the daemon has closed the connection\n"},
    };
    for (const auto& [text, reason] : rows) {
        EXPECT_EQ(askPeer("exec $0 status -s $1", text), 2);
        EXPECT_EQ(m_error, "v2x_spat_ctl: " + m_socket + ": " + reason);
    }
}

TEST_F(ScenarioPeer, EndsQuietlyWithAClosedPipe) {
    std::string events = "{\"reply\":\"watch\"}\n";
    for (int i = 0; i < 100000; i++) {
        events += "{\"lost\":1}\n";
    }
    EXPECT_EQ(askPeer("{ $0 watch -s $1; echo $? >&2; } | head -n 1", events), 0);
    EXPECT_EQ(m_output, "lost 1 events\n");
    EXPECT_EQ(m_error, "0\n");
}

// ---- with the daemon

const Bytes GREEN_15_S = hex("FEFE10 000A 000100 03010F00000000"); // the learner's phase 3

class ScenarioCtl : public ScenarioTool {
protected:
    ScenarioCtl() {
        m_unit.moreGroups = "Control = { Path = \"" + m_socket + "\"; };\n";
        m_unit.learnerKeys += " StaleAfter = 1.0;";
        m_unit.controllerKeys = "IsEnable = false;";
        m_unit.startStackSimulator();
        m_unit.startAndWaitReady();
    }
    int ask(std::vector<std::string> arguments, const std::vector<std::string>& launcher = {}) {
        arguments.insert(arguments.end(), {"-w", m_unit.folder.path()});
        return run(arguments, launcher);
    }
    void sendReport() const { m_unit.learner.sendTo(m_unit.reportPort, GREEN_15_S); }

    Unit m_unit;
    const std::string m_socket = m_unit.folder.path() + "/control";
};

TEST_F(ScenarioCtl, JudgesTheUnit) {
    EXPECT_TRUE(eventually([&] {
        sendReport();
        return ask({"status", "--brief"}) == 0;
    })) << m_output;
    EXPECT_THAT(m_output, AllOf(StartsWith("OK: learner fresh "), EndsWith(", stack answers\n")));
    EXPECT_TRUE(eventually([&] { return ask({"status"}) == 1; })) << "stale after a second";
    EXPECT_TRUE(prints(" 127.0.0.1       stale  ")) << m_output;
    EXPECT_THAT(m_output, StartsWith("v2x_spat_convert rsu_cloud_v230522.001 (release " V2X_RELEASE "), pid "));
}

TEST_F(ScenarioCtl, PrintsEachReply) {
    EXPECT_TRUE(eventually([&] {
        sendReport();
        return ask({"lights"}) == 0 && prints("\n3      permissive green  1");
    })) << m_output;
    for (const auto& [command, text] : std::vector<std::pair<std::string, std::string>>{
             {"counters", "\nlearner         accepted "},
             {"config", "\nrsuSpatConfigInfo.Control.Path = \"" + m_socket + "\"\n"},
             {"levels", "\nSPAT  4 info\n"}}) {
        EXPECT_EQ(ask({command}), 0);
        EXPECT_TRUE(prints(text)) << m_output;
        EXPECT_EQ(ask({command, "--json"}), 0);
        EXPECT_THAT(m_output, StartsWith(R"({"reply":")" + command + '"'));
    }
    const std::string screen = V2X_BIN "/v2x_spat_ctl lights --watch -s " + m_socket;
    const std::string terminal = "(sleep 1; printf q) | TERM=vt100 script -qec '" + screen + "' /dev/null";
    EXPECT_EQ(run({}, {"/bin/sh", "-c", terminal}), 0) << m_error;
    EXPECT_TRUE(prints("[G] permissive green ")) << m_output;
}

TEST_F(ScenarioCtl, EndsWithStatus2WithoutDaemon) {
    const auto expectReason = [&](const std::string& reason) {
        EXPECT_EQ(m_output, "");
        EXPECT_THAT(m_error, StartsWith("v2x_spat_ctl: " + reason));
        EXPECT_EQ(occurrences(m_error, "\n"), 1U) << m_error;
    };
    std::vector<std::string> unprivileged;
    if (geteuid() == 0) { // root without capabilities
        unprivileged = {"/usr/bin/setpriv", "--bounding-set", "-all", "--inh-caps", "-all"};
    }
    chmod(m_socket.c_str(), 0);
    EXPECT_EQ(ask({"status"}, unprivileged), 2);
    expectReason(m_socket + ": permission denied");
    chmod(m_socket.c_str(), 0660);

    const std::string base = m_folder.path() + "/watch";
    Process watch({V2X_BIN "/v2x_spat_ctl", "watch", "-s", m_socket}, {}, base, base + ".err");
    EXPECT_TRUE(eventually([&] {
        sendReport();
        return readFile(base).find(" record learner 3 permissive green 15.0\n") != std::string::npos;
    }));
    m_unit.daemon->signal(SIGKILL);
    EXPECT_EQ(watch.wait(20000), 2);
    EXPECT_EQ(readFile(base + ".err"), "v2x_spat_ctl: " + m_socket + ": the daemon has closed the connection\n");

    EXPECT_EQ(ask({"lights"}), 2);
    expectReason(m_socket + ": the daemon does not run");
    EXPECT_EQ(run({"counters", "-s", m_socket + "x"}), 2);
    expectReason(m_socket + "x: no such socket");
    const std::string cfg = m_unit.folder.path() + "/conf/v2x_spat_convert.cfg";
    const std::string text = readFile(cfg);
    writeFile(cfg, std::string(text).replace(text.find("Control"), 7, "Corral_"));
    EXPECT_EQ(ask({"config"}), 2);
    expectReason(cfg + ": Control.Path is missing");
}

} // namespace
