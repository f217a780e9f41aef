// The loader with real configuration files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "fixture.h"
#include "spat_conv_config.h"
#include "spat_conv_config_settings.h"
#include "temp_folder.h"
#include "v2x/v2xlog.h"

namespace {

using testing::ElementsAre;

std::string text(char c, size_t count) {
    return std::string(count, c);
}

class Config : public fakes::Fixture {
protected:
    Config() {
        std::filesystem::create_directory(m_folder.path() + "/conf");
        v2xspatconv_InitCfg(m_folder.path().c_str());
        writeFile(m_sysinfo, "<device_id>RSU7</device_id><device_name>west</device_name>"
                             "<module_hardware_version>9</module_hardware_version>");
    }
    // Loads a file whose third line is the first line of `settings`.
    int32_t load(const std::string& settings) {
        writeFile(m_path, "rsuSpatConfigInfo = {\nSysinfoname = \"" + m_sysinfo + "\";\n" + settings + "\n};\n");
        return v2xspatconv_GetCfgData(&m_config);
    }
    std::string errorText() const {
        const std::string error = v2xspatconv_GetCfgErrorText();
        return error.starts_with(m_path) ? error.substr(m_path.size()) : error;
    }
    // The collected problems and notes, without the folder of the file.
    std::vector<std::string> problems() const {
        std::vector<std::string> texts;
        v2xcfg_VisitProblems(
            [](void* arg, e_v2xcfg_severity severity, const char* problem) {
                const std::string line = problem;
                static_cast<std::vector<std::string>*>(arg)->push_back(std::to_string(severity) + " " +
                                                                       line.substr(line.find(".cfg") + 4));
            },
            &texts);
        return texts;
    }
    const v2xspatconv_sourceGuard_t& source(e_v2xspatconv_source index) const {
        return m_config->m_guard.m_sources[index];
    }

