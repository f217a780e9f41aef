// Watches for peers that the library has lost for good. One that stands still for longer than its lease is dropped;
// when it goes on it is found again, and in rare cases none of its readers or writers is: the library takes it for
// known what the peer takes for acknowledged. Only a new participant finds them then.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <fastdds/rtps/participant/RTPSParticipantListener.h>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

class v2xdds_peers : public eprosima::fastrtps::rtps::RTPSParticipantListener {
public:
    using Clock = std::chrono::steady_clock;
    enum Kind { READER, WRITER, KINDS };

    // `concerns` says whether a peer's reader or writer of this topic would be matched, and `onChange` hears that Due()
    // may have changed; both on threads of the library, and neither throws.
    v2xdds_peers(std::function<bool(Kind, const char* topic)> concerns, std::function<void()> onChange)
        : m_concerns(std::move(concerns)), m_onChange(std::move(onChange)) {}

    // When a peer is to be taken for lost, unless what it lacks comes before; the end of time where none is missed.
    Clock::time_point Due() const;
    // For a new participant, before it is made.
    void Forget();

private:
    using Prefix = eprosima::fastrtps::rtps::GuidPrefix_t;
    struct Peer {
        Prefix prefix;
        int32_t found = 0;                // times, less those that it was dropped; the two may come in either order
        bool isLacking = false;           // it was dropped, and not all of what it had is known again
        Clock::time_point changed{};      // found or dropped last
        std::array<bool, KINDS> had{};    // since it is known
        std::array<int32_t, KINDS> has{}; // number of those found
        bool LacksAny() const;
    };

    void onParticipantDiscovery(eprosima::fastrtps::rtps::RTPSParticipant* participant,
                                eprosima::fastrtps::rtps::ParticipantDiscoveryInfo&& info) override;
    void onReaderDiscovery(eprosima::fastrtps::rtps::RTPSParticipant* participant,
                           eprosima::fastrtps::rtps::ReaderDiscoveryInfo&& info) override;
    void onWriterDiscovery(eprosima::fastrtps::rtps::RTPSParticipant* participant,
                           eprosima::fastrtps::rtps::WriterDiscoveryInfo&& info) override;

    void Count(Kind kind, const Prefix& prefix, const char* topic, int32_t change);
    std::vector<Peer>::iterator Find(const Prefix& prefix);
    void ForgetLongestAway();

    const std::function<bool(Kind, const char*)> m_concerns;
    const std::function<void()> m_onChange;
    mutable std::mutex m_mutex;
    std::vector<Peer> m_peers;
};
