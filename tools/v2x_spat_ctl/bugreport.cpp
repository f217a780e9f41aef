#include "bugreport.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <sys/utsname.h>
#include <vector>

#include "capture.h"
#include "client.h"
#include "common/files.h"
#include "common/json.h"
#include "common/text.h"
#include "report_folder.h"
#include "signals.h"
#include "spat_conv_config.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
using tools::FormatText;

constexpr double CAPTURE_SECONDS = 10;
constexpr size_t MAX_TEXT = 65536; // bytes of a small file

constexpr const char* README =
    "Report of v2x_spat_ctl about a road-side unit. It contains the device id, the IP addresses "
    "of the unit and\nits devices, and all messages of about ten seconds.\n";

std::string MakeName() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return FormatText("v2x_bugreport_%04d%02d%02d_%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                      local.tm_hour, local.tm_min, local.tm_sec);
}

// Returns the regular files of a folder, without symbolic links: root must not copy the file of another folder. With a
// log file, returns this file and the rotated ones: "spat_conv.log", "spat_conv.1.log".
std::vector<std::string> ListFiles(const fs::path& folder, const fs::path& log = {}) {
    std::vector<std::string> files;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        const bool isLog = name.starts_with(log.stem().string()) && name.ends_with(log.extension().string());
        if (entry.is_regular_file() && !entry.is_symlink() && isLog) {
            files.push_back(entry.path().string());
        }
    }
    if (files.empty()) {
        throw std::runtime_error(folder.string() + ": " + (error ? error.message() : "no file"));
    }
    return files;
}

class Bugreport {
public:
    explicit Bugreport(const BugreportOptions& options) : m_options(options), m_folder(MakeName()) {}

    // Collects all parts, packs them and returns the lines about the missing ones.
    std::vector<std::string> Write() {
        tools::WriteFile(m_folder.PathOf("README"), README);
        Try("versions.txt", [this] { WriteVersions(); });
        Try("conf", [this] { CopyConfiguration(); });
        Try("check.txt", [this] { WriteCheck(); });
        Try("log", [this] { CopyLog(); });
        Try("replies of the daemon and capture", [this] { AskDaemon(); });
        if (!m_missing.empty()) {
            std::string text;
            for (const std::string& line : m_missing) {
                text += line + "\n";
            }
            tools::WriteFile(m_folder.PathOf("missing.txt"), text);
        }
        m_folder.Pack(m_options.output);
        return m_missing;
    }

private:
    // Runs a function that adds a part. A failure becomes a line of missing.txt.
    void Try(const std::string& part, const std::function<void()>& add) {
        try {
            add();
        } catch (const std::exception& reason) {
            m_missing.push_back(part + ": " + reason.what());
        }
    }

    void WriteVersions() const {
        utsname kernel{};
        uname(&kernel);
        tools::WriteFile(m_folder.PathOf("versions.txt"),
                         FormatText("v2x_spat_ctl %s\n%s %s %s %s\n", V2X_VERSION, kernel.sysname, kernel.release,
                                    kernel.version, kernel.machine) +
                             tools::ReadFile("/etc/os-release", MAX_TEXT));
    }

    // Copies the files into a subfolder. A file that cannot be read is missing.
    void CopyFiles(const std::vector<std::string>& files, const std::string& subfolder) {
        for (const std::string& file : files) {
            Try(subfolder, [&] { m_folder.CopyTail(file, subfolder); });
        }
    }

    void CopyConfiguration() {
        CopyFiles(ListFiles(fs::path(m_options.workDir) / "conf"), "conf");
        const spat_conv_config_t* const config = LoadConfiguration(m_options.workDir).unit;
        if (config != nullptr) {
            CopyFiles({config->m_SysinfoName}, "conf");
        }
    }

    // Runs another process: the daemon's code loads a configuration once in a process.
    void WriteCheck() const {
        RunProgram({"/proc/self/exe", "check", "-w", m_options.workDir}, m_folder.PathOf("check.txt"));
    }

    void CopyLog() {
        const fs::path log = m_options.log;
        const fs::path folder = log.empty() ? fs::path(m_options.workDir) / "log" : log.parent_path();
        CopyFiles(ListFiles(folder.empty() ? "." : folder, log), "log");
    }

    void AskDaemon() {
        Client client(FindSocket(m_options));
        for (const std::string request : {"status", "lights", "counters", "config", "levels"}) {
            Try(request + ".json",
                [&] { tools::WriteFile(m_folder.PathOf(request + ".json"), client.Request(request) + "\n"); });
        }
        std::fprintf(stderr, "v2x_spat_ctl: capturing for %.0f s\n", CAPTURE_SECONDS);
        client.Request("tap");
        tools::CaptureWriter writer(m_folder.PathOf("capture.pcap"));
        const CaptureResult result = Capture(client, writer, CAPTURE_SECONDS);
        if (result.lost > 0) {
            m_missing.push_back(FormatText("capture.pcap: %" PRIu64 " events lost", result.lost));
        }
        if (!result.daemonGone.empty()) {
            throw NoDaemon(result.daemonGone);
        }
    }

    const BugreportOptions& m_options;
    const ReportFolder m_folder;
    std::vector<std::string> m_missing;
};

void Print(const BugreportOptions& options, const std::vector<std::string>& missing) {
    const tools::Json object = MakeResult(options);
    cJSON* const array = cJSON_AddArrayToObject(object.get(), "missing");
    std::string text = "versions, replies of the daemon, configuration, check, log, capture.\n"
                       "It contains the device id and IP addresses.";
    for (const std::string& line : missing) {
        cJSON_AddItemToArray(array, cJSON_CreateString(line.c_str()));
        text += "\nmissing: " + line;
    }
    PrintResult(options, object.get(), text);
}

} // namespace

int RunBugreport(const BugreportOptions& options) {
    CatchSignals();
    Print(options, Bugreport(options).Write());
    return 0;
}

} // namespace ctl
