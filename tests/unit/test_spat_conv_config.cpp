#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.h"
#include "spat_conv_config.h"
#include "sysinfo_file.h"

namespace {

std::string text(char c, size_t count) {
    return std::string(count, c);
}

// The module loads once per process: each case runs in a child process.
template <typename Case>
void inChild(Case testCase) {
    EXPECT_EXIT((testCase(), std::exit(testing::Test::HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

class Config : public testing::Test {
protected:
    int32_t load() { return v2xspatconv_GetCfgData(&m_config); }
    static auto& key(const std::string& name) { return fakes::cfgTree["rsuSpatConfigInfo." + name]; }

    SysinfoFile m_sysinfo;
    const spat_conv_config_t* m_config = nullptr;
};

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

TEST_F(Config, ReadsEveryKeyOnce) {
    m_sysinfo.write("<device_id>RSU7</device_id><device_name>west</device_name>"
                    "<module_hardware_version>9</module_hardware_version>");
    inChild([this] {
        key("LearnMachine.IsEnable") = true;
        key("LearnMachine.Ip") = "127.0.0.9";
        key("LearnMachine.Port") = 1;
        key("LearnMachine.LocalPort") = 2;
        key("SignalMachine1743.Ip") = text('1', 32);
        key("SignalMachine1743.Port") = 3;
        key("SignalMachine1743.LocalPort") = 4;
        key("PhaseRelationship.PhaseID255") = 65537;
        key("nodeId") = 5;
        key("regionId") = 70000;
        key("Corrections.SpatDown") = true;
        spat_conv_config_t expected{};
        memcpy(expected.m_SysinfoName, m_sysinfo.path().c_str(), m_sysinfo.path().size());
        expected.m_sysinfo = {"RSU7", "west", "9"};
        expected.m_learn_machine_info = {true, "127.0.0.9", 1, 2};
        expected.m_signal_machine_1743_info = {false, "", 3, 4};
        expected.m_phase_relationship.m_phaseid[255] = 1;
        expected.m_nodeId = 5;
        expected.m_regionId = 70000;
        expected.m_corrections = {true, false, false};
        ASSERT_EQ(load(), 0);
        EXPECT_EQ(memcmp(m_config, &expected, offsetof(spat_conv_config_t, m_guard)), 0);
        EXPECT_EQ(fakes::logged("rsuSpatConfigInfo.PhaseRelationship.PhaseID1 node error").size(), 1U);
        EXPECT_EQ(load(), 0);
        EXPECT_EQ(fakes::journal.size(), 1U) << "the file is opened once";
        EXPECT_EQ(fakes::cfgOpenTrees, 0);
    });
}

TEST_F(Config, RetriesAfterAFailedLoad) {
    inChild([this] {
        fakes::cfgInitResult = -4;
        EXPECT_EQ(load(), 1);
        EXPECT_STREQ(v2xspatconv_GetCfgErrorText(), "the tree's own reason");
        fakes::cfgInitResult = 0;

        key("Sysinfoname") = "/tmp";
        EXPECT_EQ(load(), -4);
        EXPECT_STREQ(v2xspatconv_GetCfgErrorText(), "/tmp: device_id: the file cannot be read");

        key("Sysinfoname") = m_sysinfo.path();
        m_sysinfo.write("<device_id>" + text('x', 32) + "</device_id>");
        EXPECT_EQ(load(), -4);
        EXPECT_EQ(m_config, nullptr);

        m_sysinfo.write("<device_id>" + text('x', 31) + "</device_id>");
        EXPECT_EQ(load(), 0);
        EXPECT_EQ(fakes::cfgOpenTrees, 0);
    });
}

TEST_F(Config, RejectsAWorkDirectoryOf64Characters) {
    inChild([this] {
        EXPECT_EQ(v2xspatconv_InitCfg(text('d', 64).c_str()), 0);
        EXPECT_EQ(load(), -5);
        EXPECT_EQ(v2xspatconv_GetCfgErrorText(),
                  "work directory " + text('d', 64) + " is too long: 64 characters, at most 63 are allowed");
        EXPECT_TRUE(fakes::journal.empty()) << "a file was opened";

        const char* path = nullptr;
        v2xspatconv_InitCfg(text('e', 63).c_str());
        v2xspatconv_GetCfgDir(text('f', 300).c_str(), &path);
        EXPECT_EQ(path, text('e', 63) + "/" + text('f', 63));
    });
}

} // namespace
