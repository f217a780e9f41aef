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

namespace {

v2x_counter g_overwritten{"dds", "overwritten"}; // dropped before every reader had acknowledged them
v2x_counter g_unfit{"dds", "unfit_readers"};

namespace rtps = eprosima::fastrtps::rtps;

constexpr uint32_t HEARTBEAT_NS = 100'000'000; // a reader requests a lost sample again within this time

// Samples in the history, one row for each setting.
constexpr size_t KEPT[] = {4096, 1, 64};

rtps::HistoryAttributes HistoryFor(dds_historySetting setting) {
    constexpr int32_t FIRST = 16; // allocated at the start; the rest on demand
    const auto kept = static_cast<int32_t>(KEPT[setting]);
    return {rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, V2XDDS_CDR_HEAD + V2XDDS_PIECE_MAX, std::min(FIRST, kept),
            kept};
}

size_t PiecesOf(std::span<const uint8_t> payload) {
    return (payload.size() + V2XDDS_PIECE_MAX - 1) / V2XDDS_PIECE_MAX;
}

} // namespace

v2xdds_writer::v2xdds_writer(std::string topic, dds_historySetting setting)
    : m_topic(std::move(topic)), m_setting(setting), m_history(HistoryFor(setting)) {}

v2xdds_writer::~v2xdds_writer() {
    if (m_writer != nullptr) {
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
    if (m_setting == DDS_HISTORY_ALL && !MakeRoom(PiecesOf(payload))) {
        return -2;
    }
    while (!payload.empty()) {
        const auto piece = payload.first(std::min<size_t>(payload.size(), V2XDDS_PIECE_MAX));
        if (!SendPiece(piece)) {
            return -2;
        }
        payload = payload.subspan(piece.size());
    }
    return 0;
}

// For the setting "all": drops only samples that every reader has acknowledged.
bool v2xdds_writer::MakeRoom(size_t samples) {
    while (m_history.getHistorySize() + samples > KEPT[m_setting]) {
        rtps::CacheChange_t* oldest = nullptr;
        if (!m_history.get_min_change(&oldest) || !m_writer->is_acked_by_all(oldest) ||
            !m_history.remove_min_change()) {
            return false;
        }
    }
    return true;
}

// Makes room for one sample, even if a reader has not acknowledged the oldest.
bool v2xdds_writer::Overwrite() {
    rtps::CacheChange_t* oldest = nullptr;
    if (m_history.getHistorySize() < KEPT[m_setting]) {
        return true;
    }
    if (m_history.get_min_change(&oldest) && !m_writer->is_acked_by_all(oldest)) {
        g_overwritten.Add();
    }
    return m_history.remove_min_change();
}

bool v2xdds_writer::SendPiece(std::span<const uint8_t> piece) {
    if (!Overwrite()) {
        return false;
    }
    const auto size = static_cast<uint32_t>(V2XDDS_CDR_HEAD + piece.size());
    rtps::CacheChange_t* const change = m_writer->new_change([size] { return size; }, rtps::ALIVE);
    if (change == nullptr) {
        return false;
    }
    v2xdds_Encode(piece, change->serializedPayload.data);
    change->serializedPayload.length = size;
    change->serializedPayload.encapsulation = CDR_LE;
    // Readers sort waiting samples by this time. It never decreases, so a clock step keeps the order.
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
    return true;
}

void v2xdds_writer::onWriterMatched(rtps::RTPSWriter* /*writer*/,
                                    const eprosima::fastdds::dds::PublicationMatchedStatus& status) {
    const int32_t change = status.current_count_change; // the total is always 0 in this layer
    const int32_t count = m_matched.fetch_add(change, std::memory_order_relaxed) + change;
    V2XLOG(g_v2xddsLog, V2XLOG_INFO, "topic %s: %d readers", m_topic.c_str(), count);
}

void v2xdds_writer::on_offered_incompatible_qos(rtps::RTPSWriter* /*writer*/,
                                                eprosima::fastdds::dds::PolicyMask /*qos*/) {
    g_unfit.Add();
    V2XLOG(g_v2xddsLog, V2XLOG_WARN, "topic %s: the QoS of a reader is incompatible", m_topic.c_str());
}
