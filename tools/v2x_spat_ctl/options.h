// Options that several subcommands have.
#pragma once

#include <string>

struct spat_conv_config_t;

namespace ctl {

extern const char* const DEFAULT_WORK_DIR; // the build's V2X_WORK_DIR

// Options of a subcommand that reads the configuration.
struct ConfigOptions {
    std::string workDir = DEFAULT_WORK_DIR; // contains conf/
    bool isJson = false;                    // prints JSON objects, one a line
};

// Options of a subcommand that sends requests to the daemon.
struct DaemonOptions : ConfigOptions {
    std::string socket; // path of the control socket; empty: Control.Path of the configuration
};

struct Configuration {
    const spat_conv_config_t* unit; // never freed; null if the daemon does not start with the configuration
    bool isPortTableRefused;        // conf/v2x_ipc.cfg is invalid; the daemon does not start then
};

// Loads the configuration of the work directory with the daemon's own code. Use one work directory in a process.
Configuration LoadConfiguration(const std::string& workDir);

// Returns the path of the control socket. Throws NoDaemon if neither the options nor the configuration name one.
std::string FindSocket(const DaemonOptions& options);

} // namespace ctl
