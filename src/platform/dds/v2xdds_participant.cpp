#include "v2xdds_participant.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <fastdds/rtps/RTPSDomain.h>
#include <stdexcept>

#include "v2x/v2xcount.h"
#include "v2xdds_cdr.h"
#include "v2xdds_library.h"
#include "v2xdds_log.h"

namespace {

v2x_counter g_anew{"dds", "joined_anew"};

namespace rtps = eprosima::fastrtps::rtps;

constexpr size_t TOPIC_NAME_MAX = 255; // the library cuts longer ones
constexpr int32_t PLAIN_BYTES = 0;     // the one data type

} // namespace

void v2xdds_participant::Remove::operator()(rtps::RTPSParticipant* participant) const {
    rtps::RTPSDomain::removeRTPSParticipant(participant);
}

bool v2xdds_participant::Declare(int32_t domain, const char* topic, dds_RecvCallback callback, int32_t dataType) {
    const std::string name = topic;
    const char* fault = nullptr;
    const std::unique_lock lock(m_use);
    const auto isAlike = [&](const Topic& other) {
        return other.name == name && (other.callback == nullptr) == (callback == nullptr);
    };
    if (m_state != State::DECLARED) {
        fault = "the participant is started";
    } else if (name.empty() || name.size() > TOPIC_NAME_MAX) {
        fault = "a name has 1 to 255 characters";
    } else if (domain < 0 || domain > V2XDDS_DOMAIN_MAX || (!m_topics.empty() && domain != m_domain)) {
        fault = "the domain is not 0 to 232, or another than before";
    } else if (dataType != PLAIN_BYTES) {
        fault = "unknown data type";
    } else if (std::any_of(m_topics.begin(), m_topics.end(), isAlike)) {
        fault = "it is declared already";
    }
    if (fault != nullptr) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot declare topic \"%.255s\" on domain %d: %s", name.c_str(), domain,
               fault);
        return false;
    }
    m_domain = domain;
    m_topics.push_back({name, callback, DDS_HISTORY_REAL_TIME});
    return true;
}

bool v2xdds_participant::SetHistory(const char* topic, int32_t setting) {
    if (setting < DDS_HISTORY_ALL || setting > DDS_HISTORY_REAL_TIME) {
        return false;
    }
    const std::unique_lock lock(m_use);
    bool isFound = false;
    for (Topic& declared : m_topics) {
        if (m_state == State::DECLARED && declared.name == topic) {
            declared.setting = static_cast<dds_historySetting>(setting);
            isFound = true;
        }
    }
    return isFound;
}

bool v2xdds_participant::SetAddress(const char* address) {
    if (!v2xdds_IsLoopback(address)) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "\"%.64s\" is no address of a loop-back interface", address);
        return false;
    }
    const std::unique_lock lock(m_use);
    if (m_state != State::DECLARED) {
        return false;
    }
    m_address = address;
    return true;
}

bool v2xdds_participant::Start(void (*atExit)()) {
    const std::unique_lock lock(m_use);
    if (m_state != State::DECLARED || m_isEnding) {
        return false;
    }
    try {
        const v2xdds_signalsBlocked blocked;
        Open();
        // What the library has made so far is destroyed after what is registered now has run, and a callback may end
        // the process before this call returns.
        if (std::atexit(atExit) != 0) {
            throw std::runtime_error("no memory for what runs at exit");
        }
        m_dispatch.Start(m_readers, [this] { return Tend(); });
        m_state = State::RUNNING;
        return true;
    } catch (const std::exception& error) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot join domain %d: %s", m_domain, error.what());
        Close();
        return false;
    }
}

// On a thread that blocks the signals which the library's are to leave to others.
void v2xdds_participant::Open() {
    if (!v2xdds_IsLoopback(m_address.c_str())) {
        throw std::runtime_error("no loop-back interface has the address " + m_address);
    }
    v2xdds_PrepareLibrary();
    m_number.emplace(m_address, m_domain);
    m_peers.Forget();
    m_participant.reset(rtps::RTPSDomain::createParticipant(
        static_cast<uint32_t>(m_domain), v2xdds_ParticipantAttributes(m_address, *m_number), &m_peers));
    if (m_participant == nullptr) {
        throw std::runtime_error("Fast DDS makes no participant");
    }
    for (const Topic& topic : m_topics) {
        if (!OpenTopic(topic)) {
            throw std::runtime_error("Fast DDS refuses topic " + topic.name);
        }
    }
}

