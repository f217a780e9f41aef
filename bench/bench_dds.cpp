// Sends a payload over loop-back to one reader: dds_send compared with a bare Fast DDS writer with the same settings.
// Each has a reader in the same process that counts and discards what it receives; nine tenths must arrive.
// Figures are processor time of the sending thread. All threads share one processor, since the number of wake-ups of
// other processors varies.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "bare_dds.h"
#include "compare.h"
#include "v2x/v2xdds.h"

namespace {

constexpr int32_t DOMAIN = 101;    // unused by the unit and the tests; its ports are below the ephemeral ones
std::atomic<size_t> g_received{0}; // octets, at the reader of dds_send

template <typename Condition>
bool eventually(Condition condition) {
    for (int i = 0; i < 5000 && !condition(); i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

// A participant with one topic; a reader when it has a callback.
class Peer {
public:
    Peer(const std::string& topic, dds_RecvCallback callback) : m_topic(topic), m_handle(create_dds()) {
        dds_reg(m_handle, DOMAIN, topic.c_str(), callback, 0);
        dds_start(m_handle);
    }
    ~Peer() { destroy_dds(m_handle); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    int32_t readers() const { return get_match_cnt(m_handle, m_topic.c_str()); }
    bool send(const std::vector<uint8_t>& payload) const {
        return dds_send(m_handle, m_topic.c_str(), payload.data(), static_cast<uint32_t>(payload.size())) == 0;
    }

private:
    const std::string m_topic;
    void* const m_handle;
};

// Waits until no more octets arrive. Returns whether nine tenths have arrived: volatile topics may lose some if a
// socket is full.
bool haveArrived(const std::atomic<size_t>& received, size_t before, size_t sent) {
    size_t last = 0;
    do {
        last = received;
        std::this_thread::sleep_for(std::chrono::milliseconds(250)); // more than two heartbeats of the writer
    } while (received != last);
    return sent > 0 && last - before > sent / 10 * 9;
}

} // namespace

int main() {
    cpu_set_t processor;
    CPU_ZERO(&processor);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &processor);
    if (sched_setaffinity(0, sizeof processor, &processor) != 0) {
        perror("bench_dds: processor");
        return 1;
    }
    const struct {
        const char* what;
        size_t size;
        size_t samples; // of the bare writer; dds_send splits the payload itself
    } rows[] = {
        {"128 bytes", 128, 1},
        {"1024 bytes", 1024, 1},
        {"10240 bytes, bare in 10 samples", 10240, 10},
        {"10240 bytes, bare in one sample", 10240, 1},
    };
    const std::string topic = "bench_" + std::to_string(getpid());
    const Peer reader(topic + "_send", [](void*, unsigned int length) { g_received += length; });
    const Peer writer(topic + "_send", nullptr);
    const BareReader bareReader(DOMAIN, topic + "_bare");
    BareWriter bareWriter(DOMAIN, topic + "_bare");
    if (!eventually([&] { return writer.readers() == 1 && bareWriter.readers() == 1; })) {
        fprintf(stderr, "bench_dds: the writers find no reader\n");
        return 1;
    }
    compareHeading("bare", "dds_send");
    bool sound = true;
    for (const auto& row : rows) {
        const std::vector<uint8_t> payload(row.size, 0x41);
        const std::vector<uint8_t> sample = bareSample(row.size / row.samples);
        const size_t bareBefore = bareReader.received();
        const size_t before = g_received;
        size_t bareSent = 0;
        size_t sent = 0;
        compare(
            row.what,
            [&] {
                for (size_t i = 0; i < row.samples; i++) {
                    sound &= bareWriter.send(sample);
                }
                bareSent += row.size;
            },
            [&] {
                sound &= writer.send(payload);
                sent += row.size;
            },
            CLOCK_THREAD_CPUTIME_ID);
        sound &= haveArrived(bareReader.received(), bareBefore, bareSent) && haveArrived(g_received, before, sent);
    }
    if (!sound) {
        fprintf(stderr, "bench_dds: payloads were not sent or did not arrive\n");
    }
    return sound ? 0 : 1;
}
