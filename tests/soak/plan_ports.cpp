// Ports that somebody else has: each of the daemon's own, and those of the loop-back DDS.
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>

#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

constexpr uint16_t DDS_DISCOVERY = 7400 + 250 * 200 + 10; // of participant 0
constexpr uint16_t DDS_SAMPLES = DDS_DISCOVERY + 1;
constexpr int DDS_NUMBERS = 32;
constexpr int FIRST = 3; // so many numbers are taken in part

using Ports = std::vector<uint16_t>;

Ports ddsPorts(int numbers, const Ports& kinds) {
    Ports ports;
    for (int number = 0; number < numbers; number++) {
        for (const uint16_t first : kinds) {
            ports.push_back(static_cast<uint16_t>(first + 2 * number));
        }
    }
    return ports;
}

// The UDP ports that a process has.
std::set<uint16_t> portsOf(pid_t pid) {
    std::set<std::string> sockets;
    for (const auto& [descriptor, target] : descriptorsOf(pid)) {
        sockets.insert(target);
    }
    std::set<uint16_t> ports;
    std::ifstream table("/proc/" + std::to_string(pid) + "/net/udp");
    std::string line;
    for (std::getline(table, line); std::getline(table, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        if (fields.size() > 9 && sockets.count("socket:[" + fields[9] + "]") > 0) {
            ports.insert(static_cast<uint16_t>(std::stoi(fields[1].substr(fields[1].find(':') + 1), nullptr, 16)));
        }
    }
    return ports;
}

// The first number whose two DDS ports are both so; "none" when there is no such number.
std::string numberOf(const std::function<bool(uint16_t port)>& isSo) {
    for (int number = 0; number < DDS_NUMBERS; number++) {
        if (isSo(static_cast<uint16_t>(DDS_DISCOVERY + 2 * number)) &&
            isSo(static_cast<uint16_t>(DDS_SAMPLES + 2 * number))) {
            return std::to_string(number);
        }
    }
    return "none";
}

std::string lineWith(const std::string& log, const std::string& text) {
    const size_t at = log.find(text);
    return at == std::string::npos ? "none" : log.substr(at, log.find('\n', at) - at);
}

// A unit whose ports to the stack application are fixed, too.
struct FixedUnit : Site {
    FixedUnit() {
        writeFile(folder.path() + "/conf/v2x_ipc.cfg",
                  "ipc = { spat_conv_sndport = " + std::to_string(recordPort.port()) +
                      "; spat_conv_rcvport = " + std::to_string(requestPort.port()) + "; spatconv_logtool_rcvport = " +
                      std::to_string(logToolPort) + "; app_rs_rcvport = " + std::to_string(stack.port()) +
                      "; hosts = { RSU_RCV = \"127.0.0.1\"; }; };");
    }
    UdpPeer recordPort;
    UdpPeer requestPort;
};

// A taken port of the daemon turns its path off. The sockets to the stack application open one after the other, and the
// first that does not open leaves the later ones closed; so do the learner's. Of the DDS ports the daemon takes the
// first two of a number that are free.
const struct Row {
    const char* what;
    Ports (*taken)(const FixedUnit& unit);
    const char* said; // in the log, of what; null: nothing
    const char* working;
    bool beats = true; // heartbeats reach the learner
} ROWS[] = {
    {"taken: none", [](const FixedUnit&) { return Ports{}; }, nullptr, ALL_PATHS},
    {"taken: the learner's", [](const FixedUnit& unit) { return Ports{unit.reportPort}; }, "socket QUOR_RECV_SG",
     "controller down up logtool", false},
    {"taken: the controller's", [](const FixedUnit& unit) { return Ports{unit.framePort}; }, "socket 1743_RECV_SG",
     "learner down up logtool"},
    {"taken: the log tool's", [](const FixedUnit& unit) { return Ports{unit.logToolPort}; }, "socket SPAT_C_LOGTOOL",
     "learner controller down up"},
    {"taken: the requests'", [](const FixedUnit& unit) { return Ports{unit.requestPort.port()}; },
     "socket GET_SPAT_DATA", "learner controller down"},
    {"taken: the records'", [](const FixedUnit& unit) { return Ports{unit.recordPort.port()}; }, "socket SPAT_SEND_APP",
     ""},
    {"DDS ports of the first 3, both ports",
     [](const FixedUnit&) {
         return ddsPorts(FIRST, {DDS_DISCOVERY, DDS_SAMPLES});
     },
     nullptr, ALL_PATHS},
    {"DDS ports of the first 3, discovery", [](const FixedUnit&) { return ddsPorts(FIRST, {DDS_DISCOVERY}); }, nullptr,
     ALL_PATHS},
    {"DDS ports of the first 3, samples", [](const FixedUnit&) { return ddsPorts(FIRST, {DDS_SAMPLES}); }, nullptr,
     ALL_PATHS},
    {"DDS ports all taken",
     [](const FixedUnit&) {
         return ddsPorts(DDS_NUMBERS, {DDS_DISCOVERY, DDS_SAMPLES});
     },
     "cannot join domain 200", "learner controller logtool"},
};

// The ports are held until the daemon is ready: everything on this machine that speaks DDS shares some of them.
void tryRow(const Row& row, Table& table) {
    FixedUnit unit;
    const StackDesk desk(unit.stack);
    const Ports taken = row.taken(unit);
    for (UdpPeer* peer : {&unit.recordPort, &unit.requestPort, &unit.held[0], &unit.held[1], &unit.held[2]}) {
        peer->release();
    }
    std::string number;
    {
        std::deque<UdpPeer> holds;
        for (const uint16_t port : taken) {
            holds.emplace_back(port); // or somebody has it
        }
        number = numberOf(isFree);
        unit.startAndWaitReady();
    }
    const std::string what = row.what;
    if (row.said != nullptr) {
        const std::string said = row.said;
        const std::string seen = lineWith(unit.log(), said);
        const std::string port =
            said.starts_with("socket") ? " at 0.0.0.0:" + std::to_string(taken[0]) + ": Address already in use" : "";
        table.check(what + ": the log", seen.starts_with(said + port), seen, said + port);
    }
    const std::set<uint16_t> ports = portsOf(unit.daemon->pid());
    const std::string has = numberOf([&](uint16_t port) { return ports.count(port) > 0; });
    table.check(what + ": the daemon's number", has == number, has, number);
    checkPaths(unit, desk, what + ": at work", table, row.working);
    const uint64_t beats = heartbeats(unit);
    table.check(what + ": heartbeats", row.beats ? beats > 0 && beats != UINT64_MAX : beats == 0, std::to_string(beats),
                row.beats ? "some" : "none");
    checkLives(unit, what, table);
}

} // namespace

void planPorts(const Options& /*options*/, Table& table) {
    for (const Row& row : ROWS) {
        tryRow(row, table);
    }
}
