// Base of the simulated devices: options, sending of messages when they are due, a status line each second, and the
// summary.
#pragma once

#include <CLI/CLI.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "port.h"
#include "replay.h"
#include "session.h"
#include "source.h"
#include "summary.h"

namespace sim {

// The texts about a device in the help and in the output.
struct DeviceRole {
    const char* name; // of the subcommand
    const char* help;
    const char* messages; // the noun for the device's messages, in the plural
    const char* targetHelp;
    const char* listenHelp;
};

struct DeviceOptions {
    RunOptions run; // the count limits the messages sent
    Endpoint target{};
    Endpoint listen{};    // an empty IP means loopback for a target on loopback, otherwise all addresses
    double rate = 1;      // messages per second
    double start = 0;     // the time in the plan, in seconds, at which the run begins
    FaultOptions faults;  // of the plan
    ReplayOptions replay; // replaces the plan
};

// Adds the subcommand with the options above. `options` must exist until the command line is parsed; its initial values
// are the defaults.
CLI::App& AddDevice(CLI::App& app, const DeviceRole& role, DeviceOptions& options);

class Device {
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Sends messages until a limit, SIGINT or SIGTERM, then prints the summary. Call Run only once. Throws
    // std::exception with the reason of a failure.
    void Run();

protected:
    // `random` names the random parts of the run; empty if nothing is random. `role` and `options` must outlive the
    // device.
    Device(const DeviceRole& role, const DeviceOptions& options, std::string random, PhaseRange phases,
           PlanSource::Encode encode);

    // Called when a message is due, on the main thread, as all functions except IsHeartbeat.
    virtual void OnMessage(std::vector<uint8_t>& message) = 0;
    // Called after the last message.
    virtual void OnEnd() {}
    // Returns true if the datagram is a heartbeat from the daemon. Called on the receive thread.
    virtual bool IsHeartbeat(std::span<const uint8_t> /*datagram*/) const { return false; }
    // Returns the counts for the status line: "sent 3, heartbeats 2".
    virtual std::string FormatCounts() const = 0;
    // Returns all counts except those that Device itself adds.
    virtual Summary MakeSummary() const = 0;

    // Sends one datagram. Counts a failure and returns false. Call Send only during Run.
    bool Send(std::span<uint8_t> datagram);
    uint64_t Heartbeats() const { return m_heartbeats.load(std::memory_order_relaxed); }
    uint32_t Seed() const { return m_session.Seed(); }

private:
    void Play();
    void ShowState(std::chrono::nanoseconds now);
    std::string FormatSendError() const;

    const DeviceRole& m_role;
    const DeviceOptions& m_options;
    Session m_session; // before the port, so that the port's thread blocks the signals
    std::unique_ptr<MessageSource> m_source;
    UdpPort* m_port = nullptr;
    uint64_t m_sendErrors = 0;
    int m_lastError = 0;
    std::atomic<uint64_t> m_heartbeats{0};
    std::atomic<uint64_t> m_unknown{0};
};

} // namespace sim
