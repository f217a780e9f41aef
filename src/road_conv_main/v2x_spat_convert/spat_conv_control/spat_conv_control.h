// Control socket: answers questions about the running daemon, one JSON object a line. docs/interfaces.md describes the
// lines. The socket has a thread of its own, which never delays a reading.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"

// State of the stack application and of the cloud.
struct v2xspatconv_peers_t {
    const char* stackState; // "unknown", "answers" or "silent"; in static storage
    uint64_t lastAnswer;    // monotonic time of the stack application's last answer, microseconds; 0: none
    bool isCloudAvailable;
    uint64_t lastCloudStatus; // monotonic time of the communication software's last status, microseconds; 0: none
    const char* upTopic;      // topic of the unit's SPAT to the cloud, or null; never freed
    int32_t upReaders;        // readers of this topic
};

// What the daemon's start knows.
struct v2xspatconv_controlUnit_t {
    const char* version;                    // that option -v prints; in static storage
    const char* release;                    // version of the project; in static storage
    v2xspatconv_peers_t (*readPeers)(void); // called on the thread of the socket
};

// Opens the socket at m_control_path and starts its thread. Does nothing without a path. Logs the reason of a failure;
// the daemon then runs without the socket. Main thread, once.
void v2xspatconv_ControlInit(const spat_conv_config_t& config, const v2xspatconv_controlUnit_t& unit);

// Closes the clients, ends the thread and removes the socket file. Main thread.
void v2xspatconv_ControlStop(void);
