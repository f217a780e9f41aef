// The reader of one topic: queues received samples and passes the octets to the callback, at most 1024 at a time.
#pragma once

#include <cstdint>
#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/ReaderListener.h>
#include <functional>
#include <string>
#include <vector>

#include "v2x/v2xdds.h"

// A queue with a limited number of samples and bytes. A full queue rejects a sample, and the writer sends the sample
// again later. A sample that is too long is discarded.
class v2xdds_queue : public eprosima::fastrtps::rtps::ReaderHistory {
public:
    v2xdds_queue();
    bool can_change_be_added_nts(const eprosima::fastrtps::rtps::GUID_t& writer_guid, uint32_t total_payload_size,
                                 size_t unknown_missing_changes_up_to, bool& will_never_be_accepted) const override;
    // Moves the next sample from the queue into `sample`. Returns false if the queue is empty, or if the next sample is
    // missing or incomplete.
    bool Take(eprosima::fastrtps::rtps::RTPSReader& reader, std::vector<uint8_t>& sample);
};

class v2xdds_reader : private eprosima::fastrtps::rtps::ReaderListener {
public:
    // Fast DDS calls `onSample` on its own threads after each received sample.
    v2xdds_reader(std::string topic, dds_historySetting setting, dds_RecvCallback callback,
                  std::function<void()> onSample);
    ~v2xdds_reader() override;
    v2xdds_reader(const v2xdds_reader&) = delete;
    v2xdds_reader& operator=(const v2xdds_reader&) = delete;

    // Creates the RTPS reader in `participant`, which must outlive this object. Returns false if Fast DDS rejects the
    // reader.
    bool Open(eprosima::fastrtps::rtps::RTPSParticipant& participant);

    // Takes the next sample from the queue. Delivers a valid sample to the callback and discards an invalid sample.
    // Returns false if there was no sample to take. Call DeliverOne on the dispatcher's thread only.
    bool DeliverOne();

private:
    using ReaderListener::onReaderMatched;
    void onReaderMatched(eprosima::fastrtps::rtps::RTPSReader* reader,
                         const eprosima::fastdds::dds::SubscriptionMatchedStatus& status) override;
    void onNewCacheChangeAdded(eprosima::fastrtps::rtps::RTPSReader* reader,
                               const eprosima::fastrtps::rtps::CacheChange_t* change) override;
    void on_sample_lost(eprosima::fastrtps::rtps::RTPSReader* reader, int32_t count) override;
    void on_requested_incompatible_qos(eprosima::fastrtps::rtps::RTPSReader* reader,
                                       eprosima::fastdds::dds::PolicyMask qos) override;

    const std::string m_topic;
    const dds_historySetting m_setting;
    const dds_RecvCallback m_callback;
    const std::function<void()> m_onSample;
    std::vector<uint8_t> m_sample; // the sample that DeliverOne delivers
    v2xdds_queue m_queue;
    eprosima::fastrtps::rtps::RTPSReader* m_reader = nullptr;
};
