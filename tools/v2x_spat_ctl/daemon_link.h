// Connection of the web server to the daemon, for requests and events. Reconnects after a second.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>

#include "client.h"
#include "event_hub.h"

namespace ctl {

class DaemonLink {
public:
    // Starts the thread that connects and publishes the daemon's events. The hub must outlive the link.
    DaemonLink(std::string path, EventHub& hub);

    // Returns the line of the reply. Throws NoDaemon with the reason. Any thread.
    std::string Request(std::string_view name);

private:
    void Run(const std::stop_token& stop);
    void ReadLines(const std::stop_token& stop);
    void HandleLine(std::string line);
    void SetClient(std::shared_ptr<Client> client, std::string reason);
    bool IsConnected();

    const std::string m_path;
    EventHub& m_hub;
    std::mutex m_turn;  // held during a request
    std::mutex m_mutex; // guards the members below
    std::condition_variable m_changed;
    std::shared_ptr<Client> m_client; // null: not connected
    bool m_hasTried = false;          // true after the first attempt to connect
    std::string m_reason;             // why a request without a client fails
    std::string m_reply;              // to the present request; empty until it arrives
    std::jthread m_thread;            // the last member: it uses the others
};

} // namespace ctl
