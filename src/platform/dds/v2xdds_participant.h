// One participant: its declared topics and its life cycle.
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

// Any thread may call any method at any time. No string argument may be null.
class v2xdds_participant {
public:
    // Declares a reader of the topic if `callback` is set, else a writer. Returns false and logs the reason for an
    // argument that dds_reg rejects.
    bool Declare(int32_t domain, const char* topic, dds_RecvCallback callback, int32_t dataType);
    // Sets the history of a declared topic to a dds_historySetting. Returns false for an unknown topic or setting, or
    // after Start.
    bool SetHistory(const char* topic, int32_t setting);
    // Returns true if `address` is V2XDDS_ADDRESS and the participant is not started.
    bool SetAddress(const char* address);
    // Creates the readers and writers of the declared topics. Returns false and logs the reason on failure. Registers
    // `atExit` with atexit() before any callback runs. `atExit` must destroy the remaining participants.
    bool Start(void (*atExit)());
    // Returns the number of readers matched to the topic's writer; 0 if the participant has no such writer.
    int32_t CountMatchedReaders(const char* topic);
    // Publishes the payload. Returns 0, -1 or -2 as dds_send does.
    int32_t Send(const char* topic, std::span<const uint8_t> payload);
    // Waits for a running callback and removes the readers and writers. If isProcessExiting is false and a callback of
    // this participant is the caller, Destroy only logs an error.
    void Destroy(bool isProcessExiting);

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

    std::mutex m_destroyMutex; // serializes Destroy()
    // Destroy sets m_isEnding before it locks m_membersMutex. Send then returns at once and cannot delay Destroy.
    std::atomic<bool> m_isEnding{false};
    // Send locks m_membersMutex shared. Changes to the members below lock m_membersMutex exclusively.
    std::shared_mutex m_membersMutex;
    State m_state = State::DECLARED;
    int32_t m_domain = 0;
    std::vector<Topic> m_topics;

    struct ParticipantDeleter {
        void operator()(eprosima::fastrtps::rtps::RTPSParticipant* participant) const;
    };
    v2xdds_dispatch m_dispatch;
    std::unique_ptr<eprosima::fastrtps::rtps::RTPSParticipant, ParticipantDeleter> m_participant;
    std::vector<std::unique_ptr<v2xdds_writer>> m_writers;
    std::vector<std::unique_ptr<v2xdds_reader>> m_readers;
};
