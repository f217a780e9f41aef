// Measures two steps without the kernel: recordToFrame makes a frame of a record (argument: number of phases), and
// storeDatagram stores a controller datagram in the byte ring (argument: number of bytes).
#include <benchmark/benchmark.h>
#include <cstdio>
#include <vector>

#include "allocations.h"
#include "configuration.h"
#include "spat_conv_phase_table.h"
#include "spat_conv_signal_machine_1743_stream.h"
#include "spat_conv_stack_interface.h"

namespace {

bool startModules() {
    return loadConfiguration("RSU0001", {"SINF"}) && v2xspatconv_StackInterfaceInit() == 0;
}

void recordToFrame(benchmark::State& state) {
    uint8_t record[V2XIPC_RECORD_SIZE] = {};
    uint8_t* entry = record + sizeof(v2xipc_phases_t);
    for (int64_t i = 0; i < state.range(0); i++) {
        entry += v2xspatconv_WritePhase(entry, static_cast<uint8_t>(i + 1), V2XIPC_LIGHT_RED, 150);
    }
    v2xipc_phases_t* spat_ipc = reinterpret_cast<v2xipc_phases_t*>(record);
    spat_ipc->m_phaseNum = static_cast<int8_t>(state.range(0));
    const size_t before = countAllocations();
    for (auto _ : state) {
        v2xspatconv_SpatNotify(spat_ipc);
    }
    state.counters["allocations"] = static_cast<double>(countAllocations() - before);
}
BENCHMARK(recordToFrame)->Arg(1)->Arg(8)->Arg(32);

void storeDatagram(benchmark::State& state) {
    std::vector<uint8_t> bytes(static_cast<size_t>(state.range(0)), 0x41);
    v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(bytes.size()), bytes.data()};
    for (auto _ : state) {
        initBuffer();
        v2xspatconv_GetSignalMachine1743DataRcv(nullptr, &datagram, nullptr, 0);
    }
}
BENCHMARK(storeDatagram)->Arg(142)->Arg(1400);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!startModules()) {
        fprintf(stderr, "bench_convert: cannot load the configuration or open the sockets\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
