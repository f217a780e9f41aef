// The functions of v2xdds.h. They check handles and pointers and keep the list of participants.
#include "v2x/v2xdds.h"

#include <atomic>

#include "v2xdds_log.h"
#include "v2xdds_participant.h"

namespace {

// An entry of the list of participants. Entries are never freed: a thread may use a handle until the process ends.
struct Entry {
    v2xdds_participant participant;
    Entry* next = nullptr;
};
constinit std::atomic<Entry*> g_entries{nullptr};

v2xdds_participant* FromHandle(void* handle) {
    return handle != nullptr ? &static_cast<Entry*>(handle)->participant : nullptr;
}

// Ends the threads of Fast DDS before exit() destroys the static objects of Fast DDS.
void DestroyAllAtExit() {
    for (Entry* entry = g_entries.load(std::memory_order_acquire); entry != nullptr; entry = entry->next) {
        entry->participant.Destroy(true);
    }
}

} // namespace

void* create_dds() {
    Entry* const entry = new Entry;
    entry->next = g_entries.load(std::memory_order_relaxed);
    while (!g_entries.compare_exchange_weak(entry->next, entry, std::memory_order_release)) {
    }
    return entry;
}

bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type) {
    v2xdds_participant* const participant = FromHandle(handle);
    if (participant == nullptr || topic == nullptr) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot declare a topic: the %s is null",
               topic == nullptr ? "name" : "handle");
        return false;
    }
    return participant->Declare(domain, topic, callback, data_type);
}

bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t /*depth*/) {
    v2xdds_participant* const participant = FromHandle(handle);
    return participant != nullptr && topic != nullptr && participant->SetHistory(topic, setting);
}

bool set_white_list_iface(void* handle, const char* address) {
    v2xdds_participant* const participant = FromHandle(handle);
    return participant != nullptr && address != nullptr && participant->SetAddress(address);
}

bool dds_start(void* handle) {
    v2xdds_participant* const participant = FromHandle(handle);
    return participant != nullptr && participant->Start(DestroyAllAtExit);
}

int32_t get_match_cnt(void* handle, const char* topic) {
    v2xdds_participant* const participant = FromHandle(handle);
    return participant != nullptr && topic != nullptr ? participant->CountMatchedReaders(topic) : 0;
}

int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len) {
    v2xdds_participant* const participant = FromHandle(handle);
    if (participant == nullptr || topic == nullptr || data == nullptr) {
        return -1;
    }
    return participant->Send(topic, {static_cast<const uint8_t*>(data), len});
}

void destroy_dds(void* handle) {
    if (v2xdds_participant* const participant = FromHandle(handle)) {
        participant->Destroy(false);
    }
}
