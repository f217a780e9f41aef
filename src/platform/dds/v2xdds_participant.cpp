#include "v2xdds_participant.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <fastdds/rtps/RTPSDomain.h>
#include <stdexcept>
#include <string_view>

#include "v2xdds_cdr.h"
#include "v2xdds_library.h"
#include "v2xdds_log.h"
#include "v2xdds_transport.h"

namespace {

namespace rtps = eprosima::fastrtps::rtps;

constexpr size_t TOPIC_NAME_MAX = 255; // Fast DDS truncates longer names
constexpr int32_t PLAIN_BYTES = 0;     // the only data type that dds_reg accepts

} // namespace

void v2xdds_participant::ParticipantDeleter::operator()(rtps::RTPSParticipant* participant) const {
    rtps::RTPSDomain::removeRTPSParticipant(participant);
}

bool v2xdds_participant::Declare(int32_t domain, const char* topic, dds_RecvCallback callback, int32_t dataType) {
    const std::string name = topic;
    const char* fault = nullptr;
    const std::unique_lock lock(m_membersMutex);
    const auto isSame = [&](const Topic& other) {
        return other.name == name && (other.callback == nullptr) == (callback == nullptr);
    };
    if (m_state != State::DECLARED) {
        fault = "the participant is running or destroyed";
    } else if (name.empty() || name.size() > TOPIC_NAME_MAX) {
        fault = "the name must have 1 to 255 characters";
    } else if (domain < 0 || domain > V2XDDS_DOMAIN_MAX || (!m_topics.empty() && domain != m_domain)) {
        fault = "the domain must be 0 to 232 and equal for all topics of the participant";
    } else if (dataType != PLAIN_BYTES) {
        fault = "unknown data type";
    } else if (std::any_of(m_topics.begin(), m_topics.end(), isSame)) {
        fault = "a topic can have only one reader and one writer";
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
    const std::unique_lock lock(m_membersMutex);
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
    if (std::string_view(address) != V2XDDS_ADDRESS) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot use the address \"%.64s\": only %s is supported", address,
               V2XDDS_ADDRESS);
        return false;
    }
    const std::shared_lock lock(m_membersMutex);
    return m_state == State::DECLARED;
}

bool v2xdds_participant::Start(void (*atExit)()) {
    const std::unique_lock lock(m_membersMutex);
    if (m_state != State::DECLARED || m_isEnding) {
        return false;
    }
    try {
        const v2xdds_signalBlocker blocker;
        Open();
        // Register atExit after Open, so that exit() first runs atExit and then destroys the static objects of Fast
        // DDS. Register atExit before the dispatcher starts, because a callback may call exit().
        std::atexit(atExit);
        m_dispatch.Start(m_readers);
        m_state = State::RUNNING;
        return true;
    } catch (const std::exception& error) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot join domain %d: %s", m_domain, error.what());
        Close();
        return false;
    }
}

void v2xdds_participant::Open() {
    v2xdds_PrepareLibrary();
    m_participant.reset(
        rtps::RTPSDomain::createParticipant(static_cast<uint32_t>(m_domain), v2xdds_ParticipantAttributes(m_domain)));
    if (m_participant == nullptr) {
        throw std::runtime_error("Fast DDS cannot create a participant");
    }
    for (const Topic& topic : m_topics) {
        if (!OpenTopic(topic)) {
            throw std::runtime_error("Fast DDS rejects topic " + topic.name);
        }
    }
}

bool v2xdds_participant::OpenTopic(const Topic& topic) {
    if (topic.callback == nullptr) {
        m_writers.push_back(std::make_unique<v2xdds_writer>(topic.name, topic.setting));
        return m_writers.back()->Open(*m_participant);
    }
    m_readers.push_back(
        std::make_unique<v2xdds_reader>(topic.name, topic.setting, topic.callback, [this] { m_dispatch.Wake(); }));
    return m_readers.back()->Open(*m_participant);
}

void v2xdds_participant::Close() {
    m_readers.clear();
    m_writers.clear();
    m_participant.reset();
}

v2xdds_writer* v2xdds_participant::FindWriter(const char* topic) const {
    const auto hasTopic = [topic](const auto& writer) { return writer->Topic() == topic; };
    const auto found = std::find_if(m_writers.begin(), m_writers.end(), hasTopic);
    return m_state == State::RUNNING && found != m_writers.end() ? found->get() : nullptr;
}

int32_t v2xdds_participant::CountMatchedReaders(const char* topic) {
    if (m_isEnding) {
        return 0;
    }
    const std::shared_lock lock(m_membersMutex);
    const v2xdds_writer* const writer = FindWriter(topic);
    return writer != nullptr ? writer->CountMatchedReaders() : 0;
}

int32_t v2xdds_participant::Send(const char* topic, std::span<const uint8_t> payload) {
    if (m_isEnding || payload.empty() || payload.size() > V2XDDS_PAYLOAD_MAX) {
        return -1;
    }
    const std::shared_lock lock(m_membersMutex);
    v2xdds_writer* const writer = FindWriter(topic);
    return writer != nullptr ? writer->Send(payload) : -1;
}

void v2xdds_participant::Destroy(bool isProcessExiting) {
    const bool isInCallback = m_dispatch.IsOwnThread();
    if (isInCallback && !isProcessExiting) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "a callback cannot destroy its participant");
        return;
    }
    m_isEnding = true;
    std::unique_lock destroying(m_destroyMutex, std::defer_lock);
    // A callback that calls exit() does not lock m_destroyMutex: the thread that owns the mutex may be waiting in Stop
    // for the same callback.
    if (!isInCallback) {
        destroying.lock();
        // Wait until a running dds_start returns. A later dds_start fails because m_isEnding is set.
        { const std::unique_lock started(m_membersMutex); }
        m_dispatch.Stop();
    }
    const std::unique_lock lock(m_membersMutex);
    Close();
    m_state = State::ENDED;
}
