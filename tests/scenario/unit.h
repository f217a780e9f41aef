// A road-side unit on the desk: a work directory, the real daemon, and plain sockets in its peers' places.
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

// "count of phases" and "id:light:end time" of each entry, read byte by byte from a record for the stack application.
std::vector<std::string> recordOf(const Bytes& record);

// The number behind "name": in a simulator's summary; UINT64_MAX without one.
uint64_t counted(const std::string& summary, const std::string& name);

size_t occurrences(const std::string& text, const std::string& part);

int drain(UdpPeer& peer); // discards what has arrived; returns how many datagrams

// The service manager's end of NOTIFY_SOCKET.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path);
    ~NotifySocket();
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    std::string receive(int milliseconds = 20000) const;       // next message but STATUS=; "" after the time out
    std::string receiveStatus(int milliseconds = 20000) const; // text of the next STATUS=; discards other messages
    void fill() const;                                         // until the next sender would wait

private:
    std::string next(bool isStatus, int milliseconds) const;

    int m_fd;
};

// Work directory and daemon. Set the configuration texts before start().
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
    std::string device = "T" + std::to_string(getpid()); // own topics: tests share the DDS domain
    std::string logPath = folder.path() + "/log/spat_conv.log";
    // The daemon's ports, bound here until it starts so that no peer takes one.
    UdpPeer held[5];
    uint16_t reportPort = held[0].port();
    uint16_t framePort = held[1].port(); // for the controller's frames
    uint16_t logToolPort = held[2].port();
    uint16_t recordPort = held[3].port();  // records leave from it
    uint16_t requestPort = held[4].port(); // requests for SPAT leave from it
    UdpPeer learner;
    UdpPeer controller;
    UdpPeer stack;
    NotifySocket notify{folder.path() + "/notify"};

    // Runs v2x_spat_sim in the background; a second one of a role needs a name. endSimulator() returns its summary, ""
    // after SIGKILL; with signal 0 it waits for the simulator's own end.
    void startSimulator(const std::string& role, std::vector<std::string> arguments, const std::string& name = "");
    std::string endSimulator(const std::string& name, int sig = SIGTERM);
    Process& simulator(const std::string& name) const { return *m_simulators.at(name); }
    std::string simulatorOutput(const std::string& name) const { return readFile(folder.path() + "/" + name + ".out"); }
    // Next record at the stack application's socket; ignores requests for SPAT.
    std::optional<Bytes> receiveRecord(int milliseconds = 20000);
    // The learner's or the controller's simulator takes over its socket and sends to the daemon.
    void startDevice(const std::string& role, double rate, std::vector<std::string> arguments = {});
    // The simulator takes over the stack application's socket.
    void startStackSimulator(std::vector<std::string> arguments = {});
    void startCloudSimulator(std::vector<std::string> arguments);

    std::string corrections;                         // of Corrections
    std::string learnerKeys = "IsEnable = true;";    // keys of LearnMachine besides Ip and ports
    std::string controllerKeys = "IsEnable = true;"; // keys of SignalMachine1743 besides ports
    std::string moreGroups;                          // more groups of rsuSpatConfigInfo
    std::string ipcKeys;                             // more keys of v2x_ipc.cfg
    std::string cfg;                                 // replaces the whole file unless empty
    std::vector<std::string> launcher;               // command line in front of the daemon's
    std::optional<Process> daemon;

private:
    void writeConfiguration() const;

    std::map<std::string, std::unique_ptr<Process>> m_simulators;
};
