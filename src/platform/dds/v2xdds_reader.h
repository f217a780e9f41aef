// One topic's reader: a bounded queue of what has arrived, handed to the callback in pieces.
#pragma once

#include <atomic>
#include <cstdint>
#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/ReaderListener.h>
#include <string>
#include <vector>

#include "v2x/v2xdds.h"
#include "v2xdds_log.h"

class v2xdds_dispatch;

// A queue of samples that is bounded in number and in bytes. What finds it full is asked for again later; what is
// larger than a payload may be is passed over.
class v2xdds_queue : public eprosima::fastrtps::rtps::ReaderHistory {
public:
    v2xdds_queue();
    bool can_change_be_added_nts(const eprosima::fastrtps::rtps::GUID_t& writer_guid, uint32_t total_payload_size,
                                 size_t unknown_missing_changes_up_to, bool& will_never_be_accepted) const override;
    // Moves the next sample that is complete and in order into `sample`; false when there is none.
    bool Take(eprosima::fastrtps::rtps::RTPSReader& reader, std::vector<uint8_t>& sample);
};

class v2xdds_reader : private eprosima::fastrtps::rtps::ReaderListener {
public:
    v2xdds_reader(std::string topic, dds_historySetting setting, dds_RecvCallback callback, v2xdds_dispatch& dispatch);
    ~v2xdds_reader() override;
    v2xdds_reader(const v2xdds_reader&) = delete;
    v2xdds_reader& operator=(const v2xdds_reader&) = delete;

    // Comes to life in the participant, which must outlive it. False when the library refuses.
    bool Open(eprosima::fastrtps::rtps::RTPSParticipant& participant);

    // Hands the next piece to the callback, or passes over a sample without one; false when there is nothing. On the
    // dispatching thread alone.
    bool HandOnOne();

private:
    using ReaderListener::onReaderMatched;
    void onReaderMatched(eprosima::fastrtps::rtps::RTPSReader* reader,
                         const eprosima::fastdds::dds::SubscriptionMatchedStatus& status) override;
    void onNewCacheChangeAdded(eprosima::fastrtps::rtps::RTPSReader* reader,
                               const eprosima::fastrtps::rtps::CacheChange_t* change) override;
    void on_sample_lost(eprosima::fastrtps::rtps::RTPSReader* reader, int32_t count) override;
    void on_requested_incompatible_qos(eprosima::fastrtps::rtps::RTPSReader* reader,
                                       eprosima::fastdds::dds::PolicyMask qos) override;

    bool TakeSample();

    const std::string m_topic;
    const dds_historySetting m_setting;
    const dds_RecvCallback m_callback;
    v2xdds_dispatch& m_dispatch;
    v2xdds_counter m_unfit;
    v2xdds_counter m_refused;

    std::vector<uint8_t> m_sample; // taken last; its octets from m_next to m_end are still to be handed on
    size_t m_next = 0;
    size_t m_end = 0;

    v2xdds_queue m_queue;
    eprosima::fastrtps::rtps::RTPSReader* m_reader = nullptr;
};
