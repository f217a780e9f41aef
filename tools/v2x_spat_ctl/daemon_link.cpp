#include "daemon_link.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "common/json.h"

namespace ctl {
namespace {

constexpr std::chrono::seconds RETRY_AFTER{1};
constexpr std::chrono::seconds REPLY_WITHIN{5};
constexpr int LINE_WITHIN_MS = 100; // bounds the time until a stop is noticed
constexpr double LOST_MAX = 1e15;   // a larger number has no exact integer

// Waits for RETRY_AFTER or a stop.
void WaitBeforeRetry(const std::stop_token& stop) {
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any().wait_for(lock, stop, RETRY_AFTER, [] { return false; });
}

} // namespace

DaemonLink::DaemonLink(std::string path, EventHub& hub)
    : m_path(std::move(path)), m_hub(hub), m_thread([this](const std::stop_token& stop) { Run(stop); }) {}

std::string DaemonLink::Request(std::string_view name) {
    const std::lock_guard turn(m_turn);
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_hasTried; });
    m_reply.clear();
    if (m_client != nullptr) {
        m_client->Send(name);
        if (!m_changed.wait_for(lock, REPLY_WITHIN, [this] { return m_client == nullptr || !m_reply.empty(); })) {
            m_client = nullptr; // the thread connects again
            m_reason = m_path + ": the daemon does not answer";
        }
    }
    if (m_reply.empty()) {
        throw NoDaemon(m_reason);
    }
    return std::exchange(m_reply, {});
}

void DaemonLink::Run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        try {
            ReadLines(stop);
        } catch (const std::exception& error) {
            SetClient(nullptr, error.what());
        }
        m_hub.SetDaemon(false);
        WaitBeforeRetry(stop);
    }
}

// Returns after a stop, or when a request has not been answered.
void DaemonLink::ReadLines(const std::stop_token& stop) {
    const auto client = std::make_shared<Client>(m_path);
    client->Request("watch");
    SetClient(client, m_path + ": the daemon has closed the connection");
    m_hub.SetDaemon(true);
    while (!stop.stop_requested() && IsConnected()) {
        if (auto line = client->ReadLine(LINE_WITHIN_MS)) {
            HandleLine(std::move(*line));
        }
    }
    const std::lock_guard lock(m_mutex);
    m_client = nullptr;
}

void DaemonLink::HandleLine(std::string line) {
    if (line.find("\"event\"") != std::string::npos) {
        m_hub.Publish(std::move(line));
        return;
    }
    const tools::Json json = tools::ParseJsonObject(line);
    if (const double lost = tools::GetNumber(json.get(), "lost"); lost > 0) {
        m_hub.AddLost(static_cast<uint64_t>(std::min(lost, LOST_MAX)));
    }
    if (!tools::IsNull(json.get(), "reply")) {
        const std::lock_guard lock(m_mutex);
        m_reply = std::move(line);
        m_changed.notify_all();
    }
}

// `reason` is why the next request without a client fails.
void DaemonLink::SetClient(std::shared_ptr<Client> client, std::string reason) {
    const std::lock_guard lock(m_mutex);
    m_client = std::move(client);
    m_reason = std::move(reason);
    m_hasTried = true;
    m_changed.notify_all();
}

bool DaemonLink::IsConnected() {
    const std::lock_guard lock(m_mutex);
    return m_client != nullptr;
}

} // namespace ctl
