#include "capture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cinttypes>

#include "common/endpoint.h"
#include "common/hex.h"
#include "common/text.h"
#include "event_time.h"
#include "signals.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetText;

constexpr uint32_t LOOPBACK_NETWORK = 127;

v2xpub_address_t ParseAddress(const std::string& text) {
    const tools::Endpoint endpoint = tools::ParseEndpoint(text, 0); // port 0 means unknown
    return {ntohl(inet_addr(endpoint.ip.c_str())), endpoint.port};
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

void Print(const CaptureOptions& options, const CaptureResult& result) {
    const tools::Json object = MakeResult(options);
    cJSON_AddNumberToObject(object.get(), "datagrams", static_cast<double>(result.datagrams));
    cJSON_AddNumberToObject(object.get(), "samples", static_cast<double>(result.samples));
    cJSON_AddNumberToObject(object.get(), "lost", static_cast<double>(result.lost));
    PrintResult(options, object.get(),
                FormatText("%" PRIu64 " datagrams, %" PRIu64 " DDS samples, %" PRIu64 " events lost", result.datagrams,
                           result.samples, result.lost));
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
    result.lost += static_cast<uint64_t>(std::max(tools::GetInteger(event, "lost"), 0));
}

CaptureResult Capture(Client& client, tools::CaptureWriter& writer, double seconds) {
    CaptureResult result;
    result.daemonGone = FollowLines(
        client, seconds, [&](const std::string& line) { WriteEvent(client.ParseLine(line).get(), writer, result); });
    return result;
}

int RunCapture(const CaptureOptions& options) {
    Client client(FindSocket(options));
    CatchSignals();
    client.Request("tap");
    tools::CaptureWriter writer(options.output);
    const CaptureResult result = Capture(client, writer, options.seconds);
    Print(options, result);
    if (!result.daemonGone.empty()) {
        throw NoDaemon(result.daemonGone);
    }
    return 0;
}

} // namespace ctl
