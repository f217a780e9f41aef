// Measures how the daemon converts one input to the datagram for the stack application, without the kernel. For learner
// reports and controller frames, the baseline copies the input and a ready-made datagram of the output's size. For
// cloud documents, the baseline only parses the JSON text. The benchmark fails if a call does not send one datagram.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "compare.h"
#include "configuration.h"
#include "frame_1743.h"
#include "spat_conv_config.h"
#include "spat_conv_signal_learner_quor_report.h"
#include "spat_conv_signal_machine_1743_light.h"
#include "spat_conv_signal_machine_1743_stream.h"
#include "spat_conv_spatdown.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xcount.h"

namespace {

constexpr size_t FRAGMENT = 1024; // bytes
constexpr size_t DATAGRAM_MAX = 5120;

// Returns the value of the daemon's counter of sent records.
uint64_t countSentRecords() {
    static const v2x_counter* const sent = [] {
        const v2x_counter* counter = v2x_counter::First();
        while (std::string_view(counter->Path()) != "record" || std::string_view(counter->Name()) != "sent") {
            counter = counter->Next();
        }
        return counter;
    }();
    return sent->Count();
}

// Returns the size of the datagram of a record with `phases` phase entries and `states` states in all.
size_t datagramSize(size_t phases, size_t states) {
    return sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t) + sizeof(v2xipc_phases_t) +
           phases * sizeof(v2xipc_phase_t) + states * sizeof(v2xipc_pahseState_t);
}

template <typename Baseline, typename Convert>
bool measure(const std::string& what, Baseline baseline, Convert convert) {
    bool isOk = true;
    compare(what.c_str(), baseline, [&] {
        const uint64_t before = countSentRecords();
        convert();
        isOk &= countSentRecords() == before + 1;
    });
    if (!isOk) {
        fprintf(stderr, "bench_sources: %s: a call sent no datagram or more than one\n", what.c_str());
    }
    return isOk;
}

// Measures the conversion of one device datagram. `outSize` is the size of the resulting datagram.
template <typename Convert>
bool measureDevice(const std::string& what, Bytes in, size_t outSize, Convert convert) {
    const Bytes ready(outSize, 0x5A);
    uint8_t received[DATAGRAM_MAX];
    uint8_t sent[DATAGRAM_MAX];
    return measure(
        what + ", " + std::to_string(in.size()) + " to " + std::to_string(outSize) + " bytes",
        [&] {
            memcpy(received, in.data(), in.size());
            benchmark::DoNotOptimize(received);
            benchmark::ClobberMemory();
            memcpy(sent, ready.data(), ready.size());
            benchmark::DoNotOptimize(sent);
            benchmark::ClobberMemory();
        },
        [&] {
            v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(in.size()), in.data()};
            convert(&datagram);
        });
}

bool measureReport(size_t phases) {
    Bytes bytes = {0xFE, 0xFE, 0x10, 0, 0, 0, static_cast<uint8_t>(phases), 0};
    for (size_t i = 0; i < phases; i++) {
        bytes.insert(bytes.end(), {static_cast<uint8_t>(i + 1), static_cast<uint8_t>(i % 3 + 1), 15, 0, 0, 0, 0});
    }
    bytes[4] = static_cast<uint8_t>(bytes.size() - 5);
    return measureDevice("report of " + std::to_string(phases), bytes, datagramSize(phases, phases),
                         [](void* datagram) { v2xspatconv_GetLearnMachineDataRcv(nullptr, datagram, nullptr, 0); });
}

// Measures a frame whose links come from all directions and whose groups have all lamp types. Such a frame has 20
// phases.
bool measureFrame(size_t links, size_t groups) {
    constexpr uint8_t TYPES[] = {1, 2, 3, 8, 9};
    constexpr size_t PHASES = 20;
    std::vector<frame_1743::Link> crossing(links);
    for (size_t i = 0; i < links; i++) {
        crossing[i].angle = static_cast<uint16_t>(360 * i / links);
        for (size_t j = 0; j < groups; j++) {
            crossing[i].groups.push_back({TYPES[j % std::size(TYPES)], 0x02, 15});
        }
    }
    initBuffer();
    return measureDevice("frame of " + std::to_string(links) + " x " + std::to_string(groups),
                         frame_1743::frame(frame_1743::payload(crossing)), datagramSize(links * groups, PHASES),
                         [](void* datagram) {
                             v2xspatconv_GetSignalMachine1743DataRcv(nullptr, datagram, nullptr, 0);
                             DealSignalMachine1743DataRcv(nullptr);
                         });
}

bool measureDocument(int phases) {
    std::string text = R"({"name":"Crossing 7","intersections":[{"intersectionId":{"region":1,"id":2},"status":258,)"
                       R"("phases":[)";
    for (int id = 1; id <= phases; id++) {
        text += (id > 1 ? R"(,{"phaseId":)" : R"({"phaseId":)") + std::to_string(id) +
                R"(,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"minEndTime":100,"maxEndTime":200,)"
                R"("likelyEndTime":150,"timeConfidence":190,"nextStartTime":400,"nextDuration":250}}}]})";
    }
    text += "]}]}";
    return measure(
        "document of " + std::to_string(phases) + ", " + std::to_string(text.size()) + " bytes",
        [&] {
            cJSON* const tree = cJSON_Parse(text.c_str());
            benchmark::DoNotOptimize(tree);
            cJSON_Delete(tree);
        },
        [&] {
            for (size_t at = 0; at <= text.size(); at += FRAGMENT) {
                v2xspatconv_ddsRecvSpatDown(text.data() + at,
                                            static_cast<unsigned int>(std::min(FRAGMENT, text.size() - at)));
            }
        });
}

bool startModules() {
    const spat_conv_config_t* config = nullptr;
    if (!loadConfiguration("RSU0001", {"QUOR", "1743", "DOWN", "SCOM", "SINF"}) ||
        v2xspatconv_GetCfgData(&config) != 0) {
        return false;
    }
    // The sample configuration sets SpatDown as well. No other thread reads the configuration at this point.
    const_cast<spat_conv_config_t*>(config)->m_corrections.m_spat_down = true;
    return v2xspatconv_StackInterfaceInit() == 0;
}

} // namespace

int main() {
    if (!startModules()) {
        fprintf(stderr, "bench_sources: cannot load the configuration or open the sockets\n");
        return 1;
    }
    cJSON_Hooks hooks = {malloc, free}; // without hooks, the shared library's allocations would not be counted
    cJSON_InitHooks(&hooks);
    bool isOk = true;
    compareHeading("bare", "daemon");
    for (const size_t phases : {1, 8, 32}) {
        isOk &= measureReport(phases);
    }
    isOk &= measureFrame(4, 5) && measureFrame(11, 11);
    for (const int phases : {1, 8, 16}) {
        isOk &= measureDocument(phases);
    }
    return isOk ? 0 : 1;
}