bool v2xdds_participant::OpenTopic(const Topic& topic) {
    if (topic.callback == nullptr) {
        m_writers.push_back(std::make_unique<v2xdds_writer>(topic.name, topic.setting));
        return m_writers.back()->Open(*m_participant);
    }
    m_readers.push_back(std::make_unique<v2xdds_reader>(topic.name, topic.setting, topic.callback, m_dispatch));
    return m_readers.back()->Open(*m_participant);
}

void v2xdds_participant::Close() {
    m_readers.clear();
    m_writers.clear();
    m_participant.reset();
    m_number.reset();
}

// Whether a peer's readers or writers of the topic have their opposite here.
bool v2xdds_participant::Concerns(v2xdds_peers::Kind peers, const char* topic) const {
    return std::any_of(m_topics.begin(), m_topics.end(), [&](const Topic& declared) {
        return declared.name == topic && (declared.callback == nullptr) == (peers == v2xdds_peers::READER);
    });
}

// On the dispatching thread. Makes the participant anew where it has lost a peer, and again where that failed.
v2xdds_participant::Clock::time_point v2xdds_participant::Tend() {
    constexpr auto PAUSE = std::chrono::seconds(1);
    const auto due = m_participant != nullptr ? m_peers.Due() : Clock::time_point::min();
    if (Clock::now() < due) {
        return due;
    }
    m_isAway = true;
    const std::unique_lock lock(m_use);
    if (m_isEnding) {
        return Clock::time_point::max();
    }
    m_isAway = !OpenAnew();
    return m_isAway ? Clock::now() + PAUSE : m_peers.Due();
}

bool v2xdds_participant::OpenAnew() {
    if (m_participant != nullptr) {
        g_anew.Add();
        V2XLOG(g_v2xddsLog, V2XLOG_WARN, "a peer is back and its topics are not: joining domain %d anew", m_domain);
        Close();
    }
    try {
        Open();
        return true;
    } catch (const std::exception& error) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot join domain %d: %s", m_domain, error.what());
        Close();
        return false;
    }
}

v2xdds_writer* v2xdds_participant::FindWriter(const char* topic) const {
    const auto isIt = [topic](const auto& writer) { return writer->Topic() == topic; };
    const auto found = std::find_if(m_writers.begin(), m_writers.end(), isIt);
    return m_state == State::RUNNING && found != m_writers.end() ? found->get() : nullptr;
}

int32_t v2xdds_participant::Matched(const char* topic) {
    if (m_isEnding || m_isAway) {
        return 0;
    }
    const std::shared_lock lock(m_use);
    const v2xdds_writer* const writer = FindWriter(topic);
    return writer != nullptr ? writer->Matched() : 0;
}

int32_t v2xdds_participant::Send(const char* topic, std::span<const uint8_t> payload) {
    if (m_isEnding || m_isAway || payload.empty() || payload.size() > V2XDDS_PAYLOAD_MAX) {
        return -1;
    }
    const std::shared_lock lock(m_use);
    v2xdds_writer* const writer = FindWriter(topic);
    return writer != nullptr ? writer->Send(payload) : -1;
}

void v2xdds_participant::Destroy(bool isExit) {
    const bool isCallback = m_dispatch.IsCaller();
    if (isCallback && !isExit) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "a callback cannot destroy its participant");
        return;
    }
    m_isEnding = true;
    std::unique_lock destroying(m_destroyMutex, std::defer_lock);
    // Another thread may be destroying: it waits for this callback, to which exit does not return.
    if (!isCallback) {
        destroying.lock();
        { const std::unique_lock started(m_use); } // a start that was under way is over, and another refused
        m_dispatch.Stop();
    }
    const std::unique_lock lock(m_use);
    Close();
    m_state = State::ENDED;
}
