#include "flood.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>

#include "captured_frames.h"
#include "frame_1743.h"
#include "messages.h"
#include "v2x/v2xdds.h"

namespace {

constexpr int32_t DOMAIN_ID = 200;
constexpr const char* STATUS_TOPIC = "/pelko/cloud/v2x/service_status";
constexpr size_t RANDOM_MAX = 1000; // below a fragment that another follows
constexpr size_t REQUEST_SIZE = 28;

// A document with one phase.
Bytes document(int phase) {
    const std::string text =
        R"({"intersections":[{"intersectionId":{"region":1,"id":2},"status":32,"phases":[{"phaseId":)" +
        std::to_string(phase) +
        R"(,"phaseStates":[{"light":3,"timing":{"counting":{"startTime":0,"likelyEndTime":150}}}]}]}]})";
    return {text.begin(), text.end()};
}

} // namespace

const Stream GOOD_STREAMS[STREAMS] = {
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

const std::vector<Inlet> INLETS = {
    {"learner's port",
     2,
     hex("FEFE10 000A 000100 03010F00000000"),
     [](FloodDesk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.reportPort, input); },
     0,
     {"QUOR_RECV_SG.received", "QUOR_RECV_SG.too_long", "QUOR_RECV_SG.kernel_drops"},
     {{{"QUOR_RECV_SG.received"},
       {"learner.accepted", "learner.invalid", "learner.wrong_length", "learner.not_converted"}}},
     {}},
    {"controller's port",
     1,
     frame_1743::frame(frame_1743::payload({{0, {{1, 0x02, 5}}}})),
     [](FloodDesk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.framePort, input); },
     1,
     {"1743_RECV_SG.received", "1743_RECV_SG.too_long", "1743_RECV_SG.kernel_drops"},
     {{{"1743.frames"},
       {"1743.accepted", "1743.too_short", "1743.too_long", "1743.not_unescaped", "1743.wrong_crc", "1743.other_type",
        "1743.not_converted"}}},
     {"1743.bytes_framed", "1743.bytes_skipped", "1743.bytes_cut", "1743.bytes_dropped"}},
    {"log tool's port",
     1,
     LOG_REQUEST,
     [](FloodDesk& desk, const Bytes& input) { desk.flooder.sendTo(desk.unit.logToolPort, input); },
     Inlet::NONE,
     {"SPAT_C_LOGTOOL.received", "SPAT_C_LOGTOOL.too_long", "SPAT_C_LOGTOOL.kernel_drops"},
     {{{"SPAT_C_LOGTOOL.received"},
       {"log_tool.answered", "log_tool.not_answered", "log_tool.too_short", "log_tool.wrong_command",
        "log_tool.not_served", "log_tool.no_memory"}}},
     {}},
    {"port for replies",
     1 / 0.6,
     replyWith(hex(captured::spat)),
     [](FloodDesk& desk, const Bytes& input) { desk.flooder.sendTo(desk.records.requestPort(), input); },
     Inlet::NONE,
     {"GET_SPAT_DATA.received", "GET_SPAT_DATA.too_long", "GET_SPAT_DATA.kernel_drops"},
     {{{"GET_SPAT_DATA.received"}, {"ipc.late_replies", "reply.received", "reply.no_memory"}},
      {{"reply.received"},
       {"reply.accepted", "reply.overrun", "reply.wrong_head", "reply.wrong_length", "reply.wrong_command",
        "reply.other_type", "reply.no_block", "reply.bad_item"}}},
     {}},
    {"topic of documents",
     1,
     document(98),
     [](FloodDesk& desk, const Bytes& input) { desk.cloud.sendDocument(input); },
     2,
     {"down.fragments"},
     {{{"down.fragments"}, {"down.accepted", "down.no_spat", "down.not_converted", "down.no_memory"}}},
     {}},
    {"topic of the cloud's status",
     0.2,
     hex("05 01"),
     [](FloodDesk& desk, const Bytes& input) { desk.cloud.sendStatus(input); },
     Inlet::NONE,
     {"cloud_status.accepted", "cloud_status.too_short", "cloud_status.other_service"},
     {},
     {}},
};

Bytes input(const Inlet& inlet, Kind kind, std::mt19937& chance) {
    const auto below = [&](size_t limit) { return chance() % limit; };
    if (kind == Kind::good) {
        return inlet.good;
    }
    Bytes bytes = inlet.good;
    if (kind == Kind::random) {
        bytes.resize(1 + below(RANDOM_MAX));
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(chance()); });
        return bytes;
    }
    // Octets changed, or missing at the end, or too many there.
    for (size_t changes = below(4); changes > 0; changes--) {
        bytes[below(bytes.size())] = static_cast<uint8_t>(chance());
    }
    bytes.resize(1 + below(bytes.size() + 8), uint8_t{0x5A});
    return bytes;
}

uint64_t sum(const Counts& counts, const std::vector<std::string>& names) {
    uint64_t sum = 0;
    for (const std::string& name : names) {
        sum += of(counts, name);
    }
    return sum;
}

Cloud::Cloud(const std::string& device) : m_dds(create_dds()), m_down("rsu/" + device + "/spat/down") {
    for (const std::string& topic : {m_down, std::string(STATUS_TOPIC)}) {
        dds_reg(m_dds, DOMAIN_ID, topic.c_str(), nullptr, 0);
        set_history_qos(m_dds, topic.c_str(), DDS_HISTORY_ALL, 0);
    }
    dds_start(m_dds);
}

Cloud::~Cloud() {
    destroy_dds(m_dds);
}

bool Cloud::waitMatched() const {
    return eventually(
        [&] { return get_match_cnt(m_dds, m_down.c_str()) == 1 && get_match_cnt(m_dds, STATUS_TOPIC) >= 1; });
}

// With "all" kept nothing is lost: where the reader is behind, no sample is taken.
void Cloud::send(const std::string& topic, const Bytes& bytes) const {
    eventually([&] { return dds_send(m_dds, topic.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size())) == 0; });
}

void Cloud::sendDocument(const Bytes& bytes) const {
    send(m_down, bytes);
}

void Cloud::sendStatus(const Bytes& bytes) const {
    send(STATUS_TOPIC, bytes);
}

ArrivedRecords::ArrivedRecords(const Peer& stack) : m_fd(stack.fd()) {
    const int size = 16 * 1024 * 1024;
    setsockopt(m_fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size); // as far as this user may
    m_thread = std::thread(&ArrivedRecords::run, this);
}

ArrivedRecords::~ArrivedRecords() {
    m_stop = true;
    m_thread.join();
}

void ArrivedRecords::run() {
    Bytes bytes(65536);
    while (!m_stop) {
        pollfd in = {m_fd, POLLIN, 0};
        if (poll(&in, 1, 50) != 1) {
            continue;
        }
        sockaddr_in from = {};
        socklen_t size = sizeof from;
        const ssize_t length = recvfrom(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
        if (length == static_cast<ssize_t>(REQUEST_SIZE)) {
            m_requestPort = ntohs(from.sin_port);
        } else if (length > static_cast<ssize_t>(REQUEST_SIZE)) {
            m_all++;
            const std::vector<std::string> record = recordOf({bytes.begin(), bytes.begin() + length});
            for (size_t i = 0; i < STREAMS; i++) {
                m_good[i] += GOOD_STREAMS[i].record == record ? 1 : 0;
            }
        }
    }
}
