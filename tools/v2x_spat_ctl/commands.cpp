#include "commands.h"

#include "check.h"
#include "client.h"
#include "common/files.h"

namespace ctl {

int RunCheck(const ConfigOptions& options) {
    const CheckResult result = CheckConfiguration(options.workDir);
    tools::WriteFile("-", options.isJson ? result.json + "\n" : result.text);
    return result.isValid ? 0 : 1;
}

int RunCounters(const DaemonOptions& options) {
    Client client(FindSocket(options));
    tools::WriteFile("-", client.Request("counters") + "\n");
    return 0;
}

} // namespace ctl
