// Asks the daemon for status and lights, again and again.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "client.h"
#include "common/json.h"
#include "screen_layout.h"

namespace ctl {

class UnitPoller {
public:
    // Connects to the socket at `path`. Throws NoDaemon.
    explicit UnitPoller(const std::string& path);

    // Reads what has arrived, and sends the next requests 250 ms after the last ones. If the connection fails, or the
    // daemon does not answer within 2 s, discards the replies and connects again after 1 s. Call this function several
    // times a second; it waits for the daemon only while it connects.
    void Poll();

    // Returns the newest replies; they are valid until the next call of Poll.
    UnitView View() const;

    // Returns the descriptor to wait for, or -1 without a connection.
    int Descriptor() const { return m_client != nullptr ? m_client->Descriptor() : -1; }

private:
    using Clock = std::chrono::steady_clock;

    void Send(Clock::time_point now);
    void Read(Clock::time_point now);

    std::string m_path;
    std::unique_ptr<Client> m_client; // null without a connection
    std::string m_failure;
    Clock::time_point m_next{}; // time of the next requests, or of the next attempt to connect
    Clock::time_point m_sent{};
    Clock::time_point m_received{}; // of m_lights
    bool m_isWaiting = false;       // requests are not answered yet
    tools::Json m_status;
    tools::Json m_lights;
};

} // namespace ctl
