// A road-side unit on the desk: a work directory, the real daemon, and plain sockets where its peers would be.
#pragma once

#include <csignal>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "bytes.h"
#include "process.h"
#include "udp_peer.h"

// "count of phases" and "id:light:end time" per entry, read by hand from the bytes of a frame to the stack application.
std::vector<std::string> recordOf(const Bytes& frame);

// The number behind "name": in a simulator's summary; UINT64_MAX when there is none.
uint64_t counted(const std::string& summary, const std::string& name);

bool isFree(uint16_t port);           // asks without taking it, so that another program finds it free
std::string addressOf(uint16_t port); // as the simulators take it

// The service manager's end of NOTIFY_SOCKET.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path);
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    std::string receive(int milliseconds = 20000) const; // "" when nothing comes

private:
    int m_fd;
};

// Work directory and daemon. Configuration texts can be changed before start().
class Unit {
public:
    Unit();

    void start(const std::vector<std::string>& options = {}, const std::vector<std::string>& environment = {});
    void startAndWaitReady(const std::vector<std::string>& options = {},
                           const std::vector<std::string>& environment = {});
    std::string log() const { return readFile(logPath); }
    std::string out() const { return readFile(folder.path() + "/out"); }
    std::string err() const { return readFile(folder.path() + "/err"); }

    TempFolder folder;
    std::string device = "T" + std::to_string(getpid()); // keeps tests that run beside each other apart on the domain
    std::string logPath = folder.path() + "/log/spat_conv.log";
    // The daemon's ports, held until it starts, so that no peer is given one of them.
    UdpPeer held[3];
    uint16_t reportPort = held[0].port();
    uint16_t framePort = held[1].port(); // for the controller's frames
    uint16_t logToolPort = held[2].port();
    UdpPeer learner;
    UdpPeer controller;
    UdpPeer stack;
    NotifySocket notify{folder.path() + "/notify"};
    // v2x_spat_sim with these arguments beside the test, silent but for what --json says; a second one of its role has
    // a name of its own. The summary comes with its end.
    void startSimulator(const std::string& role, std::vector<std::string> arguments, const std::string& name = "");
    std::string endSimulator(const std::string& name, int sig = SIGTERM);
    pid_t simulatorPid(const std::string& name) const { return m_simulators.at(name)->pid(); }
    std::string simulatorOutput(const std::string& name) const { return readFile(folder.path() + "/" + name + ".out"); }
    // What reaches the stack application's place next; requests for its SPAT are passed over.
    std::optional<Bytes> receiveRecord(int milliseconds = 20000);
    // The stack application's place, taken by the simulator.
    void startStackSimulator(std::vector<std::string> arguments = {});
    std::string endStackSimulator() { return endSimulator("stack"); }
    // The cloud's place.
    void startCloudSimulator(std::vector<std::string> arguments);
    // v2x_spat_sim with these arguments, silent, to its end; the summary that it wrote.
    std::string simulate(const std::string& role, std::vector<std::string> arguments) const;

    std::string corrections; // of Corrections
    std::string cfg;         // replaces the whole file when not empty
    std::optional<Process> daemon;

private:
    std::string configuration() const;
    std::map<std::string, std::unique_ptr<Process>> m_simulators;
};
