// All paths at a multiple of their nominal rates for a long time: nothing is lost, and nothing grows.
#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "encoded_frames.h"
#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

using Clock = std::chrono::steady_clock;

// A second, as the simulators do by themselves.
constexpr double REPORTS = 2;
constexpr double FRAMES = 1;
constexpr double DOCUMENTS = 1;
constexpr double CLOUD_STATUS_INTERVAL = 5; // seconds
constexpr int ITEMS_MAX = 64;               // in one reply

// What the daemon does by itself.
constexpr double REQUEST_INTERVAL = 0.6; // seconds
constexpr double STATUS_INTERVAL = 5;
constexpr double AT_LEAST = 0.8; // of what the time says, on a machine that is busy

constexpr int64_t RSS_GROWTH_KIB = 64; // from the second quarter to the last
constexpr double RSS_MINUTES = 10;     // a shorter run says nothing about growth
constexpr int64_t CPU_MS = 50;         // of one core, each second at ten times the nominal rates
constexpr int64_t LOG_BYTES = 6 * (10 * 1024 * 1024 + 65536);

constexpr bool SANITIZED = V2X_SANITIZED;

// The counts that grow when all is well; every other one tells of something refused or dropped.
constexpr const char* GOOD[] = {"received", "sent",      "accepted", "samples",      "fragments",
                                "items",    "documents", "answered", "bytes_framed", "frames"};
// Before the peers are there, a few.
constexpr const char* AT_START[] = {"reply.unanswered", "cloud.unmatched", "GET_SPAT_DATA.send_errors"};
constexpr int64_t AT_START_MOST = 10;
// On a topic that is every unit's, so that other daemons' peers may send to it, too.
constexpr const char SHARED[] = "cloud_status.";

void startTraffic(Unit& unit, double scale) {
    const std::string frames = unit.folder.path() + "/frames.txt";
    writeFile(frames, encoded::spat);
    const int items = std::clamp(static_cast<int>(scale), 1, ITEMS_MAX);
    unit.startCloudSimulator({"--rate", "0", "--status", "none", "--quiet"});
    unit.startAndWaitReady();
    // A status record tells that the two have found each other.
    eventually([&] { return unit.log().find("/spat/up: 1 readers") != std::string::npos; });
    unit.startStackSimulator({"--frames", frames, "--items", std::to_string(items)});
    unit.startSimulator("cloud",
                        {"--device", unit.device, "--quiet", "--rate", std::to_string(DOCUMENTS * scale), "--phases",
                         "12", "--status-interval", std::to_string(CLOUD_STATUS_INTERVAL / scale)},
                        "source");
    startLearner(unit, REPORTS * scale);
    startController(unit, FRAMES * scale);
}

// A sample each second until the time is over; ends early when the daemon does.
std::vector<Sample> watch(Unit& unit, double minutes) {
    std::vector<Sample> samples;
    const auto end = Clock::now() + std::chrono::duration<double, std::ratio<60>>(minutes);
    while (Clock::now() < end && unit.daemon->wait(1000) == -1) {
        samples.push_back(sample(unit.daemon->pid(), unit.logPath));
    }
    return samples;
}

struct Range {
    int64_t least = INT64_MAX;
    int64_t most = INT64_MIN;
    std::string text() const { return std::to_string(least) + " to " + std::to_string(most); }
};

// Of the samples of one quarter, or of several.
Range range(const std::vector<Sample>& samples, size_t firstQuarter, size_t lastQuarter, int64_t Sample::*field) {
    Range range;
    for (size_t i = samples.size() * (firstQuarter - 1) / 4; i < samples.size() * lastQuarter / 4; i++) {
        range.least = std::min(range.least, samples[i].*field);
        range.most = std::max(range.most, samples[i].*field);
    }
    return range;
}

void judgeSamples(const std::vector<Sample>& samples, double minutes, double scale, Table& table) {
    if (!table.atLeast("samples of the running daemon", static_cast<int64_t>(samples.size()), 8)) {
        return;
    }
    for (const auto& [what, field] : {std::pair{"threads", &Sample::threads}, {"descriptors", &Sample::descriptors}}) {
        const Range seen = range(samples, 2, 4, field);
        table.check(std::string(what) + " from the second quarter on", seen.least == seen.most && seen.most > 0,
                    seen.text(), "level");
    }
    const int64_t second = range(samples, 2, 2, &Sample::rssKib).most;
    const int64_t last = range(samples, 4, 4, &Sample::rssKib).most;
    const std::string rss =
        "most RSS, second quarter and last: " + std::to_string(second) + " and " + std::to_string(last) + " KiB";
    if (minutes >= RSS_MINUTES && !SANITIZED) {
        table.atMost(rss, last - second, RSS_GROWTH_KIB, "KiB");
    } else {
        table.note(rss, "too short a run, or a sanitizer's memory");
    }
    const Sample& end = samples.back();
    const int64_t cpu =
        (end.cpuMs - samples.front().cpuMs) * 1000 / std::max<int64_t>(end.atMs - samples.front().atMs, 1);
    if (!SANITIZED && scale <= 10) {
        table.atMost("CPU a second", cpu, CPU_MS, "ms");
    } else {
        table.note("CPU a second", std::to_string(cpu) + " ms");
    }
    table.atMost("log", end.logBytes, LOG_BYTES, "bytes");
}

