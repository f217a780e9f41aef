// DDS library: topics of plain bytes between the processes of one road-side unit, over the loop-back interface only.
//
// Set up a participant in this order: create_dds; dds_reg and set_history_qos for each topic; set_white_list_iface;
// dds_start. On the wire every topic has the type v2x::ByteBuffer with one member, `sequence<octet> data`, in plain CDR
// (RTPS 2.3, chapter 10), so any DDS implementation can read and write the topic with this type. A payload above 1024
// bytes is sent as several samples: each has 1024 bytes, only the last sample may be shorter.
//
// Any thread may call any function at any time. If the handle is null or destroyed, a function does nothing and returns
// its failure value.
#pragma once

#include <cstdint>

// Receives a sample, or the next 1024 bytes of a longer sample, in the order of sending. `len` is 1 to 1024. The
// library owns the bytes, which are valid only during the call. The callback runs on a thread of the library. The
// callbacks of one participant never overlap.
using dds_RecvCallback = void (*)(void* data, unsigned int len);

// The samples that a writer keeps for slow readers and, if the durability is transient-local, for late readers. All
// settings are reliable.
enum dds_historySetting : int32_t {
    DDS_HISTORY_ALL = 0,       // transient-local; the last 4096 samples; never evicts an unacknowledged sample
    DDS_HISTORY_LAST = 1,      // transient-local; the last sample
    DDS_HISTORY_REAL_TIME = 2, // volatile; the last 64 samples
};

// Journal entry of the kind `sample` (v2xjournal.h): a sample that a reader has received or a writer has sent. Its
// bytes follow, at most 1024.
struct dds_tap_t {
    uint64_t time; // wall clock, microseconds
    bool isSent;
    char topic[127]; // NUL-terminated, truncated
};

// Creates a participant and returns its handle, which is never null. Handles are never freed.
void* create_dds();

// Declares a reader of a topic if `callback` is set, else a writer. Two calls declare both. `domain` is 0 to 232 and
// the same for all topics of the participant. `data_type` must be 0 (plain bytes). Returns false and logs the reason
// for: a null handle or name, a name that is empty or longer than 255 characters, an unknown data type, an invalid or
// different domain, a second reader or writer of the same topic, or a call after dds_start.
bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type);

// Sets the history of a declared topic to one of dds_historySetting. The default is DDS_HISTORY_REAL_TIME. `depth` is
// ignored. Returns false for an unknown topic or setting, or after dds_start.
bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t depth);

// Restricts the participant to one interface. The library supports only the address "127.0.0.1", which is also the
// default. Returns false for any other address, or after dds_start.
bool set_white_list_iface(void* handle, const char* address);

// Joins the domain and creates the readers and writers. Discovery of peers takes one or two seconds. All processes
// together can have at most 32 participants in a domain. The library's threads block SIGINT, SIGQUIT and SIGTERM.
// Returns false and logs the reason if the participant cannot be created; dds_send then returns -1.
bool dds_start(void* handle);

// Returns the number of readers matched to the topic's writer; 0 for an unknown topic or before dds_start. A reader
// that stalls for less than 20 s stays matched. A killed reader is counted until its lease of 20 s ends.
int32_t get_match_cnt(void* handle, const char* topic);

// Publishes `len` bytes, 1 to 1048576, and never waits for a reader. A slow reader loses the samples that the history
// evicts. Returns 0; -1 for a null argument, a length out of range, an unknown topic, or a participant that is not
// running; -2 if Fast DDS rejects a sample. With DDS_HISTORY_ALL the result -2 also means that too many samples in
// the history are unacknowledged; then no part of the payload is sent.
int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len);

// Waits for a running callback and ends the participant. No callback runs after destroy_dds returns. Does nothing if a
// callback of the same participant calls destroy_dds. exit() ends the remaining participants, even if a callback calls
// exit().
void destroy_dds(void* handle);
