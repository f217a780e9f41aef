// Command line of the daemon.
#pragma once

#include <cstdint>

// The version that option -v prints.
inline constexpr char V2XSPATCONV_VERSION[] = "rsu_cloud_v230522.001";

struct v2xspatconv_options_t {
    int32_t g_logLevelFlag;  // level of every log tag at start-up
    char g_logfilePath[256]; // truncated to 255 characters
    char g_workDir[256];     // truncated to 255 characters
};

// Parses the command line. A missing option keeps its default; of a repeated option the last argument applies. -h and
// -v print to standard output and exit with status 0. For an unknown option or a missing argument, the function prints
// "this param error" and continues. Main thread.
v2xspatconv_options_t v2xspatconv_ParseOptions(int32_t argc, char** argv);
