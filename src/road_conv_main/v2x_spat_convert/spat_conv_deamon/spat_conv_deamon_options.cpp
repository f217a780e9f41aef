#include "spat_conv_deamon_options.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>

#include "spat_conv_deamon_output.h"

namespace {

// The operators' manuals quote this text, including "-l".
constexpr char g_help[] = " -h             print Help;\n"
                          " -v version     v2x_spat_convert version;\n"
                          " -d loglevel    start with debug log level <level>,eg: \n"
                          "                <v2x_spat_convert -l 7>, start with all log level 7; \n"
                          " -f logfile     start with debug log file <logfile>,eg: \n"
                          "                <v2x_spat_convert -f /opt/v2x_service/log/spat_conv.log>; \n"
                          " -w workdir     start with workdir,eg: \n"
                          "                <v2x_spat_convert -w /opt/v2x_service>;\n";

// The character of the latest option. getopt_long stores the character of a long option in this variable.
int g_lopt = 0;

const option g_longOpts[] = {
    {"help", no_argument, &g_lopt, 'h'},           {"version", no_argument, &g_lopt, 'v'},
    {"loglevel", required_argument, &g_lopt, 'd'}, {"logfile", required_argument, &g_lopt, 'f'},
    {"workdir", required_argument, &g_lopt, 'w'},  {nullptr, 0, nullptr, 0},
};

template <size_t size>
void CopyText(char (&field)[size], const char* text) {
    snprintf(field, size, "%s", text);
}

void PrintHelp(v2xspatconv_options_t& /*options*/, const char* /*argument*/) {
    printf("%s", g_help);
    exit(0);
}

void PrintVersion(v2xspatconv_options_t& /*options*/, const char* /*argument*/) {
    printf("version:%s\n", V2XSPATCONV_VERSION);
    exit(0);
}

// A text that is not a number gives level 0. The range is not checked.
void SetLogLevel(v2xspatconv_options_t& options, const char* argument) {
    options.g_logLevelFlag = static_cast<int32_t>(strtol(argument, nullptr, 10));
}

void SetLogfile(v2xspatconv_options_t& options, const char* argument) {
    CopyText(options.g_logfilePath, argument);
}

void SetWorkDir(v2xspatconv_options_t& options, const char* argument) {
    CopyText(options.g_workDir, argument);
}

constexpr struct {
    int character;
    void (*apply)(v2xspatconv_options_t& options, const char* argument);
} OPTIONS[] = {
    {'h', PrintHelp}, {'v', PrintVersion}, {'d', SetLogLevel}, {'f', SetLogfile}, {'w', SetWorkDir},
};

void ApplyOption(v2xspatconv_options_t& options, const char* argument) {
    for (const auto& row : OPTIONS) {
        if (row.character == g_lopt) {
            row.apply(options, argument);
            return;
        }
    }
    v2xspatconv_PutLine("this param error");
}

} // namespace

v2xspatconv_options_t v2xspatconv_ParseOptions(int32_t argc, char** argv) {
    v2xspatconv_options_t options = {4, "/opt/v2x_service/log/spat_conv.log", "/opt/v2x_service"};
    int character = 0;
    while ((character = getopt_long(argc, argv, "hvd:f:w:", g_longOpts, nullptr)) != -1) {
        if (character > 0) {
            g_lopt = character;
        }
        ApplyOption(options, optarg);
    }
    return options;
}
