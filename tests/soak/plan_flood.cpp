// Floods of each port and topic with good, damaged and random input while good streams run. The daemon's counters must
// account for every input, and the good streams must arrive.
#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

#include "captured_frames.h"
#include "frame_1743.h"
#include "messages.h"
#include "plans.h"
#include "traffic.h"
#include "v2x/v2xdds.h"

namespace {

constexpr double FLOOD_SECONDS = 1; // a flood lasts at least this long
constexpr double FLOOD_INPUTS = 10; // and has at least this many inputs
constexpr int SCALES[] = {10, 100, 1000};
constexpr size_t DATAGRAM_MAX = 32767; // longer ones are dropped at the socket
constexpr size_t RANDOM_MAX = 1000;    // less than a document's fragment, which the next one continues
constexpr uint32_t LONG_EACH = 100;
constexpr int LOSSLESS_SCALE = 10; // the good streams lose nothing up to this one

enum class Kind { good, damaged, random };
constexpr std::pair<Kind, const char*> KINDS[] = {
    {Kind::good, "good"}, {Kind::damaged, "damaged"}, {Kind::random, "random"}};

// A document with one phase.
Bytes document(int phase) {
    const std::string text =
        R"({"intersections":[{"intersectionId":{"region":1,"id":2},"status":32,"phases":[{"phaseId":)" +
        std::to_string(phase) +
        R"(,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"likelyEndTime":150}}}]}]}]})";
    return {text.begin(), text.end()};
}

// Good streams during every flood, by Source; each makes a record of its own.
const struct Stream {
    const char* name;
    double rate; // a second
    Bytes input;
    std::vector<std::string> record; // as recordOf() returns it
} STREAMS[] = {
    {"reports",
     20,
     hex("FEFE10 0018 000300 15010100000000 16020200000000 17030300000000"),
     {"3", "21:5:10", "22:3:20", "23:7:30"}},
    {"frames",
     10,
     frame_1743::frame(frame_1743::payload({{0, {{1, 0x02, 11}, {2, 0x08, 12}}}, {90, {{1, 0x20, 13}}}})),
     {"3", "1:3:110", "2:5:130", "7:7:120"}},
    {"documents", 10, document(99), {"1", "99:3:150"}},
};

Source streamOf(const Bytes& record) {
    const std::vector<std::string> parts = recordOf(record);
    const auto* const at = std::find_if(std::begin(STREAMS), std::end(STREAMS),
                                        [&](const Stream& stream) { return stream.record == parts; });
    return at == std::end(STREAMS) ? UNKNOWN : static_cast<Source>(at - std::begin(STREAMS));
}

// Writes the cloud's topics.
class Cloud {
public:
    explicit Cloud(const std::string& device) : DOWN("rsu/" + device + "/spat/down"), m_dds(create_dds()) {
        for (const std::string& topic : {DOWN, STATUS}) {
            dds_reg(m_dds, DOMAIN_ID, topic.c_str(), nullptr, 0);
            set_history_qos(m_dds, topic.c_str(), DDS_HISTORY_ALL, 0);
        }
        dds_start(m_dds);
    }
    ~Cloud() { destroy_dds(m_dds); }
    Cloud(const Cloud&) = delete;
    Cloud& operator=(const Cloud&) = delete;
    bool waitMatched() const {
        return eventually(
            [&] { return get_match_cnt(m_dds, DOWN.c_str()) == 1 && get_match_cnt(m_dds, STATUS.c_str()) >= 1; });
    }
    // With history "all" nothing is lost: the writer refuses a sample while the reader is behind.
    void send(const std::string& topic, const Bytes& bytes) const {
        eventually(
            [&] { return dds_send(m_dds, topic.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size())) == 0; });
    }
    const std::string DOWN;
    const std::string STATUS = "/pelko/cloud/v2x/service_status";

private:
    static constexpr int32_t DOMAIN_ID = 200;
    void* m_dds;
};

struct Desk {
    const Cloud& cloud;
    Unit unit{};
    UdpPeer flooder{};
    StackDesk records{unit.stack, streamOf};
};

using Names = std::vector<std::string>;

