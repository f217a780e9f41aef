#include "spat_conv_control_server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "spat_conv_control_events.h"
#include "v2x/v2xwatch.h"

namespace {

constexpr uint64_t TICK = 20000;         // microseconds between two readings of the journal
constexpr uint64_t TICK_ACCURACY = 1000; // microseconds
constexpr int32_t TICK_ENTRIES = 1000;   // the most entries of one tick, so that a flood does not occupy a processor
constexpr char TOO_MANY[] = "the daemon already serves 8 clients";

constexpr v2x_journalKind ALL_KINDS[V2X_JOURNAL_KINDS] = {v2x_journalKind::datagram, v2x_journalKind::sample,
                                                          v2x_journalKind::record, v2x_journalKind::state};

bool HasKind(uint32_t kinds, v2x_journalKind kind) {
    return (kinds >> static_cast<uint32_t>(kind) & 1) != 0;
}

void DiscardJournal() {
    while (v2x_journal::Read([](v2x_journalKind, std::span<const uint8_t>) {})) {
    }
}

} // namespace

int v2xspatconv_controlServer::Run() {
    v2x_watchedThread thread(V2XSPATCONV_CONTROL_THREAD);
    int ret = AddSources();
    sd_event* const event = m_event.get();
    while (ret >= 0 && sd_event_get_state(event) != SD_EVENT_FINISHED) {
        thread.Wait();
        ret = sd_event_prepare(event);
        if (ret == 0) {
            ret = sd_event_wait(event, UINT64_MAX);
        }
        thread.Work();
        if (ret > 0) {
            ret = sd_event_dispatch(event);
        }
    }
    return std::min(ret, 0);
}

int v2xspatconv_controlServer::AddSources() {
    sd_event* event = nullptr;
    sd_event_source* listener = nullptr;
    sd_event_source* stop = nullptr;
    sd_event_source* timer = nullptr;
    int ret = sd_event_new(&event);
    m_event.reset(event);
    if (ret < 0 || (ret = sd_event_add_io(event, &listener, m_listener, EPOLLIN, OnConnect, this)) < 0) {
        return ret;
    }
    m_listenerSource.reset(listener);
    const auto onStop = [](sd_event_source* source, int, uint32_t, void*) {
        return sd_event_exit(sd_event_source_get_event(source), 0);
    };
    ret = sd_event_add_io(event, &stop, m_stop, EPOLLIN, onStop, nullptr);
    m_stopSource.reset(stop);
    if (ret >= 0) {
        ret = sd_event_add_time_relative(event, &timer, CLOCK_MONOTONIC, TICK, TICK_ACCURACY, OnTick, this);
        m_timer.reset(timer);
    }
    return ret < 0 ? ret : sd_event_source_set_enabled(timer, SD_EVENT_OFF);
}

