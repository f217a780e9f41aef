// The tool for operators, run as its user would run it.
#include <filesystem>
#include <gtest/gtest.h>

#include "process.h"

namespace {

class ScenarioCheck : public testing::Test {
protected:
    ScenarioCheck() {
        std::filesystem::copy(V2X_CONF, m_folder.path() + "/conf");
        const std::string sample = readFile(m_cfg);
        const std::string fixed = "/opt/v2x_service/conf";
        writeFile(m_cfg, std::string(sample).replace(sample.find(fixed), fixed.size(), m_folder.path() + "/conf"));
    }
    // Returns the exit status.
    int run(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv = {V2X_BIN "/v2x_spat_ctl"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        Process tool(argv, {}, m_folder.path() + "/out", m_folder.path() + "/err");
        const int status = tool.wait(60000);
        m_output = readFile(m_folder.path() + "/out");
        return status;
    }
    bool prints(const std::string& text) const { return m_output.find(text) != std::string::npos; }

    const TempFolder m_folder;
    const std::string m_cfg = m_folder.path() + "/conf/v2x_spat_convert.cfg";
    const std::string m_ipc = m_folder.path() + "/conf/v2x_ipc.cfg";
    std::string m_output;
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

} // namespace
