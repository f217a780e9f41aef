#include "spat_conv_gate_sources.h"

#include <cinttypes>
#include <cstdio>

#include "spat_conv_gate_log.h"
#include "v2x/v2xlog.h"

namespace {

using State = v2xspatconv_sourceState;

constexpr uint64_t LOG_WAIT_AFTER = 10000000; // microseconds
constexpr int32_t RECORDS_UNTIL_FRESH = 2;
constexpr uint64_t AVERAGED = 8; // the newest value of the moving average has the weight 1/8

double ToSeconds(uint64_t microseconds) {
    return static_cast<double>(microseconds) / 1e6;
}

} // namespace

void v2xspatconv_sourceWatch::Init(e_v2xspatconv_source source, bool isEnabled, uint64_t staleAfter, uint64_t now) {
    *this = {};
    m_source = source;
    m_staleAfter = staleAfter;
    m_start = now;
    const State enabled = staleAfter > 0 ? State::waiting : State::unwatched;
    m_row.state = isEnabled ? enabled : State::off;
}

void v2xspatconv_sourceWatch::Accept(v2xpub_address_t sender, uint64_t now) {
    const uint64_t elapsed = now - m_row.lastAccepted;
    const bool isInTime = m_row.accepted > 0 && elapsed <= m_staleAfter;
    if (m_row.accepted > 0) {
        m_row.interval = m_row.interval == 0 ? elapsed : ((AVERAGED - 1) * m_row.interval + elapsed) / AVERAGED;
    }
    m_row.accepted++;
    m_row.lastAccepted = now;
    m_row.sender = sender;
    if (m_row.state == State::waiting) {
        v2xspatconv_stateEvent_t event = Change(State::fresh);
        v2xspatconv_GateLogEvent(event, V2XLOG_INFO, "%s: fresh, first report %.1f s after the start",
                                 FormatLabel().text, ToSeconds(now - m_start));
    } else if (m_row.state == State::stale) {
        AcceptStale(isInTime, now);
    }
}

void v2xspatconv_sourceWatch::AcceptStale(bool isInTime, uint64_t now) {
    m_inTime = isInTime ? m_inTime + 1 : 0;
    if (m_inTime == RECORDS_UNTIL_FRESH) {
        m_row.interval = 0;
        v2xspatconv_stateEvent_t event = Change(State::fresh);
        v2xspatconv_GateLogEvent(event, V2XLOG_INFO, "%s: fresh again after %.1f s", FormatLabel().text,
                                 ToSeconds(now - m_silentSince));
    }
}

uint64_t v2xspatconv_sourceWatch::Advance(uint64_t now) {
    if (m_row.state == State::waiting) {
        return WaitForFirst(now);
    }
    if (m_row.state != State::fresh) {
        return UINT64_MAX;
    }
    const uint64_t age = now - m_row.lastAccepted;
    if (age <= m_staleAfter) {
        return m_row.lastAccepted + m_staleAfter + 1;
    }
    m_silentSince = m_row.lastAccepted;
    v2xspatconv_stateEvent_t event = Change(State::stale);
    v2xspatconv_GateLogEvent(event, V2XLOG_WARN, "%s: stale, no report for %.1f s (%" PRIu64 " accepted before)",
                             FormatLabel().text, ToSeconds(age), m_row.accepted);
    return UINT64_MAX;
}

// Logs one line after ten seconds without a record. Returns the time of this line, or UINT64_MAX if it is logged.
uint64_t v2xspatconv_sourceWatch::WaitForFirst(uint64_t now) {
    if (now - m_start < LOG_WAIT_AFTER) {
        return m_start + LOG_WAIT_AFTER;
    }
    if (!m_isWaitLogged) {
        m_isWaitLogged = true;
        v2xspatconv_GateLog(V2XLOG_WARN, "%s: waiting, no report for %.1f s since the start", FormatLabel().text,
                            ToSeconds(now - m_start));
    }
    return UINT64_MAX;
}

// Sets the state. Returns the event of the change.
v2xspatconv_stateEvent_t v2xspatconv_sourceWatch::Change(State state) {
    m_row.state = state;
    return {.type = v2xspatconv_stateEvent_t::Type::source, .source = m_source, .state = state};
}

// Returns the name of the source and the address of its last sender, if the address is known.
v2xspatconv_sourceWatch::Label v2xspatconv_sourceWatch::FormatLabel() const {
    Label label;
    const bool hasSender = m_row.sender.ip != 0;
    snprintf(label.text, sizeof label.text, "%s%s%s", V2XSPATCONV_SOURCE_NAMES[m_source], hasSender ? " " : "",
             hasSender ? v2xpub_FormatIp(m_row.sender).text : "");
    return label;
}
