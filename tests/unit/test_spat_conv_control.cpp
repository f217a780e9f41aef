#include <cstring>
#include <gtest/gtest.h>
#include <unistd.h>

#include "fixture.h"
#include "spat_conv_control_events.h"
#include "spat_conv_control_queue.h"
#include "spat_conv_control_requests.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xlog.h"

namespace {

constexpr uint64_t SECOND = 1000000;
constexpr uint64_t WALL_TIME = 1795377881123000; // 2026-11-22T20:04:41.123Z

v2xspatconv_peers_t readPeers() {
    return {"answers", fakes::monotonic - SECOND / 5, true, fakes::monotonic - 2 * SECOND, "rsu/R1/spat/up", 1};
}

std::string withoutTime(std::string line) {
    const std::string time = ",\"time\":\"2026-11-22T20:04:41.123Z\"";
    const size_t at = line.find(time);
    return at == std::string::npos ? line : line.erase(at, time.size());
}

class Control : public fakes::Fixture {
protected:
    Control() {
        fakes::now = WALL_TIME;
        fakes::monotonic = 1000 * SECOND;
        strcpy(m_config.m_sysinfo.m_device_id, "R\xC4\xE3\xC3\xA4"); // two bytes that are not UTF-8, one character
        m_config.m_regionId = 1;
        m_config.m_nodeId = 2;
        m_config.m_learn_machine_info.m_is_enable = true;
        m_config.m_control_path[0] = '/';
        v2xspatconv_sourceGuard_t& learner = m_config.m_guard.m_sources[V2XSPATCONV_LEARNER];
        learner.m_stale_after = 3000;
        learner.m_phaseid[2] = 7;
        m_config.m_guard.m_conflicts[0][0] = 1;
        m_config.m_guard.m_conflicts[0][1] = 2;
        m_config.m_guard.m_conflict_count = 1;
        EXPECT_EQ(v2xspatconv_StackInterfaceInit(), 0);
        v2xspatconv_GateInit(m_config, fakes::monotonic);
    }
    // A record of the learner: phase 1 green for 2.5 s, phase 2 green for an unknown time, phase 3 red between two
    // marks of the hour.
    void report() {
        const Bytes bytes = hex("02000100 8000 52650100 D5DD 03"
                                "01 01 01 05 0000 1900 FFFF FFFF FFFF FFFF FF"
                                "02 01 01 06 0000 A18C FFFF FFFF FFFF FFFF FF"
                                "03 01 01 03 5046 4A47 FFFF FFFF FFFF FFFF FF");
        Bytes record(V2XIPC_RECORD_SIZE);
        std::copy(bytes.begin(), bytes.end(), record.begin());
        v2xspatconv_GateRecord(V2XSPATCONV_LEARNER, reinterpret_cast<const v2xipc_phases_t*>(record.data()), {},
                               {0xC0A80114, 8001}, fakes::monotonic);
    }
    v2xspatconv_answer_t ask(const std::string& request) {
        return v2xspatconv_AnswerRequest(
            request, {&m_config, {"v1", "1.2.3", readPeers}, 990 * SECOND, WALL_TIME - 10 * SECOND});
    }
    std::string reply(const std::string& cmd) { return withoutTime(ask(R"({"cmd":")" + cmd + "\"}").line); }

    spat_conv_config_t m_config = {};
};

TEST_F(Control, StatusShowsSourcesPeersAndChecks) {
    fakes::socketStats["QUOR_RECV_SG"].refusedSender = 4;
    report();
    fakes::monotonic += SECOND / 2;
    report();
    fakes::monotonic += SECOND / 4;
    EXPECT_EQ(
        reply("status"),
        R"({"reply":"status","version":"v1","release":"1.2.3","pid":)" + std::to_string(getpid()) +
            R"(,"uptime":10.75,"started":"2026-11-22T20:04:31.123Z","device":"R??ä","region":1,"node":2,"intersection":65538,"sources":[)"
            R"({"source":"learner","state":"fresh","required":true,"forwarded":true,"peer":"192.168.1.20",)"
            R"("age":0.25,"rate":2,"accepted":2,"refused":4,"stale_after":3},)"
            R"({"source":"1743","state":"off","required":false,"forwarded":false,"peer":null,)"
            R"("age":null,"rate":null,"accepted":0,"refused":0,"stale_after":0},)"
            R"({"source":"cloud","state":"unwatched","required":false,"forwarded":true,"peer":null,)"
            R"("age":null,"rate":null,"accepted":0,"refused":0,"stale_after":0}],)"
            R"("stack":{"state":"answers","peer":"127.0.0.1:20010","age":0.2},)"
            R"("cloud":{"available":true,"age":2,"topic":"rsu/R1/spat/up","readers":1},)"
            R"("checks":[{"check":"conflict","source":"learner","active":true,"count":2,)"
            R"("last":"2026-11-22T20:04:40.873Z","age":0.25,"phases":[1,2]}]})"
            "\n");
}

