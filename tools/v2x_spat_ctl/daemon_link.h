// Connections of the web server to the daemon: one for requests and one for events. Both reconnect after a second.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

#include "client.h"
#include "event_hub.h"

namespace ctl {

class DaemonLink {
public:
    // Starts the thread that publishes the daemon's events. The hub must outlive the link.
    DaemonLink(std::string path, EventHub& hub);

    // Returns the line of the reply. Throws NoDaemon with the reason. Any thread.
    std::string Request(std::string_view name);

private:
    void Watch(const std::stop_token& stop);
    void PublishEvents(const std::stop_token& stop);
    void Reconnect(); // makes the next request connect again

    const std::string m_path;
    EventHub& m_hub;
    std::mutex m_mutex; // guards m_client, m_retryAt and m_reason
    std::optional<Client> m_client;
    std::chrono::steady_clock::time_point m_retryAt; // until then each request fails with m_reason
    std::string m_reason;
    std::jthread m_thread; // the last member: it uses the others
};

} // namespace ctl
