// All paths at a multiple of their nominal rates for a long time: nothing is lost, and nothing grows.
#include <algorithm>
#include <ctime>
#include <iterator>

#include "encoded_frames.h"
#include "plans.h"
#include "traffic.h"

namespace {

// Nominal rates, a second.
constexpr double REPORTS = 2;
constexpr double FRAMES = 1;
constexpr double DOCUMENTS = 1;
constexpr double CLOUD_STATUS_INTERVAL = 5; // seconds
constexpr int ITEMS_MAX = 64;               // in one reply

// The daemon's own periods.
constexpr double REQUEST_INTERVAL = 0.6; // seconds
constexpr double STATUS_INTERVAL = 5;
constexpr double AT_LEAST = 0.8; // of the nominal count, on a busy machine

constexpr int64_t RSS_GROWTH_KIB = 64; // from the second quarter to the last
constexpr double RSS_MINUTES = 10;     // a shorter run says nothing about growth
constexpr int64_t CPU_MS = 50;         // a second, at up to ten times the nominal rates
constexpr int64_t LOG_BYTES = 6 * (10 * 1024 * 1024 + 65536);

constexpr bool SANITIZED = V2X_SANITIZED != 0;

// Counts of good input; every other one counts what was refused or dropped.
constexpr const char* GOOD[] = {
    "received",  "sent",     "accepted",     "samples", "fragments", "items",
    "documents", "answered", "bytes_framed", "frames",  "forwarded", "disagree"}; // the simulators' plans differ
// A few, before the peers have started.
constexpr const char* AT_START[] = {"reply.unanswered", "cloud.unmatched", "GET_SPAT_DATA.send_errors"};
constexpr int64_t AT_START_MOST = 10;
// All units share this topic: other units' peers may write to it.
constexpr const char SHARED[] = "cloud_status.";

struct Sample {
    int64_t rssKib = 0;
    int64_t threads = 0;
    int64_t descriptors = 0;
    int64_t cpuMs = 0;    // user and system time of all threads since the start
    int64_t logBytes = 0; // all log files
};

Sample sample(pid_t pid, const std::string& logPath) {
    using Folder = std::filesystem::directory_iterator;
    const std::string process = "/proc/" + std::to_string(pid);
    const std::string status = readFile(process + "/status");
    const auto field = [&](const std::string& key) {
        return strtoll(status.c_str() + status.find("\n" + key + ":") + key.size() + 2, nullptr, 10);
    };
    clockid_t clock = {};
    timespec used = {};
    clock_getcpuclockid(pid, &clock);
    clock_gettime(clock, &used);
    int64_t logBytes = 0;
    for (const auto& file : Folder(std::filesystem::path(logPath).parent_path())) {
        std::error_code error; // rotation may have renamed it
        const auto size = file.file_size(error);
        logBytes += error ? 0 : static_cast<int64_t>(size);
    }
    return {field("VmRSS"), field("Threads"), std::distance(Folder(process + "/fd"), Folder()),
            used.tv_sec * 1000 + used.tv_nsec / 1000000, logBytes};
}

void startTraffic(Unit& unit, double scale) {
    const std::string frames = unit.folder.path() + "/frames.txt";
    writeFile(frames, encoded::spat);
    const int items = std::clamp(static_cast<int>(scale), 1, ITEMS_MAX);
    unit.startCloudSimulator({"--rate", "0", "--status", "none", "--quiet"});
    unit.startAndWaitReady();
    eventually([&] { return unit.log().find("/spat/up: 1 readers") != std::string::npos; });
    unit.startStackSimulator({"--frames", frames, "--items", std::to_string(items)});
    unit.startSimulator("cloud",
                        {"--device", unit.device, "--quiet", "--rate", std::to_string(DOCUMENTS * scale), "--phases",
                         "12", "--status", "1", "--status-interval", std::to_string(CLOUD_STATUS_INTERVAL / scale)},
                        "source");
    unit.startDevice("learner", REPORTS * scale);
    unit.startDevice("controller", FRAMES * scale);
}

// One sample a second; ends early when the daemon does.
std::vector<Sample> watch(Unit& unit, double minutes) {
    std::vector<Sample> samples;
    const Stopwatch watch;
    while (static_cast<double>(watch.ms()) < minutes * 60000 && unit.daemon->wait(1000) == -1) {
        samples.push_back(sample(unit.daemon->pid(), unit.logPath));
    }
    return samples;
}

// The smallest and the largest value in the quarters `first` to `last` of the run.
std::pair<int64_t, int64_t> range(const std::vector<Sample>& samples, size_t first, size_t last,
                                  int64_t Sample::*field) {
    const auto [least, most] =
        std::minmax_element(samples.begin() + static_cast<ptrdiff_t>(samples.size() * (first - 1) / 4),
                            samples.begin() + static_cast<ptrdiff_t>(samples.size() * last / 4),
                            [&](const Sample& left, const Sample& right) { return left.*field < right.*field; });
    return {(*least).*field, (*most).*field};
}

void checkSamples(const std::vector<Sample>& samples, double minutes, double scale, Report& report) {
    if (!report.atLeast("samples of the running daemon", static_cast<int64_t>(samples.size()), 8)) {
        return;
    }
    for (const auto& [what, field] : {std::pair{"threads", &Sample::threads}, {"descriptors", &Sample::descriptors}}) {
        const auto [least, most] = range(samples, 2, 4, field);
        report.check(std::string(what) + " from the second quarter on", least == most && most > 0,
                     std::to_string(least) + " to " + std::to_string(most), "constant");
    }
    const int64_t second = range(samples, 2, 2, &Sample::rssKib).second;
    const int64_t last = range(samples, 4, 4, &Sample::rssKib).second;
    const std::string rss =
        "most RSS, second quarter and last: " + std::to_string(second) + " and " + std::to_string(last) + " KiB";
    if (minutes >= RSS_MINUTES && !SANITIZED) {
        report.atMost(rss, last - second, RSS_GROWTH_KIB);
    } else {
        report.note(rss, "too short a run, or a sanitizer's memory");
    }
    const Sample& end = samples.back();
    const int64_t cpu = (end.cpuMs - samples.front().cpuMs) / static_cast<int64_t>(samples.size() - 1);
    if (!SANITIZED && scale <= 10) {
        report.atMost("CPU, ms a second", cpu, CPU_MS);
    } else {
        report.note("CPU, ms a second", std::to_string(cpu));
    }
    report.atMost("log, bytes", end.logBytes, LOG_BYTES);
}

void checkCounts(const Counts& counts, Report& report) {
    for (const auto& [name, count] : counts) {
        const std::string last = name.substr(name.rfind('.') + 1);
        const bool isGood = std::find(std::begin(GOOD), std::end(GOOD), last) != std::end(GOOD);
        const bool isStart = std::find(std::begin(AT_START), std::end(AT_START), name) != std::end(AT_START);
        if (isGood || name.starts_with(SHARED)) {
            report.note("counted " + name, std::to_string(count));
        } else if (isStart) {
            report.atMost("counted " + name + ", at the start", static_cast<int64_t>(count), AT_START_MOST);
        } else {
            report.equal("counted " + name, static_cast<int64_t>(count), 0);
        }
    }
}

} // namespace

