#include "v2xdds_reader.h"

#include <algorithm>
#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/attributes/ReaderAttributes.h>
#include <fastrtps/qos/ReaderQos.h>
#include <mutex>
#include <utility>

#include "v2x/v2xcount.h"
#include "v2xdds_cdr.h"
#include "v2xdds_log.h"
#include "v2xdds_qos.h"
#include "v2xdds_tap.h"

namespace {

v2x_counter g_samples{"dds", "samples"};
v2x_counter g_wrongType{"dds", "wrong_type"};
v2x_counter g_tooLong{"dds", "too_long"};
v2x_counter g_incompatible{"dds", "incompatible_writers"};
v2x_counter g_lost{"dds", "lost"}; // samples that a writer evicted before delivery

namespace rtps = eprosima::fastrtps::rtps;

// Maximum number of samples that wait for the callback. A payload of maximum length has this number of samples. A full
// queue loses nothing, because the writer sends a rejected sample again. The reader loses samples only if the writer
// evicts them.
constexpr size_t QUEUE_SAMPLES = V2XDDS_PAYLOAD_MAX / V2XDDS_SAMPLE_MAX;
constexpr uint32_t QUEUE_BYTES = 4 * V2XDDS_PAYLOAD_MAX;
constexpr uint32_t INITIAL_SAMPLE_BYTES = V2XDDS_CDR_HEAD + V2XDDS_SAMPLE_MAX;
// A sample is padded to a multiple of four bytes.
constexpr uint32_t RECEIVED_SAMPLE_BYTES_MAX = V2XDDS_CDR_HEAD + V2XDDS_PAYLOAD_MAX + 3;

} // namespace

// can_change_be_added_nts applies the limits of this queue and counts missing samples. The limit of Fast DDS does not
// count missing samples. It is set to 2 * QUEUE_SAMPLES, so that it never applies first.
v2xdds_queue::v2xdds_queue()
    : ReaderHistory(
          {rtps::DYNAMIC_RESERVE_MEMORY_MODE, INITIAL_SAMPLE_BYTES, 0, static_cast<int32_t>(2 * QUEUE_SAMPLES)}) {}

// Fast DDS calls this function for every sample. For a fragmented sample it calls the function for every fragment.
bool v2xdds_queue::can_change_be_added_nts(const rtps::GUID_t& writer_guid, uint32_t total_payload_size,
                                           size_t unknown_missing_changes_up_to, bool& will_never_be_accepted) const {
    will_never_be_accepted = total_payload_size > RECEIVED_SAMPLE_BYTES_MAX;
    if (will_never_be_accepted) {
        g_tooLong.Add();
        V2XLOG(g_v2xddsLog, V2XLOG_WARN, "discarded a sample of %u bytes: longer than %u", total_payload_size,
               RECEIVED_SAMPLE_BYTES_MAX);
        return false;
    }
    uint64_t bytes = 0;
    // True if earlier fragments of this sample are in the queue. The loop below has then counted the sample and its
    // bytes, and the sums after the loop must not count them again.
    bool isPartlyQueued = false;
    for (rtps::CacheChange_t* change : m_changes) {
        bytes += change->serializedPayload.length;
        isPartlyQueued = isPartlyQueued || (!change->is_fully_assembled() && change->writerGUID == writer_guid &&
                                            change->serializedPayload.length == total_payload_size);
    }
    const size_t samplesAhead = m_changes.size() - (isPartlyQueued ? 1 : 0) + unknown_missing_changes_up_to;
    bytes += isPartlyQueued ? 0 : total_payload_size;
    // A sample after a missing sample cannot be delivered. Such samples must not fill the queue, because the missing
    // sample could then never be queued. Reserve one entry for the missing sample. Reserve the bytes of two maximum
    // samples, because the loop takes another incomplete sample of equal length for this sample.
    const bool isNext = unknown_missing_changes_up_to == 0;
    return samplesAhead < (isNext ? QUEUE_SAMPLES : QUEUE_SAMPLES - 1) &&
           bytes <= (isNext ? QUEUE_BYTES : QUEUE_BYTES - 2 * RECEIVED_SAMPLE_BYTES_MAX) &&
           ReaderHistory::can_change_be_added_nts(writer_guid, total_payload_size, unknown_missing_changes_up_to,
                                                  will_never_be_accepted);
}

