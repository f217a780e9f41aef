// State of one source of records. Private to the gate; the caller holds the gate's lock.
#pragma once

#include <cstdint>

#include "spat_conv_gate.h"

// Watches one source. Logs each change of its state: a source that goes stale and a source without a record for ten
// seconds since the start at V2XLOG_WARN, a source that becomes fresh at V2XLOG_INFO. Times never decrease.
class v2xspatconv_sourceWatch {
public:
    // `staleAfter` is in microseconds; 0: the source is not watched.
    void Init(e_v2xspatconv_source source, bool isEnabled, uint64_t staleAfter, uint64_t now);
    void SwitchOff() { m_row.state = v2xspatconv_sourceState::off; }

    // Counts an accepted record. A stale source becomes fresh with the second record in a row that arrives within
    // `staleAfter` of the record before.
    void Accept(v2xpub_address_t sender, uint64_t now);

    // Does what is due at the time `now`. Returns the next deadline, or UINT64_MAX.
    uint64_t Advance(uint64_t now);

    bool IsFresh() const { return m_row.state == v2xspatconv_sourceState::fresh; }
    bool IsWatched() const { return m_row.state >= v2xspatconv_sourceState::waiting; }
    const v2xspatconv_sourceRow_t& Row() const { return m_row; }

private:
    struct Label {
        char text[32];
    };
    Label FormatLabel() const;
    v2xspatconv_stateEvent_t Change(v2xspatconv_sourceState state);
    void AcceptStale(bool isInTime, uint64_t now);
    uint64_t WaitForFirst(uint64_t now);

    v2xspatconv_sourceRow_t m_row;
    e_v2xspatconv_source m_source = V2XSPATCONV_LEARNER;
    uint64_t m_staleAfter = 0;
    uint64_t m_start = 0;
    uint64_t m_silentSince = 0; // time of the last accepted record before the source became stale
    int32_t m_inTime = 0;       // while the source is stale: number of records in a row within m_staleAfter
    bool m_isWaitLogged = false;
};
