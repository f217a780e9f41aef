// One participant: its declarations, its life, and who may use it meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <vector>

#include "v2x/v2xdds.h"
#include "v2xdds_dispatch.h"
#include "v2xdds_peers.h"
#include "v2xdds_reader.h"
#include "v2xdds_transport.h"
#include "v2xdds_writer.h"

class v2xdds_participant {
public:
    bool Declare(int32_t domain, const char* topic, dds_RecvCallback callback, int32_t dataType);
    bool SetHistory(const char* topic, int32_t setting);
    bool SetAddress(const char* address);
    // atExit: what must run before the library's own objects are destroyed; registered ahead of the first callback.
    bool Start(void (*atExit)());
    int32_t Matched(const char* topic);
    int32_t Send(const char* topic, std::span<const uint8_t> payload);
    // isExit: the process ends, and the call may come from a callback.
    void Destroy(bool isExit);

private:
    enum class State { DECLARED, RUNNING, ENDED };
    struct Topic {
        std::string name;
        dds_RecvCallback callback; // null for a writer
        dds_historySetting setting;
    };

    using Clock = v2xdds_dispatch::Clock;

    void Open();
    bool OpenTopic(const Topic& topic);
    void Close();
    bool Concerns(v2xdds_peers::Kind peers, const char* topic) const;
    Clock::time_point Tend();
    bool OpenAnew();
    v2xdds_writer* FindWriter(const char* topic) const;

    std::mutex m_destroyMutex; // one destroyer at a time
    // Set before m_use is taken, so that a stream of senders keeps nobody waiting: for good, and while the domain is
    // joined anew.
    std::atomic<bool> m_isEnding{false};
    std::atomic<bool> m_isAway{false};
    std::shared_mutex m_use; // shared by those who send or count; what follows changes under the whole of it
    State m_state = State::DECLARED;
    int32_t m_domain = 0;
    std::string m_address = "127.0.0.1";
    std::vector<Topic> m_topics;

    struct Remove {
        void operator()(eprosima::fastrtps::rtps::RTPSParticipant* participant) const;
    };
    v2xdds_dispatch m_dispatch;
    v2xdds_peers m_peers{[this](v2xdds_peers::Kind kind, const char* topic) { return Concerns(kind, topic); },
                         [this] { m_dispatch.Wake(); }};
    std::optional<v2xdds_number> m_number;
    std::unique_ptr<eprosima::fastrtps::rtps::RTPSParticipant, Remove> m_participant;
    std::vector<std::unique_ptr<v2xdds_writer>> m_writers;
    std::vector<std::unique_ptr<v2xdds_reader>> m_readers;
};
