// The web server with the real daemon: the page in a browser, metrics, hostile clients.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>

#include "browser.h"
#include "unit.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

const Bytes GREEN_15_S = hex("FEFE10 000A 000100 03010F00000000"); // the learner's phase 3
const Bytes RED_9_S = hex("FEFE10 000A 000100 03020900000000");
const Bytes GREEN_1_2 = hex("FEFE10 001F 000400 01010F00000000 02010F00000000 03020900000000 04020900000000");
const Bytes GREEN_3_4 = hex("FEFE10 001F 000400 01020900000000 02020900000000 03010F00000000 04010F00000000");

class ScenarioWeb : public testing::Test {
protected:
    ScenarioWeb() {
        m_unit.learnerKeys += "StaleAfter = 4;";
        m_unit.controllerKeys = "IsEnable = false;";
        m_unit.moreGroups = "Control = { Path = \"" + m_path + "\"; }; Guard = { Conflicts = ((1, 2), (3, 4)); };";
        m_unit.startAndWaitReady();
        m_server.emplace(std::vector<std::string>{V2X_BIN "/v2x_spat_ctl", "serve", "--socket", m_path, "--listen",
                                                  m_address, "--host", "rsu.example"},
                         std::vector<std::string>{}, m_out, m_err);
        EXPECT_TRUE(eventually([this] { return readFile(m_out) == "serving " + m_url + "\n"; })) << readFile(m_err);
    }
    ~ScenarioWeb() override {
        for (const int client : m_clients) {
            close(client);
        }
        m_server->signal(SIGTERM);
        EXPECT_EQ(m_server->wait(5000), 0);
        EXPECT_EQ(readFile(m_err), "");
    }

