// What the tests of the device adapters share: a configuration, a fixed time, and a look at what came out.
#pragma once

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "fakes.h"
#include "spat_conv_config.h"
#include "spat_conv_interface.h"
#include "spat_conv_stack_interface.h"
#include "sysinfo_file.h"

class DeviceTest : public testing::Test {
protected:
    DeviceTest() {
        fakes::cfgTree["rsuSpatConfigInfo.nodeId"] = 2;
        fakes::cfgTree["rsuSpatConfigInfo.regionId"] = 1;
        setenv("TZ", "UTC", 1);
        tzset();
        fakes::now = 1772714096789000; // 2026-03-05 12:34:56.789
    }

    // Loads the configuration and opens the stack sockets, as start-up does before the adapters.
    static const spat_conv_config_t* configured() {
        const spat_conv_config_t* config = nullptr;
        EXPECT_EQ(v2xspatconv_GetCfgData(&config), 0);
        v2xspatconv_StackInterfaceInit(config);
        return config;
    }
    static uint8_t runStatus() {
        service_status_t st;
        v2xspatconv_GetSpatConvStatus(&st);
        return st.run_status;
    }
    // The records sent to the stack application since the last call, each as "count; id:light:end ...".
    static std::vector<std::string> records() {
        std::vector<std::string> all;
        for (const fakes::Datagram& datagram : fakes::sent) {
            if (datagram.socket != "SPAT_SEND_APP") {
                continue;
            }
            const std::vector<uint8_t>& bytes = datagram.bytes;
            std::string text = std::to_string(static_cast<int8_t>(bytes.at(40))) + ";";
            for (size_t at = 41; at + 17 <= bytes.size() && bytes[at + 1] == 1; at += 17) {
                text += " " + std::to_string(bytes[at]) + ":" + std::to_string(bytes[at + 3]) + ":" +
                        std::to_string(bytes[at + 6] + 256 * bytes[at + 7]);
            }
            all.push_back(text);
        }
        fakes::sent.clear();
        return all;
    }
    // What a display routine logs, all of it at level 5.
    static std::vector<std::string> displayed(void (*display)(void* arg)) {
        fakes::logLines.clear();
        display(nullptr);
        std::vector<std::string> lines;
        for (const fakes::LogLine& line : fakes::logLines) {
            EXPECT_EQ(line.level, 5);
            lines.push_back(line.text);
        }
        return lines;
    }

    SysinfoFile m_sysinfo;
};
