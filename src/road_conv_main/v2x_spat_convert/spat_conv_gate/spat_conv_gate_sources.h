// State of one source of records. Private to the gate; the caller holds the gate's lock.
#pragma once

#include <cstdint>

#include "spat_conv_gate.h"

// Watches one source. Logs each change of its state: a source that goes stale and a source without a record for ten
// seconds since the start at V2XLOG_WARN, a source that becomes fresh at V2XLOG_INFO.
class v2xspatconv_sourceWatch {
public:
    // `staleAfter` is in microseconds; 0: the source is not watched.
    void Init(e_v2xspatconv_source source, bool isEnabled, uint64_t staleAfter, uint64_t now);
    void SwitchOff();

    // Notes an accepted record.
    void Accept(v2xpub_address_t sender, uint64_t now);

    // Does what is due at the time `now`. Returns the next deadline, or UINT64_MAX.
    uint64_t Advance(uint64_t now);

    v2xspatconv_sourceState State() const { return m_row.state; }
    const v2xspatconv_sourceRow_t& Row() const { return m_row; }

private:
    v2xspatconv_sourceRow_t m_row;
};