TEST_F(Control, LightsShowLastRecordOfEachPhase) {
    EXPECT_EQ(reply("lights"), "{\"reply\":\"lights\",\"lights\":[]}\n");
    report();
    fakes::monotonic += 1500;
    EXPECT_EQ(reply("lights"), R"({"reply":"lights","lights":[)"
                               R"({"phase":1,"device_phase":1,"light":"permissive green","time_left":2.5,)"
                               R"("age":0.002,"source":"learner"},)"
                               R"({"phase":2,"device_phase":7,"light":"protected green","time_left":null,)"
                               R"("age":0.002,"source":"learner"},)"
                               R"({"phase":3,"device_phase":3,"light":"red","time_left":null,)"
                               R"("age":0.002,"source":"learner"}]})"
                               "\n");
}

TEST_F(Control, RepliesListLevelsAndCountersOfSockets) {
    fakes::socketStats["SOCK"] = {5, 0, 4, 1, 3, 2};
    V2X_LOGHANDLE handle = nullptr;
    v2xlog_AddTag("SPAT", &handle);
    v2xlog_SetTagLevel(handle, 6);
    EXPECT_NE(reply("counters")
                  .find(R"("SOCK":{"received":5,"too_long":0,"kernel_drops":4,"sent":1,"send_errors":3,)"
                        R"("refused_sender":2})"),
              std::string::npos);
    EXPECT_NE(reply("levels").find(R"({"tag":"SPAT","level":6})"), std::string::npos);
}

