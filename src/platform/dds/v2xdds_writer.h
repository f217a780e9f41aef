// The writer of one topic. The number of samples in its history is limited, and Send never waits for a reader.
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

    // Creates the RTPS writer in `participant`, which must outlive this object. Returns false if Fast DDS rejects the
    // writer.
    bool Open(eprosima::fastrtps::rtps::RTPSParticipant& participant);

    // Publishes the payload in samples of at most 1024 bytes. Returns 0 or -2 as dds_send does. May be called on any
    // thread.
    int32_t Send(std::span<const uint8_t> payload);

    const std::string& Topic() const { return m_topic; }
    int32_t CountMatchedReaders() const { return m_matchedReaders.load(std::memory_order_relaxed); }

private:
    using WriterListener::onWriterMatched;
    void onWriterMatched(eprosima::fastrtps::rtps::RTPSWriter* writer,
                         const eprosima::fastdds::dds::PublicationMatchedStatus& status) override;
    void on_offered_incompatible_qos(eprosima::fastrtps::rtps::RTPSWriter* writer,
                                     eprosima::fastdds::dds::PolicyMask qos) override;

    bool EvictAcknowledged(size_t newSamples);
    bool EvictOldest();
    bool SendSample(std::span<const uint8_t> octets);

    const std::string m_topic;
    const dds_historySetting m_setting;
    std::atomic<int32_t> m_matchedReaders{0};

    std::mutex m_sendMutex; // serializes Send()
    int64_t m_lastStamp = 0;
    eprosima::fastrtps::rtps::WriterHistory m_history;
    eprosima::fastrtps::rtps::RTPSWriter* m_writer = nullptr;
};
