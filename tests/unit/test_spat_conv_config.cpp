#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.h"
#include "spat_conv_config.h"
#include "sysinfo_file.h"

namespace {

using testing::ElementsAre;

std::string text(char c, size_t count) {
    return std::string(count, c);
}

class Config : public testing::Test {
protected:
    int32_t load() { return v2xspatconv_GetCfgData(&m_config); }

    SysinfoFile m_sysinfo;
    const spat_conv_config_t* m_config = nullptr;
};

TEST(ParseXml, FindsTheFirstElementOfAName) {
    const struct {
        std::string xml;
        const char* tag;
        int32_t ret;
        std::string value; // "kept" = unchanged
    } cases[] = {
        {"<a><device_id>abc</device_id></a>", "device_id", 0, "abc"},
        {"<n></n>", "n", 0, ""},
        {"<n>" + text('x', 31) + "</n>", "n", 0, text('x', 31)},
        {"<n>" + text('x', 32) + "</n>", "n", -5, "kept"},
        {"<n attribute=\"1\">x</n>", "n", -3, "kept"},
        {"</n><n>", "n", -4, "kept"},
        {"", "n", -3, "kept"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.xml);
        char value[32] = "kept";
        EXPECT_EQ(v2xspatconv_parseXML(row.xml.c_str(), row.tag, value, sizeof value), row.ret);
        EXPECT_EQ(value, row.value);
    }
}

TEST(ParseXml, RefusesNullAndCutsALongTagName) {
    char value[32] = "kept";
    EXPECT_EQ(v2xspatconv_parseXML(nullptr, "n", value, 32), -2);
    EXPECT_EQ(v2xspatconv_parseXML("<n></n>", nullptr, value, 32), -2);
    EXPECT_EQ(v2xspatconv_parseXML("<n></n>", "n", nullptr, 32), -2);
    EXPECT_STREQ(value, "kept");
    // 31 characters of "<ttt..." and of "</ttt..." are looked for.
    const std::string tag = text('t', 32);
    EXPECT_EQ(v2xspatconv_parseXML(("<" + tag + ">x</" + tag + ">").c_str(), tag.c_str(), value, 32), 0);
    EXPECT_STREQ(value, "tt>x");
}

TEST_F(Config, ReadsEveryKeyOnceAndKeepsTheRecord) {
    m_sysinfo.write("<s><device_id>RSU7</device_id><device_name>first</device_name><device_name>second</device_name>"
                    "<module_hardware_version>" +
                    text('9', 32) + "</module_hardware_version></s>");
    fakes::cfgTree["rsuSpatConfigInfo.LearnMachine.IsEnable"] = true;
    fakes::cfgTree["rsuSpatConfigInfo.LearnMachine.Ip"] = "127.0.0.9";
    fakes::cfgTree["rsuSpatConfigInfo.LearnMachine.Port"] = 1;
    fakes::cfgTree["rsuSpatConfigInfo.LearnMachine.LocalPort"] = 2;
    fakes::cfgTree["rsuSpatConfigInfo.SignalMachine1743.Ip"] = text('1', 32);
    fakes::cfgTree["rsuSpatConfigInfo.SignalMachine1743.Port"] = 3;
    fakes::cfgTree["rsuSpatConfigInfo.SignalMachine1743.LocalPort"] = 4;
    fakes::cfgTree["rsuSpatConfigInfo.PhaseRelationship.PhaseID0"] = 10;
    fakes::cfgTree["rsuSpatConfigInfo.PhaseRelationship.PhaseID255"] = 65537;
    fakes::cfgTree["rsuSpatConfigInfo.nodeId"] = 5;
    fakes::cfgTree["rsuSpatConfigInfo.regionId"] = 70000;
    fakes::cfgTree["rsuSpatConfigInfo.Corrections.SpatDown"] = true;
    fakes::cfgTree["rsuSpatConfigInfo.Corrections.ReplyItems"] = true;
    v2xspatconv_InitCfg("/opt/unit");

    ASSERT_EQ(load(), 0);
    EXPECT_STREQ(m_config->m_sysinfo.m_device_id, "RSU7");
    EXPECT_STREQ(m_config->m_sysinfo.m_device_name, "first");
    EXPECT_STREQ(m_config->m_sysinfo.m_hardware_version, "");
    EXPECT_TRUE(m_config->m_learn_machine_info.m_is_enable);
    EXPECT_STREQ(m_config->m_learn_machine_info.m_ip, "127.0.0.9");
    EXPECT_EQ(int32_t{m_config->m_learn_machine_info.m_port}, 1);
    EXPECT_EQ(int32_t{m_config->m_learn_machine_info.m_local_port}, 2);
    EXPECT_FALSE(m_config->m_signal_machine_1743_info.m_is_enable);
    EXPECT_STREQ(m_config->m_signal_machine_1743_info.m_ip, "");
    EXPECT_EQ(int32_t{m_config->m_signal_machine_1743_info.m_port}, 3);
    EXPECT_EQ(int32_t{m_config->m_signal_machine_1743_info.m_local_port}, 4);
    EXPECT_EQ(uint16_t{m_config->m_phase_relationship.m_phaseid[0]}, 10);
    EXPECT_EQ(uint16_t{m_config->m_phase_relationship.m_phaseid[1]}, 0);
    EXPECT_EQ(uint16_t{m_config->m_phase_relationship.m_phaseid[255]}, 1);
    EXPECT_EQ(int32_t{m_config->m_nodeId}, 5);
    EXPECT_EQ(int32_t{m_config->m_regionId}, 70000);
    EXPECT_TRUE(m_config->m_corrections.m_spat_down);
    EXPECT_TRUE(m_config->m_corrections.m_reply_items);
    const auto missing = fakes::logged("rsuSpatConfigInfo.PhaseRelationship.PhaseID1 node error");
    ASSERT_EQ(missing.size(), 1U);
    EXPECT_EQ(missing[0].level, 3);
    EXPECT_EQ(missing[0].tag, "SCFG");
    EXPECT_EQ(fakes::logged("configDir = /opt/unit!").at(0).level, 4);
    EXPECT_TRUE(fakes::logged("rsuSpatConfigInfo.PhaseRelationship.PhaseID256 node error").empty());

    fakes::cfgInitResult = -3; // nothing is read again
    const spat_conv_config_t* again = nullptr;
    EXPECT_EQ(v2xspatconv_GetCfgData(&again), 0);
    EXPECT_EQ(again, m_config);
    EXPECT_THAT(fakes::journal, ElementsAre("cfg.InitContext /opt/unit/conf/v2x_spat_convert.cfg"));
    EXPECT_EQ(fakes::cfgOpenTrees, 0);
}

// Every failed load says why, leaves nothing open, and lets the next one succeed.
TEST_F(Config, AFailedLoadCanBeTriedAgain) {
    EXPECT_EQ(v2xspatconv_GetCfgData(nullptr), -2);

    fakes::cfgInitResult = -4;
    EXPECT_EQ(load(), 1);
    EXPECT_EQ(fakes::logged("v2xcfg_InitContext error conf/v2x_spat_convert.cfg").at(0).level, 2);
    EXPECT_STREQ(v2xspatconv_GetCfgErrorText(), "the tree's own reason");
    fakes::cfgInitResult = 0;

    const auto name = fakes::cfgTree.extract("rsuSpatConfigInfo.Sysinfoname");
    EXPECT_EQ(load(), -3);
    EXPECT_EQ(fakes::logged("rsuSpatConfigInfo.Sysinfoname node error ").front().level, 3);
    fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = name.mapped();

    m_sysinfo.write("<device_id>" + text('x', 32) + "</device_id>");
    EXPECT_EQ(load(), -4);
    EXPECT_EQ(v2xspatconv_GetCfgErrorText(),
              m_sysinfo.path() + ": device_id: missing, empty or longer than 31 characters");

    for (const std::string& path : {std::string("/tmp"), m_sysinfo.path() + "/absent"}) {
        fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = path;
        EXPECT_EQ(load(), -4);
        EXPECT_EQ(fakes::logged("open " + path + " error").front().level, 2);
        EXPECT_EQ(v2xspatconv_GetCfgErrorText(), path + ": device_id: the file cannot be read");
    }
    EXPECT_EQ(m_config, nullptr);
    EXPECT_EQ(fakes::cfgOpenTrees, 0);

    fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = m_sysinfo.path();
    m_sysinfo.write("<device_id>" + text('x', 31) + "</device_id>");
    EXPECT_EQ(load(), 0);
    ASSERT_NE(m_config, nullptr);
    EXPECT_EQ(m_config->m_sysinfo.m_device_id, text('x', 31));
    EXPECT_FALSE(m_config->m_corrections.m_spat_down || m_config->m_corrections.m_reply_items) << "without their keys";
    for (const fakes::LogLine& line : fakes::logLines) {
        EXPECT_EQ(line.text.find("Corrections"), std::string::npos) << line.text;
    }
}

TEST_F(Config, PathsAreBounded) {
    const char* path = nullptr;
    v2xspatconv_InitCfg(text('d', 300).c_str());
    v2xspatconv_GetCfgDir(text('f', 300).c_str(), &path);
    EXPECT_EQ(path, text('d', 63) + "/" + text('f', 63));
    EXPECT_EQ(fakes::logged("work directory longer than 63 characters is cut: " + text('d', 300)).size(), 1U);
    v2xspatconv_InitCfg(nullptr);
    EXPECT_EQ(fakes::logged("configDir = " + text('d', 63) + "!").size(), 2U);
    v2xspatconv_InitCfg("");
    v2xspatconv_GetCfgDir("a", &path);
    EXPECT_STREQ(path, "a");
}

} // namespace
