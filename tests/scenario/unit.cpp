#include "unit.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

std::vector<std::string> recordOf(const Bytes& record) {
    std::vector<std::string> parts = {std::to_string(static_cast<int8_t>(record.at(40)))};
    for (size_t at = 41; at + 17 <= record.size() && record[at + 1] == 1; at += 17) {
        parts.push_back(std::to_string(record[at]) + ":" + std::to_string(record[at + 3]) + ":" +
                        std::to_string(record[at + 6] + 256 * record[at + 7]));
    }
    return parts;
}

uint64_t counted(const std::string& summary, const std::string& name) {
    const size_t at = summary.find("\"" + name + "\":");
    return at == std::string::npos ? UINT64_MAX : strtoull(summary.c_str() + at + name.size() + 3, nullptr, 10);
}

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        count++;
    }
    return count;
}

int drain(UdpPeer& peer) {
    int count = 0;
    while (peer.receive(0).has_value()) {
        count++;
    }
    return count;
}

NotifySocket::NotifySocket(const std::string& path) : m_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

NotifySocket::~NotifySocket() {
    close(m_fd);
}

std::string NotifySocket::receive(int milliseconds) const {
    return next(false, milliseconds);
}

std::string NotifySocket::receiveStatus(int milliseconds) const {
    return next(true, milliseconds);
}

std::string NotifySocket::next(bool isStatus, int milliseconds) const {
    pollfd in{m_fd, POLLIN, 0};
    char bytes[4096];
    while (poll(&in, 1, milliseconds) == 1) {
        const ssize_t length = recv(m_fd, bytes, sizeof bytes, 0);
        const std::string text(bytes, static_cast<size_t>(std::max<ssize_t>(length, 0)));
        if (text.starts_with("STATUS=") == isStatus) {
            return text;
        }
    }
    return "";
}

void NotifySocket::fill() const {
    sockaddr_un address = {};
    socklen_t length = sizeof address;
    getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length);
    while (sendto(m_fd, "", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), length) == 1) {
    }
}

Unit::Unit() {
    std::filesystem::create_directory(folder.path() + "/conf");
    writeFile(folder.path() + "/conf/sysinfo.xml", "<device_id>" + device + "</device_id>");
}

void Unit::writeConfiguration() const {
    writeFile(folder.path() + "/conf/v2x_ipc.cfg",
              "ipc = { " + ipcKeys + " spat_conv_sndport = " + std::to_string(recordPort) + "; spat_conv_rcvport = " +
                  std::to_string(requestPort) + "; spatconv_logtool_rcvport = " + std::to_string(logToolPort) +
                  "; app_rs_rcvport = " + std::to_string(stack.port()) + "; hosts = { RSU_RCV = \"127.0.0.1\"; }; };");
    const std::string standard = "rsuSpatConfigInfo = { Sysinfoname = \"" + folder.path() + "/conf/sysinfo.xml\";\n" +
                                 "LearnMachine = { Ip = \"127.0.0.1\"; Port = " + std::to_string(learner.port()) +
                                 "; LocalPort = " + std::to_string(reportPort) + "; " + learnerKeys + " };\n" +
                                 "SignalMachine1743 = { LocalPort = " + std::to_string(framePort) + "; " +
                                 controllerKeys + " };\n" + moreGroups + "Corrections = { " + corrections +
                                 " };\nnodeId = 2; regionId = 1; };\n";
    writeFile(folder.path() + "/conf/v2x_spat_convert.cfg", cfg.empty() ? standard : cfg);
}

void Unit::startSimulator(const std::string& role, std::vector<std::string> arguments, const std::string& name) {
    const std::string key = name.empty() ? role : name;
    const std::string base = folder.path() + "/" + key;
    arguments.insert(arguments.begin(), {V2X_BIN "/v2x_spat_sim", role});
    arguments.insert(arguments.end(), {"--summary", base + ".json"});
    writeFile(base + ".out", ""); // without the output of an earlier run
    m_simulators[key] = std::make_unique<Process>(arguments, std::vector<std::string>{}, base + ".out", base + ".err");
}

std::string Unit::endSimulator(const std::string& name, int sig) {
    const std::string base = folder.path() + "/" + name;
    m_simulators[name]->signal(sig);
    const bool isKilled = sig == SIGKILL;
    EXPECT_EQ(m_simulators[name]->wait(60000), isKilled ? 128 + sig : 0) << readFile(base + ".err");
    m_simulators.erase(name);
    return isKilled ? "" : readFile(base + ".json");
}

std::optional<Bytes> Unit::receiveRecord(int milliseconds) {
    constexpr size_t REQUEST_SIZE = 28; // every 600 ms
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    std::optional<Bytes> bytes;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        bytes = stack.receive(left > 0 ? static_cast<int>(left) : 0);
    } while (bytes.has_value() && bytes->size() == REQUEST_SIZE);
    return bytes;
}

void Unit::startDevice(const std::string& role, double rate, std::vector<std::string> arguments) {
    const bool isLearner = role == "learner";
    UdpPeer& place = isLearner ? learner : controller;
    place.release();
    arguments.insert(arguments.end(),
                     {"--target", "127.0.0.1:" + std::to_string(isLearner ? reportPort : framePort), "--listen",
                      std::to_string(place.port()), "--rate", std::to_string(rate), "--quiet"});
    startSimulator(role, arguments);
}

void Unit::startStackSimulator(std::vector<std::string> arguments) {
    stack.release();
    arguments.insert(arguments.end(), {"--listen", std::to_string(stack.port()), "--quiet"});
    startSimulator("stack", arguments);
    char local[8]; // the port is bound once the kernel lists it
    snprintf(local, sizeof local, ":%04X ", stack.port());
    EXPECT_TRUE(eventually([&] { return occurrences(readFile("/proc/net/udp"), local) > 0; }));
}

void Unit::startCloudSimulator(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--device", device, "--json"});
    startSimulator("cloud", arguments);
}

void Unit::start(const std::vector<std::string>& options, const std::vector<std::string>& environment) {
    for (UdpPeer& port : held) {
        port.release();
    }
    writeConfiguration();
    std::vector<std::string> argv = launcher;
    argv.insert(argv.end(), {V2X_BIN "/v2x_spat_convert", "-w", folder.path(), "-f", logPath});
    argv.insert(argv.end(), options.begin(), options.end());
    std::vector<std::string> variables = {"NOTIFY_SOCKET=" + folder.path() + "/notify", "TZ=UTC"};
    variables.insert(variables.end(), environment.begin(), environment.end());
    daemon.emplace(argv, variables, folder.path() + "/out", folder.path() + "/err");
}

void Unit::startAndWaitReady(const std::vector<std::string>& options, const std::vector<std::string>& environment) {
    start(options, environment);
    ASSERT_EQ(notify.receive(), "READY=1") << err() << log();
}
