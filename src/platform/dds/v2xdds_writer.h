// One topic's writer. Its history is bounded, and sending never waits for a reader.
#pragma once

#include <atomic>
#include <cstdint>
#include <fastdds/rtps/history/WriterHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/writer/RTPSWriter.h>
#include <fastdds/rtps/writer/WriterListener.h>
#include <mutex>
#include <span>
#include <string>

#include "v2x/v2xdds.h"

class v2xdds_writer : private eprosima::fastrtps::rtps::WriterListener {
public:
    v2xdds_writer(std::string topic, dds_historySetting setting);
    ~v2xdds_writer() override;
    v2xdds_writer(const v2xdds_writer&) = delete;
    v2xdds_writer& operator=(const v2xdds_writer&) = delete;

    // Creates the writer in the participant, which must outlive it. False if Fast DDS rejects it.
    bool Open(eprosima::fastrtps::rtps::RTPSParticipant& participant);

    // Returns 0 or -2 like dds_send. Any thread.
    int32_t Send(std::span<const uint8_t> payload);

    const std::string& Topic() const { return m_topic; }
    int32_t Matched() const { return m_matched.load(std::memory_order_relaxed); }

private:
    using WriterListener::onWriterMatched;
    void onWriterMatched(eprosima::fastrtps::rtps::RTPSWriter* writer,
                         const eprosima::fastdds::dds::PublicationMatchedStatus& status) override;
    void on_offered_incompatible_qos(eprosima::fastrtps::rtps::RTPSWriter* writer,
                                     eprosima::fastdds::dds::PolicyMask qos) override;

    bool MakeRoom(size_t samples);
    bool Overwrite();
    bool SendPiece(std::span<const uint8_t> piece);

    const std::string m_topic;
    const dds_historySetting m_setting;
    std::atomic<int32_t> m_matched{0};

    std::mutex m_sendMutex; // one payload at a time
    int64_t m_lastStamp = 0;
    eprosima::fastrtps::rtps::WriterHistory m_history;
    eprosima::fastrtps::rtps::RTPSWriter* m_writer = nullptr;
};
