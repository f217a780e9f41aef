// Command line of the daemon.
#pragma once

#include <cstdint>

// What -v prints.
inline constexpr char V2XSPATCONV_VERSION[] = "rsu_cloud_v230522.001";

struct v2xspatconv_options_t {
    int32_t g_logLevelFlag;  // level of every log tag at start-up
    char g_logfilePath[256]; // at most 255 characters, longer text is truncated
    char g_workDir[256];     // likewise
};

// Reads the options over their defaults, in the order given; a later one wins. -h and -v print to standard output and
// end the process with status 0; an unknown option or a missing argument prints "this param error" and is ignored.
v2xspatconv_options_t v2xspatconv_ParseOptions(int32_t argc, char** argv);
