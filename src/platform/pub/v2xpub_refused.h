// Limits the log lines about refused senders. Private to this library.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <mutex>

class v2xpub_RefusedLog {
public:
    using Clock = std::chrono::steady_clock;

    // Returns true if a line is due about a datagram from `ip`: for each new address, and once a minute. A peer can
    // forge any number of addresses, so only the first 16 count as new. May be called on any thread.
    bool Pass(uint32_t ip, Clock::time_point now) {
        const std::lock_guard lock(m_lock);
        const bool isNew = Remember(ip);
        if (!isNew && now < m_next) {
            return false;
        }
        m_next = now + std::chrono::minutes(1);
        return true;
    }

private:
    // Stores a new address. Returns false if the address is known or the table is full.
    bool Remember(uint32_t ip) {
        uint32_t* const end = m_known + m_count;
        if (m_count == std::size(m_known) || std::find(m_known, end, ip) != end) {
            return false;
        }
        *end = ip;
        m_count++;
        return true;
    }

    std::mutex m_lock;
    uint32_t m_known[16] = {};
    size_t m_count = 0;
    Clock::time_point m_next{};
};
