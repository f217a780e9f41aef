// System calls that fail, once and for a while, under light traffic.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "faults.h"
#include "plans.h"
#include "work.h"

namespace {

struct Call {
    fault_call call;
    const char* name;
};
constexpr Call CALLS[] = {
    {FAULT_RECVMSG, "recvmsg"}, {FAULT_RECVFROM, "recvfrom"}, {FAULT_SENDTO, "sendto"}, {FAULT_SENDMSG, "sendmsg"},
    {FAULT_PPOLL, "ppoll"},     {FAULT_POLL, "poll"},         {FAULT_OPEN, "open"},
};

struct Error {
    int number;
    const char* name;
};
constexpr Error ERRORS[] = {{EINTR, "EINTR"}, {EAGAIN, "EAGAIN"}, {ENOBUFS, "ENOBUFS"}, {ECONNREFUSED, "ECONNREFUSED"}};

// Something of each kind; the cloud's documents and the requests to the stack application come by themselves.
void traffic(const Unit& unit, Work& work, fault_call call) {
    if (call == FAULT_OPEN) { // the log is opened anew
        std::error_code error;
        std::filesystem::remove(unit.logPath, error);
    }
    work.sendReport();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

bool failsOnce(const Unit& unit, Work& work, const Faults& faults, const Call& call, int error, uint64_t nth) {
    arm(faults, call.call, error, nth, nth);
    const bool fired = eventually([&] { return traffic(unit, work, call.call), faults->fired.load() > 0; }, 20000);
    faults->call = FAULT_NONE;
    return fired;
}

uint64_t failsForASecond(const Unit& unit, Work& work, const Faults& faults, const Call& call, int error) {
    arm(faults, call.call, error, 1, FOR_GOOD);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (std::chrono::steady_clock::now() < end ||
           (faults->fired == 0 && std::chrono::steady_clock::now() < end + std::chrono::seconds(5))) {
        traffic(unit, work, call.call);
    }
    faults->call = FAULT_NONE;
    return faults->fired;
}

// What does not work any more; "" when all does.
std::string lost(Unit& unit, Work& work, const Call& call) {
    std::string names = unit.daemon->wait(0) == -1 ? "" : " process";
    names += work.missing();
    const auto logs = [&] { return traffic(unit, work, FAULT_NONE), !readFile(unit.logPath).empty(); };
    names += call.call != FAULT_OPEN || eventually(logs) ? "" : " log";
    return names;
}

void tryCall(Unit& unit, Work& work, const Faults& faults, const Call& call, uint32_t upTo, Table& table) {
    const std::string name = call.name;
    int64_t once = 0;
    int64_t longOnes = 0;
    uint64_t most = 0;
    std::string gone;
    for (const Error& error : ERRORS) {
        for (uint32_t nth = 1; nth <= upTo; nth++) {
            once += failsOnce(unit, work, faults, call, error.number, nth) ? 1 : 0;
        }
        const uint64_t fired = failsForASecond(unit, work, faults, call, error.number);
        longOnes += fired > 0 ? 1 : 0;
        most = std::max(most, fired);
        const std::string names = lost(unit, work, call);
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
    if (V2X_SANITIZED) {
        table.notRun("all of it", "sanitizer build");
        return;
    }
    Unit unit;
    const Faults faults(unit.folder);
    std::vector<std::string> environment = faults.environment("v2x_soak_faults");
    environment.emplace_back("WATCHDOG_USEC=200000"); // the main loop sleeps for half of that
    unit.startAndWaitReady({"-d", "7"}, environment);
    Work work(unit);
    work.startCloud({"--rate", "20", "--status", "1", "--status-interval", "0.2"});
    if (!table.check("all paths work before", work.missing(20000).empty(), "", "yes")) {
        return;
    }
    for (const Call& call : CALLS) {
        if (faults->counts[call.call] == 0) {
            table.notRun(call.name, "the daemon does not call it");
            continue;
        }
        tryCall(unit, work, faults, call, std::clamp<uint32_t>(options.times / 5, 1, 10), table);
    }
    // The stop goes through write.
    arm(faults, FAULT_WRITE, EAGAIN, 1, FOR_GOOD);
    unit.daemon->signal(SIGTERM);
    table.equal("ends when asked to while write fails, status", unit.daemon->wait(20000), 0);
    table.atLeast("write failed then", static_cast<int64_t>(faults->fired.load()), 1, "times");
}
