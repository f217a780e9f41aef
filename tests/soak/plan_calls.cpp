// System calls that fail, once and for a while, under light traffic.
#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "paths.h"
#include "plans.h"
#include "watch.h"
#include "work.h"

namespace {

constexpr struct Call {
    fault_call call;
    const char* name;
} CALLS[] = {
    {FAULT_RECVMSG, "recvmsg"}, {FAULT_RECVFROM, "recvfrom"}, {FAULT_SENDTO, "sendto"}, {FAULT_SENDMSG, "sendmsg"},
    {FAULT_PPOLL, "ppoll"},     {FAULT_POLL, "poll"},         {FAULT_OPEN, "open"},
};

constexpr struct {
    int number;
    const char* name;
} ERRORS[] = {{EINTR, "EINTR"}, {EAGAIN, "EAGAIN"}, {ENOBUFS, "ENOBUFS"}, {ECONNREFUSED, "ECONNREFUSED"}};

// Something of each kind; the cloud's documents and the requests to the stack application come by themselves.
void traffic(Bench& bench, fault_call call) {
    if (call == FAULT_OPEN) { // the log is opened anew
        std::error_code error;
        std::filesystem::remove(bench.unit.logPath, error);
    }
    bench.work.sendReport();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

// The calls from the `first` to the `last`, under traffic for so long, and until one has failed. Returns how many have.
uint64_t fail(Bench& bench, fault_call call, int error, uint64_t first, uint64_t last, int64_t milliseconds) {
    constexpr int FIRED_MS = 20000;
    arm(bench.faults, call, error, first, last);
    const Stopwatch watch;
    eventually(
        [&] {
            traffic(bench, call);
            return bench.faults->fired > 0 && watch.ms() >= milliseconds;
        },
        FIRED_MS);
    bench.faults->call = FAULT_NONE;
    return bench.faults->fired;
}

// What does not work any more; "" when all does.
std::string lost(Bench& bench, const Call& call) {
    std::string names = bench.unit.daemon->wait(0) == -1 ? "" : " process";
    names += bench.work.missing();
    const auto logs = [&] { return traffic(bench, FAULT_NONE), !readFile(bench.unit.logPath).empty(); };
    names += call.call != FAULT_OPEN || eventually(logs) ? "" : " log";
    return names;
}

void tryCall(Bench& bench, const Call& call, uint32_t upTo, Table& table) {
    const std::string name = call.name;
    int64_t once = 0;
    int64_t longOnes = 0;
    uint64_t most = 0;
    std::string gone;
    for (const auto& error : ERRORS) {
        for (uint32_t nth = 1; nth <= upTo; nth++) {
            once += fail(bench, call.call, error.number, nth, nth, 0) > 0 ? 1 : 0;
        }
        const uint64_t failed = fail(bench, call.call, error.number, 1, FOR_GOOD, 1000);
        longOnes += failed > 0 ? 1 : 0;
        most = std::max(most, failed);
        const std::string names = lost(bench, call);
        gone += names.empty() ? "" : std::string(" ") + error.name + ":" + names;
    }
    constexpr int64_t KINDS = std::size(ERRORS);
    table.equal(name + " fails once, errors and places", once, KINDS * upTo);
    table.equal(name + " fails for a second, errors (at most " + std::to_string(most) + " calls)", longOnes, KINDS);
    table.check(name + ": report, document and reply after each error", gone.empty(),
                gone.empty() ? "come" : "missing" + gone, "come");
}

} // namespace

void planCalls(const Options& options, Table& table) {
    Bench bench;
    std::vector<std::string> environment = bench.faults.environment("v2x_soak_faults");
    environment.emplace_back("WATCHDOG_USEC=200000"); // the main loop sleeps for half of that
    bench.unit.startAndWaitReady({"-d", "7"}, environment);
    bench.work.startCloud({"--rate", "20", "--status", "1", "--status-interval", "0.2"});
    const std::string missing = bench.work.missing(20000);
    if (!table.check("all paths work before", missing.empty(), missing.empty() ? "yes" : "missing" + missing, "yes")) {
        return;
    }
    for (const Call& call : CALLS) {
        if (bench.faults->counts[call.call] == 0) {
            table.notRun(call.name, "the daemon does not call it");
            continue;
        }
        tryCall(bench, call, std::clamp<uint32_t>(options.times / 5, 1, 10), table);
    }
    // The stop goes through write.
    arm(bench.faults, FAULT_WRITE, EAGAIN, 1, FOR_GOOD);
    checkEnds(bench.unit, "ends when asked to while write fails", table);
    table.atLeast("write failed then", static_cast<int64_t>(bench.faults->fired.load()), 1, "times");
}