    // Connects and sends the text. The fixture closes the connection.
    int open(const std::string& text) {
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval limit = {20, 0};
        setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const sockaddr_in address = {AF_INET, htons(m_place.port()), {htonl(INADDR_LOOPBACK)}, {}};
        EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(send(client, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
        m_clients.push_back(client);
        return client;
    }
    // The whole answer to a request line with a host and more headers.
    std::string ask(const std::string& request, const std::string& host = "localhost", const std::string& more = "") {
        const int client = open(request + " HTTP/1.1\r\nHost: " + host + "\r\n" + more + "\r\n");
        std::string answer;
        char bytes[65536];
        for (ssize_t length = 0; (length = recv(client, bytes, sizeof bytes, 0)) > 0;) {
            answer.append(bytes, static_cast<size_t>(length));
        }
        return answer;
    }

    Unit m_unit;
    const std::string m_path = m_unit.folder.path() + "/control";
    const std::string m_out = m_unit.folder.path() + "/serve.out";
    const std::string m_err = m_unit.folder.path() + "/serve.err";
    const UdpPeer m_place; // the server's TCP port has the same number
    const std::string m_address = "127.0.0.1:" + std::to_string(m_place.port());
    const std::string m_url = "http://" + m_address + "/";
    std::vector<int> m_clients;
    std::optional<Process> m_server;
};

class ScenarioPage : public ScenarioWeb {
protected:
    void SetUp() override {
        if (!Browser::isInstalled()) {
            GTEST_SKIP() << "Skipped: chromium is not installed";
        }
        m_browser.emplace(m_unit.folder.path(), m_url);
        expectValue("document.body.dataset.link", "live");
    }
    void expectValue(const std::string& expression, const std::string& value) {
        EXPECT_EQ(m_browser->awaitValue(expression, value), value) << expression;
    }

    std::optional<Browser> m_browser;
};

TEST_F(ScenarioPage, FollowsTheLights) {
    const std::string tile = "document.querySelector('[data-phase=\"3\"]')";
    const std::string light = tile + ".dataset.light + ' ' + " + tile + ".dataset.state";
    m_unit.learner.sendTo(m_unit.reportPort, GREEN_15_S);
    expectValue(light, "permissive green fresh");
    expectValue(tile + ".querySelector('.on').getAttribute('class')", "lens green on");
    m_unit.learner.sendTo(m_unit.reportPort, RED_9_S);
    expectValue(light, "red fresh");
    expectValue("document.body.dataset.records", "2"); // the page got both as events
    // A record that arrives 13 s late does not replace the newer light.
    expectValue("takeLine({event: 'record', source: 'learner', time: new Date(Date.now() - 13000).toISOString(), "
                "lights: [{phase: 3, light: 'permissive green', time_left: 20}]})",
                "undefined");
    expectValue("phases.get(3).light", "red");
    expectValue("/^Phase 3: red, [5-8] seconds left$/.test(" + tile + ".ariaLabel)", "true");
    expectValue("document.getElementById('peer-learner').dataset.state", "stale");
    expectValue(light, "red old");
    expectValue("document.querySelectorAll('.on').length", "0"); // an old light is not lit
    expectValue("/stale, no report/.test(document.getElementById('events').textContent)", "true");
    m_unit.daemon->signal(SIGKILL);
    expectValue("document.body.dataset.link", "no daemon");
    expectValue(light, "red gone");
    expectValue("/, last answer /.test(document.getElementById('identity').textContent)", "true");
}

TEST_F(ScenarioPage, ShowsEachConflict) {
    const std::string canvas = "document.getElementById('diagram')";
    const std::string pixels =
        canvas + ".getContext('2d').getImageData(0, 0, " + canvas + ".width, " + canvas + ".height).data.join()";
    m_unit.learner.sendTo(m_unit.reportPort, GREEN_1_2);
    expectValue("document.getElementById('peer-checks').dataset.state", "conflict");
    expectValue("/conflict, phases 1, 2/.test(document.getElementById('health').textContent)", "true");
    expectValue("/177,0,184,255/.test(" + pixels + ")", "true"); // the frame around both phases
    m_unit.learner.sendTo(m_unit.reportPort, GREEN_3_4);
    expectValue("conflicts.map((each) => each.phases.join('+')).join()", "1+2,3+4");
}

TEST_F(ScenarioWeb, RefusesForeignHostsMethodsAndPaths) {
    const struct {
        std::string request, host, more, answer;
    } cases[] = {
        {"GET /", "127.0.0.1", "", "200 OK\r\n"},
        {"GET /", "RSU.example:80", "", "200 OK\r\n"},
        {"GET /", "evil.example", "", "403 Forbidden\r\n"},
        {"GET /", "localhost\r\nHost: evil.example", "", "403 Forbidden\r\n"},
        {"POST /", "localhost", "Content-Length: 4\r\n", "405 Method Not Allowed\r\nAllow: GET\r\n"},
        {"GET /../../../../etc/passwd", "localhost", "", "404 Not Found\r\n"},
        {"GET /", "localhost", "Range: bytes=0-,0-,0-\r\n", "400 Bad Request\r\n"},
    };
    for (const auto& [request, host, more, answer] : cases) {
        const std::string found = ask(request, host, more);
        EXPECT_TRUE(found.starts_with("HTTP/1.1 " + answer)) << request << " " << host << "\n" << found.substr(0, 300);
        EXPECT_NE(found.find("Content-Security-Policy: default-src 'none'; script-src 'sha256-"), std::string::npos);
    }
}

TEST_F(ScenarioWeb, IdleUnreadAndSlowConnectionsDelayNobody) {
    for (int i = 0; i < 200; i++) {
        open("");
    }
    for (int i = 0; i < 8; i++) {
        char byte = 0;
        EXPECT_EQ(recv(open("GET /api/events HTTP/1.1\r\nHost: localhost\r\n\r\n"), &byte, 1, 0), 1); // reads no more
    }
    EXPECT_TRUE(ask("GET /api/events").starts_with("HTTP/1.1 503 "));
    for (int i = 0; i < 3; i++) {
        m_unit.learner.sendTo(m_unit.reportPort, GREEN_15_S);
        EXPECT_TRUE(m_unit.receiveRecord().has_value());
    }
    EXPECT_TRUE(ask("GET /").starts_with("HTTP/1.1 200 OK\r\n"));
    const std::string status = ask("GET /api/status");
    EXPECT_NE(status.find("\"accepted\":3,"), std::string::npos) << status;
    EXPECT_NE(status.find("\"light\":\"permissive green\""), std::string::npos) << status;

    std::vector<int> slow(40);
    std::ranges::generate(slow, [this] { return open("G"); });
    const std::jthread writer([slow](const std::stop_token& stop) {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(500ms)) {
            std::ranges::for_each(slow, [](int client) { send(client, "x", 1, MSG_NOSIGNAL); });
        }
    });
    for (const auto end = Clock::now() + 8s; Clock::now() < end && !HasFailure();) { // the idle connections wait 7 s
        const auto start = Clock::now();
        EXPECT_TRUE(ask("GET /").starts_with("HTTP/1.1 200 OK\r\n"));
        EXPECT_LT(Clock::now() - start, 4s);
    }
}

TEST_F(ScenarioWeb, ServerAnswersAgainAfterTheDaemonHungOrEnded) {
    const auto isAnswered = [this] { return ask("GET /api/status").starts_with("HTTP/1.1 200 OK\r\n"); };
    ASSERT_TRUE(m_unit.daemon->stop());
    const std::string answer = ask("GET /api/status");
    EXPECT_TRUE(answer.ends_with("{\"error\":\"" + m_path + ": the daemon does not answer\"}")) << answer;
    m_unit.daemon->signal(SIGCONT);
    EXPECT_TRUE(eventually(isAnswered));
    m_unit.daemon->signal(SIGKILL);
    EXPECT_TRUE(eventually([&] { return !isAnswered(); }));
    m_unit.startAndWaitReady();
    EXPECT_TRUE(eventually(isAnswered));
}

TEST_F(ScenarioWeb, MetricsAreValidAndEndWithTheDaemon) {
    m_unit.learner.sendTo(m_unit.reportPort, GREEN_15_S);
    EXPECT_TRUE(m_unit.receiveRecord().has_value());
    const std::string file = m_unit.folder.path() + "/metrics";
    const auto run = [&](const std::string& command) {
        return Process({"/bin/sh", "-c", command}, {}, file, file + ".err").wait(20000);
    };
    const std::string metrics = V2X_BIN "/v2x_spat_ctl metrics --socket " + m_path;
    EXPECT_EQ(run(metrics + " | promtool check metrics"), 0);
    EXPECT_EQ(readFile(file) + readFile(file + ".err"), "");
    const std::string accepted = "\nv2x_spat_source_accepted_total{source=\"learner\"} 1\n";
    EXPECT_NE(ask("GET /metrics").find(accepted), std::string::npos);
    m_unit.daemon->signal(SIGTERM);
    EXPECT_EQ(m_unit.daemon->wait(20000), 0);
    EXPECT_EQ(run(metrics), 2);
    EXPECT_NE(readFile(file).find("\nv2x_spat_up 0\n"), std::string::npos);
    EXPECT_NE(ask("GET /metrics").find("\nv2x_spat_up 0\n"), std::string::npos);
    EXPECT_TRUE(eventually([this] { return ask("GET /api/status").starts_with("HTTP/1.1 503 "); }));
}

TEST_F(ScenarioWeb, ReportsPortInUse) {
    const std::string file = m_unit.folder.path() + "/second";
    Process second({V2X_BIN "/v2x_spat_ctl", "serve", "-s", m_path, "--listen", m_address}, {}, file, file);
    EXPECT_EQ(second.wait(20000), 1);
    EXPECT_EQ(readFile(file), "v2x_spat_ctl: cannot listen on " + m_address + ": Address already in use\n");
}

} // namespace
