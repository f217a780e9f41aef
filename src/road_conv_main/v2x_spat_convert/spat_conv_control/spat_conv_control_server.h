// The event loop of the control socket. Private to the control socket.
#pragma once

#include <memory>
#include <vector>

#include <systemd/sd-event.h>

#include "spat_conv_control_client.h"
#include "spat_conv_control_requests.h"
#include "v2x/v2xjournal.h"

// Name of the thread that runs the event loop.
inline constexpr char V2XSPATCONV_CONTROL_THREAD[] = "SPAT_Control";

// Accepts clients, answers their requests and forwards the journal to them. While no client watches, it only waits for
// the sockets.
class v2xspatconv_controlServer {
public:
    static constexpr size_t CLIENTS_MAX = 8;

    v2xspatconv_controlServer(int listener, int stop, const v2xspatconv_controlContext_t& context)
        : m_listener(listener), m_stop(stop), m_context(context) {}

    // Serves `listener` until `stop` is readable; the caller owns both descriptors. Returns 0, or a negative error
    // number if the event loop fails.
    int Run();

private:
    struct SourceDeleter {
        void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
    };
    using Source = std::unique_ptr<sd_event_source, SourceDeleter>;
    struct Connection {
        Connection(v2xspatconv_controlServer& owner, int descriptor) : server(owner), client(descriptor) {}
        v2xspatconv_controlServer& server;
        v2xspatconv_controlClient client;
        Source source; // destroyed before the descriptor is closed
    };
    struct EventDeleter {
        void operator()(sd_event* event) const { sd_event_unref(event); }
    };

    static int OnConnect(sd_event_source* source, int descriptor, uint32_t revents, void* server);
    static int OnClient(sd_event_source* source, int descriptor, uint32_t revents, void* connection);
    static int OnTick(sd_event_source* source, uint64_t time, void* server);

    int AddSources();
    void Accept(int descriptor);
    void Answer(v2xspatconv_controlClient& client);
    void RemoveDone();
    void UpdateKinds();
    void ReadJournal();
    void ReadPeers();
    void DeliverEvent(v2x_journalKind kind, std::string line);
    void ReportLost();

    int m_listener;
    int m_stop;
    v2xspatconv_controlContext_t m_context;
    std::unique_ptr<sd_event, EventDeleter> m_event;
    Source m_listenerSource;
    Source m_stopSource;
    Source m_timer;
    std::vector<std::unique_ptr<Connection>> m_connections;
    uint32_t m_kinds = 0;          // bit set of the selected journal entries
    v2xspatconv_peers_t m_peers{}; // as last reported to the clients
};
