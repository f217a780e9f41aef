// A writer and a reader on Fast DDS alone, with the settings that the platform's DDS library uses for real-time topics.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/history/ReaderHistory.h>
#include <fastdds/rtps/history/WriterHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/reader/RTPSReader.h>
#include <fastdds/rtps/reader/ReaderListener.h>
#include <fastdds/rtps/writer/RTPSWriter.h>
#include <fastdds/rtps/writer/WriterListener.h>
#include <span>
#include <string>
#include <vector>

namespace rtps = eprosima::fastrtps::rtps;

// Returns an encoded sample with this many bytes of payload.
std::vector<uint8_t> encodeSample(size_t octets);

// A participant on 127.0.0.1. Start a participant of the platform's library first: the library turns off delivery
// within the process. The constructors of all three classes throw std::runtime_error if Fast DDS fails.
class BareParticipant {
public:
    explicit BareParticipant(int32_t domain);
    ~BareParticipant();
    BareParticipant(const BareParticipant&) = delete;
    BareParticipant& operator=(const BareParticipant&) = delete;
    rtps::RTPSParticipant& get() const { return *m_participant; }

private:
    rtps::RTPSParticipant* const m_participant;
};

// Publishes on one topic. One thread at a time.
class BareWriter : private rtps::WriterListener {
public:
    BareWriter(int32_t domain, const std::string& topic);
    ~BareWriter() override;
    // Publishes a sample of encodeSample. Returns false if Fast DDS rejects the sample.
    bool send(std::span<const uint8_t> sample);
    // Returns the number of matched readers. Any thread.
    int32_t countReaders() const { return m_readers; }

private:
    using WriterListener::onWriterMatched;
    void onWriterMatched(rtps::RTPSWriter* writer,
                         const eprosima::fastdds::dds::PublicationMatchedStatus& status) override;

    std::atomic<int32_t> m_readers{0};
    const BareParticipant m_participant;
    rtps::WriterHistory m_history;
    rtps::RTPSWriter* const m_writer;
};

// Reads one topic, counts the payload and discards the samples.
class BareReader : private rtps::ReaderListener {
public:
    BareReader(int32_t domain, const std::string& topic);
    ~BareReader() override;
    // Returns the bytes of payload that have arrived. Any thread.
    const std::atomic<size_t>& received() const { return m_received; }

private:
    void onNewCacheChangeAdded(rtps::RTPSReader* reader, const rtps::CacheChange_t* change) override;

    std::atomic<size_t> m_received{0};
    const BareParticipant m_participant;
    rtps::ReaderHistory m_history;
    rtps::RTPSReader* const m_reader;
};
