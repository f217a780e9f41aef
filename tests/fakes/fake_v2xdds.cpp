#include "fakes.h"
#include "v2x/v2xdds.h"

namespace fakes {

bool ddsCreateFails = false;
std::map<std::string, bool> ddsRegFails;
std::map<std::string, int32_t> ddsMatched;
std::vector<DdsTopic> ddsTopics;
std::vector<DdsSample> ddsSent;

void ddsReceive(const std::string& topic, const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> exact(bytes); // of exact size, so that a sanitizer detects a read behind it
    exact.shrink_to_fit();
    for (const DdsTopic& declared : ddsTopics) {
        if (declared.name == topic && declared.callback != nullptr) {
            declared.callback(exact.data(), static_cast<unsigned int>(exact.size()));
        }
    }
}

} // namespace fakes

namespace {

// Every handle points here. A destroyed participant returns what the real one does.
struct Participant {
    bool started = false;
    bool destroyed = false;
};
Participant participant;

Participant* alive(void* handle) {
    return handle == &participant && !participant.destroyed ? &participant : nullptr;
}

void note(const char* call, const std::string& arguments) {
    fakes::journal.push_back(std::string("dds.") + call + (arguments.empty() ? "" : " ") + arguments);
}

} // namespace

void* create_dds() {
    note("create_dds", "");
    participant = {};
    return fakes::ddsCreateFails ? nullptr : &participant;
}

bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type) {
    if (alive(handle) == nullptr || topic == nullptr) {
        return false;
    }
    note("dds_reg", std::to_string(domain) + " " + topic + (callback != nullptr ? " reader" : " writer"));
    if (fakes::ddsRegFails[topic]) {
        return false;
    }
    fakes::ddsTopics.push_back({topic, callback, data_type});
    return true;
}

bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t depth) {
    if (alive(handle) == nullptr || topic == nullptr) {
        return false;
    }
    note("set_history_qos", std::string(topic) + " " + std::to_string(setting) + " " + std::to_string(depth));
    return true;
}

bool set_white_list_iface(void* handle, const char* address) {
    if (alive(handle) == nullptr || address == nullptr) {
        return false;
    }
    note("set_white_list_iface", address);
    return true;
}

bool dds_start(void* handle) {
    Participant* const started = alive(handle);
    if (started == nullptr) {
        return false;
    }
    note("dds_start", "");
    started->started = true;
    return true;
}

int32_t get_match_cnt(void* handle, const char* topic) {
    const Participant* const asked = alive(handle);
    return asked != nullptr && asked->started && topic != nullptr ? fakes::ddsMatched[topic] : 0;
}

int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len) {
    const Participant* const sender = alive(handle);
    if (sender == nullptr || !sender->started || topic == nullptr || data == nullptr || len == 0) {
        return -1;
    }
    const auto* const bytes = static_cast<const uint8_t*>(data);
    fakes::ddsSent.push_back({topic, {bytes, bytes + len}});
    return 0;
}

void destroy_dds(void* handle) {
    note("destroy_dds", handle != nullptr ? "" : "null");
    if (handle == &participant) {
        participant.destroyed = true;
    }
}
