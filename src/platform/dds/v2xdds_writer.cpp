#include "v2xdds_writer.h"

#include <algorithm>
#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/attributes/WriterAttributes.h>
#include <fastrtps/attributes/TopicAttributes.h>
#include <fastrtps/qos/WriterQos.h>
#include <utility>

#include "v2x/v2xcount.h"
#include "v2xdds_cdr.h"
#include "v2xdds_log.h"
#include "v2xdds_qos.h"
#include "v2xdds_tap.h"

namespace {

v2x_counter g_evicted{"dds", "evicted"}; // samples evicted before every reader acknowledged them
v2x_counter g_incompatible{"dds", "incompatible_readers"};

namespace rtps = eprosima::fastrtps::rtps;

// A reader notices a lost sample at the next heartbeat and requests the sample again.
constexpr uint32_t HEARTBEAT_NS = 100'000'000;

// Maximum number of samples in the history.
constexpr size_t HISTORY_DEPTH[] = {
    4096, // DDS_HISTORY_ALL
    1,    // DDS_HISTORY_LAST
    64,   // DDS_HISTORY_REAL_TIME
};

rtps::HistoryAttributes HistoryFor(dds_historySetting setting) {
    constexpr int32_t INITIAL_SAMPLES = 16; // Fast DDS allocates more samples on demand
    const auto depth = static_cast<int32_t>(HISTORY_DEPTH[setting]);
    return {rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, V2XDDS_CDR_HEAD + V2XDDS_SAMPLE_MAX,
            std::min(INITIAL_SAMPLES, depth), depth};
}

size_t CountSamples(std::span<const uint8_t> payload) {
    return (payload.size() + V2XDDS_SAMPLE_MAX - 1) / V2XDDS_SAMPLE_MAX;
}

} // namespace

v2xdds_writer::v2xdds_writer(std::string topic, dds_historySetting setting)
    : m_topic(std::move(topic)), m_setting(setting), m_history(HistoryFor(setting)) {}

v2xdds_writer::~v2xdds_writer() {
    if (m_writer != nullptr) {
        // While Fast DDS 2.9 destroys a writer, it releases the samples of the history one by one. A heartbeat in
        // between then loops for ever with the writer's lock held. An empty history has no samples to release.
        m_history.remove_all_changes();
        rtps::RTPSDomain::removeRTPSWriter(m_writer);
    }
}

bool v2xdds_writer::Open(rtps::RTPSParticipant& participant) {
    rtps::WriterAttributes attributes;
    attributes.endpoint.reliabilityKind = rtps::RELIABLE;
    attributes.endpoint.durabilityKind = v2xdds_DurabilityOf(m_setting).first;
    attributes.times.heartbeatPeriod = {0, HEARTBEAT_NS};
    m_writer = rtps::RTPSDomain::createRTPSWriter(&participant, attributes, &m_history, this);
    if (m_writer == nullptr) {
        return false;
    }
    eprosima::fastrtps::WriterQos qos;
    qos.m_reliability.kind = eprosima::fastrtps::RELIABLE_RELIABILITY_QOS;
    qos.m_durability.kind = v2xdds_DurabilityOf(m_setting).second;
    return participant.registerWriter(m_writer, v2xdds_TopicAttributes(m_topic), qos);
}

int32_t v2xdds_writer::Send(std::span<const uint8_t> payload) {
    const std::lock_guard lock(m_sendMutex);
    if (m_setting == DDS_HISTORY_ALL && !EvictAcknowledged(CountSamples(payload))) {
        return -2;
    }
    while (!payload.empty()) {
        const auto octets = payload.first(std::min<size_t>(payload.size(), V2XDDS_SAMPLE_MAX));
        if (!SendSample(octets)) {
            return -2;
        }
        payload = payload.subspan(octets.size());
    }
    return 0;
}

// Evicts the oldest samples until `newSamples` more samples fit into the history. Returns false if a reader has not
// acknowledged the oldest sample.
bool v2xdds_writer::EvictAcknowledged(size_t newSamples) {
    while (m_history.getHistorySize() + newSamples > HISTORY_DEPTH[m_setting]) {
        rtps::CacheChange_t* oldest = nullptr;
        if (!m_history.get_min_change(&oldest) || !m_writer->is_acked_by_all(oldest) ||
            !m_history.remove_min_change()) {
            return false;
        }
    }
    return true;
}

// If the history is full, evicts the oldest sample, even if a reader has not acknowledged it.
bool v2xdds_writer::EvictOldest() {
    rtps::CacheChange_t* oldest = nullptr;
    if (m_history.getHistorySize() < HISTORY_DEPTH[m_setting]) {
        return true;
    }
    if (m_history.get_min_change(&oldest) && !m_writer->is_acked_by_all(oldest)) {
        g_evicted.Add();
    }
    return m_history.remove_min_change();
}

bool v2xdds_writer::SendSample(std::span<const uint8_t> octets) {
    if (!EvictOldest()) {
        return false;
    }
    const auto size = static_cast<uint32_t>(V2XDDS_CDR_HEAD + octets.size());
    rtps::CacheChange_t* const change = m_writer->new_change([size] { return size; }, rtps::ALIVE);
    if (change == nullptr) {
        return false;
    }
    v2xdds_Encode(octets, change->serializedPayload.data);
    change->serializedPayload.length = size;
    change->serializedPayload.encapsulation = CDR_LE;
    // A reader orders its queued samples by this time stamp. The stamp never decreases, so the samples stay in order
    // when the system clock is set back.
    rtps::Time_t stamp;
    rtps::Time_t::now(stamp);
    m_lastStamp = std::max(m_lastStamp, stamp.to_ns());
    stamp.from_ns(m_lastStamp);
    rtps::WriteParams parameters;
    parameters.source_timestamp(stamp);
    if (!m_history.add_change(change, parameters)) {
        m_writer->release_change(change);
        return false;
    }
    v2xdds_Tap(m_topic, true, octets);
    return true;
}

void v2xdds_writer::onWriterMatched(rtps::RTPSWriter* /*writer*/,
                                    const eprosima::fastdds::dds::PublicationMatchedStatus& status) {
    // The RTPS layer always reports current_count as 0, so the changes are summed here.
    const int32_t change = status.current_count_change;
    const int32_t count = m_matchedReaders.fetch_add(change, std::memory_order_relaxed) + change;
    V2XLOG(g_v2xddsLog, V2XLOG_INFO, "topic %s: %d readers", m_topic.c_str(), count);
}

void v2xdds_writer::on_offered_incompatible_qos(rtps::RTPSWriter* /*writer*/,
                                                eprosima::fastdds::dds::PolicyMask /*qos*/) {
    g_incompatible.Add();
    V2XLOG(g_v2xddsLog, V2XLOG_WARN, "topic %s: the QoS of a reader is incompatible", m_topic.c_str());
}
