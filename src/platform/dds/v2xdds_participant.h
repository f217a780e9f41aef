// One participant: its declared topics, its life cycle, and the locks that let any thread use it meanwhile.
#pragma once

#include <atomic>
#include <cstdint>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <string>
#include <vector>

#include "v2x/v2xdds.h"
#include "v2xdds_dispatch.h"
#include "v2xdds_reader.h"
#include "v2xdds_writer.h"

class v2xdds_participant {
public:
    bool Declare(int32_t domain, const char* topic, dds_RecvCallback callback, int32_t dataType);
    bool SetHistory(const char* topic, int32_t setting);
    bool SetAddress(const char* address);
    // atExit: registered with atexit() before the first callback can run; ends the participants that are left.
    bool Start(void (*atExit)());
    int32_t Matched(const char* topic);
    int32_t Send(const char* topic, std::span<const uint8_t> payload);
    // isExit: the process ends; a callback may be the caller.
    void Destroy(bool isExit);

private:
    enum class State { DECLARED, RUNNING, ENDED };
    struct Topic {
        std::string name;
        dds_RecvCallback callback; // null for a writer
        dds_historySetting setting;
    };

    void Open();
    bool OpenTopic(const Topic& topic);
    void Close();
    v2xdds_writer* FindWriter(const char* topic) const;

    std::mutex m_destroyMutex;           // one destroyer at a time
    std::atomic<bool> m_isEnding{false}; // set before m_use is locked, so that busy senders cannot delay the end
    std::shared_mutex m_use;             // shared by senders; exclusive for changes of the members below
    State m_state = State::DECLARED;
    int32_t m_domain = 0;
    std::vector<Topic> m_topics;

    struct Remove {
        void operator()(eprosima::fastrtps::rtps::RTPSParticipant* participant) const;
    };
    v2xdds_dispatch m_dispatch;
    std::unique_ptr<eprosima::fastrtps::rtps::RTPSParticipant, Remove> m_participant;
    std::vector<std::unique_ptr<v2xdds_writer>> m_writers;
    std::vector<std::unique_ptr<v2xdds_reader>> m_readers;
};
