// What the simulated devices share: their options, sending what a source has due, a line of state each second, and the
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
#include "session.h"
#include "source.h"
#include "summary.h"

namespace sim {

// How a device is named in its options and output.
struct DeviceRole {
    const char* name; // the subcommand
    const char* help;
    const char* readings; // what it sends, in the plural
    const char* targetHelp;
    const char* listenHelp;
};

struct DeviceOptions {
    RunOptions run; // its count limits readings
    Endpoint target{};
    Endpoint listen{};      // without IP: loopback for a target on loopback, else all addresses
    double rate = 1;        // readings of the plan per second
    double start = 0;       // seconds into the plan at which the run begins
    std::string replayFile; // sent instead of the plan, unless empty
    bool replayLoop = false;
};

// Adds the subcommand with the options above. They must live until the command line is parsed; their content is the
// default.
CLI::App& AddDevice(CLI::App& app, const DeviceRole& role, DeviceOptions& options);

class Device {
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Runs until its limits, SIGINT or SIGTERM, and prints the summary; once. Throws std::exception with the reason.
    void Run();

protected:
    // `random` names what the seed decides; empty: nothing. Role and options must outlive the device.
    Device(const DeviceRole& role, const DeviceOptions& options, std::string random, PhaseRange phases,
           PlanSource::Encode encode);

    // The next reading is due. Main thread, as for all functions but IsHeartbeat.
    virtual void OnReading(std::vector<uint8_t>& reading) = 0;
    // There are no more readings.
    virtual void OnEnd() {}
    // Whether a datagram is a heartbeat from the daemon. Receive thread.
    virtual bool IsHeartbeat(std::span<const uint8_t> /*datagram*/) const { return false; }
    // The counts so far in a few words.
    virtual std::string Counts() const = 0;
    // All counts, except those that Device adds.
    virtual Summary MakeSummary() const = 0;

    // Sends one datagram; false after an error, which is counted. Only while Run runs.
    bool Send(std::span<uint8_t> datagram);
    uint64_t Heartbeats() const { return m_heartbeats.load(std::memory_order_relaxed); }
    uint32_t Seed() const { return m_session.Seed(); }

private:
    void Play();
    void ShowState(std::chrono::nanoseconds now);
    std::string SendErrorText() const;

    const DeviceRole& m_role;
    const DeviceOptions& m_options;
    Session m_session; // before the port, whose thread must not get the signals
    std::unique_ptr<MessageSource> m_source;
    UdpPort* m_port = nullptr;
    uint64_t m_sendErrors = 0;
    int m_lastError = 0;
    std::atomic<uint64_t> m_heartbeats{0};
    std::atomic<uint64_t> m_unknown{0};
};

} // namespace sim
