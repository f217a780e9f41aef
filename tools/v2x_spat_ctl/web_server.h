// HTTP server of the web page.
#pragma once

#include <httplib.h>

#include <string>
#include <vector>

#include "common/endpoint.h"
#include "daemon_link.h"
#include "event_hub.h"

namespace ctl {

// Serves one request a connection, with limits for slow clients.
class HttpServer : public httplib::Server {
    bool process_and_close_socket(int socket) override;
};

class WebServer {
public:
    // Link and hub must outlive the server. `hosts`: names that a request's Host header may have.
    WebServer(DaemonLink& link, EventHub& hub, std::vector<std::string> hosts);

    // Binds the address; connections then wait for Run. Throws std::runtime_error with the reason.
    void Bind(const tools::Endpoint& listen);

    // Serves until Stop. Returns false if the server ends by itself.
    bool Run();

    // Ends Run, also if Run starts later. Any thread.
    void Stop();

private:
    void AddRoutes();
    httplib::Server::HandlerResponse Refuse(const httplib::Request& request, httplib::Response& response) const;
    void ReplyStatus(httplib::Response& response);
    void ReplyMetrics(httplib::Response& response);
    void ReplyEvents(httplib::Response& response);

    DaemonLink& m_link;
    EventHub& m_hub;
    const std::vector<std::string> m_hosts;
    HttpServer m_server;
    int m_listener = -1;
    std::atomic<bool> m_hasEnded{false};
};

} // namespace ctl
