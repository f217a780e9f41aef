#include "web_server.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/json.h"
#include "host_check.h"
#include "metrics.h"
#include "page.h"
#include "request_stream.h"

namespace ctl {
namespace {

using httplib::Request;
using httplib::Response;
using Clock = std::chrono::steady_clock;

constexpr size_t THREADS = 32;                    // EventHub::STREAMS_MAX of them may serve streams
constexpr std::chrono::seconds REQUEST_WITHIN{2}; // from the accept of the connection to the end of the request
constexpr time_t WRITE_TIMEOUT_SECONDS = 1;
constexpr int BACKLOG = 256;
constexpr int DEFER_ACCEPT_SECONDS = 5;
constexpr unsigned USER_TIMEOUT_MS = 10'000;  // TCP closes a connection whose client acknowledges nothing for so long
constexpr std::chrono::seconds LOOK_AFTER{1}; // how often an idle stream checks its connection
constexpr std::chrono::seconds KEEP_ALIVE{10};

void Reply(Response& response, int status, const std::string& text) {
    response.status = status;
    response.set_content(text, "text/plain; charset=utf-8");
}

void ReplyError(Response& response, const char* reason) {
    const tools::Json json(cJSON_CreateObject());
    cJSON_AddStringToObject(json.get(), "error", reason);
    response.status = 503;
    response.set_content(tools::PrintJson(json.get()), "application/json");
}

void SetSocketOptions(int listener) {
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    // An idle connection waits in the kernel until its first byte arrives, not in a thread.
    setsockopt(listener, IPPROTO_TCP, TCP_DEFER_ACCEPT, &DEFER_ACCEPT_SECONDS, sizeof DEFER_ACCEPT_SECONDS);
    // Accepted connections inherit it. A client that vanished must not occupy a stream until its send buffer is full.
    setsockopt(listener, IPPROTO_TCP, TCP_USER_TIMEOUT, &USER_TIMEOUT_MS, sizeof USER_TIMEOUT_MS);
}

thread_local Clock::time_point t_accepted; // when the connection that this thread serves was accepted

// Serves accepted connections in the order of their arrival.
class ConnectionPool : public httplib::ThreadPool {
public:
    ConnectionPool() : ThreadPool(THREADS) {}

    void enqueue(std::function<void()> serve) override {
        ThreadPool::enqueue([serve = std::move(serve), accepted = Clock::now()] {
            t_accepted = accepted;
            serve();
        });
    }
};

// Writes the lines of one stream until a write fails.
class EventWriter {
public:
    explicit EventWriter(std::shared_ptr<EventHub::Stream> stream) : m_stream(std::move(stream)) {}

    bool operator()(size_t /*offset*/, httplib::DataSink& sink) {
        const auto text = m_stream->Take(LOOK_AFTER);
        if (!text) {
            sink.done();
            return true;
        }
        if (text->empty() && Clock::now() - m_lastWrite < KEEP_ALIVE) {
            return sink.is_writable();
        }
        m_lastWrite = Clock::now();
        const std::string& bytes = text->empty() ? COMMENT : *text;
        return sink.write(bytes.data(), bytes.size());
    }

private:
    static inline const std::string COMMENT = ": no event\n\n";

    std::shared_ptr<EventHub::Stream> m_stream;
    Clock::time_point m_lastWrite = Clock::now();
};

} // namespace

// Slow clients cannot delay other ones for longer than REQUEST_WITHIN, since the time in the queue counts too.
bool HttpServer::process_and_close_socket(int socket) {
    RequestStream stream(socket, t_accepted + REQUEST_WITHIN);
    bool isClosed = false;
    const bool isServed = process_request(stream, true, isClosed, nullptr);
    shutdown(socket, SHUT_RDWR);
    close(socket);
    return isServed;
}

WebServer::WebServer(DaemonLink& link, EventHub& hub, std::vector<std::string> hosts)
    : m_link(link), m_hub(hub), m_hosts(std::move(hosts)) {
    m_server.new_task_queue = [] { return new ConnectionPool; };
    m_server.set_socket_options([this](int listener) {
        m_listener = listener;
        SetSocketOptions(listener);
    });
    m_server.set_tcp_nodelay(true);
    m_server.set_write_timeout(WRITE_TIMEOUT_SECONDS);
    m_server.set_default_headers({{"Content-Security-Policy", std::string(PAGE_POLICY)},
                                  {"X-Content-Type-Options", "nosniff"},
                                  {"Referrer-Policy", "no-referrer"},
                                  {"Cross-Origin-Resource-Policy", "same-origin"},
                                  {"Cache-Control", "no-store"}});
    AddRoutes();
}

void WebServer::AddRoutes() {
    m_server.set_pre_routing_handler(
        [this](const Request& request, Response& response) { return Refuse(request, response); });
    m_server.Get("/", [](const Request&, Response& response) {
        response.set_content(PAGE.data(), PAGE.size(), "text/html; charset=utf-8");
    });
    m_server.Get("/api/status", [this](const Request&, Response& response) { ReplyStatus(response); });
    m_server.Get("/api/events", [this](const Request&, Response& response) { ReplyEvents(response); });
    m_server.Get("/metrics", [this](const Request&, Response& response) { ReplyMetrics(response); });
}

httplib::Server::HandlerResponse WebServer::Refuse(const Request& request, Response& response) const {
    if (request.get_header_value_count("Host") != 1 || !IsAllowedHost(request.get_header_value("Host"), m_hosts)) {
        Reply(response, 403, "This host name is not allowed. Start the server with --host NAME to allow it.\n");
    } else if (request.method != "GET") {
        response.set_header("Allow", "GET");
        Reply(response, 405, "Only GET is allowed.\n");
    } else if (request.has_header("Range")) {
        Reply(response, 400, "Ranges are not supported.\n");
    } else {
        return httplib::Server::HandlerResponse::Unhandled;
    }
    return httplib::Server::HandlerResponse::Handled;
}

void WebServer::ReplyStatus(Response& response) {
    try {
        const std::string status = m_link.Request("status");
        const std::string lights = m_link.Request("lights");
        response.set_content("{\"status\":" + status + ",\"lights\":" + lights + "}", "application/json");
    } catch (const NoDaemon& error) {
        ReplyError(response, error.what());
    }
}

void WebServer::ReplyMetrics(Response& response) {
    std::string metrics;
    try {
        metrics = ReadMetrics([this](std::string_view name) { return m_link.Request(name); });
    } catch (const std::exception&) {
        metrics = FormatMetrics(nullptr, nullptr, ReadClockState());
    }
    response.set_content(metrics, "text/plain; version=0.0.4; charset=utf-8");
}

void WebServer::ReplyEvents(Response& response) {
    auto stream = m_hub.Open();
    if (stream == nullptr) {
        ReplyError(response, "too many streams are open");
        return;
    }
    response.set_chunked_content_provider("text/event-stream", EventWriter(std::move(stream)));
}

void WebServer::Bind(const tools::Endpoint& listen) {
    errno = 0;
    if (!m_server.bind_to_port(listen.ip, listen.port)) {
        const int error = errno;
        throw std::runtime_error("cannot listen on " + tools::FormatEndpoint(listen) + ": " + strerror(error));
    }
    ::listen(m_listener, BACKLOG); // the library's own backlog is 5
}

bool WebServer::Run() {
    const bool isStopped = m_server.listen_after_bind();
    m_hasEnded = true;
    return isStopped;
}

void WebServer::Stop() {
    while (!m_server.is_running() && !m_hasEnded) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the library ignores a stop before its start
    }
    m_server.stop();
}

} // namespace ctl
