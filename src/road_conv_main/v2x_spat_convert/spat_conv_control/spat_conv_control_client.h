// One client of the control socket. Private to the control socket. Thread of the control socket.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "spat_conv_control_queue.h"

// Reads requests and sends lines. Never waits.
class v2xspatconv_controlClient {
public:
    explicit v2xspatconv_controlClient(int descriptor) : m_descriptor(descriptor) {}
    ~v2xspatconv_controlClient();
    v2xspatconv_controlClient(const v2xspatconv_controlClient&) = delete;
    v2xspatconv_controlClient& operator=(const v2xspatconv_controlClient&) = delete;

    // Reads and sends what `revents` (EPOLLIN, EPOLLOUT, EPOLLHUP) announces.
    void HandleEvents(uint32_t revents);
    // Returns the next complete request without its line feed. Returns nothing while a reply waits to be sent, so that
    // a client that does not read costs no further memory.
    std::optional<std::string> TakeRequest();
    // Sends as much as the socket accepts.
    void Send();
    // Sends no line after those that are queued, and ignores further requests.
    void CloseAfterSending() {
        m_isClosing = true;
        m_kinds = 0;
    }

    // Returns the events that the client waits for: EPOLLIN, EPOLLOUT.
    uint32_t WantedEvents() const;
    // Returns true if the connection has ended, or everything is sent that is due to the client.
    bool IsDone() const;

    v2xspatconv_controlQueue& Output() { return m_output; }
    uint32_t Kinds() const { return m_kinds; } // bit set of the journal entries for this client
    void AddKinds(uint32_t kinds) { m_kinds |= kinds; }

private:
    void Receive();

    int m_descriptor;
    std::string m_input;
    v2xspatconv_controlQueue m_output;
    uint32_t m_kinds = 0;
    bool m_isBlocked = false;    // true: the socket accepts no further bytes
    bool m_isInputEnded = false; // true: the client sends no further requests
    bool m_isClosing = false;
    bool m_isBroken = false;
};
