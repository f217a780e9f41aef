#include "capture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>

#include "common/files.h"
#include "common/hex.h"
#include "common/text.h"
#include "event_time.h"
#include "format.h"
#include "signals.h"

namespace ctl {
namespace {

using Clock = std::chrono::steady_clock;
using tools::FormatText;
using tools::GetText;

constexpr uint32_t LOOPBACK_NETWORK = 127;

// Parses "192.168.1.20:8001". Unlike tools::ParseEndpoint it accepts port 0, which means unknown.
v2xpub_address_t ParseAddress(const std::string& text) {
    char ip[16] = "";
    unsigned port = 0;
    in_addr address{};
    if (std::sscanf(text.c_str(), "%15[0-9.]:%5u", ip, &port) != 2 || inet_pton(AF_INET, ip, &address) != 1 ||
        port > UINT16_MAX) {
        throw std::runtime_error("'" + text + "' is not an address");
    }
    return {ntohl(address.s_addr), static_cast<uint16_t>(port)};
}

std::vector<uint8_t> ParseBytes(const cJSON* event) {
    std::vector<uint8_t> bytes;
    const std::string problem = tools::AppendHex(GetText(event, "bytes"), bytes);
    if (!problem.empty()) {
        throw std::runtime_error("invalid bytes of an event: " + problem);
    }
    return bytes;
}

void WriteDatagram(const cJSON* event, tools::CaptureWriter& writer) {
    const std::vector<uint8_t> bytes = ParseBytes(event);
    v2xpub_address_t local = ParseAddress(GetText(event, "local"));
    const v2xpub_address_t remote = ParseAddress(GetText(event, "remote"));
    if (local.ip == 0 && remote.ip >> 24 == LOOPBACK_NETWORK) {
        local.ip = INADDR_LOOPBACK;
    }
    const bool isSent = tools::GetFlag(event, "sent");
    writer.Write({ParseTime(GetText(event, "time")), isSent ? local : remote, isSent ? remote : local, bytes});
}

void WriteSample(const cJSON* event, tools::CaptureWriter& writer) {
    const std::vector<uint8_t> bytes = ParseBytes(event);
    const std::string topic = GetText(event, "topic");
    writer.Write({ParseTime(GetText(event, "time")), tools::SAMPLE_ADDRESS, tools::SAMPLE_ADDRESS,
                  tools::EncodeSample({tools::GetFlag(event, "sent"), topic, bytes})});
}

std::string FormatResult(const CaptureOptions& options, const CaptureResult& result) {
    if (!options.isJson) {
        return FormatText("%s: %" PRIu64 " datagrams, %" PRIu64 " DDS samples, %" PRIu64 " events lost\n",
                          options.output == "-" ? "standard output" : options.output.c_str(), result.datagrams,
                          result.samples, result.lost);
    }
    const tools::Json object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "file", options.output.c_str());
    cJSON_AddNumberToObject(object.get(), "datagrams", static_cast<double>(result.datagrams));
    cJSON_AddNumberToObject(object.get(), "samples", static_cast<double>(result.samples));
    cJSON_AddNumberToObject(object.get(), "lost", static_cast<double>(result.lost));
    return tools::PrintJson(object.get()) + "\n";
}

} // namespace

void WriteEvent(const cJSON* event, tools::CaptureWriter& writer, CaptureResult& result) {
    const std::string kind = GetText(event, "event");
    if (kind == "datagram") {
        WriteDatagram(event, writer);
        ++result.datagrams;
    } else if (kind == "sample") {
        WriteSample(event, writer);
        ++result.samples;
    }
    result.lost += static_cast<uint64_t>(std::max(GetInteger(event, "lost"), 0));
}

CaptureResult Capture(Client& client, tools::CaptureWriter& writer, double seconds) {
    constexpr double NO_LIMIT = 1e9;
    constexpr int CHECK_INTERVAL = 100; // milliseconds; a signal before poll() takes effect within this time
    const auto length = std::chrono::duration<double>(seconds > 0 ? seconds : NO_LIMIT);
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
    CaptureResult result;
    try {
        while (!WasSignalled() && Clock::now() < end) {
            if (const auto line = client.ReadLine(CHECK_INTERVAL)) {
                WriteEvent(tools::ParseJsonObject(*line).get(), writer, result);
            }
        }
    } catch (const NoDaemon& reason) {
        result.daemonGone = reason.what();
    }
    return result;
}

int RunCapture(const CaptureOptions& options) {
    Client client(FindSocket(options));
    const bool isStandardOutput = options.output == "-";
    if (isStandardOutput) {
        std::signal(SIGPIPE, SIG_DFL); // ends with the program that reads the capture
    }
    CatchSignals();
    client.Request("tap");
    tools::CaptureWriter writer(options.output);
    const CaptureResult result = Capture(client, writer, options.seconds);
    std::fputs(FormatResult(options, result).c_str(), isStandardOutput ? stderr : stdout);
    if (!result.daemonGone.empty()) {
        throw NoDaemon(result.daemonGone);
    }
    return 0;
}

} // namespace ctl