bool v2xdds_queue::Take(rtps::RTPSReader& reader, std::vector<uint8_t>& sample) {
    const std::lock_guard lock(*getMutex());
    rtps::CacheChange_t* change = nullptr;
    rtps::WriterProxy* writer = nullptr;
    if (!reader.nextUntakenCache(&change, &writer)) {
        return false;
    }
    const rtps::SerializedPayload_t& payload = change->serializedPayload;
    sample.assign(payload.data, payload.data + (payload.data != nullptr ? payload.length : 0));
    remove_change(change);
    return true;
}

v2xdds_reader::v2xdds_reader(std::string topic, dds_historySetting setting, dds_RecvCallback callback,
                             std::function<void()> onSample)
    : m_topic(std::move(topic)), m_setting(setting), m_callback(callback), m_onSample(std::move(onSample)) {}

v2xdds_reader::~v2xdds_reader() {
    if (m_reader != nullptr) {
        rtps::RTPSDomain::removeRTPSReader(m_reader);
    }
}

bool v2xdds_reader::Open(rtps::RTPSParticipant& participant) {
    rtps::ReaderAttributes attributes;
    attributes.endpoint.reliabilityKind = rtps::RELIABLE;
    attributes.endpoint.durabilityKind = v2xdds_DurabilityOf(m_setting).first;
    m_reader = rtps::RTPSDomain::createRTPSReader(&participant, attributes, &m_queue, this);
    if (m_reader == nullptr) {
        return false;
    }
    eprosima::fastrtps::ReaderQos qos;
    qos.m_reliability.kind = eprosima::fastrtps::RELIABLE_RELIABILITY_QOS;
    qos.m_durability.kind = v2xdds_DurabilityOf(m_setting).second;
    return participant.registerReader(m_reader, v2xdds_TopicAttributes(m_topic), qos);
}

bool v2xdds_reader::DeliverOne() {
    if (!m_queue.Take(*m_reader, m_sample)) {
        return false;
    }
    const auto octets = v2xdds_Decode(m_sample);
    if (!octets) {
        g_wrongType.Add();
        V2XLOG(g_v2xddsLog, V2XLOG_WARN, "topic %s: rejected a sample of %zu bytes: not of type %s", m_topic.c_str(),
               m_sample.size(), V2XDDS_TYPE_NAME);
        return true;
    }
    g_samples.Add();
    for (size_t at = 0; at < octets->size(); at += V2XDDS_SAMPLE_MAX) {
        const size_t length = std::min<size_t>(octets->size() - at, V2XDDS_SAMPLE_MAX);
        v2xdds_Tap(m_topic, false, octets->subspan(at, length));
        m_callback(m_sample.data() + V2XDDS_CDR_HEAD + at, static_cast<unsigned int>(length));
    }
    return true;
}

void v2xdds_reader::onReaderMatched(rtps::RTPSReader* /*reader*/,
                                    const eprosima::fastdds::dds::SubscriptionMatchedStatus& status) {
    V2XLOG(g_v2xddsLog, V2XLOG_INFO, "topic %s: a writer %s", m_topic.c_str(),
           status.current_count_change > 0 ? "matched" : "left");
}

void v2xdds_reader::onNewCacheChangeAdded(rtps::RTPSReader* /*reader*/, const rtps::CacheChange_t* /*change*/) {
    m_onSample();
}

void v2xdds_reader::on_sample_lost(rtps::RTPSReader* /*reader*/, int32_t count) {
    g_lost.Add(static_cast<uint64_t>(std::max(count, 0)));
}

void v2xdds_reader::on_requested_incompatible_qos(rtps::RTPSReader* /*reader*/,
                                                  eprosima::fastdds::dds::PolicyMask /*qos*/) {
    g_incompatible.Add();
    V2XLOG(g_v2xddsLog, V2XLOG_WARN, "topic %s: the QoS of a writer is incompatible", m_topic.c_str());
}
