// Each port and topic flooded with good, damaged and random input, good streams beside it: what was sent is accounted
// for by the daemon's own counts, and the good streams come through.
#include <chrono>
#include <cmath>
#include <string>
#include <thread>

#include "flood.h"
#include "plans.h"

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double FLOOD_SECONDS = 1; // and longer where that is less than so many inputs
constexpr double FLOOD_INPUTS = 10;
constexpr int SCALES[] = {10, 100, 1000};
constexpr Kind ALL_KINDS[] = {Kind::good, Kind::damaged, Kind::random};
constexpr size_t DATAGRAM_MAX = 32767; // that a socket of the daemon hands on
constexpr uint32_t LONG_EACH = 100;
constexpr int LOSSLESS_SCALE = 10; // up to here the good streams lose nothing

// A daemon of its own for each flood, so that its counts are those of the flood.
class Flood {
public:
    Flood(const Cloud& cloud, const Inlet& inlet, uint32_t seed) : m_desk(cloud), m_inlet(inlet), m_chance(seed) {}

    bool start() {
        m_desk.unit.startAndWaitReady();
        return m_desk.cloud.waitMatched() && eventually([&] { return m_desk.records.requestPort() != 0; });
    }
    // At so many inputs a second, the good streams beside them.
    void run(Kind kind, double rate);
    // As fast as it goes, damaged and random in turn.
    void runAtOnce(uint32_t inputs);
    // Lets the daemon take what waits, and ends it.
    void end();

    // What was sent and what became of it, and whether that is the same.
    std::string account() const;
    bool isAccounted() const;
    uint64_t lost(size_t stream) const { return m_streams[stream] - m_desk.records.good(stream); }

private:
    void sendInput(const Bytes& bytes);
    void sendStream(size_t stream);
    uint64_t came() const { return sum(m_counts, m_inlet.came); }

    FloodDesk m_desk;
    const Inlet& m_inlet;
    std::mt19937 m_chance;
    uint64_t m_inputs = 0; // that went into the inlet
    uint64_t m_bytes = 0;
    uint64_t m_streams[STREAMS] = {};
    Counts m_counts;
    int m_status = -1;
};

void Flood::sendInput(const Bytes& bytes) {
    m_inlet.send(m_desk, bytes);
    m_inputs++;
    m_bytes += bytes.size() <= DATAGRAM_MAX ? bytes.size() : 0; // a longer one goes no further than the socket
}

void Flood::sendStream(size_t stream) {
    for (const Inlet& inlet : INLETS) {
        if (inlet.stream == static_cast<int>(stream)) {
            inlet.send(m_desk, GOOD_STREAMS[stream].input);
        }
    }
    m_streams[stream]++;
    if (m_inlet.stream == static_cast<int>(stream)) {
        m_inputs++;
        m_bytes += GOOD_STREAMS[stream].input.size();
    }
}

