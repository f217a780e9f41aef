// The interface: arguments that are none, and handles, which stay good for the life of the process.
#include "v2x/v2xdds.h"

#include <atomic>
#include <exception>
#include <new>

#include "v2xdds_log.h"
#include "v2xdds_participant.h"

namespace {

// Every participant that was ever made. Threads may hold a handle until the very end, so none is freed; a destroyed one
// has given back what it held of the library.
struct Entry {
    v2xdds_participant participant;
    Entry* next = nullptr;
};
constinit std::atomic<Entry*> g_entries{nullptr};

v2xdds_participant* ParticipantOf(void* handle) {
    return handle != nullptr ? &static_cast<Entry*>(handle)->participant : nullptr;
}

// Memory that runs out is the only thing that calls throw for; `failed` is what they answer then.
template <typename Result, typename Call>
Result Guarded(Result failed, Call call) {
    try {
        return call();
    } catch (const std::exception& error) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "a call failed: %s", error.what());
        return failed;
    }
}

void Destroy(Entry& entry, bool isExit) {
    Guarded(0, [&] {
        entry.participant.Destroy(isExit);
        return 0;
    });
}

// The library's own objects are destroyed when the process ends, and its threads must be gone by then.
void DestroyAllAtExit() {
    for (Entry* entry = g_entries.load(std::memory_order_acquire); entry != nullptr; entry = entry->next) {
        Destroy(*entry, true);
    }
}

} // namespace

void* create_dds() {
    Entry* const entry = new (std::nothrow) Entry;
    if (entry == nullptr) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "no memory for a participant");
    } else {
        entry->next = g_entries.load(std::memory_order_relaxed);
        while (!g_entries.compare_exchange_weak(entry->next, entry, std::memory_order_release)) {
        }
    }
    return entry;
}

bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    if (participant == nullptr || topic == nullptr) {
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "cannot declare a topic: no %s", topic == nullptr ? "name" : "participant");
        return false;
    }
    return Guarded(false, [&] { return participant->Declare(domain, topic, callback, data_type); });
}

bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t /*depth*/) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    return participant != nullptr && topic != nullptr && participant->SetHistory(topic, setting);
}

bool set_white_list_iface(void* handle, const char* address) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    return participant != nullptr && address != nullptr &&
           Guarded(false, [&] { return participant->SetAddress(address); });
}

bool dds_start(void* handle) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    return participant != nullptr && participant->Start(DestroyAllAtExit);
}

int32_t get_match_cnt(void* handle, const char* topic) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    return participant != nullptr && topic != nullptr ? participant->Matched(topic) : 0;
}

int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len) {
    v2xdds_participant* const participant = ParticipantOf(handle);
    if (participant == nullptr || topic == nullptr || data == nullptr) {
        return -1;
    }
    return Guarded(-2, [&] { return participant->Send(topic, {static_cast<const uint8_t*>(data), len}); });
}

void destroy_dds(void* handle) {
    if (handle != nullptr) {
        Destroy(*static_cast<Entry*>(handle), false);
    }
}