TEST_F(Control, RejectsInvalidRequests) {
    const std::string notJson = "{\"error\":\"the request is not a JSON object\"}\n";
    const std::string noCmd = "{\"error\":\"the request has no text \\\"cmd\\\"\"}\n";
    const struct {
        std::string request;
        std::string answer;
    } cases[] = {
        {"", notJson},
        {"status", notJson},
        {"[1]", notJson},
        {R"({"cmd":"status"} {)", notJson},
        {std::string("{\"cmd\":\"status\"}\0x", 18), notJson},
        {std::string(4095, '['), notJson},
        {"{}", noCmd},
        {R"({"cmd":7})", noCmd},
        {R"({"CMD":"status"})", noCmd},
        {R"({"cmd":"stop"})", "{\"error\":\"unknown cmd, expected one of status, lights, counters, config, levels, "
                              "watch, tap\"}\n"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(ask(row.request).line, row.answer) << row.request;
        EXPECT_EQ(ask(row.request).kinds, 0U);
    }
    EXPECT_EQ(reply("watch"), "{\"reply\":\"watch\"}\n");
    EXPECT_EQ(ask(R"({"id":3, "cmd":"watch"})").kinds, 0b1100U);
    EXPECT_EQ(ask(R"( {"cmd":"tap"} )").kinds, 0b0011U);
}

// Returns the line of an entry that consists of a head and bytes.
template <typename Head>
std::string format(v2x_journalKind kind, const Head& head, const Bytes& body = {}) {
    const auto* const start = reinterpret_cast<const uint8_t*>(&head);
    Bytes entry(start, start + sizeof head);
    entry.insert(entry.end(), body.begin(), body.end());
    return withoutTime(v2xspatconv_FormatEvent(kind, entry));
}

TEST_F(Control, FormatsEvents) {
    using Kind = v2x_journalKind;
    using Event = v2xspatconv_stateEvent_t;
    const v2xpub_tap_t datagram = {WALL_TIME, false, "QUOR_RECV_SG", {0, 8002}, {0xC0A80114, 8001}};
    EXPECT_EQ(format(Kind::datagram, datagram, {0xFE, 0x0A}),
              R"({"event":"datagram","sent":false,"socket":"QUOR_RECV_SG","local":"0.0.0.0:8002",)"
              R"("remote":"192.168.1.20:8001","bytes":"fe0a"})"
              "\n");
    const dds_tap_t sample = {WALL_TIME, true, "rsu/R1/spat/up"};
    EXPECT_EQ(format(Kind::sample, sample, {0x7B}),
              "{\"event\":\"sample\",\"sent\":true,\"topic\":\"rsu/R1/spat/up\",\"bytes\":\"7b\"}\n");
    const v2xspatconv_recordEvent_t record = {WALL_TIME, V2XSPATCONV_NO_SOURCE, true, 2};
    EXPECT_EQ(format(Kind::record, record, hex("03 07 2C01  04 63 A18C")),
              R"({"event":"record","source":null,"replaced":true,"lights":[)"
              R"({"phase":3,"light":"yellow","time_left":30},{"phase":4,"light":"unknown","time_left":null}]})"
              "\n");
    const Event stale = {
        .time = WALL_TIME, .source = V2XSPATCONV_1743, .state = v2xspatconv_sourceState::stale, .text = "a \"b\""};
    EXPECT_EQ(format(Kind::state, stale),
              "{\"event\":\"source\",\"source\":\"1743\",\"state\":\"stale\",\"text\":\"a \\\"b\\\"\"}\n");
    const Event forwarded = {.time = WALL_TIME, .type = Event::Type::forwarded, .text = "t"};
    EXPECT_EQ(format(Kind::state, forwarded), "{\"event\":\"forwarded\",\"source\":\"learner\",\"text\":\"t\"}\n");
    const Event check = {.time = WALL_TIME,
                         .type = Event::Type::check,
                         .check = V2XSPATCONV_CHECK_NO_YELLOW,
                         .isActive = true,
                         .phaseCount = 1,
                         .phases = {5},
                         .text = "t"};
    EXPECT_EQ(format(Kind::state, check),
              R"({"event":"check","source":"learner","check":"no_yellow","active":true,"phases":[5],"text":"t"})"
              "\n");
    EXPECT_EQ(withoutTime(v2xspatconv_FormatStackEvent({"silent", 0, false, 0, nullptr, 0}, WALL_TIME)),
              "{\"event\":\"stack\",\"state\":\"silent\"}\n");
    EXPECT_EQ(withoutTime(v2xspatconv_FormatCloudEvent({"silent", 0, true, 0, nullptr, 0}, WALL_TIME)),
              "{\"event\":\"cloud\",\"available\":true}\n");
}

v2xspatconv_line_t line(char name, size_t size) {
    return std::make_shared<const std::string>(std::string(size - 1, name) + "\n");
}

// Takes up to `limit` bytes from the queue, at most 1000 bytes at a time. Returns each line as its first character and
// size, or the whole line "lost".
std::string take(v2xspatconv_controlQueue& queue, size_t limit) {
    std::string bytes;
    while (!queue.IsEmpty() && bytes.size() < limit) {
        iovec parts[2];
        const auto used = queue.Peek(parts);
        const size_t size = std::min({size_t{1000}, used[0].iov_len, limit - bytes.size()});
        bytes.append(static_cast<const char*>(used[0].iov_base), size);
        queue.Remove(size);
    }
    std::string seen;
    while (!bytes.empty()) {
        const std::string text = bytes.substr(0, bytes.find('\n') + 1);
        bytes.erase(0, text.empty() ? std::string::npos : text.size());
        seen +=
            text.starts_with('{') ? text.substr(0, text.size() - 1) : text.substr(0, 1) + std::to_string(text.size());
        seen += " ";
    }
    return seen;
}

TEST_F(Control, FullQueueDiscardsOldestEventsButNoReplyAndNoPartlySentLine) {
    constexpr size_t QUARTER = v2xspatconv_controlQueue::CAPACITY / 4;
    v2xspatconv_controlQueue queue;
    EXPECT_TRUE(queue.IsEmpty());
    for (const char name : {'a', 'b', 'c', 'd'}) {
        queue.AddEvent(line(name, QUARTER));
    }
    EXPECT_EQ(take(queue, 500), "0 ") << "no complete line";
    queue.AddReply(line('R', 2 * QUARTER));
    queue.AddEvent(line('e', QUARTER));
    queue.AddEvent(line('f', 100));
    EXPECT_TRUE(queue.HasReply());
    EXPECT_EQ(take(queue, SIZE_MAX),
              "a" + std::to_string(QUARTER - 500) + " {\"lost\":4} R" + std::to_string(2 * QUARTER) + " f100 ");
    EXPECT_FALSE(queue.HasReply());
    queue.AddLost(7);
    queue.AddEvent(line('g', v2xspatconv_controlQueue::CAPACITY + 1));
    EXPECT_EQ(take(queue, SIZE_MAX), "{\"lost\":8} ");
    EXPECT_TRUE(queue.IsEmpty());
}

} // namespace