    const TempFolder m_folder;
    const std::string m_path = m_folder.path() + "/conf/v2x_spat_convert.cfg";
    const std::string m_sysinfo = m_folder.path() + "/sysinfo.xml";
    const spat_conv_config_t* m_config = nullptr;
};

// The module loads once per process: each successful load needs a process of its own.
template <typename Case>
void inChild(Case testCase) {
    EXPECT_EXIT((testCase(), std::exit(testing::Test::HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

TEST(ParseXml, FindsTheFirstElementOfAName) {
    const struct {
        std::string xml;
        std::string tag;
        int32_t ret;
        std::string value; // "kept" = unchanged
    } cases[] = {
        {"<a><device_id>abc</device_id></a>", "device_id", 0, "abc"},
        {"<n>1</n><n>2</n>", "n", 0, "1"},
        {"<n>" + text('x', 31) + "</n>", "n", 0, text('x', 31)},
        {"<n>" + text('x', 32) + "</n>", "n", -5, "kept"},
        {"<n attribute=\"1\">x</n>", "n", -3, "kept"},
        {"</n><n>", "n", -4, "kept"},
        // 31 characters of "<ttt..." and of "</ttt..." are matched.
        {"<" + text('t', 32) + ">x</" + text('t', 32) + ">", text('t', 32), 0, "tt>x"},
    };
    for (const auto& row : cases) {
        char value[32] = "kept";
        EXPECT_EQ(v2xspatconv_parseXML(row.xml.c_str(), row.tag.c_str(), value, sizeof value), row.ret) << row.xml;
        EXPECT_EQ(value, row.value) << row.xml;
    }
}

TEST_F(Config, ReadsLegacyKeysOnce) {
    inChild([this] {
        ASSERT_EQ(load("LearnMachine = { IsEnable = true; Ip = \"127.0.0.9\"; Port = 1; LocalPort = 2; };"
                       "SignalMachine1743 = { Ip = \"" +
                       text('1', 32) +
                       "\"; Port = 3; LocalPort = 4; };"
                       "PhaseRelationship = { PhaseID255 = 65537; PhaseID3 = 7; };"
                       "nodeId = 5; regionId = 70000; Corrections = { SpatDown = true; };"),
                  0);
        spat_conv_config_t expected{};
        memcpy(expected.m_SysinfoName, m_sysinfo.c_str(), m_sysinfo.size());
        expected.m_sysinfo = {"RSU7", "west", "9"};
        expected.m_learn_machine_info = {true, "127.0.0.9", 1, 2};
        expected.m_signal_machine_1743_info = {false, "", 3, 4};
        expected.m_phase_relationship.m_phaseid[255] = 1;
        expected.m_phase_relationship.m_phaseid[3] = 7;
        expected.m_nodeId = 5;
        expected.m_regionId = 70000;
        expected.m_corrections = {true, false, false};
        EXPECT_EQ(memcmp(m_config, &expected, offsetof(spat_conv_config_t, m_guard)), 0);
        EXPECT_EQ(fakes::logged("rsuSpatConfigInfo.PhaseRelationship.PhaseID1 node error").at(0).level, V2XLOG_WARN);

        const v2xspatconv_guard_t& guard = m_config->m_guard;
        EXPECT_FALSE(guard.m_on_stale_unavailable || guard.m_on_conflict_unavailable || guard.m_on_frozen_unavailable);
        EXPECT_EQ(guard.m_priority_count + guard.m_conflict_count, 0);
        EXPECT_THAT(guard.m_ignore, testing::Each(0));
        const uint32_t staleAfter[] = {10000, 10000, 0};
        for (int32_t i = 0; i < V2XSPATCONV_SOURCES; i++) {
            EXPECT_EQ(guard.m_sources[i].m_stale_after, staleAfter[i]);
            EXPECT_STREQ(guard.m_sources[i].m_local_ip, "0.0.0.0");
            EXPECT_EQ(guard.m_sources[i].m_only_from.count, 0);
            EXPECT_EQ(guard.m_sources[i].m_phaseid[3], 7);
            EXPECT_FALSE(guard.m_sources[i].m_has_own_phases);
        }
        writeFile(m_path, "");
        EXPECT_EQ(v2xspatconv_GetCfgData(&m_config), 0) << "the file is read once";
    });
}

constexpr char GUARD[] = R"(Corrections = { QuietLog = 1; SpatDown = true; };
LearnMachine = { IsEnable = true; Ip = "10.0.0.2"; LocalIp = "10.0.0.1"; OnlyFrom = ["10.0.0.2", "192.168.1.0/24"];
                 StaleAfter = 1; PhaseRelationship = { PhaseID1 = 255; }; };
SignalMachine1743 = { IsEnable = true; OnlyFrom = "10.0.0.3"; StaleAfter = 3.0625; PhaseRelationship = {}; };
PhaseRelationship = { PhaseID1 = 2; };
Cloud = { StaleAfter = 3600.0; };
Guard = { SourcePriority = ("1743", "cloud", "learner"); OnStale = "unavailable"; Conflicts = ((1, 2), [32, 4]);
          OnConflict = "unavailable"; OnFrozen = "unavailable"; Ignore = ["no_yellow", "no_yellow:5", "cut_off:32"]; };
Control = { Path = "/run/spat.sock"; };)";

TEST_F(Config, ReadsSettingsOfTheGuard) {
    inChild([this] {
        ASSERT_EQ(load(GUARD), 0) << errorText();
        const v2xspatconv_guard_t& guard = m_config->m_guard;
        const v2xspatconv_sourceGuard_t& learner = source(V2XSPATCONV_LEARNER);
        const v2xspatconv_sourceGuard_t& controller = source(V2XSPATCONV_1743);
        EXPECT_STREQ(learner.m_local_ip, "10.0.0.1");
        ASSERT_EQ(learner.m_only_from.count, 2);
        EXPECT_EQ(learner.m_only_from.blocks[0].network, 0x0A000002U);
        EXPECT_EQ(learner.m_only_from.blocks[1].mask, 0xFFFFFF00U);
        ASSERT_EQ(controller.m_only_from.count, 1);
        EXPECT_EQ(controller.m_only_from.blocks[0].network, 0x0A000003U);
        EXPECT_EQ(learner.m_stale_after, 1000U);
        EXPECT_EQ(controller.m_stale_after, 3063U);
        EXPECT_EQ(source(V2XSPATCONV_CLOUD).m_stale_after, 3600000U);
        EXPECT_TRUE(learner.m_has_own_phases && controller.m_has_own_phases);
        EXPECT_EQ(learner.m_phaseid[1], 255);
        EXPECT_EQ(controller.m_phaseid[1], 0) << "the common table is replaced";
        EXPECT_EQ(source(V2XSPATCONV_CLOUD).m_phaseid[1], 2);
        ASSERT_EQ(guard.m_priority_count, 3);
        EXPECT_THAT(guard.m_priority, ElementsAre(V2XSPATCONV_1743, V2XSPATCONV_CLOUD, V2XSPATCONV_LEARNER));
        EXPECT_TRUE(guard.m_on_stale_unavailable && guard.m_on_conflict_unavailable && guard.m_on_frozen_unavailable);
        ASSERT_EQ(guard.m_conflict_count, 2);
        EXPECT_THAT(guard.m_conflicts[1], ElementsAre(32, 4));
        EXPECT_EQ(guard.m_ignore[V2XSPATCONV_CHECK_NO_YELLOW], 0x21U);
        EXPECT_EQ(guard.m_ignore[V2XSPATCONV_CHECK_CUT_OFF], 0x100000000U);
        EXPECT_STREQ(m_config->m_control_path, "/run/spat.sock");
        EXPECT_EQ(fakes::logged("rsuSpatConfigInfo.PhaseRelationship.PhaseID2 node error").at(0).level, V2XLOG_TRACE);
        EXPECT_THAT(problems(), testing::IsEmpty());
    });
}

TEST_F(Config, ListsSettingsInForce) {
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a process that has loaded no other file
    inChild([this] {
        ASSERT_EQ(load("LearnMachine = { IsEnable = true; Port = 70000; OnlyFrom = [\"10.0.0.0/8\", \"10.1.1.1\"];\n"
                       "PhaseRelationship = { PhaseID3 = 7; PhaseID9 = 1; }; StaleAfter = 1.5; };\n"
                       "Guard = { SourcePriority = \"learner\"; Conflicts = ((1, 2), (1, 4)); OnStale = \"nothing\";\n"
                       "Ignore = [\"jump\", \"no_yellow:5\"]; }; regionId = 1;"),
                  0);
        std::string seen;
        cJSON* const settings = v2xspatconv_ListSettings(*m_config);
        for (const cJSON* one = settings->child; one != nullptr; one = one->next) {
            const std::string file = cJSON_GetObjectItem(one, "file")->valuestring;
            const std::string key = cJSON_GetObjectItem(one, "key")->valuestring;
            char* const value = cJSON_PrintUnformatted(cJSON_GetObjectItem(one, "value"));
            seen += (file == "conf/v2x_spat_convert.cfg" ? ""
                     : file == m_sysinfo                 ? "sysinfo:"
                                                         : file + ":") +
                    key.substr(key.find('.') + 1) + (cJSON_IsTrue(cJSON_GetObjectItem(one, "default")) ? "* " : " ") +
                    (file != m_sysinfo && key.ends_with("Sysinfoname") ? "" : value) + "\n";
            cJSON_free(value);
        }
        cJSON_Delete(settings);
        EXPECT_EQ(seen, R"(Sysinfoname 
nodeId* 0
regionId 1
PhaseRelationship* []
LearnMachine.IsEnable true
LearnMachine.Ip* ""
LearnMachine.Port 4464
LearnMachine.LocalPort* 0
LearnMachine.LocalIp* "0.0.0.0"
LearnMachine.OnlyFrom ["10.0.0.0/8","10.1.1.1"]
LearnMachine.StaleAfter 1.5
LearnMachine.PhaseRelationship [[3,7],[9,1]]
SignalMachine1743.IsEnable* false
SignalMachine1743.Ip* ""
SignalMachine1743.Port* 0
SignalMachine1743.LocalPort* 0
SignalMachine1743.LocalIp* "0.0.0.0"
SignalMachine1743.OnlyFrom* []
SignalMachine1743.StaleAfter* 10
SignalMachine1743.PhaseRelationship* []
Corrections.SpatDown* false
Corrections.ReplyItems* false
Corrections.QuietLog* false
Cloud.StaleAfter* 0
Guard.SourcePriority ["learner"]
Guard.OnStale "nothing"
Guard.Conflicts [[1,2],[1,4]]
Guard.OnConflict* "nothing"
Guard.OnFrozen* "nothing"
Guard.Ignore ["jump","no_yellow:5"]
Control.Path* ""
conf/v2x_ipc.cfg:hosts.RSU_RCV* "127.0.0.1"
conf/v2x_ipc.cfg:app_rs_rcvport* 20010
sysinfo:device_id "RSU7"
sysinfo:device_name "west"
sysinfo:module_hardware_version "9"
)");
    });
}

TEST_F(Config, ReadsAsMuchAsTheRecordHolds) {
    inChild([this] {
        std::string phases;
        std::string pairs;
        std::string senders;
        for (int i = 1; i <= V2XSPATCONV_CONFLICTS_MAX; i++) {
            const std::string number = std::to_string(i);
            phases += i <= 32 ? "PhaseID" + number + " = 2" + number + ";" : "";
            senders += i <= V2XPUB_SENDERS_MAX ? (i > 1 ? "," : "") + ("\"10.0.0." + number) + "\"" : "";
            pairs += (i > 1 ? ",(" : "(") + std::to_string(1 + i % 8) + "," + std::to_string(9 + i % 24) + ")";
        }
        const std::string table = "PhaseRelationship = {" + phases + "};";
        const std::string devices = "LearnMachine = { IsEnable = true; Ip = \"10.0.0.1\"; OnlyFrom = [" + senders +
                                    "];" + table + " };" + table;
        ASSERT_EQ(load(devices + "Guard = { Conflicts = (" + pairs + "); }; Control = { Path = \"" + text('p', 107) +
                       "\"; };"),
                  0)
            << errorText();
        EXPECT_EQ(source(V2XSPATCONV_LEARNER).m_only_from.blocks[15].network, 0x0A000010U);
        EXPECT_EQ(source(V2XSPATCONV_LEARNER).m_phaseid[32], 232);
        EXPECT_THAT(m_config->m_guard.m_conflicts[199], ElementsAre(1, 17));
        EXPECT_EQ(m_config->m_control_path, text('p', 107));
        EXPECT_THAT(problems(), testing::IsEmpty());
    });
}

TEST_F(Config, RejectsInvalidSettingsOfTheGuard) {
    const std::string both = "LearnMachine = { IsEnable = true; PhaseRelationship = {}; };"
                             "SignalMachine1743 = { IsEnable = true; };";
    const struct {
        const char* group;
        std::string setting; // "key = value" in the group; ' stands for "
        const char* error;   // after the group's name
        std::string other;   // other settings of the file
    } rows[] = {
        {"LearnMachine", "LocalIp = '10.0.0'", ".LocalIp: '10.0.0' is not a dotted IPv4 address", ""},
        {"SignalMachine1743", "LocalIp = '10.0.0.1/32'", ".LocalIp: '10.0.0.1/32' is not a dotted IPv4 address", ""},
        {"LearnMachine", "LocalIp = '224.0.0.1'", ".LocalIp: '224.0.0.1' is a multicast or broadcast address", ""},
        {"LearnMachine", "OnlyFrom = ()", ".OnlyFrom: 0 entries, expected 1 to 16", ""},
        {"LearnMachine", "OnlyFrom = [1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1]", ".OnlyFrom: 17 entries, expected 1 to 16",
         ""},
        {"SignalMachine1743", "OnlyFrom = ['1.1.1.1', '1.1.1.1/8']",
         ".OnlyFrom.[1]: '1.1.1.1/8' is not an IPv4 address or block such as 192.168.1.0/24", ""},
        {"LearnMachine", "StaleAfter = 0.9", ".StaleAfter: expected 0, or 1 to 3600 seconds", ""},
        {"SignalMachine1743", "StaleAfter = -3", ".StaleAfter: expected 0, or 1 to 3600 seconds", ""},
        {"Cloud", "StaleAfter = 3600.1", ".StaleAfter: expected 0, or 1 to 3600 seconds", ""},
        {"Cloud", "StaleAfter = '3'", ".StaleAfter: expected a number, found a string", ""},
        {"LearnMachine", "PhaseRelationship = 3", ".PhaseRelationship: expected a group, found an integer", ""},
        {"LearnMachine", "PhaseRelationship = { PhaseID33 = 3; }",
         ".PhaseRelationship.PhaseID33: the SPAT phase is outside 1 to 32", ""},
        {"SignalMachine1743", "PhaseRelationship = { PhaseID3 = 256; }",
         ".PhaseRelationship.PhaseID3: the device phase is outside 0 to 255", ""},
        {"Guard", "SourcePriority = 'lerner'",
         ".SourcePriority: 'lerner' is not a source, expected learner, 1743 or cloud", ""},
        {"Guard", "SourcePriority = ['1743', '1743']", ".SourcePriority.[1]: 1743 is listed twice", both},
        {"Guard", "SourcePriority = 'cloud'", ".SourcePriority: cloud needs Corrections.SpatDown", ""},
        {"Guard", "SourcePriority = 'cloud'", ".SourcePriority: cloud is not watched, StaleAfter is 0",
         "Corrections = { SpatDown = true; };"},
        {"Guard", "SourcePriority = 'learner'", ".SourcePriority: learner is not enabled", ""},
        {"Guard", "SourcePriority = ['learner', '1743']",
         ".SourcePriority: learner and 1743 are listed, but one of them has no PhaseRelationship of its own", both},
        {"Guard", "OnStale = 'unavailable'",
         ".OnStale: 'unavailable' with both adapters enabled needs Guard.SourcePriority", both},
        {"Guard", "OnStale = true", ".OnStale: expected a string, found a boolean", ""},
        {"Guard", "OnConflict = 'red'", ".OnConflict: 'red' is not a reaction, expected nothing or unavailable", ""},
        {"Guard", "OnFrozen = ''", ".OnFrozen: '' is not a reaction, expected nothing or unavailable", ""},
        {"Guard", "Conflicts = (1, 2)", ".Conflicts.[0]: 1 entries, expected 2", ""},
        {"Guard", "Conflicts = ((1, 2), (1, 33))", ".Conflicts.[1].[1]: the SPAT phase is outside 1 to 32", ""},
        {"Guard", "Conflicts = ((4, 4))", ".Conflicts.[0]: both phases of the pair are 4", ""},
        {"Guard", "Ignore = 'jump:33'", ".Ignore: 'jump:33': expected a SPAT phase from 1 to 32 after the colon", ""},
        {"Guard", "Ignore = ['yellow']",
         ".Ignore.[0]: 'yellow' is not a check, expected conflict, jump, frozen, no_yellow, duplicate, "
         "disagree, sender, unmapped or cut_off",
         ""},
        {"Control", "Path = '" + text('p', 108) + "'", ".Path: string of 108 characters, at most 107 are allowed", ""},
        {"Corrections", "QuietLog = 2", ".QuietLog: expected true, false, 0 or 1, found 2", ""},
    };
    const auto quote = [](std::string line) {
        std::replace(line.begin(), line.end(), '\'', '"');
        return line;
    };
    inChild([&] { // the collected problems stay in the process
        for (const auto& row : rows) {
            SCOPED_TRACE(row.setting);
            EXPECT_EQ(load(row.group + quote(" = { " + row.setting + "; };\n") + row.other), -6);
            EXPECT_EQ(errorText(), ":3: rsuSpatConfigInfo." + (row.group + quote(row.error)));
            const std::vector<std::string> log = fakes::takeLog();
            const auto isError = [&](const std::string& line) { return line.ends_with(errorText()); };
            ASSERT_EQ(std::count_if(log.begin(), log.end(), isError), 1);
            EXPECT_EQ(std::find_if(log.begin(), log.end(), isError)->substr(4, 2), " 2");
        }
        EXPECT_EQ(m_config, nullptr);
    });
}

TEST_F(Config, ReportsSettingsWithoutEffect) {
    const std::string device = "LearnMachine = { IsEnable = true; LocalPort = 8002;";
    const std::string ignored = "Guard = {\nOnFrozen = \"unavailable\"; Ignore = ";
    const std::string noEffect = "\"unavailable\" has no effect";
    const struct {
        std::string settings;
        std::string problem; // after "3 :LINE: rsuSpatConfigInfo."; empty if there is none
    } rows[] = {
        {device + "\nIp = \"10.0.0.2\"; OnlyFrom = \"10.0.0.3\"; };",
         "LearnMachine.Ip: 10.0.0.2 is not in OnlyFrom, its reports are refused"},
        {device + "Ip = \"10.0.0.2\"; OnlyFrom = \"10.0.0.0/24\"; };", ""},
        {device + "\nIp = \"10.0.0.2/32\"; };",
         "LearnMachine.Ip: missing or not a dotted IPv4 address, the learner gets no heartbeats"},
        {device + "Ip = \"10.0.0.2\"; StaleAfter = 0; }; Guard = {\nOnStale = \"unavailable\"; };",
         "Guard.OnStale: " + noEffect + ", no enabled source is watched"},
        {device + "Ip = \"10.0.0.2\"; }; Guard = { OnStale = \"unavailable\"; };", ""},
        {"Guard = { OnStale = \"unavailable\"; };", ""}, // no adapter is enabled
        {"Corrections = { SpatDown = true; }; Cloud = { StaleAfter = 9; }; Guard = { OnStale = \"unavailable\"; };",
         ""},
        {"Guard = {\nOnConflict = \"unavailable\"; };", "Guard.OnConflict: " + noEffect + " without Guard.Conflicts"},
        {ignored + "\"frozen\"; };", "Guard.OnFrozen: " + noEffect + ", Guard.Ignore contains frozen"},
        {ignored + "\"frozen:5\"; };", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.settings);
        inChild([&] {
            ASSERT_EQ(load(row.settings), 0) << errorText();
            std::vector<std::string> found = problems();
            std::erase_if(found, [](const std::string& one) { return one.starts_with("4 "); });
            const std::string problem = "3 :4: rsuSpatConfigInfo." + row.problem;
            EXPECT_EQ(found, row.problem.empty() ? std::vector<std::string>() : std::vector<std::string>{problem});
        });
    }
}

TEST_F(Config, RetriesAfterAFailedLoad) {
    inChild([this] {
        EXPECT_EQ(v2xspatconv_GetCfgData(&m_config), 1);
        EXPECT_EQ(errorText(), ": No such file or directory");
        writeFile(m_path, "rsuSpatConfigInfo = {};");
        EXPECT_EQ(v2xspatconv_GetCfgData(&m_config), -3);
        EXPECT_EQ(errorText(), ": rsuSpatConfigInfo.Sysinfoname: not found");
        std::filesystem::remove(m_sysinfo);
        EXPECT_EQ(load(""), -4);
        EXPECT_EQ(errorText(), m_sysinfo + ": device_id: the file cannot be read");
        writeFile(m_sysinfo, "\n<device_id>" + text('x', 32) + "</device_id>");
        EXPECT_EQ(load(""), -4);
        EXPECT_EQ(m_config, nullptr);
        writeFile(m_sysinfo, "<device_id>" + text('x', 31) + "</device_id>");
        EXPECT_EQ(load(""), 0);
    });
}

TEST_F(Config, RejectsAWorkDirectoryOf64Characters) {
    inChild([this] {
        EXPECT_EQ(v2xspatconv_InitCfg(text('d', 64).c_str()), 0);
        EXPECT_EQ(v2xspatconv_GetCfgData(&m_config), -5);
        EXPECT_EQ(v2xspatconv_GetCfgErrorText(),
                  "work directory " + text('d', 64) + " is too long: 64 characters, at most 63 are allowed");

        const char* path = nullptr;
        v2xspatconv_InitCfg(text('e', 63).c_str());
        v2xspatconv_GetCfgDir(text('f', 300).c_str(), &path);
        EXPECT_EQ(path, text('e', 63) + "/" + text('f', 63));
    });
}

} // namespace
