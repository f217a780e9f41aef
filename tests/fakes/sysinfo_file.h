// The system-information file that a configuration needs, named in the fake configuration tree while it exists.
#pragma once

#include <fstream>
#include <string>
#include <unistd.h>

#include "fakes.h"

class SysinfoFile {
public:
    SysinfoFile() {
        close(mkstemp(m_path.data()));
        std::ofstream(m_path) << "<device_id>RSU0001</device_id>";
        fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = m_path;
    }
    ~SysinfoFile() { unlink(m_path.c_str()); }
    SysinfoFile(const SysinfoFile&) = delete;
    SysinfoFile& operator=(const SysinfoFile&) = delete;

private:
    std::string m_path = "/tmp/v2x_sysinfo.XXXXXX";
};
