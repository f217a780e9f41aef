// Output of one client of the control socket: lines that wait until the client reads. Private to the control socket.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>

// One line with its line feed. Several clients share the line of an event.
using v2xspatconv_line_t = std::shared_ptr<const std::string>;

// Keeps at most 256 KiB. A new line evicts the oldest events, but never a reply and never a line that is partly sent.
// The line {"lost": COUNT} replaces the discarded events.
class v2xspatconv_controlQueue {
public:
    static constexpr size_t CAPACITY = size_t{256} * 1024; // bytes

    void AddReply(const v2xspatconv_line_t& line) { Add(line, false); }
    void AddEvent(const v2xspatconv_line_t& line) { Add(line, true); }
    // Counts events that were discarded before they became lines.
    void AddLost(uint64_t count) { m_lost += count; }

    bool IsEmpty() const { return m_lines.empty() && m_lost == 0; }
    bool HasReply() const { return m_replies > 0; } // true: a reply is not yet completely sent

    // Stores the bytes to send next. The result is the used part of `parts`; it is valid until the next call.
    std::span<iovec> Peek(std::span<iovec> parts);
    // Removes the first `size` bytes of the last result of Peek, which the socket has accepted.
    void Remove(size_t size);

private:
    struct Entry {
        v2xspatconv_line_t line;
        bool isEvent;
        bool isReply;
    };
    void Add(const v2xspatconv_line_t& line, bool isEvent);
    bool DiscardOldestEvent();
    std::deque<Entry>::iterator FirstUnsent();
    void InsertLost();

    std::deque<Entry> m_lines;
    size_t m_size = 0;    // bytes of all lines
    size_t m_sent = 0;    // bytes of the first line that are already sent
    size_t m_replies = 0; // number of replies in m_lines
    uint64_t m_lost = 0;  // number of discarded events that no line reports yet
};
