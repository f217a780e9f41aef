// Ports that somebody else has: each of the daemon's own, and those of the loop-back DDS.
#include <algorithm>
#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

#include "paths.h"
#include "plans.h"

namespace {

namespace fs = std::filesystem;

constexpr uint16_t DDS_DISCOVERY = 7400 + 250 * 200 + 10; // of participant 0
constexpr uint16_t DDS_SAMPLES = DDS_DISCOVERY + 1;
constexpr int DDS_NUMBERS = 32;

// A port of 127.0.0.1 held, unless somebody has it.
class Held {
public:
    explicit Held(uint16_t port) : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        static_cast<void>(bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    }
    ~Held() { close(m_fd); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

private:
    int m_fd;
};

using Holds = std::vector<std::unique_ptr<Held>>;

void holdNumbers(Holds& holds, int first, int count, bool discovery, bool samples) {
    for (int number = first; number < first + count; number++) {
        const auto port = static_cast<uint16_t>(DDS_DISCOVERY + 2 * number);
        if (discovery) {
            holds.push_back(std::make_unique<Held>(port));
        }
        if (samples) {
            holds.push_back(std::make_unique<Held>(static_cast<uint16_t>(DDS_SAMPLES + 2 * number)));
        }
    }
}

// The UDP ports that a process is bound to.
std::set<uint16_t> portsOf(pid_t pid) {
    std::set<std::string> inodes;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error)) {
        const std::string target = fs::read_symlink(entry.path(), error).string();
        if (target.starts_with("socket:[")) {
            inodes.insert(target.substr(8, target.size() - 9));
        }
    }
    std::set<uint16_t> ports;
    std::ifstream table("/proc/net/udp");
    std::string line;
    std::getline(table, line); // the heading
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::vector<std::string> values;
        for (std::string value; fields >> value;) {
            values.push_back(value);
        }
        if (values.size() > 9 && inodes.contains(values[9])) {
            ports.insert(static_cast<uint16_t>(std::stoul(values[1].substr(values[1].find(':') + 1), nullptr, 16)));
        }
    }
    return ports;
}

// The number of the first DDS port of this kind that the process has; -1 when there is none.
int numberOf(pid_t pid, uint16_t first) {
    const std::set<uint16_t> ports = portsOf(pid);
    for (int number = 0; number < DDS_NUMBERS; number++) {
        if (ports.contains(static_cast<uint16_t>(first + 2 * number))) {
            return number;
        }
    }
    return -1;
}

// The part of the log that tells: "socket NAME at ...", "cannot join ...".
std::string lineWith(const std::string& log, const std::string& text) {
    const size_t at = log.find(text);
    return at == std::string::npos ? "none" : log.substr(at, log.find('\n', at) - at);
}

// A unit whose ports to the stack application are fixed, too.
struct FixedUnit {
    FixedUnit() {
        unit.corrections = "SpatDown = true; ReplyItems = true;";
        writeFile(unit.folder.path() + "/conf/v2x_ipc.cfg",
                  "ipc = { spat_conv_sndport = " + std::to_string(recordPort.port()) +
                      "; spat_conv_rcvport = " + std::to_string(requestPort.port()) + "; spatconv_logtool_rcvport = " +
                      std::to_string(unit.logToolPort) + "; app_rs_rcvport = " + std::to_string(unit.stack.port()) +
                      "; hosts = { RSU_RCV = \"127.0.0.1\"; }; };");
    }
    Unit unit;
    Peer recordPort;
    Peer requestPort;
};

// A taken port turns its path off. The sockets to the stack application open one after the other, and the first that
// does not open leaves the later ones closed; so do the learner's.
const struct OwnPort {
    const char* what;
    const char* socket;
    uint16_t (*port)(const FixedUnit& fixed);
    const char* working;
    bool beats; // heartbeats reach the learner
} OWN_PORTS[] = {
    {"none", nullptr, nullptr, ALL_PATHS, true},
    {"the learner's", "QUOR_RECV_SG", [](const FixedUnit& fixed) { return fixed.unit.reportPort; },
     "controller down up logtool", false},
    {"the controller's", "1743_RECV_SG", [](const FixedUnit& fixed) { return fixed.unit.framePort; },
     "learner down up logtool", true},
    {"the log tool's", "SPAT_C_LOGTOOL", [](const FixedUnit& fixed) { return fixed.unit.logToolPort; },
     "learner controller down up", true},
    {"the requests'", "GET_SPAT_DATA", [](const FixedUnit& fixed) { return fixed.requestPort.port(); },
     "learner controller down", true},
    {"the records'", "SPAT_SEND_APP", [](const FixedUnit& fixed) { return fixed.recordPort.port(); }, "", true},
};

