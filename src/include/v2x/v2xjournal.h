// Journal: carries copies of what the data paths do to one reader thread, for the control socket.
//
// The journal is a ring of 1 MiB in static storage. Any thread may write. A writer never waits and allocates nothing:
// if the ring is full, the entry is lost and counted. While no kind is selected, a write costs one comparison.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

// The kinds of entries. The comment names the record at the start of the entry.
enum class v2x_journalKind : uint16_t {
    datagram, // v2xpub_tap_t, then the bytes of the datagram
    sample,   // dds_tap_t, then the bytes of the sample
    record,   // v2xspatconv_recordEvent_t, then its lights
    state,    // v2xspatconv_stateEvent_t
};
inline constexpr size_t V2X_JOURNAL_KINDS = 4;

class v2x_journal {
public:
    // Returns true if entries of this kind are selected. Any thread.
    static bool Wants(v2x_journalKind kind) { return (s_selected.load(std::memory_order_relaxed) & Bit(kind)) != 0; }

    // Appends an entry with the bytes of both parts, together at most 65536 bytes. Call Wants first. Any thread.
    static void Write(v2x_journalKind kind, std::span<const uint8_t> head, std::span<const uint8_t> body = {}) {
        const uint64_t used = sizeof(Head) + head.size() + body.size();
        const uint64_t size = (used + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
        uint64_t at = s_end.load(std::memory_order_relaxed);
        uint64_t gap = 0;
        do {
            const uint64_t untilWrap = SIZE - at % SIZE;
            gap = size > untilWrap ? untilWrap : 0;
            // The difference is negative if `at` is out of date; the exchange then fails.
            if (static_cast<int64_t>(at + gap + size - s_begin.load(std::memory_order_acquire)) > int64_t{SIZE}) {
                s_lost[static_cast<size_t>(kind)].fetch_add(1, std::memory_order_relaxed);
                return;
            }
        } while (!s_end.compare_exchange_weak(at, at + gap + size, std::memory_order_relaxed));
        if (gap > 0) {
            Publish(at, {static_cast<uint32_t>(gap), GAP, 0});
        }
        at += gap;
        uint8_t* const bytes = s_bytes + at % SIZE + sizeof(Head);
        Copy(bytes, head);
        Copy(bytes + head.size(), body);
        Publish(at, {static_cast<uint32_t>(size), static_cast<uint16_t>(kind), static_cast<uint16_t>(size - used)});
    }

    // Appends an entry with the bytes of `head`, which has one of the types above, and of `body`. Else as above.
    template <typename T>
    static void WriteRecord(v2x_journalKind kind, const T& head, std::span<const uint8_t> body = {}) {
        static_assert(std::is_trivially_copyable_v<T>);
        Write(kind, {reinterpret_cast<const uint8_t*>(&head), sizeof head}, body);
    }

    // The functions below are for the reader thread.

    // Selects one kind more, or one less.
    static void Select(v2x_journalKind kind, bool isSelected) {
        if (isSelected) {
            s_selected.fetch_or(Bit(kind), std::memory_order_relaxed);
        } else {
            s_selected.fetch_and(~Bit(kind), std::memory_order_relaxed);
        }
    }

    // Calls visit(v2x_journalKind, std::span<const uint8_t>) with the oldest entry and removes the entry. The bytes
    // have an alignment of 8 and are valid during the call. Returns false if there is no entry.
    template <typename Visit>
    static bool Read(Visit visit) {
        Head head = {0, GAP, 0};
        while (head.kind == GAP) {
            const uint64_t at = s_begin.load(std::memory_order_relaxed);
            uint8_t* const entry = s_bytes + at % SIZE;
            if (SizeAt(entry).load(std::memory_order_acquire) == 0) {
                return false;
            }
            memcpy(&head, entry, sizeof head);
            if (head.kind != GAP) {
                visit(static_cast<v2x_journalKind>(head.kind),
                      std::span<const uint8_t>(entry + sizeof head, head.size - sizeof head - head.padding));
            }
            memset(entry, 0, head.size); // a size of 0 marks an entry that is not yet written
            s_begin.store(at + head.size, std::memory_order_release);
        }
        return true;
    }

    // Returns the number of entries of the kind that were lost since the last call.
    static uint64_t TakeLost(v2x_journalKind kind) {
        return s_lost[static_cast<size_t>(kind)].exchange(0, std::memory_order_relaxed);
    }

private:
    struct Head {
        uint32_t size; // of the entry with this head; written last
        uint16_t kind;
        uint16_t padding; // bytes at the end of the entry
    };
    static constexpr uint64_t SIZE = 1 << 20;
    static constexpr uint64_t ALIGNMENT = 8;
    static constexpr uint16_t GAP = UINT16_MAX; // the kind of the unused bytes before the end of the ring

    static uint32_t Bit(v2x_journalKind kind) { return uint32_t{1} << static_cast<uint32_t>(kind); }

    static std::atomic_ref<uint32_t> SizeAt(uint8_t* entry) {
        return std::atomic_ref<uint32_t>(*reinterpret_cast<uint32_t*>(entry));
    }

    static void Copy(uint8_t* to, std::span<const uint8_t> bytes) {
        if (!bytes.empty()) {
            memcpy(to, bytes.data(), bytes.size());
        }
    }

    static void Publish(uint64_t at, const Head& head) {
        uint8_t* const entry = s_bytes + at % SIZE;
        memcpy(entry + offsetof(Head, kind), &head.kind, sizeof head - offsetof(Head, kind));
        SizeAt(entry).store(head.size, std::memory_order_release);
    }

    alignas(ALIGNMENT) static inline constinit uint8_t s_bytes[SIZE] = {};
    static inline constinit std::atomic<uint64_t> s_begin{0}; // bytes read since the start
    static inline constinit std::atomic<uint64_t> s_end{0};   // bytes reserved by writers since the start
    static inline constinit std::atomic<uint64_t> s_lost[V2X_JOURNAL_KINDS] = {}; // index: v2x_journalKind
    static inline constinit std::atomic<uint32_t> s_selected{0};
};
