#include "v2xdds_reader.h"

#include <algorithm>
#include <cinttypes>
#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/attributes/ReaderAttributes.h>
#include <fastrtps/qos/ReaderQos.h>
#include <mutex>
#include <utility>

#include "v2x/v2xcount.h"
#include "v2xdds_cdr.h"
#include "v2xdds_dispatch.h"
#include "v2xdds_qos.h"

namespace {

v2x_counter g_samples{"dds", "samples"};
v2x_counter g_refused{"dds", "refused"};
v2x_counter g_tooLong{"dds", "too_long"};
v2x_counter g_unfit{"dds", "unfit_writers"};
v2x_counter g_lost{"dds", "lost"}; // a writer has given them up before they arrived

namespace rtps = eprosima::fastrtps::rtps;

// Samples that wait for the callback: one payload of the greatest length in pieces. What a late or slow reader loses is
// settled by the writer's history, not here.
constexpr size_t QUEUED = V2XDDS_PAYLOAD_MAX / V2XDDS_PIECE_MAX;
constexpr uint32_t QUEUED_BYTES = 4 * V2XDDS_PAYLOAD_MAX;
// A sample's encoding ends on a multiple of four.
constexpr uint32_t SAMPLE_USUAL = V2XDDS_CDR_HEAD + V2XDDS_PIECE_MAX;
constexpr uint32_t SAMPLE_MAX = V2XDDS_CDR_HEAD + V2XDDS_PAYLOAD_MAX + 3;

} // namespace

// The library's own limit comes after the one below and takes no notice of gaps.
v2xdds_queue::v2xdds_queue()
    : ReaderHistory({rtps::DYNAMIC_RESERVE_MEMORY_MODE, SAMPLE_USUAL, 0, static_cast<int32_t>(2 * QUEUED)}) {}

// Asked for every sample, and for every fragment of one.
bool v2xdds_queue::can_change_be_added_nts(const rtps::GUID_t& writer_guid, uint32_t total_payload_size,
                                           size_t unknown_missing_changes_up_to, bool& will_never_be_accepted) const {
    will_never_be_accepted = total_payload_size > SAMPLE_MAX;
    if (will_never_be_accepted) {
        g_tooLong.Add();
        V2XLOG(g_v2xddsLog, V2XLOG_WARN, "refused a sample of %u bytes, at most %u taken", total_payload_size,
               SAMPLE_MAX);
        return false;
    }
    uint64_t bytes = 0;
    bool isBegun = false; // some of its fragments are here, and its place and its bytes are counted
    for (rtps::CacheChange_t* change : m_changes) {
        bytes += change->serializedPayload.length;
        isBegun = isBegun || (!change->is_fully_assembled() && change->writerGUID == writer_guid &&
                              change->serializedPayload.length == total_payload_size);
    }
    const size_t ahead = m_changes.size() - (isBegun ? 1 : 0) + unknown_missing_changes_up_to;
    bytes += isBegun ? 0 : total_payload_size;
    // What is ahead of a lost sample leaves room for it: no sample behind the gap is handed on, so the queue would stay
    // full for good. Twice the room, since one sample may pass for another of its size that has begun.
    const bool isNext = unknown_missing_changes_up_to == 0;
    return ahead < (isNext ? QUEUED : QUEUED - 1) && bytes <= (isNext ? QUEUED_BYTES : QUEUED_BYTES - 2 * SAMPLE_MAX) &&
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
    // Also when there is no memory for it: it is lost then.
    const struct Removal {
        v2xdds_queue& queue;
        rtps::CacheChange_t* change;
        ~Removal() { queue.remove_change(change); }
    } removal{*this, change};
    const rtps::SerializedPayload_t& payload = change->serializedPayload;
    sample.assign(payload.data, payload.data + (payload.data != nullptr ? payload.length : 0));
    return true;
}

v2xdds_reader::v2xdds_reader(std::string topic, dds_historySetting setting, dds_RecvCallback callback,
                             v2xdds_dispatch& dispatch)
    : m_topic(std::move(topic)), m_setting(setting), m_callback(callback), m_dispatch(dispatch) {}

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

bool v2xdds_reader::HandOnOne() {
    if (m_next == m_end && !TakeSample()) {
        return false;
    }
    if (m_next < m_end) {
        const size_t length = std::min<size_t>(m_end - m_next, V2XDDS_PIECE_MAX);
        uint8_t* const piece = m_sample.data() + m_next;
        m_next += length;
        m_callback(piece, static_cast<unsigned int>(length));
    }
    return true;
}

// Takes what has arrived next; a sample that is refused leaves nothing to hand on.
bool v2xdds_reader::TakeSample() {
    m_next = m_end = 0;
    if (!m_queue.Take(*m_reader, m_sample)) {
        return false;
    }
    if (const auto octets = v2xdds_Decode(m_sample)) {
        g_samples.Add();
        m_next = V2XDDS_CDR_HEAD;
        m_end = m_next + octets->size();
        return true;
    }
    g_refused.Add();
    if (m_refused.Add()) {
        V2XLOG(g_v2xddsLog, V2XLOG_WARN,
               "topic %s: refused a sample of %zu bytes that is not of type %s (%" PRIu64 " so far)", m_topic.c_str(),
               m_sample.size(), V2XDDS_TYPE_NAME, m_refused.Count());
    }
    return true;
}

void v2xdds_reader::onReaderMatched(rtps::RTPSReader* /*reader*/,
                                    const eprosima::fastdds::dds::SubscriptionMatchedStatus& status) {
    V2XLOG(g_v2xddsLog, V2XLOG_INFO, "topic %s: a writer has %s", m_topic.c_str(),
           status.current_count_change > 0 ? "come" : "gone");
}

void v2xdds_reader::onNewCacheChangeAdded(rtps::RTPSReader* /*reader*/, const rtps::CacheChange_t* /*change*/) {
    m_dispatch.Wake();
}

void v2xdds_reader::on_sample_lost(rtps::RTPSReader* /*reader*/, int32_t count) {
    g_lost.Add(static_cast<uint64_t>(std::max(count, 0)));
}

void v2xdds_reader::on_requested_incompatible_qos(rtps::RTPSReader* /*reader*/,
                                                  eprosima::fastdds::dds::PolicyMask /*qos*/) {
    g_unfit.Add();
    if (m_unfit.Add()) {
        V2XLOG(g_v2xddsLog, V2XLOG_WARN, "topic %s: a writer offers less than is asked for (%" PRIu64 " so far)",
               m_topic.c_str(), m_unfit.Count());
    }
}
