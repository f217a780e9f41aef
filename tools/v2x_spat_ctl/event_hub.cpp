#include "event_hub.h"

#include <utility>

namespace ctl {
namespace {

std::string FormatDaemon(bool isConnected) {
    return isConnected ? "{\"daemon\":true}" : "{\"daemon\":false}";
}

void AppendEvent(std::string& text, const std::string& line) {
    text += "data: " + line + "\n\n";
}

} // namespace

EventHub::Stream::Stream(EventHub& hub) : m_hub(hub) {}

EventHub::Stream::~Stream() {
    const std::lock_guard lock(m_hub.m_mutex);
    m_hub.m_streams.remove(this);
}

std::optional<std::string> EventHub::Stream::Take(std::chrono::milliseconds wait) {
    std::unique_lock lock(m_hub.m_mutex);
    m_hub.m_changed.wait_for(lock, wait, [this] { return m_hub.m_isStopped || !m_lines.empty() || m_lost > 0; });
    if (m_hub.m_isStopped) {
        return std::nullopt;
    }
    std::string text;
    if (m_lost > 0) {
        AppendEvent(text, "{\"lost\":" + std::to_string(std::exchange(m_lost, 0)) + "}");
    }
    for (const auto& line : m_lines) {
        AppendEvent(text, *line);
    }
    m_lines.clear();
    m_size = 0;
    return text;
}

void EventHub::Stream::Push(const std::shared_ptr<const std::string>& line) {
    m_lines.push_back(line);
    m_size += line->size();
    while (m_size > BUFFER_MAX) {
        m_size -= m_lines.front()->size();
        m_lines.pop_front();
        m_lost++;
    }
}

std::shared_ptr<EventHub::Stream> EventHub::Open() {
    const std::lock_guard lock(m_mutex);
    if (m_streams.size() >= STREAMS_MAX) {
        return nullptr;
    }
    auto stream = std::make_shared<Stream>(*this);
    stream->Push(std::make_shared<const std::string>(FormatDaemon(m_isConnected)));
    m_streams.push_back(stream.get());
    return stream;
}

void EventHub::Publish(std::string line) {
    const std::lock_guard lock(m_mutex);
    PushToAll(std::move(line));
}

void EventHub::AddLost(uint64_t count) {
    const std::lock_guard lock(m_mutex);
    for (Stream* const stream : m_streams) {
        stream->m_lost += count;
    }
    m_changed.notify_all();
}

void EventHub::SetDaemon(bool isConnected) {
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_isConnected, isConnected) != isConnected) {
        PushToAll(FormatDaemon(isConnected));
    }
}

void EventHub::Stop() {
    const std::lock_guard lock(m_mutex);
    m_isStopped = true;
    m_changed.notify_all();
}

void EventHub::PushToAll(std::string line) {
    const auto shared = std::make_shared<const std::string>(std::move(line));
    for (Stream* const stream : m_streams) {
        stream->Push(shared);
    }
    m_changed.notify_all();
}

} // namespace ctl
