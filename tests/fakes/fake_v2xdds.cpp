#include "fakes.h"

namespace fakes {

std::map<std::string, int32_t> ddsMatched;
std::vector<DdsTopic> ddsTopics;
std::vector<DdsSample> ddsSent;

void ddsReceive(const std::string& topic, const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> exact(bytes); // heap buffer of the exact size, so that a sanitizer detects a read past its end
    for (const DdsTopic& declared : ddsTopics) {
        if (declared.name == topic && declared.callback != nullptr) {
            declared.callback(exact.data(), static_cast<unsigned int>(exact.size()));
        }
    }
}

} // namespace fakes

namespace {

bool isStarted = false; // every handle points here

void note(const char* call, const std::string& arguments = "") {
    fakes::journal.push_back(std::string("dds.") + call + (arguments.empty() ? "" : " ") + arguments);
}

} // namespace

void* create_dds() {
    note("create_dds");
    return &isStarted;
}

bool dds_reg(void*, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t) {
    note("dds_reg", std::to_string(domain) + " " + topic + (callback != nullptr ? " reader" : " writer"));
    fakes::ddsTopics.push_back({topic, callback});
    return true;
}

bool set_history_qos(void*, const char* topic, int32_t setting, int32_t depth) {
    note("set_history_qos", std::string(topic) + " " + std::to_string(setting) + " " + std::to_string(depth));
    return true;
}

bool set_white_list_iface(void*, const char* address) {
    note("set_white_list_iface", address);
    return true;
}

bool dds_start(void*) {
    note("dds_start");
    isStarted = true;
    return true;
}

int32_t get_match_cnt(void*, const char* topic) {
    return isStarted ? fakes::ddsMatched[topic] : 0;
}

int32_t dds_send(void*, const char* topic, const void* data, uint32_t len) {
    const auto* const bytes = static_cast<const uint8_t*>(data);
    fakes::ddsSent.push_back({topic, {bytes, bytes + len}});
    return 0;
}

void destroy_dds(void*) {
    note("destroy_dds");
    isStarted = false;
}