// A port or topic.
const struct Inlet {
    const char* name;
    double nominal; // inputs a second
    Bytes good;
    void (*send)(const Desk& desk, const Bytes& input);
    Source stream; // the good stream that uses it, too, or UNKNOWN
    Names came;    // counters whose sum is the number of inputs; of a socket, the last is the kernel's
    // A counter, and those whose sum equals it.
    std::vector<std::pair<std::string, Names>> balances{};
    Names bytes{}; // counters whose sum is the number of bytes, if there are any
    bool isSocket() const { return came.back().ends_with(".kernel_drops"); }
} INLETS[] = {
    {"learner's port",
     2,
     hex("FEFE10 000A 000100 03010F00000000"),
     [](const Desk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.reportPort, input); },
     LEARNER,
     {"QUOR_RECV_SG.received", "QUOR_RECV_SG.too_long", "QUOR_RECV_SG.kernel_drops"},
     {{"QUOR_RECV_SG.received",
       {"learner.accepted", "learner.invalid", "learner.wrong_length", "learner.not_converted"}}}},
    {"controller's port",
     1,
     frame_1743::frame(frame_1743::payload({{0, {{1, 0x02, 5}}}})),
     [](const Desk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.framePort, input); },
     CONTROLLER,
     {"1743_RECV_SG.received", "1743_RECV_SG.too_long", "1743_RECV_SG.kernel_drops"},
     {{"1743.frames",
       {"1743.accepted", "1743.too_short", "1743.too_long", "1743.not_unescaped", "1743.wrong_crc", "1743.other_type",
        "1743.not_converted"}}},
     {"1743.bytes_framed", "1743.bytes_skipped", "1743.bytes_cut", "1743.bytes_dropped"}},
    {"log tool's port",
     1,
     LOG_REQUEST,
     [](const Desk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.logToolPort, input); },
     UNKNOWN,
     {"SPAT_C_LOGTOOL.received", "SPAT_C_LOGTOOL.too_long", "SPAT_C_LOGTOOL.kernel_drops"},
     {{"SPAT_C_LOGTOOL.received",
       {"log_tool.answered", "log_tool.not_answered", "log_tool.too_short", "log_tool.wrong_command",
        "log_tool.not_served"}}}},
    {"port for replies",
     1 / 0.6,
     replyWith(hex(captured::spat)),
     [](const Desk& desk, const Bytes& input) { desk.flooder.sendTo(desk.records.requestPort(), input); },
     UNKNOWN,
     {"GET_SPAT_DATA.received", "GET_SPAT_DATA.too_long", "GET_SPAT_DATA.kernel_drops"},
     {{"GET_SPAT_DATA.received", {"ipc.late_replies", "reply.received"}},
      {"reply.received",
       {"reply.accepted", "reply.overrun", "reply.wrong_head", "reply.wrong_length", "reply.wrong_command",
        "reply.other_type", "reply.no_block", "reply.bad_item"}}}},
    {"topic of documents",
     1,
     document(98),
     [](const Desk& desk, const Bytes& input) { desk.cloud.send(desk.cloud.DOWN, input); },
     CLOUD,
     {"down.fragments"},
     {{"down.fragments", {"down.accepted", "down.no_spat", "down.not_converted"}}}},
    {"topic of the cloud's status",
     0.2,
     hex("05 01"),
     [](const Desk& desk, const Bytes& input) { desk.cloud.send(desk.cloud.STATUS, input); },
     UNKNOWN,
     {"cloud_status.accepted", "cloud_status.too_short", "cloud_status.other_service"}},
};

Bytes inputFor(const Inlet& inlet, Kind kind, std::mt19937& chance) {
    const auto below = [&](size_t limit) { return chance() % limit; };
    Bytes bytes = inlet.good;
    if (kind == Kind::random) {
        bytes.resize(1 + below(RANDOM_MAX));
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(chance()); });
    } else if (kind == Kind::damaged) {
        // Changed bytes, missing or surplus ones at the end.
        for (size_t changes = below(4); changes > 0; changes--) {
            bytes[below(bytes.size())] = static_cast<uint8_t>(chance());
        }
        bytes.resize(1 + below(bytes.size() + 8), uint8_t{0x5A});
    }
    return bytes;
}

uint64_t sum(const Counts& counts, const Names& names) {
    uint64_t sum = 0;
    for (const std::string& name : names) {
        sum += of(counts, name);
    }
    return sum;
}

// One flood of a daemon of its own, whose counters count this flood alone.
class Flood {
public:
    // Starts the daemon and waits for its peers; throws std::runtime_error without them.
    Flood(const Cloud& cloud, const Inlet& inlet, uint32_t seed) : m_desk{cloud}, m_inlet(inlet), m_chance(seed) {
        m_desk.unit.corrections = "SpatDown = true;";
        m_desk.records.answer(false);
        m_desk.unit.startAndWaitReady();
        if (!cloud.waitMatched() || !eventually([&] { return m_desk.records.requestPort() != 0; })) {
            throw std::runtime_error("the daemon does not reach its peers");
        }
    }
    // Sends `rate` inputs a second and the good streams.
    void run(Kind kind, double rate);
    // Sends damaged and random inputs in turn, as fast as possible.
    void runAtOnce(uint32_t inputs);
    // Waits until the daemon has taken all, ends it and compares its counters with what was sent.
    void check(const std::string& what, Report& report);
    uint64_t lost(Source stream) const { return m_streams[stream] - m_desk.records.of(stream); }

private:
    void send(const Inlet& inlet, const Bytes& bytes);

    Desk m_desk;
    const Inlet& m_inlet;
    std::mt19937 m_chance;
    uint64_t m_inputs = 0; // sent to the inlet
    uint64_t m_bytes = 0;
    uint64_t m_streams[std::size(STREAMS)] = {};
};

