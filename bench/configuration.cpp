#include "configuration.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "spat_conv_config.h"
#include "v2x/v2xlog.h"

bool loadConfiguration(const char* device, std::initializer_list<const char*> logTags) {
    char folder[] = "/tmp/v2x_bench.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        return false;
    }
    const std::string path = folder;
    std::filesystem::create_directory(path + "/conf");
    std::ofstream(path + "/conf/sysinfo.xml") << "<device_id>" << device << "</device_id>";
    std::ofstream(path + "/conf/v2x_spat_convert.cfg")
        << "rsuSpatConfigInfo = { Sysinfoname = \"" << path << "/conf/sysinfo.xml\"; nodeId = 2; regionId = 1; };";
    for (const char* tag : logTags) {
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag(tag, &handle);
    }
    const spat_conv_config_t* config = nullptr;
    v2xspatconv_InitCfg(path.c_str());
    const bool isLoaded = v2xspatconv_GetCfgData(&config) == 0;
    std::filesystem::remove_all(path);
    return isLoaded;
}
