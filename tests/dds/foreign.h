// Foreign peers of the DDS library: Eclipse Cyclone DDS on loop-back, and a writer whose samples need not be of any
// type.
#pragma once

#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/attributes/WriterAttributes.h>
#include <fastdds/rtps/history/WriterHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/writer/RTPSWriter.h>
#include <fastrtps/qos/WriterQos.h>

#include <algorithm>
#include <string>
#include <vector>

#include "v2xdds_qos.h"
#include "v2xdds_transport.h"

// What makes Cyclone DDS stay on loop-back and look for its peers there one by one.
inline std::string cycloneOnLoopback() {
    return "CYCLONEDDS_URI=<CycloneDDS><Domain><General><Interfaces><NetworkInterface address=\"127.0.0.1\" "
           "multicast=\"false\"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery>"
           "<ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>31</MaxAutoParticipantIndex>"
           "<Peers><Peer address=\"127.0.0.1\"/></Peers></Discovery></Domain></CycloneDDS>";
}

namespace rtps = eprosima::fastrtps::rtps;

class RawWriter {
public:
    RawWriter(int32_t domain, const std::string& topic)
        : m_number("127.0.0.1", domain), m_history({rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, 1024, 1, 1000}),
          m_participant(rtps::RTPSDomain::createParticipant(static_cast<uint32_t>(domain),
                                                            v2xdds_ParticipantAttributes("127.0.0.1", m_number))) {
        rtps::WriterAttributes attributes;
        attributes.times.heartbeatPeriod = {0, 100'000'000};
        attributes.endpoint.durabilityKind = rtps::VOLATILE;
        m_writer = rtps::RTPSDomain::createRTPSWriter(m_participant, attributes, &m_history);
        eprosima::fastrtps::WriterQos qos;
        qos.m_reliability.kind = eprosima::fastrtps::RELIABLE_RELIABILITY_QOS;
        qos.m_durability.kind = eprosima::fastrtps::VOLATILE_DURABILITY_QOS;
        m_participant->registerWriter(m_writer, v2xdds_TopicAttributes(topic), qos);
    }
    ~RawWriter() {
        rtps::RTPSDomain::removeRTPSWriter(m_writer);
        rtps::RTPSDomain::removeRTPSParticipant(m_participant);
    }
    RawWriter(const RawWriter&) = delete;
    RawWriter& operator=(const RawWriter&) = delete;

    void send(const std::vector<uint8_t>& sample) {
        const auto size = static_cast<uint32_t>(sample.size());
        rtps::CacheChange_t* const change = m_writer->new_change([size] { return std::max(size, 1U); }, rtps::ALIVE);
        std::copy(sample.begin(), sample.end(), change->serializedPayload.data);
        change->serializedPayload.length = size;
        m_history.add_change(change);
        if (m_history.getHistorySize() == 1000) {
            m_history.remove_min_change();
        }
    }

private:
    const v2xdds_number m_number;
    rtps::WriterHistory m_history;
    rtps::RTPSParticipant* const m_participant;
    rtps::RTPSWriter* m_writer;
};
