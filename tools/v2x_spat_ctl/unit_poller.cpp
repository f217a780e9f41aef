#include "unit_poller.h"

#include <stdexcept>
#include <utility>

namespace ctl {
namespace {

using namespace std::chrono_literals;

constexpr auto PERIOD = 250ms;
constexpr auto RETRY_AFTER = 1s;
constexpr auto REPLY_WITHIN = 2s;

} // namespace

UnitPoller::UnitPoller(const std::string& path) : m_path(path), m_client(std::make_unique<Client>(path)) {}

void UnitPoller::Poll() {
    const auto now = Clock::now();
    try {
        if (m_client == nullptr && now >= m_next) {
            m_client = std::make_unique<Client>(m_path);
            m_isWaiting = false;
        }
        if (m_client != nullptr) {
            Read(now);
            Send(now);
        }
    } catch (const std::runtime_error& error) { // no daemon, or an invalid line
        m_failure = error.what();
        m_client.reset();
        m_status.reset();
        m_lights.reset();
        m_next = now + RETRY_AFTER;
    }
}

void UnitPoller::Send(Clock::time_point now) {
    if (m_isWaiting && now - m_sent > REPLY_WITHIN) {
        throw NoDaemon(m_path + ": the daemon does not answer");
    }
    if (!m_isWaiting && now >= m_next) {
        m_client->Send("status");
        m_client->Send("lights");
        m_isWaiting = true;
        m_sent = now;
        m_next = now + PERIOD;
    }
}

void UnitPoller::Read(Clock::time_point now) {
    while (const auto line = m_client->ReadLine(0)) {
        tools::Json reply = m_client->ParseLine(*line);
        const std::string name = tools::GetText(reply.get(), "reply");
        if (name == "status") {
            m_status = std::move(reply);
        } else if (name == "lights") { // the last of the replies
            m_lights = std::move(reply);
            m_received = now;
            m_isWaiting = false;
            m_failure.clear();
        }
    }
}

UnitView UnitPoller::View() const {
    const std::chrono::duration<double> sinceLights = Clock::now() - m_received;
    return {m_status.get(), m_lights.get(), sinceLights.count(), m_failure};
}

} // namespace ctl