int v2xspatconv_controlServer::OnConnect(sd_event_source* /*source*/, int descriptor, uint32_t /*revents*/,
                                         void* server) {
    const int client = accept4(descriptor, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (client >= 0) {
        static_cast<v2xspatconv_controlServer*>(server)->Accept(client);
    }
    return 0;
}

void v2xspatconv_controlServer::Accept(int descriptor) {
    if (m_connections.size() >= CLIENTS_MAX) {
        const std::string line = v2xspatconv_FormatError(TOO_MANY);
        send(descriptor, line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        close(descriptor);
        return;
    }
    auto connection = std::make_unique<Connection>(*this, descriptor);
    sd_event_source* source = nullptr;
    if (sd_event_add_io(m_event.get(), &source, descriptor, EPOLLIN, OnClient, connection.get()) >= 0) {
        connection->source.reset(source);
        m_connections.push_back(std::move(connection));
    }
}

int v2xspatconv_controlServer::OnClient(sd_event_source* source, int /*descriptor*/, uint32_t revents,
                                        void* connection) {
    v2xspatconv_controlServer& server = static_cast<Connection*>(connection)->server;
    v2xspatconv_controlClient& client = static_cast<Connection*>(connection)->client;
    client.HandleEvents(revents);
    client.Send();
    server.Answer(client);
    sd_event_source_set_io_events(source, client.WantedEvents());
    server.RemoveDone();
    return 0;
}

// Answers the requests until one reply cannot be sent completely.
void v2xspatconv_controlServer::Answer(v2xspatconv_controlClient& client) {
    while (const auto request = client.TakeRequest()) {
        v2xspatconv_answer_t answer = v2xspatconv_AnswerRequest(*request, m_context);
        client.Output().AddReply(std::make_shared<const std::string>(std::move(answer.line)));
        if (answer.kinds != 0) {
            ReadJournal(); // the earlier entries are for the other clients
            ReportLost();
            client.AddKinds(answer.kinds);
            UpdateKinds();
        }
        client.Send();
    }
}

void v2xspatconv_controlServer::RemoveDone() {
    if (std::erase_if(m_connections, [](const auto& connection) { return connection->client.IsDone(); }) > 0) {
        UpdateKinds();
    }
}

// Selects the journal entries that the clients want. Starts and stops the timer.
void v2xspatconv_controlServer::UpdateKinds() {
    uint32_t kinds = 0;
    for (const auto& connection : m_connections) {
        kinds |= connection->client.Kinds();
    }
    if (m_kinds == 0 && kinds != 0) {
        DiscardJournal(); // entries that a thread wrote after the last client had gone
        sd_event_source_set_time_relative(m_timer.get(), TICK);
        sd_event_source_set_enabled(m_timer.get(), SD_EVENT_ONESHOT);
    }
    for (const v2x_journalKind kind : ALL_KINDS) {
        if (HasKind(kinds, kind) && !HasKind(m_kinds, kind)) {
            v2x_journal::TakeLost(kind);
        }
        if (kind == v2x_journalKind::state && HasKind(kinds, kind) && !HasKind(m_kinds, kind)) {
            m_peers = m_context.unit.readPeers();
        }
        v2x_journal::Select(kind, HasKind(kinds, kind));
    }
    m_kinds = kinds;
    if (m_kinds == 0) {
        sd_event_source_set_enabled(m_timer.get(), SD_EVENT_OFF);
    }
}

int v2xspatconv_controlServer::OnTick(sd_event_source* source, uint64_t /*time*/, void* argument) {
    v2xspatconv_controlServer& server = *static_cast<v2xspatconv_controlServer*>(argument);
    server.ReadJournal();
    server.ReportLost();
    server.ReadPeers();
    for (const auto& connection : server.m_connections) {
        connection->client.Send();
        sd_event_source_set_io_events(connection->source.get(), connection->client.WantedEvents());
    }
    sd_event_source_set_time_relative(source, TICK);
    sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
    server.RemoveDone(); // stops the timer after the last client
    return 0;
}

void v2xspatconv_controlServer::ReadJournal() {
    const auto deliver = [this](v2x_journalKind kind, std::span<const uint8_t> entry) {
        if (HasKind(m_kinds, kind)) {
            DeliverEvent(kind, v2xspatconv_FormatEvent(kind, entry));
        }
    };
    for (int32_t i = 0; i < TICK_ENTRIES && v2x_journal::Read(deliver); i++) {
    }
}

void v2xspatconv_controlServer::DeliverEvent(v2x_journalKind kind, std::string line) {
    const auto shared = std::make_shared<const std::string>(std::move(line));
    for (const auto& connection : m_connections) {
        if (HasKind(connection->client.Kinds(), kind)) {
            connection->client.Output().AddEvent(shared);
        }
    }
}

// Counts the entries that the journal has lost for the clients that want their kind.
void v2xspatconv_controlServer::ReportLost() {
    for (const v2x_journalKind kind : ALL_KINDS) {
        const uint64_t lost = HasKind(m_kinds, kind) ? v2x_journal::TakeLost(kind) : 0;
        for (const auto& connection : m_connections) {
            connection->client.Output().AddLost(HasKind(connection->client.Kinds(), kind) ? lost : 0);
        }
    }
}

void v2xspatconv_controlServer::ReadPeers() {
    if (!HasKind(m_kinds, v2x_journalKind::state)) {
        return;
    }
    const v2xspatconv_peers_t peers = m_context.unit.readPeers();
    const uint64_t wallTime = v2xpub_CommGetCurrentTime64();
    if (strcmp(peers.stackState, m_peers.stackState) != 0) {
        DeliverEvent(v2x_journalKind::state, v2xspatconv_FormatStackEvent(peers, wallTime));
    }
    if (peers.isCloudAvailable != m_peers.isCloudAvailable) {
        DeliverEvent(v2x_journalKind::state, v2xspatconv_FormatCloudEvent(peers, wallTime));
    }
    m_peers = peers;
}
