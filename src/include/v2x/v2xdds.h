// DDS library of the unit: topics of plain bytes between the processes of one unit, over its loop-back interface only.
//
// Set up a participant in this order: create_dds; dds_reg and set_history_qos for each topic; set_white_list_iface;
// dds_start. On the wire every topic has the type v2x::ByteBuffer with one member, `sequence<octet> data`, in plain CDR
// (RTPS 2.3, chapter 10), so any DDS with that type can read and write it. A payload above 1024 bytes travels as
// consecutive samples of 1024 bytes and a shorter last one.
//
// Every call is safe on any thread. On a null or destroyed handle a call does nothing and returns its failure value.
#pragma once

#include <cstdint>

// Receives one piece of a sample: 1 to 1024 bytes, in the order of sending. The library owns the bytes; they are valid
// during the call. Runs on a thread of the library, one call at a time per participant.
using dds_RecvCallback = void (*)(void* data, unsigned int len);

// What a topic keeps for late or slow readers, in samples. All settings are reliable.
enum dds_historySetting : int32_t {
    DDS_HISTORY_ALL = 0,       // transient-local, at most 4096; keeps what a matched reader has not acknowledged
    DDS_HISTORY_LAST = 1,      // transient-local, the last sample
    DDS_HISTORY_REAL_TIME = 2, // volatile, the last 64 samples
};

// Returns the handle of a new participant, never null. Handles are never freed.
void* create_dds();

// Declares a topic on domain 0 to 232: a reader if `callback` is set, else a writer. Two calls declare both. data_type:
// 0, plain bytes. Returns false and logs the reason for: a null handle or name, a name that is empty or longer than 255
// characters, an unknown data type, a domain that differs from the participant's other topics, a second reader or
// writer of the same topic, or a call after dds_start.
bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type);

// Sets what a declared topic keeps, one of dds_historySetting (default: real time); `depth` is not used. Returns false
// for an unknown topic or setting, or after dds_start.
bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t depth);

// Restricts the participant to one interface. The library supports "127.0.0.1" only, which is also its default. Returns
// false for any other address, or after dds_start.
bool set_white_list_iface(void* handle, const char* address);

// Joins the domain: creates the readers and writers. Peers are found within a second or two. A domain has room for 32
// participants of all processes. The library's threads block SIGINT, SIGQUIT and SIGTERM. Returns false and logs the
// reason if the participant cannot be created; dds_send then returns -1.
bool dds_start(void* handle);

// Number of readers matched to the topic's writer; 0 for an unknown topic or before dds_start. A reader that stalls
// for less than 20 s stays matched; one that is killed counts for up to 20 s (its lease).
int32_t get_match_cnt(void* handle, const char* topic);

// Publishes `len` bytes, 1 to 1048576. Never waits for a reader: a slow reader loses samples that the history has
// dropped. Returns 0; -1 for a null argument, a length out of range, an unknown topic, or a participant that is not
// running; -2 if the library rejects a sample. With the setting "all" -2 also means that unacknowledged samples leave
// no room for the payload; then no part of it is sent.
int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len);

// Ends the participant. Waits for a callback that is running; none runs afterwards. Does nothing if called from one of
// the participant's own callbacks. exit() ends the remaining participants in the same way, also from a callback.
void destroy_dds(void* handle);
