#include "device.h"

#include <cinttypes>
#include <cstring>
#include <random>
#include <utility>

#include "play.h"
#include "replay.h"
#include "text.h"

namespace sim {
namespace {

std::unique_ptr<DatagramSource> MakeSource(const DeviceOptions& options, PhaseRange phases, PlanSource::Encode encode) {
    if (options.replayFile.empty()) {
        const auto start = std::chrono::nanoseconds(static_cast<int64_t>(options.start * 1e9));
        return std::make_unique<PlanSource>(options.rate, phases, start, std::move(encode));
    }
    return std::make_unique<ReplaySource>(ReadReplayFile(options.replayFile), options.replayLoop);
}

} // namespace

Device::Device(DeviceName name, const DeviceOptions& options, std::string chance, PhaseRange phases,
               PlanSource::Encode encode)
    : m_name(name), m_options(options), m_chance(std::move(chance)),
      m_seed(options.seed ? *options.seed : std::random_device{}()), m_notes(options.run.json ? stderr : stdout),
      m_source(MakeSource(options, phases, std::move(encode))) {}

void Device::Run() {
    UdpPort port(m_name.device, m_options.listen,
                 [this](std::span<const uint8_t> datagram, const UdpPort::Sender&) { OnReceived(datagram); });
    port.SetTarget(m_options.target);
    m_port = &port;
    Announce();
    Play(m_loop, *m_source, m_options.run.limits,
         {[this](std::vector<uint8_t> reading) { OnReading(reading); },
          [this](std::chrono::nanoseconds now) { ShowState(now); }});
    OnEnd();
    port.Close();
    ReportEnd();
}

void Device::Announce() {
    if (!m_options.run.quiet) {
        Note(FormatText("%s: %s from %s to %s", m_name.device, m_name.readings, EndpointText(m_options.listen).c_str(),
                        EndpointText(m_options.target).c_str()));
    }
    if (!m_chance.empty()) {
        Note(FormatText("%s: %s with --seed %" PRIu32, m_name.device, m_chance.c_str(), m_seed));
    }
}

void Device::Note(const std::string& line) {
    if (!m_notes.Line(line)) {
        m_loop.Stop();
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

std::string Device::SendErrors() const {
    return m_sendErrors == 0 ? ""
                             : FormatText(", %" PRIu64 " send errors (%s)", m_sendErrors, std::strerror(m_lastError));
}

void Device::ShowState(std::chrono::nanoseconds now) {
    if (!m_options.run.quiet) {
        Note(FormatText("%4.0f s  %s%s | %s", std::chrono::duration<double>(now).count(), Counts().c_str(),
                        SendErrors().c_str(), m_source->State(now).c_str()));
    }
}

void Device::ReportEnd() {
    Summary summary = MakeSummary();
    summary.text += SendErrors();
    summary.numbers.emplace_back("sendErrors", m_sendErrors);
    if (!m_chance.empty()) {
        summary.numbers.emplace_back("seed", m_seed);
    }
    Output output(stdout);
    ReportSummary(summary, m_options.run.json, m_options.run.summaryFile, output);
    output.CheckFailure();
}

} // namespace sim