void planSteady(const Options& options, Report& report) {
    Unit unit;
    unit.corrections = "ReplyItems = true;"; // all items of a reply, not the first two
    startTraffic(unit, options.scale);
    const std::vector<Sample> samples = watch(unit, options.minutes);
    // The sources end first, each sink when it has received all.
    std::map<std::string, std::string> summaries;
    constexpr std::pair<const char*, int> ENDS[] = {{"learner", 0}, {"controller", 2}, {"source", 1}, {"stack", 2}};
    for (const auto& [role, seconds] : ENDS) {
        summaries[role] = unit.endSimulator(role);
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
    }
    checkSamples(samples, options.minutes, options.scale, report);
    checkStop(unit, report);
    summaries["cloud"] = unit.endSimulator("cloud");
    report.check("standard error", unit.err().empty(), unit.err().substr(0, 200), "empty");
    const Counts seen = counts(unit.logPath);
    checkCounts(seen, report);

    const auto counter = [&](const char* name) { return static_cast<int64_t>(of(seen, name)); };
    const auto summed = [&](const char* role, const char* name) {
        return static_cast<int64_t>(counted(summaries[role], name));
    };
    const int64_t reports = summed("learner", "sent");
    const int64_t frames = summed("controller", "sent");
    const int64_t documents = summed("source", "down");
    const int64_t statuses = summed("source", "statusSent");
    report.equal("reports sent, and accepted", counter("learner.accepted"), reports);
    report.equal("frames sent, and accepted", counter("1743.accepted"), frames);
    report.equal("documents sent, and accepted", counter("down.accepted"), documents);
    report.atLeast("cloud status sent, and accepted", counter("cloud_status.accepted"), statuses);
    report.equal("records of all sources, and at the stack application", summed("stack", "records"),
                 reports + frames + documents);
    report.equal("replies sent, and accepted", counter("reply.accepted"), summed("stack", "replies"));
    report.equal("SPAT in the replies, and documents at the cloud", summed("cloud", "upGood"),
                 summed("stack", "items"));
    // The run was long and busy enough.
    const double seconds = static_cast<double>(samples.size()) * AT_LEAST; // one sample a second
    const struct {
        const char* what;
        int64_t seen;
        double perSecond;
    } paces[] = {
        {"pace: reports", reports, REPORTS * options.scale},
        {"pace: frames", frames, FRAMES * options.scale},
        {"pace: documents", documents, DOCUMENTS * options.scale},
        {"pace: cloud status", statuses, options.scale / CLOUD_STATUS_INTERVAL},
        {"pace: heartbeats", summed("learner", "heartbeats"), 1},
        {"pace: requests", counter("GET_SPAT_DATA.sent"), 1 / REQUEST_INTERVAL},
        {"pace: replies", counter("reply.accepted"), 1 / REQUEST_INTERVAL},
        {"pace: the daemon's status", summed("cloud", "statusRecords"), 1 / STATUS_INTERVAL},
    };
    for (const auto& pace : paces) {
        report.atLeast(pace.what, pace.seen, static_cast<int64_t>(seconds * pace.perSecond));
    }
}