void judgeCounts(const Counts& counts, Table& table) {
    for (const auto& [name, count] : counts) {
        const std::string last = name.substr(name.rfind('.') + 1);
        const bool isGood = std::find(std::begin(GOOD), std::end(GOOD), last) != std::end(GOOD);
        const bool isStart = std::find(std::begin(AT_START), std::end(AT_START), name) != std::end(AT_START);
        if (isGood || name.starts_with(SHARED)) {
            table.note("counted " + name, std::to_string(count));
        } else if (isStart) {
            table.atMost("counted " + name + ", at the start", static_cast<int64_t>(count), AT_START_MOST);
        } else {
            table.equal("counted " + name, static_cast<int64_t>(count), 0);
        }
    }
}

int64_t number(const std::string& summary, const std::string& name) {
    return static_cast<int64_t>(counted(summary, name));
}

} // namespace

void planSteady(const Options& options, Table& table) {
    Unit unit;
    unit.corrections = "ReplyItems = true;"; // all items of a reply, not the first two
    startTraffic(unit, options.scale);
    const std::vector<Sample> samples = watch(unit, options.minutes);
    const bool isAnswered = logToolAnswered(unit);
    // From the sources to the sinks, each when what came before it has passed.
    const std::string learner = unit.endSimulator("learner");
    const std::string controller = unit.endSimulator("controller");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const std::string source = unit.endSimulator("source");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const std::string stack = unit.endStackSimulator();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    unit.daemon->signal(SIGTERM);
    const int status = unit.daemon->wait(20000);
    const std::string cloud = unit.endSimulator("cloud");

    judgeSamples(samples, options.minutes, options.scale, table);
    table.equal("status at SIGTERM", status, 0);
    table.check("standard error", unit.err().empty(), unit.err().substr(0, 200), "empty");
    const Counts seen = counts(unit.logPath);
    judgeCounts(seen, table);
    const auto counter = [&](const char* name) { return static_cast<int64_t>(of(seen, name)); };
    table.equal("reports sent, and accepted", counter("learner.accepted"), number(learner, "sent"));
    table.equal("frames sent, and accepted", counter("1743.accepted"), number(controller, "sent"));
    table.equal("documents sent, and accepted", counter("down.accepted"), number(source, "down"));
    table.atLeast("cloud status sent, and accepted", counter("cloud_status.accepted"), number(source, "statusSent"));
    table.equal("records of all sources, and at the stack application", number(stack, "records"),
                number(learner, "sent") + number(controller, "sent") + number(source, "down"));
    table.equal("replies sent, and accepted", counter("reply.accepted"), number(stack, "replies"));
    table.equal("SPAT in the replies, and documents at the cloud", number(cloud, "upGood"), number(stack, "items"));
    table.check("the log tool's request at the end", isAnswered, isAnswered ? "answered" : "not", "answered");
    // That it was a run at all.
    const double seconds =
        samples.empty() ? 0 : static_cast<double>(samples.back().atMs - samples.front().atMs) / 1000 * AT_LEAST;
    const struct {
        const char* what;
        int64_t seen;
        double perSecond;
    } paces[] = {
        {"pace: reports", number(learner, "sent"), REPORTS * options.scale},
        {"pace: frames", number(controller, "sent"), FRAMES * options.scale},
        {"pace: documents", number(source, "down"), DOCUMENTS * options.scale},
        {"pace: cloud status", number(source, "statusSent"), options.scale / CLOUD_STATUS_INTERVAL},
        {"pace: heartbeats", number(learner, "heartbeats"), 1},
        {"pace: requests", counter("GET_SPAT_DATA.sent"), 1 / REQUEST_INTERVAL},
        {"pace: replies", counter("reply.accepted"), 1 / REQUEST_INTERVAL},
        {"pace: the daemon's status", number(cloud, "statusRecords"), 1 / STATUS_INTERVAL},
    };
    for (const auto& pace : paces) {
        table.atLeast(pace.what, pace.seen, static_cast<int64_t>(seconds * pace.perSecond));
    }
}
