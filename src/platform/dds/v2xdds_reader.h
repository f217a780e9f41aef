// One topic's reader: a bounded queue of received samples, delivered to the callback in pieces.
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

// A queue bounded in samples and bytes. While it is full the writer retries; a sample that is too long is discarded.
class v2xdds_queue : public eprosima::fastrtps::rtps::ReaderHistory {
public:
    v2xdds_queue();
    bool can_change_be_added_nts(const eprosima::fastrtps::rtps::GUID_t& writer_guid, uint32_t total_payload_size,
                                 size_t unknown_missing_changes_up_to, bool& will_never_be_accepted) const override;
    // Moves the next sample that is complete and in order into `sample`; false if there is none.
    bool Take(eprosima::fastrtps::rtps::RTPSReader& reader, std::vector<uint8_t>& sample);
};

class v2xdds_reader : private eprosima::fastrtps::rtps::ReaderListener {
public:
    // onSample: called on threads of Fast DDS when a sample has arrived.
    v2xdds_reader(std::string topic, dds_historySetting setting, dds_RecvCallback callback,
                  std::function<void()> onSample);
    ~v2xdds_reader() override;
    v2xdds_reader(const v2xdds_reader&) = delete;
    v2xdds_reader& operator=(const v2xdds_reader&) = delete;

    // Creates the reader in the participant, which must outlive it. False if Fast DDS rejects it.
    bool Open(eprosima::fastrtps::rtps::RTPSParticipant& participant);

    // Delivers the next sample to the callback, or discards it if it is invalid; false if there is none. On the
    // dispatching thread only.
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
    std::vector<uint8_t> m_sample; // taken last
    v2xdds_queue m_queue;
    eprosima::fastrtps::rtps::RTPSReader* m_reader = nullptr;
};
