#include "bare_dds.h"

#include <algorithm>
#include <cstring>
#include <fastdds/rtps/attributes/ReaderAttributes.h>
#include <fastdds/rtps/attributes/WriterAttributes.h>
#include <fastrtps/qos/ReaderQos.h>
#include <fastrtps/qos/WriterQos.h>
#include <stdexcept>

#include "v2xdds_cdr.h"
#include "v2xdds_qos.h"
#include "v2xdds_transport.h"

namespace {

constexpr int32_t KEPT = 64;
constexpr int32_t QUEUED = 1024;
constexpr uint32_t SAMPLE_USUAL = V2XDDS_CDR_HEAD + V2XDDS_SAMPLE_MAX;

// Throws if Fast DDS returned null.
template <typename Made>
Made* created(Made* made) {
    if (made == nullptr) {
        throw std::runtime_error("Fast DDS cannot create a participant, writer or reader");
    }
    return made;
}

template <typename Attributes>
Attributes reliable() {
    Attributes attributes;
    attributes.endpoint.reliabilityKind = rtps::RELIABLE;
    attributes.endpoint.durabilityKind = rtps::VOLATILE;
    return attributes;
}

template <typename Qos>
Qos announced() {
    Qos qos;
    qos.m_reliability.kind = eprosima::fastrtps::RELIABLE_RELIABILITY_QOS;
    qos.m_durability.kind = eprosima::fastrtps::VOLATILE_DURABILITY_QOS;
    return qos;
}

rtps::WriterAttributes writerAttributes() {
    auto attributes = reliable<rtps::WriterAttributes>();
    attributes.times.heartbeatPeriod = {0, 100'000'000};
    return attributes;
}

} // namespace

std::vector<uint8_t> bareSample(size_t octets) {
    const std::vector<uint8_t> payload(octets, 0x41);
    std::vector<uint8_t> sample(V2XDDS_CDR_HEAD + octets);
    v2xdds_Encode(payload, sample.data());
    return sample;
}

BareParticipant::BareParticipant(int32_t domain)
    : m_participant(created(
          rtps::RTPSDomain::createParticipant(static_cast<uint32_t>(domain), v2xdds_ParticipantAttributes(domain)))) {}

BareParticipant::~BareParticipant() {
    rtps::RTPSDomain::removeRTPSParticipant(m_participant);
}

BareWriter::BareWriter(int32_t domain, const std::string& topic)
    : m_participant(domain), m_history({rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, SAMPLE_USUAL, 16, KEPT}),
      m_writer([this] {
          rtps::WriterAttributes attributes = writerAttributes();
          return created(rtps::RTPSDomain::createRTPSWriter(&m_participant.get(), attributes, &m_history, this));
      }()) {
    const auto qos = announced<eprosima::fastrtps::WriterQos>();
    m_participant.get().registerWriter(m_writer, v2xdds_TopicAttributes(topic), qos);
}

BareWriter::~BareWriter() {
    rtps::RTPSDomain::removeRTPSWriter(m_writer);
}

bool BareWriter::send(std::span<const uint8_t> sample) {
    if (m_history.getHistorySize() >= KEPT && !m_history.remove_min_change()) {
        return false;
    }
    const auto size = static_cast<uint32_t>(sample.size());
    rtps::CacheChange_t* const change = m_writer->new_change([size] { return size; }, rtps::ALIVE);
    if (change == nullptr) {
        return false;
    }
    std::memcpy(change->serializedPayload.data, sample.data(), size);
    change->serializedPayload.length = size;
    return m_history.add_change(change);
}

void BareWriter::onWriterMatched(rtps::RTPSWriter* /*writer*/,
                                 const eprosima::fastdds::dds::PublicationMatchedStatus& status) {
    m_readers += status.current_count_change;
}

BareReader::BareReader(int32_t domain, const std::string& topic)
    : m_participant(domain), m_history({rtps::DYNAMIC_RESERVE_MEMORY_MODE, SAMPLE_USUAL, 0, QUEUED}), m_reader([this] {
          auto attributes = reliable<rtps::ReaderAttributes>();
          return created(rtps::RTPSDomain::createRTPSReader(&m_participant.get(), attributes, &m_history, this));
      }()) {
    const auto qos = announced<eprosima::fastrtps::ReaderQos>();
    m_participant.get().registerReader(m_reader, v2xdds_TopicAttributes(topic), qos);
}

BareReader::~BareReader() {
    rtps::RTPSDomain::removeRTPSReader(m_reader);
}

void BareReader::onNewCacheChangeAdded(rtps::RTPSReader* reader, const rtps::CacheChange_t* change) {
    m_received += change->serializedPayload.length - V2XDDS_CDR_HEAD;
    reader->getHistory()->remove_change(const_cast<rtps::CacheChange_t*>(change));
}
