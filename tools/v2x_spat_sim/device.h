// What the simulated devices have in common: they send what a source has due, tell once a second how they stand, and
// end with a summary.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "endpoint.h"
#include "options.h"
#include "output.h"
#include "run_loop.h"
#include "source.h"
#include "summary.h"
#include "udp_port.h"

namespace sim {

struct DeviceOptions {
    RunOptions run;
    Endpoint target{};
    Endpoint listen{};
    double rate = 1;        // readings of the plan per second
    double start = 0;       // seconds into the plan at which the run begins
    std::string replayFile; // sent instead of the plan, unless empty
    bool replayLoop = false;
    double damage = 0;            // share of the readings, 0 to 1
    std::optional<uint32_t> seed; // of all that is left to chance; random when empty
};

// Who the device is in what it tells.
struct DeviceName {
    const char* device;
    const char* readings; // what it sends
};

class Device {
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Runs until its limits, SIGINT or SIGTERM, and prints the summary; once. Throws std::exception with what went
    // wrong.
    void Run();

protected:
    // `chance` says what the seed decides, empty when nothing. The options must outlive the device.
    Device(DeviceName name, const DeviceOptions& options, std::string chance, PhaseRange phases,
           PlanSource::Encode encode);

    // The next reading is due. Main thread, as all that follows but OnReceived.
    virtual void OnReading(std::vector<uint8_t>& reading) = 0;
    // The last reading is over.
    virtual void OnEnd() {}
    // A datagram came. Receive thread, only while Run runs.
    virtual void OnReceived(std::span<const uint8_t> datagram) = 0;
    // What was counted so far, in a few words.
    virtual std::string Counts() const = 0;
    // The whole count, without send errors and seed, once the receive thread has ended.
    virtual Summary MakeSummary() const = 0;

    // Sends one datagram; false when it was refused, which is counted. Only while Run runs.
    bool Send(std::span<uint8_t> datagram);
    uint32_t Seed() const { return m_seed; }

private:
    void Announce();
    void Note(const std::string& line);
    void ShowState(std::chrono::nanoseconds now);
    std::string SendErrors() const;
    void ReportEnd();

    DeviceName m_name;
    const DeviceOptions& m_options;
    std::string m_chance;
    uint32_t m_seed;
    uint64_t m_sendErrors = 0;
    int m_lastError = 0;
    Output m_notes;
    std::unique_ptr<DatagramSource> m_source;
    RunLoop m_loop; // before the port, whose thread is to leave the signals alone
    UdpPort* m_port = nullptr;
};

} // namespace sim