void Flood::send(const Inlet& inlet, const Bytes& bytes) {
    inlet.send(m_desk, bytes);
    if (&inlet == &m_inlet) {
        m_inputs++;
        m_bytes += bytes.size() <= DATAGRAM_MAX ? bytes.size() : 0; // the socket drops a longer one
    }
}

void Flood::run(Kind kind, double rate) {
    const double length = std::max(FLOOD_SECONDS, FLOOD_INPUTS / rate);
    uint64_t flooded = 0;
    const Stopwatch watch;
    for (double elapsed = 0; elapsed < length;) {
        elapsed = std::min(length, static_cast<double>(watch.ms()) / 1000);
        for (; flooded < static_cast<uint64_t>(elapsed * rate); flooded++) {
            send(m_inlet, inputFor(m_inlet, kind, m_chance));
        }
        for (const Inlet& inlet : INLETS) {
            while (inlet.stream != UNKNOWN &&
                   m_streams[inlet.stream] < static_cast<uint64_t>(elapsed * STREAMS[inlet.stream].rate)) {
                send(inlet, STREAMS[inlet.stream].input);
                m_streams[inlet.stream]++;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Flood::runAtOnce(uint32_t inputs) {
    for (uint32_t i = 0; i < inputs; i++) {
        const bool isLong = i % LONG_EACH == 0 && m_inlet.isSocket();
        const Kind kind = i % 2 == 0 ? Kind::damaged : Kind::random;
        send(m_inlet, isLong ? Bytes(DATAGRAM_MAX + 1, 0x5A) : inputFor(m_inlet, kind, m_chance));
    }
}

void Flood::check(const std::string& what, Report& report) {
    // The daemon reads the controller's bytes every 500 ms and the port for replies every 600 ms.
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    for (uint64_t before = UINT64_MAX; before != m_desk.records.all();) {
        before = m_desk.records.all();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    m_desk.unit.daemon->signal(SIGTERM);
    const int status = m_desk.unit.daemon->wait(20000);
    const Counts counted = counts(m_desk.unit.logPath);

    bool isSame = status == 0;
    std::string text = "sent " + std::to_string(m_inputs) + " =";
    const auto add = [&](const Names& names, bool isEqual) {
        isSame = isSame && isEqual;
        for (const std::string& name : names) {
            const uint64_t count = of(counted, name);
            text += count > 0 ? " " + name.substr(name.find('.') + 1) + " " + std::to_string(count) : "";
        }
    };
    add(m_inlet.came, sum(counted, m_inlet.came) == m_inputs);
    for (const auto& [all, parts] : m_inlet.balances) {
        text += ";";
        add(parts, of(counted, all) == sum(counted, parts));
    }
    if (!m_inlet.bytes.empty()) {
        text += "; bytes " + std::to_string(m_bytes) + " =";
        const uint64_t taken = sum(counted, m_inlet.bytes);
        // The kernel counts dropped datagrams, not bytes.
        add(m_inlet.bytes, of(counted, m_inlet.came.back()) > 0 ? taken < m_bytes : taken == m_bytes);
    }
    report.check(what, isSame, status == 0 ? text : text + "; the daemon ended with " + std::to_string(status),
                 "all counted");
}

// What the good streams lost during a flood of this scale.
void checkStreams(const Flood& flood, const Inlet& inlet, Kind kind, int scale, const std::string& what,
                  Report& report) {
    std::string losses;
    std::string asked = "none";
    bool isLossless = true;
    for (const Source stream : {LEARNER, CONTROLLER, CLOUD}) {
        const std::string name = STREAMS[stream].name;
        losses += " " + name + " " + std::to_string(flood.lost(stream));
        // In a byte stream, damaged and random bytes cost the frames that follow.
        if (!inlet.bytes.empty() && kind != Kind::good && inlet.stream == stream) {
            asked += " but " + name;
        } else {
            isLossless = isLossless && flood.lost(stream) == 0;
        }
    }
    if (scale <= LOSSLESS_SCALE) {
        report.check(what + ": good input lost", isLossless, losses, asked);
    } else {
        report.note(what + ": good input lost", losses);
    }
}

} // namespace

void planFlood(const Options& options, Report& report) {
    const Cloud cloud("T" + std::to_string(getpid())); // Unit::device of every flood
    for (const Inlet& inlet : INLETS) {
        for (const auto& [kind, kindName] : KINDS) {
            for (const int scale : SCALES) {
                const std::string what = std::string(inlet.name) + " x " + std::to_string(scale) + ", " + kindName;
                Flood flood(cloud, inlet, options.seed);
                flood.run(kind, inlet.nominal * scale);
                flood.check(what, report);
                checkStreams(flood, inlet, kind, scale, what, report);
            }
        }
        Flood flood(cloud, inlet, options.seed);
        flood.runAtOnce(options.malformed);
        flood.check(std::string(inlet.name) + ", malformed at once", report);
    }
}
