#include "v2xdds_peers.h"

#include <algorithm>
#include <exception>
#include <fastdds/rtps/participant/ParticipantDiscoveryInfo.h>
#include <fastdds/rtps/reader/ReaderDiscoveryInfo.h>
#include <fastdds/rtps/writer/WriterDiscoveryInfo.h>

#include "v2xdds_log.h"

namespace {

namespace rtps = eprosima::fastrtps::rtps;
using rtps::ParticipantDiscoveryInfo;
using rtps::ReaderDiscoveryInfo;
using rtps::WriterDiscoveryInfo;

// How long a peer that is found again may take to tell of its readers and writers; some 100 ms as a rule. Longer than
// the lease, since one that stands still again at once is dropped by then, and not a moment at which the peer looks at
// this end's lease, 3 s after it was found and 5 s or more: an assertion of the library fails in a peer that gets a
// good-bye while it does.
constexpr auto PATIENCE = std::chrono::seconds(4);
// Peers that were dropped and may come back: as many as find each other on a domain. Who is killed never does.
constexpr size_t AWAY_MAX = 32;

} // namespace

bool v2xdds_peers::Peer::LacksAny() const {
    return (had[READER] && has[READER] <= 0) || (had[WRITER] && has[WRITER] <= 0);
}

v2xdds_peers::Clock::time_point v2xdds_peers::Due() const {
    const std::lock_guard lock(m_mutex);
    auto due = Clock::time_point::max();
    for (const Peer& peer : m_peers) {
        if (peer.found > 0 && peer.isLacking) {
            due = std::min(due, peer.changed + PATIENCE);
        }
    }
    return due;
}

void v2xdds_peers::Forget() {
    const std::lock_guard lock(m_mutex);
    m_peers.clear();
}

void v2xdds_peers::onParticipantDiscovery(rtps::RTPSParticipant* /*participant*/, ParticipantDiscoveryInfo&& info) {
    if (info.status == ParticipantDiscoveryInfo::CHANGED_QOS_PARTICIPANT) {
        return;
    }
    try {
        {
            const std::lock_guard lock(m_mutex);
            const Prefix prefix = info.info.m_guid.guidPrefix;
            const auto known = Find(prefix);
            const auto peer = known != m_peers.end() ? known : m_peers.emplace(known, Peer{prefix});
            const bool isFound = info.status == ParticipantDiscoveryInfo::DISCOVERED_PARTICIPANT;
            const bool isDropped = info.status == ParticipantDiscoveryInfo::DROPPED_PARTICIPANT;
            peer->found += isFound ? 1 : -1;
            peer->changed = Clock::now();
            peer->isLacking = isFound ? peer->isLacking : isDropped && peer->LacksAny();
            if (peer->found == 0 && !peer->isLacking) {
                m_peers.erase(peer); // what comes back is as good as new
            }
            ForgetLongestAway();
        }
        m_onChange();
    } catch (const std::exception& error) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "a peer is not watched: %s", error.what()); // no memory
    }
}

void v2xdds_peers::onReaderDiscovery(rtps::RTPSParticipant* /*participant*/, ReaderDiscoveryInfo&& info) {
    if (info.status != ReaderDiscoveryInfo::CHANGED_QOS_READER) {
        const bool isFound = info.status == ReaderDiscoveryInfo::DISCOVERED_READER;
        Count(READER, info.info.guid().guidPrefix, info.info.topicName().c_str(), isFound ? 1 : -1);
    }
}

void v2xdds_peers::onWriterDiscovery(rtps::RTPSParticipant* /*participant*/, WriterDiscoveryInfo&& info) {
    if (info.status != WriterDiscoveryInfo::CHANGED_QOS_WRITER) {
        const bool isFound = info.status == WriterDiscoveryInfo::DISCOVERED_WRITER;
        Count(WRITER, info.info.guid().guidPrefix, info.info.topicName().c_str(), isFound ? 1 : -1);
    }
}

// Of this end's own ones, too, of which the library tells as well: no peer has its prefix.
void v2xdds_peers::Count(Kind kind, const Prefix& prefix, const char* topic, int32_t change) {
    const std::lock_guard lock(m_mutex);
    const auto peer = Find(prefix);
    if (peer != m_peers.end() && m_concerns(kind, topic)) {
        peer->has[kind] += change;
        peer->had[kind] = peer->had[kind] || change > 0;
        peer->isLacking = peer->isLacking && peer->LacksAny();
    }
}

std::vector<v2xdds_peers::Peer>::iterator v2xdds_peers::Find(const Prefix& prefix) {
    return std::ranges::find(m_peers, prefix, &Peer::prefix);
}

void v2xdds_peers::ForgetLongestAway() {
    const auto isAway = [](const Peer& peer) { return peer.found <= 0; };
    if (std::ranges::count_if(m_peers, isAway) > static_cast<ptrdiff_t>(AWAY_MAX)) {
        m_peers.erase(std::ranges::min_element(
            m_peers, {}, [&](const Peer& peer) { return std::pair(!isAway(peer), peer.changed); }));
    }
}
