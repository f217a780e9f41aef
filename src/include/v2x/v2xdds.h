// DDS library of the unit: topics of plain bytes between the processes of one unit, on its loop-back interface alone.
//
// A participant is made in steps: create_dds, dds_reg and set_history_qos for each topic, set_white_list_iface,
// dds_start. On the wire a topic has the type v2x::ByteBuffer, one member `sequence<octet> data` in plain CDR, so that
// any DDS with that type can talk to it. A payload above 1024 bytes travels as consecutive samples of 1024 bytes and a
// rest.
//
// Every call may be made on any thread, and on a null or destroyed handle, where it does nothing and says so by its
// result.
#pragma once

#include <cstdint>

// Takes one sample of at most 1024 bytes; the bytes are the library's and valid during the call. Runs on a thread of
// the library, one call at a time per topic, in the order of sending.
using dds_RecvCallback = void (*)(void* data, unsigned int len);

// What a topic keeps for readers that are late or slow, counted in samples.
enum dds_historySetting : int32_t {
    DDS_HISTORY_ALL = 0,  // reliable, transient-local, the last 4096, none of which a matched reader still lacks goes
    DDS_HISTORY_LAST = 1, // reliable, transient-local, the last sample
    DDS_HISTORY_REAL_TIME = 2, // reliable, volatile, the last 64 samples
};

// Returns the handle of a new participant, which takes part in nothing yet; null without memory.
void* create_dds();

// Declares a topic on the domain 0 to 232, as a reader when a callback is given, else as a writer; a topic may be
// declared as both by two calls. data_type: 0, plain bytes. Returns false, with the reason in the log, for a null
// handle or name, an unknown data type, another domain than the participant's other topics', a topic declared alike
// already, or after dds_start.
bool dds_reg(void* handle, int32_t domain, const char* topic, dds_RecvCallback callback, int32_t data_type);

// Sets what a declared topic keeps, one of dds_historySetting (real time where it is not set); `depth` is not used.
// Returns false for an unknown topic or setting, or after dds_start.
bool set_history_qos(void* handle, const char* topic, int32_t setting, int32_t depth);

// Binds the participant to the interface of this address. Without it dds_start takes 127.0.0.1, too. Returns false for
// what is no IPv4 address of this machine's loop-back interface, or after dds_start.
bool set_white_list_iface(void* handle, const char* address);

// Joins the domain: readers and writers come to life, peers are found within a second or two. At most 32 participants
// of one process are started at a time. The library's threads leave SIGINT, SIGQUIT and SIGTERM to others. Where a peer
// that stood still is back and its readers or writers are not, the domain is left and joined anew by itself: what was
// not delivered to a peer or a callback by then is lost, also the rest of a payload that had begun; what writers of the
// settings "all" and "last" keep comes once more; and no reader is matched for a moment. Returns false, with the reason
// in the log, when the library cannot make them; sending does nothing then.
bool dds_start(void* handle);

// Number of readers matched to the topic's writer; 0 for an unknown topic, before dds_start, or while the domain is
// joined anew.
int32_t get_match_cnt(void* handle, const char* topic);

// Publishes `len` bytes, 1 to 1048576. Never waits for a reader: one that is stopped or dead loses what its history no
// longer holds. Returns 0; -1 for a null argument, a length out of range, an unknown topic, or a participant that is
// not started or joins its domain anew; -2 when the library takes no sample: with the setting "all" also when a matched
// reader lacks too much of what came before, and then no part of the payload is sent.
int32_t dds_send(void* handle, const char* topic, const void* data, uint32_t len);

// Ends the participant: callbacks that run are waited for, none runs afterwards; called from one of its own it does
// nothing. The handle stays good for calls that do nothing. At exit() of the process participants that are left are
// ended likewise, also when a callback calls it.
void destroy_dds(void* handle);
