#include "dds_port.h"

#include <array>
#include <stdexcept>
#include <utility>

#include "v2x/v2xdds.h"

namespace sim {
namespace {

using Receivers = std::array<DdsPort::Receive, DdsPort::MAX_READ_TOPICS>;

// Set before the library's threads start and emptied after their end; leaked on purpose: it outlives every thread.
Receivers& g_receivers = *new Receivers;

template <size_t PLACE>
void OnSample(void* data, unsigned int len) {
    g_receivers[PLACE](std::span(static_cast<const uint8_t*>(data), len));
}

constexpr std::array<dds_RecvCallback, DdsPort::MAX_READ_TOPICS> CALLBACKS = {OnSample<0>, OnSample<1>};

} // namespace

DdsPort::DdsPort(int32_t domain, const std::vector<Topic>& topics) : m_handle(create_dds()) {
    size_t place = 0;
    for (const auto& [name, receive] : topics) {
        dds_RecvCallback callback = nullptr;
        if (receive) {
            g_receivers.at(place) = receive;
            callback = CALLBACKS[place++];
        }
        if (!dds_reg(m_handle, domain, name.c_str(), callback, 0)) {
            Close();
            throw std::runtime_error("cannot declare the topic " + name + " on DDS domain " + std::to_string(domain));
        }
        set_history_qos(m_handle, name.c_str(), DDS_HISTORY_REAL_TIME, 0);
    }
    set_white_list_iface(m_handle, "127.0.0.1");
    if (!dds_start(m_handle)) {
        Close();
        throw std::runtime_error("cannot join DDS domain " + std::to_string(domain) + " on 127.0.0.1");
    }
}

DdsPort::~DdsPort() {
    Close();
}

bool DdsPort::HasReader(const std::string& topic) const {
    return get_match_cnt(m_handle, topic.c_str()) > 0;
}

bool DdsPort::Send(const std::string& topic, const std::string& bytes) {
    return dds_send(m_handle, topic.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
}

void DdsPort::Close() {
    destroy_dds(std::exchange(m_handle, nullptr));
    g_receivers = {};
}

} // namespace sim
