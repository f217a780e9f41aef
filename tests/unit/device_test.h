// Shared by the tests of the adapters and of the stack interface: a configuration, a fixed time, the records sent.
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "fixture.h"
#include "spat_conv_config.h"
#include "spat_conv_interface.h"
#include "spat_conv_stack_interface.h"
#include "sysinfo_file.h"

class DeviceTest : public fakes::Fixture {
protected:
    DeviceTest() {
        const SysinfoFile sysinfo;
        const spat_conv_config_t* loaded = nullptr;
        EXPECT_EQ(v2xspatconv_GetCfgData(&loaded), 0);
        // The module loads once a process; each test changes its copy.
        m_config = const_cast<spat_conv_config_t*>(loaded);
        *m_config = {};
        m_config->m_nodeId = 2;
        m_config->m_regionId = 1;
        setenv("TZ", "UTC", 1);
        tzset();
        fakes::now = 1772714096789000; // 2026-03-05 12:34:56.789
        EXPECT_EQ(v2xspatconv_StackInterfaceInit(), 0);
        v2xspatconv_SetSpatConvStatus({});
        fakes::logLines.clear();
    }

    static uint8_t runStatus() {
        service_status_t st;
        v2xspatconv_GetSpatConvStatus(st);
        return st.run_status;
    }
    // Messages of the levels 1 to 4 under `tag`, as "level text", since the last call.
    static std::vector<std::string> messages(const std::string& tag) {
        std::vector<std::string> lines;
        for (const fakes::LogLine& line : fakes::logLines) {
            if (line.level <= 4 && line.tag == tag) {
                lines.push_back(std::to_string(line.level) + " " + line.text);
            }
        }
        fakes::logLines.clear();
        return lines;
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
    // The lines of a display routine, all at level 5.
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

    spat_conv_config_t* m_config;
};