void ownPort(const OwnPort& row, Table& table) {
    FixedUnit fixed;
    Unit& unit = fixed.unit;
    const uint16_t port = row.port != nullptr ? row.port(fixed) : uint16_t{0};
    for (Peer* peer : {&fixed.recordPort, &fixed.requestPort, &unit.held[0], &unit.held[1], &unit.held[2]}) {
        peer->release();
    }
    const std::unique_ptr<Held> held = port != 0 ? std::make_unique<Held>(port) : nullptr;
    const StackDesk desk(unit.stack);
    unit.startAndWaitReady();
    const std::string what = std::string("taken: ") + row.what;
    if (row.socket != nullptr) {
        const std::string error =
            "socket " + std::string(row.socket) + " at 0.0.0.0:" + std::to_string(port) + ": Address already in use";
        const std::string seen = lineWith(unit.log(), "socket " + std::string(row.socket));
        table.check(what + ": the log", seen == error, seen, "the port named");
    }
    const std::string working = pathsAtWork(unit, desk, row.working);
    table.check(what + ": at work", working == row.working, working.empty() ? "none" : working,
                *row.working == '\0' ? "none" : row.working);
    const uint64_t beats = counted(readFile(unit.folder.path() + "/learner.json"), "heartbeats");
    table.check(what + ": heartbeats", row.beats ? beats > 0 && beats != UINT64_MAX : beats == 0, std::to_string(beats),
                row.beats ? "some" : "none");
    table.check(what + ": the daemon lives", unit.daemon->wait(0) == -1, "pid " + std::to_string(unit.daemon->pid()),
                "no exit");
}

const struct DdsPorts {
    const char* what;
    bool discovery;
    bool samples;
} DDS_PORTS[] = {{"of the first 3, both ports", true, true},
                 {"of the first 3, discovery", true, false},
                 {"of the first 3, samples", false, true}};

// Held until the daemon is ready: everything on this machine that speaks DDS shares these ports.
void ddsPorts(const DdsPorts& row, Table& table) {
    constexpr int TAKEN = 3;
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    const StackDesk desk(unit.stack);
    {
        Holds holds;
        holdNumbers(holds, 0, TAKEN, row.discovery, row.samples);
        unit.startAndWaitReady();
    }
    const std::string what = std::string("DDS ports ") + row.what;
    const int discovery = numberOf(unit.daemon->pid(), DDS_DISCOVERY);
    const int samples = numberOf(unit.daemon->pid(), DDS_SAMPLES);
    table.check(what + ": the daemon's number", discovery >= TAKEN && samples == discovery,
                std::to_string(discovery) + ", samples " + std::to_string(samples),
                ">= " + std::to_string(TAKEN) + ", both the same");
    const std::string working = pathsAtWork(unit, desk, ALL_PATHS);
    table.check(what + ": at work", working == ALL_PATHS, working, ALL_PATHS);
}

void noDdsPort(Table& table) {
    constexpr const char* WORKING = "learner controller logtool";
    Unit unit;
    const StackDesk desk(unit.stack);
    {
        Holds holds;
        holdNumbers(holds, 0, DDS_NUMBERS, true, true);
        unit.startAndWaitReady();
    }
    const std::string seen = lineWith(unit.log(), "cannot join domain 200");
    table.check("DDS ports all taken: the log", seen != "none", seen, "cannot join domain 200");
    table.equal("DDS ports all taken: the daemon's number", numberOf(unit.daemon->pid(), DDS_DISCOVERY), -1);
    const std::string working = pathsAtWork(unit, desk, WORKING);
    table.check("DDS ports all taken: at work", working == WORKING, working, WORKING);
    table.check("DDS ports all taken: the daemon lives", unit.daemon->wait(0) == -1,
                "pid " + std::to_string(unit.daemon->pid()), "no exit");
}

} // namespace

void planPorts(const Options& /*options*/, Table& table) {
    for (const OwnPort& row : OWN_PORTS) {
        ownPort(row, table);
    }
    for (const DdsPorts& row : DDS_PORTS) {
        ddsPorts(row, table);
    }
    noDdsPort(table);
}
