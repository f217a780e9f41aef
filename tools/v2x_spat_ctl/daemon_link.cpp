#include "daemon_link.h"

#include <condition_variable>
#include <exception>
#include <utility>

namespace ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds RETRY_AFTER{1};
constexpr int LINE_WITHIN_MS = 100; // bounds the time until a stop is noticed

// Waits for RETRY_AFTER or a stop.
void WaitBeforeRetry(const std::stop_token& stop) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any().wait_for(lock, stop, RETRY_AFTER, [] { return false; });
}

} // namespace

DaemonLink::DaemonLink(std::string path, EventHub& hub)
    : m_path(std::move(path)), m_hub(hub), m_thread([this](const std::stop_token& stop) { Watch(stop); }) {}

std::string DaemonLink::Request(std::string_view name) {
    const std::lock_guard lock(m_mutex);
    if (Clock::now() < m_retryAt) {
        throw NoDaemon(m_reason);
    }
    try {
        if (!m_client) {
            m_client.emplace(m_path);
        }
        return m_client->Request(name);
    } catch (const std::exception& error) {
        m_client.reset();
        m_retryAt = Clock::now() + RETRY_AFTER; // requests that have waited for this one fail at once
        m_reason = error.what();
        throw NoDaemon(m_reason);
    }
}

void DaemonLink::Watch(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        try {
            PublishEvents(stop);
        } catch (const std::exception&) {
            m_hub.SetDaemon(false);
        }
        WaitBeforeRetry(stop);
    }
}

void DaemonLink::PublishEvents(const std::stop_token& stop) {
    Client client(m_path);
    client.Request("watch");
    Reconnect();
    m_hub.SetDaemon(true);
    while (!stop.stop_requested()) {
        if (auto line = client.ReadLine(LINE_WITHIN_MS)) {
            m_hub.Publish(std::move(*line));
        }
    }
}

void DaemonLink::Reconnect() {
    const std::lock_guard lock(m_mutex);
    m_client.reset();
    m_retryAt = {};
}

} // namespace ctl
