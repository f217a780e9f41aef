// Passes the newest value of a state from one writer to one reader. Neither of them ever waits, and the reader never
// sees a value that is partly written.
#pragma once

#include <atomic>
#include <cstdint>

// Of the three slots, one belongs to the writer and one to the reader. The third holds the value that was published
// last. Each side exchanges its slot for the third one.
template <typename T>
class v2xspatconv_latest {
public:
    // Returns the writer's slot, which holds an old value. One writer at a time.
    T& Slot() { return m_slots[m_writer]; }

    // Publishes the value in the writer's slot.
    void Publish() { m_writer = m_shared.exchange(m_writer | NEW, std::memory_order_acq_rel) & INDEX; }

    // Copies the value that was published last; before the first one, a value-initialized T. One reader at a time.
    void Read(T& value) {
        if ((m_shared.load(std::memory_order_relaxed) & NEW) != 0) {
            m_reader = m_shared.exchange(m_reader, std::memory_order_acq_rel) & INDEX;
        }
        value = m_slots[m_reader];
    }

private:
    static constexpr uint32_t INDEX = 3;
    static constexpr uint32_t NEW = 4; // the reader has not taken the shared slot yet

    T m_slots[3] = {};
    uint32_t m_writer = 0;
    uint32_t m_reader = 1;
    std::atomic<uint32_t> m_shared{2}; // index of the third slot, with NEW
};
