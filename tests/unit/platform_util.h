// Shared by the tests of the platform libraries: parameters of sockets, lines of the log.
#pragma once

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

#include "temp_folder.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

inline v2xpub_SocketInitPara_t SocketPara(const char* name, bool isServer, uint16_t port, v2xpub_msgFunc callback) {
    v2xpub_SocketInitPara_t para{};
    std::snprintf(para.m_sockName, sizeof para.m_sockName, "%s", name);
    std::snprintf(para.m_localIP, sizeof para.m_localIP, "127.0.0.1");
    para.m_svrPort = isServer ? port : uint16_t{0};
    para.m_cliPort = isServer ? uint16_t{0} : port;
    para.m_svrEnable = isServer ? 1 : 0;
    para.m_cliEnable = 1;
    para.f_msgFunc = callback;
    return para;
}

// The log of the process, without limit, in a temporary folder that the destructor removes.
class LogFile {
public:
    explicit LogFile(const char* tag) {
        v2xlog_Init(Path().c_str(), "TEST", 1, 0, 0);
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag(tag, &handle);
    }

    // Excludes the lines written so far from later counts.
    void Forget() { m_start = readFile(Path()).size(); }

    // Number of lines that contain the text.
    int Count(const std::string& text) const {
        std::istringstream lines(readFile(Path()).substr(m_start));
        int count = 0;
        for (std::string line; std::getline(lines, line);) {
            count += line.find(text) != std::string::npos ? 1 : 0;
        }
        return count;
    }

private:
    std::string Path() const { return m_folder.path() + "/test.log"; }

    TempFolder m_folder;
    size_t m_start = 0;
};
