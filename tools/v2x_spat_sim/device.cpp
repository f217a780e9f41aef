#include "device.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <optional>
#include <utility>

#include "command_line.h"
#include "text.h"

namespace sim {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

std::unique_ptr<MessageSource> MakeSource(const DeviceOptions& options, PhaseRange phases, PlanSource::Encode encode) {
    const ReplayOptions& replay = options.replay;
    if (replay.file.empty()) {
        const auto start = nanoseconds(static_cast<int64_t>(options.start * 1e9));
        return std::make_unique<PlanSource>(options.rate, phases, start, std::move(encode), options.faults);
    }
    const uint16_t port = replay.port != 0 ? replay.port : options.target.port;
    return std::make_unique<ReplaySource>(LoadDatagrams(replay.file, port), replay.speed, replay.isLooped);
}

Endpoint ListenAddress(const DeviceOptions& options) {
    constexpr const char* ANY_ADDRESS = "0.0.0.0";
    Endpoint listen = options.listen;
    if (listen.ip.empty()) {
        listen.ip = options.target.ip.starts_with("127.") ? LOOPBACK : ANY_ADDRESS;
    }
    return listen;
}

} // namespace

CLI::App& AddDevice(CLI::App& app, const DeviceRole& role, DeviceOptions& options) {
    CLI::App& device = *app.add_subcommand(role.name, role.help);
    AddEndpointOption(device, "--target", options.target, "IP:PORT", role.targetHelp);
    AddEndpointOption(device, "--listen", options.listen, "[IP:]PORT",
                      std::string(role.listenHelp) +
                          "\nDefault IP: 127.0.0.1 if the target is on this machine, otherwise\nall addresses");
    AddReplayOptions(device, options.replay,
                     "Send the datagrams to --replay-port in the capture FILE (pcap or\npcapng) instead of the plan");
    AddNumberOption(device, "--replay-port", options.replay.port, 1, 65535, "PORT",
                    "Port to which the captured datagrams were sent (default: the port of\n--target)")
        ->needs("--replay")
        ->default_str("");
    AddNumberOption(device, "--rate", options.rate, 0.001, 1e6, "HZ",
                    std::string("Number of ") + role.messages + " per second")
        ->excludes("--replay");
    AddNumberOption(device, "--start", options.start, 0, 1e6, "S", "Begin S seconds into the plan")
        ->excludes("--replay");
    AddFaultOptions(device, options.faults, FaultUser::device)->excludes("--replay");
    AddRunOptions(device, options.run, role.messages,
                  "Print the summary as JSON; print lines for people on standard\nerror");
    return device;
}

Device::Device(const DeviceRole& role, const DeviceOptions& options, std::string random, PhaseRange phases,
               PlanSource::Encode encode)
    : m_role(role), m_options(options), m_session(role.name, options.run, std::move(random)),
      m_source(MakeSource(options, phases, std::move(encode))) {}

void Device::Run() {
    const Endpoint listen = ListenAddress(m_options);
    UdpPort port(m_role.name, listen, [this](std::span<const uint8_t> datagram, const UdpPort::Sender&) {
        (IsHeartbeat(datagram) ? m_heartbeats : m_unknown).fetch_add(1, std::memory_order_relaxed);
    });
    port.SetTarget(m_options.target);
    m_port = &port;
    m_session.Announce(FormatText("%s from %s to %s", m_role.messages, FormatEndpoint(listen).c_str(),
                                  FormatEndpoint(m_options.target).c_str()));
    Play();
    OnEnd();
    port.Close();
    Summary summary = MakeSummary();
    summary.AddIfAny("unknown", m_unknown, "unknown datagrams");
    summary.Add("sendErrors", m_sendErrors);
    summary.AppendText(FormatSendError());
    m_session.Finish(std::move(summary));
}

// Sends all messages that are due before the end of the run, including late messages.
void Device::Play() {
    const RunOptions& run = m_options.run;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = DeadlineAfter(start, run.seconds);
    Clock::time_point nextState = start;
    for (uint64_t sent = 0; run.count == 0 || sent < run.count;) {
        const std::optional<nanoseconds> sinceStart = m_source->DueTime(Clock::now() - start);
        if (!sinceStart) {
            return;
        }
        const Clock::time_point due = start + *sinceStart;
        if (!m_session.WaitUntil(std::min({due, nextState, end}))) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (now >= nextState) {
            ShowState(now - start);
            nextState += std::chrono::floor<seconds>(now - nextState) + seconds(1);
        }
        if (due <= now && due < end) {
            std::vector<uint8_t> message = m_source->TakeNext();
            if (!message.empty()) {
                OnMessage(message);
                ++sent;
            }
        } else if (now >= end) {
            return;
        }
    }
}

bool Device::Send(std::span<uint8_t> datagram) {
    const int error = m_port->Send(datagram);
    if (error != 0) {
        ++m_sendErrors;
        m_lastError = error;
    }
    return error == 0;
}

std::string Device::FormatSendError() const {
    return m_sendErrors == 0 ? ""
                             : FormatText(", %" PRIu64 " send errors (%s)", m_sendErrors, std::strerror(m_lastError));
}

void Device::ShowState(nanoseconds now) {
    m_session.Note(FormatText("%4.0f s  %s%s | %s", std::chrono::duration<double>(now).count(), FormatCounts().c_str(),
                              FormatSendError().c_str(), m_source->FormatState(now).c_str()));
}

} // namespace sim
