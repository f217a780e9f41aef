// The control socket of the real daemon.
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "client.h"
#include "common/json.h"
#include "unit.h"

namespace {

const Bytes GREEN_15_S = hex("FEFE10 000A 000100 03010F00000000"); // the learner's phase 3

class ScenarioControl : public testing::Test {
protected:
    ScenarioControl() { use(m_unit, m_path); }

    static void use(Unit& unit, const std::string& path) {
        unit.moreGroups = "Control = { Path = \"" + path + "\"; };\n";
    }
    static bool isLogged(const Unit& unit, const std::string& text) {
        return eventually([&] { return occurrences(unit.log(), text) > 0; });
    }
    static void stop(Unit& unit) {
        unit.daemon->signal(SIGTERM);
        EXPECT_EQ(unit.daemon->wait(20000), 0) << unit.err();
    }
    ctl::Client connect() const { return ctl::Client(m_path); }
    static void send(const ctl::Client& client, const std::string& text) {
        EXPECT_EQ(::send(client.Descriptor(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    // Returns the next line with this text, or "" if none arrives in time.
    static std::string next(ctl::Client& client, const std::string& text) {
        auto line = client.ReadLine(20000);
        while (line && line->find(text) == std::string::npos) {
            line = client.ReadLine(20000);
        }
        return line.value_or("");
    }
    static bool isClosed(ctl::Client& client) {
        try {
            return !client.ReadLine(20000).has_value();
        } catch (const ctl::NoDaemon&) {
            return true;
        }
    }

    Unit m_unit;
    const std::string m_path = m_unit.folder.path() + "/ctl.sock";
};

TEST_F(ScenarioControl, ShowsLightsEventsAndDatagramsOfTheLearner) {
    m_unit.learnerKeys += "StaleAfter = 1;";
    m_unit.startAndWaitReady();
    EXPECT_EQ(std::filesystem::status(m_path).permissions(), std::filesystem::perms(0660));
    ctl::Client watch = connect();
    ctl::Client tap = connect();
    watch.Request("watch");
    tap.Request("tap");
    m_unit.learner.sendTo(m_unit.reportPort, GREEN_15_S);
    const Bytes record = m_unit.receiveRecord().value();

    EXPECT_NE(next(watch, R"("event":"record")")
                  .find(R"("source":"learner","replaced":false,"lights":[{"phase":3,"light":"permissive green",)"
                        R"("time_left":15}])"),
              std::string::npos);
    const std::string received = next(tap, R"("sent":false)");
    EXPECT_NE(received.find(R"("socket":"QUOR_RECV_SG","local":"0.0.0.0:)" + std::to_string(m_unit.reportPort) +
                            R"(","remote":"127.0.0.1:)" + std::to_string(m_unit.learner.port()) +
                            R"(","bytes":"fefe10000a00010003010f00000000")"),
              std::string::npos)
        << received;
    const tools::Json sent = tools::ParseJsonObject(next(tap, R"("socket":"SPAT_SEND_APP")"));
    EXPECT_EQ(hex(tools::GetText(sent.get(), "bytes")), record);

    ctl::Client client = connect();
    EXPECT_NE(client.Request("status").find(R"({"source":"learner","state":"fresh","required":true,"forwarded":true,)"
                                            R"("peer":"127.0.0.1")"),
              std::string::npos);
    EXPECT_NE(client.Request("lights").find(R"([{"phase":3,"device_phase":3,"light":"permissive green",)"),
              std::string::npos);
    EXPECT_NE(next(watch, R"("event":"source")").find(R"("source":"learner","state":"stale","text":"learner 127)"),
              std::string::npos);
    stop(m_unit);
    EXPECT_TRUE(isClosed(client));
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

TEST_F(ScenarioControl, LimitsClientsAndRequests) {
    m_unit.startAndWaitReady();
    std::vector<std::unique_ptr<ctl::Client>> clients;
    for (int i = 0; i < 8; i++) {
        clients.push_back(std::make_unique<ctl::Client>(m_path));
        clients.back()->Request("status");
    }
    ctl::Client ninth = connect();
    EXPECT_EQ(ninth.ReadLine(20000).value(), R"({"error":"the daemon already serves 8 clients"})");
    EXPECT_TRUE(isClosed(ninth));

    const std::string request = R"({"cmd":"levels"})";
    send(*clients[0], request + std::string(4095 - request.size(), ' ') + "\n");
    EXPECT_TRUE(clients[0]->ReadLine(20000)->starts_with(R"({"reply":"levels")"));
    send(*clients[0], std::string(5000, ' '));
    EXPECT_EQ(clients[0]->ReadLine(20000).value(), R"({"error":"the request has more than 4096 bytes"})");
    EXPECT_TRUE(isClosed(*clients[0]));

    send(*clients[1], request + "\n" + request + "\n");
    shutdown(clients[1]->Descriptor(), SHUT_WR);
    for (int i = 0; i < 2; i++) {
        EXPECT_TRUE(clients[1]->ReadLine(20000)->starts_with(R"({"reply":"levels")"));
    }
    EXPECT_TRUE(isClosed(*clients[1]));
}

TEST_F(ScenarioControl, ClientThatDoesNotReadLosesEventsButTheStackNoRecord) {
    constexpr int REPORTS = V2X_SANITIZED ? 5000 : 20000;
    constexpr int WINDOW = 50; // reports without an answer
    Bytes report = hex("FEFE10 003B 000800");
    for (uint8_t phase = 1; phase <= 8; phase++) {
        report.insert(report.end(), {phase, 1, 15, 0, 0, 0, 0});
    }
    m_unit.startAndWaitReady();
    ctl::Client slow = connect();
    slow.Request("watch");
    auto killed = std::make_unique<ctl::Client>(m_path);
    killed->Request("watch");
    int records = 0;
    for (int i = 0; i < REPORTS; i++) {
        m_unit.learner.sendTo(m_unit.reportPort, report);
        if (i == REPORTS / 2) {
            killed.reset();
        }
        if (i >= WINDOW) {
            records += m_unit.receiveRecord(5000).has_value() ? 1 : 0;
        }
    }
    for (int i = 0; i < WINDOW; i++) {
        records += m_unit.receiveRecord(5000).has_value() ? 1 : 0;
    }
    EXPECT_EQ(records, REPORTS);
    int delivered = 0;
    int lost = 0;
    for (auto line = slow.ReadLine(2000); line && delivered + lost < REPORTS; line = slow.ReadLine(2000)) {
        const tools::Json json = tools::ParseJsonObject(*line);
        delivered += tools::GetText(json.get(), "event") == "record" ? 1 : 0;
        lost += static_cast<int>(tools::GetNumber(json.get(), "lost"));
    }
    EXPECT_EQ(delivered + lost, REPORTS);
    EXPECT_GT(lost, 0);
    EXPECT_GT(delivered, 500) << "256 KiB";
    EXPECT_FALSE(connect().Request("status").empty());
}

TEST_F(ScenarioControl, ReplacesOnlyALeftOverSocket) {
    m_unit.startAndWaitReady();
    m_unit.daemon->signal(SIGKILL);
    m_unit.daemon->wait(20000);
    EXPECT_TRUE(std::filesystem::is_socket(m_path)) << "left over";
    EXPECT_THROW(connect(), ctl::NoDaemon);
    m_unit.startAndWaitReady();
    EXPECT_FALSE(connect().Request("status").empty());

    const std::string file = m_unit.folder.path() + "/file";
    writeFile(file, "text");
    const struct {
        std::string path;
        const char* reason;
    } cases[] = {
        {m_path, "another process serves this socket"},
        {file, "the file exists and is not a socket"},
        {m_unit.folder.path() + "/missing/ctl.sock", "No such file or directory"},
    };
    for (const auto& row : cases) {
        Unit other;
        use(other, row.path);
        other.startAndWaitReady();
        EXPECT_TRUE(isLogged(other, "control socket " + row.path + ": " + row.reason)) << other.log();
        other.learner.sendTo(other.reportPort, GREEN_15_S);
        EXPECT_TRUE(other.receiveRecord().has_value());
        stop(other);
    }
    EXPECT_EQ(readFile(file), "text");
    EXPECT_FALSE(connect().Request("status").empty());
}

} // namespace
