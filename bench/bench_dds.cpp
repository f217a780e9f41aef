// Sends payloads over loopback with dds_send, and with a bare Fast DDS writer with the same settings as the baseline.
// Each writer has one reader in this process. The benchmark fails if a reader receives less than nine tenths of the
// bytes. The figures are processor time of the sending thread. All threads run on one processor, because the number of
// wake-ups across processors varies from run to run.
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

constexpr int32_t DOMAIN = 101;    // neither the daemon nor the tests use this domain; its ports are not ephemeral
std::atomic<size_t> g_received{0}; // bytes that the reader of dds_send has received

// Waits up to 5 s. Returns the condition's last value.
template <typename Condition>
bool waitUntil(Condition condition) {
    for (int i = 0; i < 5000 && !condition(); i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

// A participant of the DDS library with one topic. Reads the topic if there is a callback, otherwise publishes on it.
class Peer {
public:
    Peer(const std::string& topic, dds_RecvCallback callback) : m_topic(topic), m_handle(create_dds()) {
        dds_reg(m_handle, DOMAIN, topic.c_str(), callback, 0);
        dds_start(m_handle);
    }
    ~Peer() { destroy_dds(m_handle); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    int32_t countReaders() const { return get_match_cnt(m_handle, m_topic.c_str()); }
    bool send(const std::vector<uint8_t>& payload) const {
        return dds_send(m_handle, m_topic.c_str(), payload.data(), static_cast<uint32_t>(payload.size())) == 0;
    }

private:
    const std::string m_topic;
    void* const m_handle;
};

// Waits until no more bytes arrive. Returns true if nine tenths of the sent bytes arrived: a volatile topic may lose
// samples if a socket buffer is full.
bool waitForBytes(const std::atomic<size_t>& received, size_t before, size_t sent) {
    size_t last = 0;
    do {
        last = received;
        std::this_thread::sleep_for(std::chrono::milliseconds(250)); // longer than two heartbeat periods of the writer
    } while (received != last);
    return sent > 0 && last - before > sent / 10 * 9;
}

} // namespace

int main() {
    cpu_set_t processor;
    CPU_ZERO(&processor);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &processor);
    if (sched_setaffinity(0, sizeof processor, &processor) != 0) {
        perror("bench_dds: cannot bind the process to one processor");
        return 1;
    }
    const struct {
        const char* what;
        size_t size;
        size_t samples; // the bare writer sends the payload in this many samples; dds_send splits the payload itself
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
    if (!waitUntil([&] { return writer.countReaders() == 1 && bareWriter.countReaders() == 1; })) {
        fprintf(stderr, "bench_dds: a writer on domain %d matched no reader within 5 s\n", DOMAIN);
        return 1;
    }
    compareHeading("bare", "dds_send");
    bool isOk = true;
    for (const auto& row : rows) {
        const std::vector<uint8_t> payload(row.size, 0x41);
        const std::vector<uint8_t> sample = encodeSample(row.size / row.samples);
        const size_t bareBefore = bareReader.received();
        const size_t before = g_received;
        size_t bareSent = 0;
        size_t sent = 0;
        compare(
            row.what,
            [&] {
                for (size_t i = 0; i < row.samples; i++) {
                    isOk &= bareWriter.send(sample);
                }
                bareSent += row.size;
            },
            [&] {
                isOk &= writer.send(payload);
                sent += row.size;
            },
            CLOCK_THREAD_CPUTIME_ID);
        isOk &= waitForBytes(bareReader.received(), bareBefore, bareSent) && waitForBytes(g_received, before, sent);
    }
    if (!isOk) {
        fprintf(stderr, "bench_dds: a payload could not be sent, or more than a tenth of the bytes was lost\n");
    }
    return isOk ? 0 : 1;
}
