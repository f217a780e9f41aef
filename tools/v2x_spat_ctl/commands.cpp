#include "commands.h"

#include <unistd.h>

#include "check.h"
#include "client.h"
#include "common/files.h"
#include "common/json.h"
#include "lights.h"
#include "lights_screen.h"
#include "reply_text.h"
#include "status_text.h"

namespace ctl {
namespace {

void Print(const std::string& text) {
    tools::WriteFile("-", text);
}

// Sends a request and prints the reply: the line of the daemon, or its text for people.
int PrintReply(const DaemonOptions& options, const char* request, std::string (*format)(const cJSON* reply)) {
    Client client(FindSocket(options));
    const std::string line = client.Request(request);
    Print(options.isJson ? line + "\n" : format(tools::ParseJsonObject(line).get()));
    return 0;
}

} // namespace

int RunCheck(const ConfigOptions& options) {
    const CheckResult result = CheckConfiguration(options.workDir);
    Print(options.isJson ? result.json + "\n" : result.text);
    return result.isValid ? 0 : 1;
}

int RunStatus(const StatusOptions& options) {
    Client client(FindSocket(options));
    const std::string line = client.Request("status");
    const tools::Json status = tools::ParseJsonObject(line);
    Print(options.isJson    ? line + "\n"
          : options.isBrief ? FormatBrief(status.get())
                            : FormatStatus(status.get(), ReadClockState()));
    return FindProblems(status.get()).empty() ? 0 : 1;
}

int RunLights(const LightsOptions& options) {
    if (options.isWatch) {
        ShowLightsScreen(FindSocket(options));
        return 0;
    }
    Client client(FindSocket(options));
    const tools::Json status = tools::ParseJsonObject(client.Request("status"));
    const std::string line = client.Request("lights");
    Print(options.isJson ? line + "\n"
                         : FormatLights(status.get(), tools::ParseJsonObject(line).get(),
                                        AllowsColours() && isatty(STDOUT_FILENO) == 1));
    return 0;
}

int RunCounters(const DaemonOptions& options) {
    return PrintReply(options, "counters", FormatCounters);
}

int RunConfig(const DaemonOptions& options) {
    return PrintReply(options, "config", FormatConfig);
}

int RunLevels(const DaemonOptions& options) {
    return PrintReply(options, "levels", FormatLevels);
}

int RunWatch(const DaemonOptions& options) {
    Client client(FindSocket(options));
    client.Request("watch");
    while (true) {
        if (const auto line = client.ReadLine(-1)) {
            Print(options.isJson ? *line + "\n" : FormatEvent(client.ParseLine(*line).get()));
        }
    }
}

} // namespace ctl