void Flood::run(Kind kind, double rate) {
    const double length = std::max(FLOOD_SECONDS, FLOOD_INPUTS / rate);
    uint64_t flooded = 0;
    const auto start = Clock::now();
    for (double elapsed = 0; elapsed < length;) {
        elapsed = std::min(length, Seconds(Clock::now() - start).count());
        for (; flooded < static_cast<uint64_t>(elapsed * rate); flooded++) {
            sendInput(input(m_inlet, kind, m_chance));
        }
        for (size_t i = 0; i < STREAMS; i++) {
            while (m_streams[i] < static_cast<uint64_t>(elapsed * GOOD_STREAMS[i].rate)) {
                sendStream(i);
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Flood::runAtOnce(uint32_t inputs) {
    for (uint32_t i = 0; i < inputs; i++) {
        const bool isLong = i % LONG_EACH == 0 && m_inlet.isSocket();
        const Kind kind = i % 2 == 0 ? Kind::damaged : Kind::random;
        sendInput(isLong ? Bytes(DATAGRAM_MAX + 1, 0x5A) : input(m_inlet, kind, m_chance));
    }
}

void Flood::end() {
    // The controller's bytes are taken every 500 ms, and what waits at the port for replies every 600 ms.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    for (uint64_t before = UINT64_MAX; before != m_desk.records.all();) {
        before = m_desk.records.all();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    m_desk.unit.daemon->signal(SIGTERM);
    m_status = m_desk.unit.daemon->wait(20000);
    m_counts = counts(m_desk.unit.logPath);
}

bool Flood::isAccounted() const {
    bool same = m_status == 0 && came() == m_inputs;
    for (const auto& [left, right] : m_inlet.balances) {
        same = same && sum(m_counts, left) == sum(m_counts, right);
    }
    // What the kernel dropped is counted in datagrams alone.
    const bool isWhole = m_inlet.isSocket() && of(m_counts, m_inlet.came.back()) == 0;
    return same && (m_inlet.bytes.empty() || !isWhole || sum(m_counts, m_inlet.bytes) == m_bytes);
}

std::string Flood::account() const {
    std::string text = "sent " + std::to_string(m_inputs) + " =";
    const auto add = [&](const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            const uint64_t count = of(m_counts, name);
            text += count > 0 ? " " + name.substr(name.find('.') + 1) + " " + std::to_string(count) : "";
        }
    };
    add(m_inlet.came);
    for (const auto& balance : m_inlet.balances) {
        text += ";";
        add(balance.second);
    }
    if (!m_inlet.bytes.empty()) {
        text += "; bytes " + std::to_string(m_bytes) + " =";
        add(m_inlet.bytes);
    }
    return m_status == 0 ? text : text + "; the daemon ended with " + std::to_string(m_status);
}

// Damaged and random bytes between frames cost the frames behind them, by the nature of a byte stream.
bool isCostly(const Inlet& inlet, Kind kind, size_t stream) {
    return !inlet.bytes.empty() && kind != Kind::good && inlet.stream == static_cast<int>(stream);
}

void floodWith(const Cloud& cloud, const Inlet& inlet, Kind kind, int scale, uint32_t seed, Table& table) {
    Flood flood(cloud, inlet, seed);
    const std::string what =
        std::string(inlet.name) + " x " + std::to_string(scale) + ", " + KINDS[static_cast<int>(kind)];
    if (!table.check(what, flood.start(), "daemon and peers ready", "ready")) {
        return;
    }
    flood.run(kind, inlet.nominal * scale);
    flood.end();
    table.check(what, flood.isAccounted(), flood.account(), "all of it accounted for");
    std::string losses;
    std::string asked = "none";
    bool isLossless = true;
    for (size_t i = 0; i < STREAMS; i++) {
        losses +=
            (losses.empty() ? "" : ", ") + std::string(GOOD_STREAMS[i].name) + " " + std::to_string(flood.lost(i));
        if (isCostly(inlet, kind, i)) {
            asked += std::string(", but for ") + GOOD_STREAMS[i].name;
        } else {
            isLossless = isLossless && flood.lost(i) == 0;
        }
    }
    if (scale <= LOSSLESS_SCALE) {
        table.check(what + ": good input lost beside it", isLossless, losses, asked);
    } else {
        table.note(what + ": good input lost beside it", losses);
    }
}

} // namespace

void planFlood(const Options& options, Table& table) {
    const Cloud cloud("T" + std::to_string(getpid())); // the device of every desk
    for (const Inlet& inlet : INLETS) {
        for (const Kind kind : ALL_KINDS) {
            for (const int scale : SCALES) {
                floodWith(cloud, inlet, kind, scale, options.seed, table);
            }
        }
        Flood flood(cloud, inlet, options.seed);
        const std::string what = std::string(inlet.name) + ", malformed at once";
        if (table.check(what, flood.start(), "daemon and peers ready", "ready")) {
            flood.runAtOnce(options.malformed);
            flood.end();
            table.check(what, flood.isAccounted(), flood.account(), "all of it accounted for");
        }
    }
}
