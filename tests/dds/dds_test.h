// Shared by the tests of the DDS library: a domain, an inbox for callbacks, participants here and in processes of
// their own.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dds/payload.h"
#include "process.h"
#include "v2x/v2xdds.h"

// Returns a domain from 0 to 100, whose UDP ports are below the ephemeral port range. Two tests never share a domain at
// the same time, because ctest runs the tests of this folder one after another.
inline int32_t testDomain() {
    return getpid() % 101;
}

// The pieces that a callback of this process received, in the order of the calls.
class Inbox {
public:
    static void take(void* data, unsigned int len) {
        const std::lock_guard lock(s_mutex);
        s_pieces.push_back(describe(data, len));
    }
    static std::vector<std::string> all() {
        const std::lock_guard lock(s_mutex);
        return s_pieces;
    }
    // Waits until at least pieces.size() pieces have arrived, then expects exactly `pieces`, in this order.
    static void expect(const std::vector<std::string>& pieces) {
        EXPECT_TRUE(eventually([&] { return all().size() >= pieces.size(); }));
        EXPECT_THAT(all(), testing::ElementsAreArray(pieces));
    }
    static void clear() {
        const std::lock_guard lock(s_mutex);
        s_pieces.clear();
    }

private:
    static inline std::mutex s_mutex;
    static inline std::vector<std::string> s_pieces;
};

class DdsTest : public testing::Test {
protected:
    DdsTest() { Inbox::clear(); }
};

struct Topic {
    const char* name;
    dds_RecvCallback callback = nullptr; // null: a writer
    int32_t setting = DDS_HISTORY_REAL_TIME;
};

// A running participant of this process.
class Participant {
public:
    explicit Participant(const std::vector<Topic>& topics) : m_handle(create_dds()) {
        for (const Topic& topic : topics) {
            EXPECT_TRUE(dds_reg(m_handle, testDomain(), topic.name, topic.callback, 0));
            EXPECT_TRUE(set_history_qos(m_handle, topic.name, topic.setting, 0));
        }
        EXPECT_TRUE(set_white_list_iface(m_handle, "127.0.0.1"));
        EXPECT_TRUE(dds_start(m_handle));
    }
    ~Participant() { destroy(); }
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    void destroy() { destroy_dds(m_handle); }
    int32_t matched(const char* topic) { return get_match_cnt(m_handle, topic); }
    bool awaits(const char* topic, int32_t readers, int milliseconds = 20000) {
        return eventually([&] { return matched(topic) == readers; }, milliseconds);
    }
    int32_t send(const char* topic, const Bytes& bytes) {
        return dds_send(m_handle, topic, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    void* handle() const { return m_handle; }

private:
    void* const m_handle;
};

// A peer program that runs in the test's domain.
class Peer {
public:
    // `arguments` follow the domain.
    Peer(const std::string& program, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {V2X_BIN "/" + program, std::to_string(testDomain())});
        m_process = std::make_unique<Process>(arguments, std::vector<std::string>{CYCLONE_ON_LOOPBACK}, out(),
                                              m_folder.path() + "/err");
    }
    std::vector<std::string> lines() const {
        std::ifstream file(out());
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line) && !file.eof();) {
            all.push_back(line);
        }
        return all;
    }
    std::string errors() const { return readFile(m_folder.path() + "/err"); }
    Process& process() { return *m_process; }

    // Makes Cyclone DDS use loop-back only and find its peers there by unicast.
    static constexpr char CYCLONE_ON_LOOPBACK[] =
        "CYCLONEDDS_URI=<CycloneDDS><Domain><General><Interfaces><NetworkInterface address=\"127.0.0.1\" "
        "multicast=\"false\"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery>"
        "<ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>31</MaxAutoParticipantIndex>"
        "<Peers><Peer address=\"127.0.0.1\"/></Peers></Discovery></Domain></CycloneDDS>";

private:
    std::string out() const { return m_folder.path() + "/out"; }

    TempFolder m_folder;
    std::unique_ptr<Process> m_process;
};
