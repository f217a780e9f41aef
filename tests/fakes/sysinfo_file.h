// Writes the system-information file that a configuration needs and names it in the fake configuration tree.
#pragma once

#include "fakes.h"
#include "temp_folder.h"

class SysinfoFile {
public:
    SysinfoFile() {
        write("<device_id>RSU0001</device_id>");
        fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = path();
    }
    void write(const std::string& text) const { writeFile(path(), text); }
    std::string path() const { return m_folder.path() + "/sysinfo.xml"; }

private:
    TempFolder m_folder;
};
