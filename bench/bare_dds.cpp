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

constexpr int32_t WRITER_DEPTH = 64;   // samples
constexpr int32_t READER_DEPTH = 1024; // samples
constexpr uint32_t USUAL_SAMPLE_SIZE = V2XDDS_CDR_HEAD + V2XDDS_SAMPLE_MAX;

// Returns the pointer. Throws if it is null.
template <typename Entity>
Entity* requireCreated(Entity* entity) {
    if (entity == nullptr) {
        throw std::runtime_error("Fast DDS cannot create a participant, writer or reader");
    }
    return entity;
}

template <typename Attributes>
Attributes makeAttributes() {
    Attributes attributes;
    attributes.endpoint.reliabilityKind = rtps::RELIABLE;
    attributes.endpoint.durabilityKind = rtps::VOLATILE;
    return attributes;
}

template <typename Qos>
Qos makeQos() {
    Qos qos;
    qos.m_reliability.kind = eprosima::fastrtps::RELIABLE_RELIABILITY_QOS;
    qos.m_durability.kind = eprosima::fastrtps::VOLATILE_DURABILITY_QOS;
    return qos;
}

rtps::WriterAttributes makeWriterAttributes() {
    auto attributes = makeAttributes<rtps::WriterAttributes>();
    attributes.times.heartbeatPeriod = {0, 100'000'000};
    return attributes;
}

} // namespace

std::vector<uint8_t> encodeSample(size_t octets) {
    const std::vector<uint8_t> payload(octets, 0x41);
    std::vector<uint8_t> sample(V2XDDS_CDR_HEAD + octets);
    v2xdds_Encode(payload, sample.data());
    return sample;
}

BareParticipant::BareParticipant(int32_t domain)
    : m_participant(requireCreated(
          rtps::RTPSDomain::createParticipant(static_cast<uint32_t>(domain), v2xdds_ParticipantAttributes(domain)))) {}

BareParticipant::~BareParticipant() {
    rtps::RTPSDomain::removeRTPSParticipant(m_participant);
}

BareWriter::BareWriter(int32_t domain, const std::string& topic)
    : m_participant(domain),
      m_history({rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, USUAL_SAMPLE_SIZE, 16, WRITER_DEPTH}), m_writer([this] {
          rtps::WriterAttributes attributes = makeWriterAttributes();
          return requireCreated(rtps::RTPSDomain::createRTPSWriter(&m_participant.get(), attributes, &m_history, this));
      }()) {
    const auto qos = makeQos<eprosima::fastrtps::WriterQos>();
    m_participant.get().registerWriter(m_writer, v2xdds_TopicAttributes(topic), qos);
}

BareWriter::~BareWriter() {
    rtps::RTPSDomain::removeRTPSWriter(m_writer);
}

bool BareWriter::send(std::span<const uint8_t> sample) {
    if (m_history.getHistorySize() >= WRITER_DEPTH && !m_history.remove_min_change()) {
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
    : m_participant(domain), m_history({rtps::DYNAMIC_RESERVE_MEMORY_MODE, USUAL_SAMPLE_SIZE, 0, READER_DEPTH}),
      m_reader([this] {
          auto attributes = makeAttributes<rtps::ReaderAttributes>();
          return requireCreated(rtps::RTPSDomain::createRTPSReader(&m_participant.get(), attributes, &m_history, this));
      }()) {
    const auto qos = makeQos<eprosima::fastrtps::ReaderQos>();
    m_participant.get().registerReader(m_reader, v2xdds_TopicAttributes(topic), qos);
}

BareReader::~BareReader() {
    rtps::RTPSDomain::removeRTPSReader(m_reader);
}

void BareReader::onNewCacheChangeAdded(rtps::RTPSReader* reader, const rtps::CacheChange_t* change) {
    m_received += change->serializedPayload.length - V2XDDS_CDR_HEAD;
    reader->getHistory()->remove_change(const_cast<rtps::CacheChange_t*>(change));
}
