// Reads the input as a configuration file of the daemon. If no value is invalid, the settings of the guard must be in
// their ranges.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fakes.h"
#include "memory_file.h"
#include "spat_conv_config_guard.h"
#include "spat_conv_config_review.h"

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void checkSource(const v2xspatconv_sourceGuard_t& source) {
    v2xpub_addressBlock_t block{};
    require(source.m_stale_after == 0 || (source.m_stale_after >= 1000 && source.m_stale_after <= 3600000));
    require(v2xpub_ParseAddressBlock(source.m_local_ip, &block) == 0 && block.mask == UINT32_MAX);
    require(source.m_only_from.count >= 0 && source.m_only_from.count <= V2XPUB_SENDERS_MAX);
    if (source.m_has_own_phases) {
        require(std::all_of(source.m_phaseid, source.m_phaseid + 256, [](uint16_t phase) { return phase <= 255; }));
    }
}

void checkGuard(const v2xspatconv_guard_t& guard) {
    std::for_each(guard.m_sources, guard.m_sources + V2XSPATCONV_SOURCES, checkSource);
    require(guard.m_priority_count <= V2XSPATCONV_SOURCES && guard.m_conflict_count <= V2XSPATCONV_CONFLICTS_MAX);
    for (int32_t i = 0; i < guard.m_priority_count; i++) {
        const auto source = guard.m_priority[i];
        require(source < V2XSPATCONV_SOURCES && guard.m_sources[source].m_stale_after != 0);
        require(std::count(guard.m_priority, guard.m_priority + guard.m_priority_count, source) == 1);
    }
    for (int32_t i = 0; i < guard.m_conflict_count; i++) {
        const uint8_t* const pair = guard.m_conflicts[i];
        require(pair[0] != pair[1] && std::min(pair[0], pair[1]) >= 1 && std::max(pair[0], pair[1]) <= 32);
    }
    for (const uint64_t phases : guard.m_ignore) {
        require(phases >> 33 == 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    V2X_CFGHANDLE root = nullptr;
    if (v2xcfg_InitContext(&root, writeMemoryFile(data, size).c_str()) != 0) {
        return 0;
    }
    static spat_conv_config_t config;
    config = {};
    config.m_learn_machine_info.m_is_enable = true;
    config.m_signal_machine_1743_info.m_is_enable = true;
    config.m_corrections.m_spat_down = true;
    std::vector<const char*> keys;
    v2xspatconv_AddGuardKeys(keys);
    if (v2xspatconv_ReadGuard(root, config).empty()) {
        checkGuard(config.m_guard);
    }
    require(memchr(config.m_control_path, '\0', sizeof config.m_control_path) != nullptr);
    v2xspatconv_Review(root, config, keys);
    v2xcfg_ExitContext(root);
    fakes::logLines.clear();
    return 0;
}
