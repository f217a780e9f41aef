#include "spat_conv_gate_unit.h"

#include <algorithm>
#include <cstring>

#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_latest.h"
#include "v2x/v2xjournal.h"
#include "v2x/v2xpub.h"

namespace {

bool g_isPublished = false;
v2xspatconv_phaseRow_t g_phases[V2XSPATCONV_UNIT_PHASES + 1];
v2xspatconv_latest<v2xspatconv_unitState_t> g_latest;

void WriteEvent(uint8_t source, const v2xspatconv_lights_t& lights, bool isReplaced) {
    const auto count = static_cast<uint16_t>(lights.count);
    const v2xspatconv_recordEvent_t event = {v2xpub_CommGetCurrentTime64(), source, isReplaced, count};
    v2x_journal::WriteRecord(v2x_journalKind::record, event,
                             {reinterpret_cast<const uint8_t*>(lights.rows), count * sizeof *lights.rows});
}

} // namespace

void v2xspatconv_UnitInit(bool isPublished) {
    g_isPublished = isPublished;
    std::ranges::fill(g_phases, v2xspatconv_phaseRow_t{});
}

void v2xspatconv_UnitHandOver(uint8_t source, const v2xspatconv_lights_t& lights, bool isReplaced, uint64_t now) {
    if (!g_isPublished) {
        return;
    }
    for (int32_t i = lights.count - 1; i >= 0; i--) { // if two entries have the same phase, the first one counts
        const v2xspatconv_light_t& light = lights.rows[i];
        if (light.phase <= V2XSPATCONV_UNIT_PHASES) {
            g_phases[light.phase] = {now, source, light.light, light.timeLeft};
        }
    }
    if (v2x_journal::Wants(v2x_journalKind::record)) {
        WriteEvent(source, lights, isReplaced);
    }
}

v2xspatconv_unitState_t* v2xspatconv_UnitPrepare(void) {
    if (!g_isPublished) {
        return nullptr;
    }
    v2xspatconv_unitState_t& unit = g_latest.Slot();
    std::ranges::copy(g_phases, unit.phases);
    memcpy(unit.checks, v2xspatconv_ChecksGetRows(), sizeof unit.checks);
    return &unit;
}

void v2xspatconv_UnitPublish(void) {
    g_latest.Publish();
}

void v2xspatconv_GateReadUnit(v2xspatconv_unitState_t& unit) {
    g_latest.Read(unit);
}
