#include "spat_conv_config_show.h"

#include <bit>
#include <iterator>
#include <string>

namespace {

cJSON* ShowReaction(bool isUnavailable) {
    return cJSON_CreateString(isUnavailable ? "unavailable" : "nothing");
}

void AppendPair(cJSON* array, int first, int second) {
    const int pair[] = {first, second};
    cJSON_AddItemToArray(array, cJSON_CreateIntArray(pair, static_cast<int>(std::size(pair))));
}

void AppendText(cJSON* array, const std::string& text) {
    cJSON_AddItemToArray(array, cJSON_CreateString(text.c_str()));
}

} // namespace

cJSON* v2xspatconv_ShowLocalIp(const spat_conv_config_t& config, e_v2xspatconv_source source) {
    return cJSON_CreateString(config.m_guard.m_sources[source].m_local_ip);
}

cJSON* v2xspatconv_ShowOnlyFrom(const spat_conv_config_t& config, e_v2xspatconv_source source) {
    const v2xpub_senders_t& senders = config.m_guard.m_sources[source].m_only_from;
    cJSON* const array = cJSON_CreateArray();
    for (int32_t i = 0; i < senders.count; i++) {
        const v2xpub_addressBlock_t& block = senders.blocks[i];
        const std::string prefix = block.mask == UINT32_MAX ? "" : "/" + std::to_string(std::popcount(block.mask));
        AppendText(array, v2xpub_FormatIp({block.network, 0}).text + prefix);
    }
    return array;
}

cJSON* v2xspatconv_ShowStaleAfter(const spat_conv_config_t& config, e_v2xspatconv_source source) {
    return cJSON_CreateNumber(config.m_guard.m_sources[source].m_stale_after / 1000.0);
}

cJSON* v2xspatconv_ShowPhases(const uint16_t (&phases)[256]) {
    cJSON* const array = cJSON_CreateArray();
    for (int i = 0; i < static_cast<int>(std::size(phases)); i++) {
        if (phases[i] != 0) {
            AppendPair(array, i, phases[i]);
        }
    }
    return array;
}

cJSON* v2xspatconv_ShowOwnPhases(const spat_conv_config_t& config, e_v2xspatconv_source source) {
    return v2xspatconv_ShowPhases(config.m_guard.m_sources[source].m_phaseid);
}

cJSON* v2xspatconv_ShowPriority(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    cJSON* const array = cJSON_CreateArray();
    for (int32_t i = 0; i < config.m_guard.m_priority_count; i++) {
        AppendText(array, V2XSPATCONV_SOURCE_NAMES[config.m_guard.m_priority[i]]);
    }
    return array;
}

cJSON* v2xspatconv_ShowOnStale(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    return ShowReaction(config.m_guard.m_on_stale_unavailable);
}

cJSON* v2xspatconv_ShowConflicts(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    cJSON* const array = cJSON_CreateArray();
    for (int32_t i = 0; i < config.m_guard.m_conflict_count; i++) {
        AppendPair(array, config.m_guard.m_conflicts[i][0], config.m_guard.m_conflicts[i][1]);
    }
    return array;
}

cJSON* v2xspatconv_ShowOnConflict(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    return ShowReaction(config.m_guard.m_on_conflict_unavailable);
}

cJSON* v2xspatconv_ShowOnFrozen(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    return ShowReaction(config.m_guard.m_on_frozen_unavailable);
}

cJSON* v2xspatconv_ShowIgnore(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    cJSON* const array = cJSON_CreateArray();
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        for (int32_t bit = 0; bit < 64; bit++) {
            if ((config.m_guard.m_ignore[check] >> bit & 1) != 0) {
                const std::string phase = bit == 0 ? "" : ":" + std::to_string(bit);
                AppendText(array, V2XSPATCONV_CHECK_NAMES[check] + phase);
            }
        }
    }
    return array;
}

cJSON* v2xspatconv_ShowControlPath(const spat_conv_config_t& config, e_v2xspatconv_source /*source*/) {
    return cJSON_CreateString(config.m_control_path);
}
