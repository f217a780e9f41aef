#include "spat_conv_config_guard.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>

#include "spat_conv_config_log.h"
#include "spat_conv_config_show.h"

namespace {

constexpr int32_t PHASE_MAX = 32;         // highest SPAT phase
constexpr int32_t DEVICE_PHASE_MAX = 255; // highest device phase
constexpr int32_t IGNORE_MAX = V2XSPATCONV_CHECKS * (1 + PHASE_MAX);
constexpr double STALE_MIN = 1; // seconds
constexpr double STALE_MAX = 3600;
constexpr uint32_t STALE_DEVICE_MS = 10000; // StaleAfter of a device without the key
constexpr std::string_view PHASE_KEY = ".PhaseID#";

struct Reader {
    V2X_CFGHANDLE root;
    spat_conv_config_t& config;
    std::string firstError;

    v2xspatconv_sourceGuard_t& Source(e_v2xspatconv_source source) const { return config.m_guard.m_sources[source]; }
};

void KeepFirstError(Reader& reader) {
    if (reader.firstError.empty()) {
        reader.firstError = v2xcfg_GetErrorText();
    }
}

void Reject(Reader& reader, const std::string& key, const std::string& reason) {
    v2xcfg_Report(&g_scfgLog, V2XCFG_ERROR, reader.root, key.c_str(), reason.c_str());
    KeepFirstError(reader);
}

// Reads a value and returns true on success. Rejects a value of another type, but not a missing key.
bool Read(Reader& reader, e_v2xcfg_type type, const std::string& key, void* value, int32_t* length = nullptr) {
    const int32_t ret = v2xcfg_GetNodeValue(reader.root, type, key.c_str(), value, length);
    if (ret != 0 && ret != -1) {
        KeepFirstError(reader);
    }
    return ret == 0;
}

std::optional<std::string> ReadText(Reader& reader, const std::string& key) {
    char text[64];
    int32_t length = sizeof text - 1;
    return Read(reader, V2XCFG_TYPE_STRING, key, text, &length) ? std::optional<std::string>(text) : std::nullopt;
}

// Calls readElement(key) with the key of each element, if the list has `least` to `most` elements.
template <typename ReadElement>
void ReadList(Reader& reader, const std::string& key, int32_t least, int32_t most, ReadElement readElement) {
    int32_t count = 0;
    if (!Read(reader, V2XCFG_TYPE_LIST, key, &count)) {
        return;
    }
    if (count < least || count > most) {
        const std::string range = std::to_string(least) + (most > least ? " to " + std::to_string(most) : "");
        return Reject(reader, key, std::to_string(count) + " entries, expected " + range);
    }
    for (int32_t i = 0; i < count; i++) {
        readElement(key + ".[" + std::to_string(i) + "]");
    }
}

// Returns the index of `name`, or -1.
template <size_t size>
int32_t FindName(const char* const (&names)[size], std::string_view name) {
    const auto* const found = std::find(names, names + size, name);
    return found == names + size ? -1 : static_cast<int32_t>(found - names);
}

// Returns `"name" is not a WHAT, expected a, b or c`.
template <size_t size>
std::string DescribeUnknown(const std::string& name, const char* what, const char* const (&names)[size]) {
    std::string text = "\"" + name + "\" is not a " + what + ", expected ";
    for (size_t i = 0; i < size; i++) {
        text += std::string(names[i]) + (i + 2 < size ? ", " : i + 2 == size ? " or " : "");
    }
    return text;
}

void ReadQuietLog(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    bool value = false;
    if (Read(reader, V2XCFG_TYPE_BOOL, key, &value)) {
        reader.config.m_corrections.m_quiet_log = value;
    }
}

void ReadControlPath(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    int32_t length = sizeof reader.config.m_control_path - 1;
    Read(reader, V2XCFG_TYPE_STRING, key, reader.config.m_control_path, &length);
}

void ReadLocalIp(Reader& reader, const char* key, e_v2xspatconv_source source) {
    const std::optional<std::string> text = ReadText(reader, key);
    if (!text) {
        return;
    }
    if (const char* const reason = v2xpub_CheckLocalAddress(text->c_str())) {
        return Reject(reader, key, "\"" + *text + "\" " + reason);
    }
    char(&field)[32] = reader.Source(source).m_local_ip;
    snprintf(field, sizeof field, "%s", text->c_str());
}

void ReadOnlyFrom(Reader& reader, const char* key, e_v2xspatconv_source source) {
    v2xpub_senders_t& senders = reader.Source(source).m_only_from;
    ReadList(reader, key, 1, V2XPUB_SENDERS_MAX, [&](const std::string& element) {
        const std::optional<std::string> text = ReadText(reader, element);
        if (text && v2xpub_ParseAddressBlock(text->c_str(), &senders.blocks[senders.count]) == 0) {
            senders.count++;
        } else if (text) {
            Reject(reader, element, "\"" + *text + "\" is not an IPv4 address or block such as 192.168.1.0/24");
        }
    });
}

void ReadStaleAfter(Reader& reader, const char* key, e_v2xspatconv_source source) {
    double seconds = 0;
    if (!Read(reader, V2XCFG_TYPE_NUMBER, key, &seconds)) {
        return;
    }
    if (seconds != 0 && !(seconds >= STALE_MIN && seconds <= STALE_MAX)) {
        return Reject(reader, key, "expected 0, or 1 to 3600 seconds");
    }
    reader.Source(source).m_stale_after = static_cast<uint32_t>(seconds * 1000 + 0.5);
}

// `key` is the name pattern of the table's keys.
void ReadOwnPhases(Reader& reader, const char* key, e_v2xspatconv_source source) {
    const std::string group(key, strlen(key) - PHASE_KEY.size());
    v2xspatconv_sourceGuard_t& guard = reader.Source(source);
    int32_t count = 0;
    if (!Read(reader, V2XCFG_TYPE_GROUP, group, &count)) {
        return;
    }
    guard.m_has_own_phases = true;
    std::fill(std::begin(guard.m_phaseid), std::end(guard.m_phaseid), uint16_t{0});
    for (int32_t i = 0; i < static_cast<int32_t>(std::size(guard.m_phaseid)); i++) {
        const std::string phaseKey = group + ".PhaseID" + std::to_string(i);
        int32_t phase = 0;
        if (!Read(reader, V2XCFG_TYPE_INT32, phaseKey, &phase)) {
            continue;
        }
        if (const char* const reason = v2xspatconv_CheckPhases(i, phase)) {
            Reject(reader, phaseKey, reason);
        }
        guard.m_phaseid[i] = static_cast<uint16_t>(phase);
    }
}

// Returns true if records of the source with lights can reach the gate.
bool IsOn(const spat_conv_config_t& config, e_v2xspatconv_source source) {
    const bool isOn[] = {config.m_learn_machine_info.m_is_enable, config.m_signal_machine_1743_info.m_is_enable,
                         config.m_corrections.m_spat_down};
    static_assert(std::size(isOn) == V2XSPATCONV_SOURCES);
    return isOn[source];
}

bool IsPreferred(const v2xspatconv_guard_t& guard, e_v2xspatconv_source source) {
    return std::count(guard.m_priority, guard.m_priority + guard.m_priority_count, source) > 0;
}

// Returns the reason why SourcePriority cannot list the source, or "".
std::string FindPriorityFault(const Reader& reader, e_v2xspatconv_source source) {
    const std::string name = V2XSPATCONV_SOURCE_NAMES[source];
    if (IsPreferred(reader.config.m_guard, source)) {
        return name + " is listed twice";
    }
    if (!IsOn(reader.config, source)) {
        return name + (source == V2XSPATCONV_CLOUD ? " needs Corrections.SpatDown" : " is not enabled");
    }
    return reader.Source(source).m_stale_after == 0 ? name + " is not watched, StaleAfter is 0" : "";
}

void ReadPriority(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    v2xspatconv_guard_t& guard = reader.config.m_guard;
    ReadList(reader, key, 1, V2XSPATCONV_SOURCES, [&](const std::string& element) {
        const std::optional<std::string> name = ReadText(reader, element);
        const int32_t index = name ? FindName(V2XSPATCONV_SOURCE_NAMES, *name) : -1;
        const auto source = static_cast<e_v2xspatconv_source>(index);
        const std::string fault = !name       ? ""
                                  : index < 0 ? DescribeUnknown(*name, "source", V2XSPATCONV_SOURCE_NAMES)
                                              : FindPriorityFault(reader, source);
        if (!fault.empty()) {
            Reject(reader, element, fault);
        } else if (name) {
            guard.m_priority[guard.m_priority_count++] = source;
        }
    });
    if (IsPreferred(guard, V2XSPATCONV_LEARNER) && IsPreferred(guard, V2XSPATCONV_1743) &&
        !(reader.Source(V2XSPATCONV_LEARNER).m_has_own_phases && reader.Source(V2XSPATCONV_1743).m_has_own_phases)) {
        Reject(reader, key, "learner and 1743 are listed, but one of them has no PhaseRelationship of its own");
    }
}

// Reads "nothing" or "unavailable" into `isUnavailable`.
void ReadReaction(Reader& reader, const char* key, bool& isUnavailable) {
    static constexpr const char* REACTIONS[] = {"nothing", "unavailable"};
    const std::optional<std::string> text = ReadText(reader, key);
    if (!text) {
        return;
    }
    const int32_t reaction = FindName(REACTIONS, *text);
    if (reaction < 0) {
        Reject(reader, key, DescribeUnknown(*text, "reaction", REACTIONS));
    }
    isUnavailable = reaction == 1;
}

void ReadOnStale(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    ReadReaction(reader, key, reader.config.m_guard.m_on_stale_unavailable);
}

void ReadOnConflict(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    ReadReaction(reader, key, reader.config.m_guard.m_on_conflict_unavailable);
}

void ReadOnFrozen(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    ReadReaction(reader, key, reader.config.m_guard.m_on_frozen_unavailable);
}

void ReadPair(Reader& reader, const std::string& key, uint8_t (&pair)[2]) {
    int32_t count = 0;
    ReadList(reader, key, 2, 2, [&](const std::string& phaseKey) {
        int32_t phase = 0;
        if (!Read(reader, V2XCFG_TYPE_INT32, phaseKey, &phase)) {
            return;
        }
        if (const char* const reason = v2xspatconv_CheckPhases(phase, 0)) {
            return Reject(reader, phaseKey, reason);
        }
        pair[count++] = static_cast<uint8_t>(phase);
    });
    if (count == 2 && pair[0] == pair[1]) {
        Reject(reader, key, "both phases of the pair are " + std::to_string(pair[0]));
    }
}

void ReadConflicts(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    v2xspatconv_guard_t& guard = reader.config.m_guard;
    ReadList(reader, key, 0, V2XSPATCONV_CONFLICTS_MAX, [&](const std::string& element) {
        ReadPair(reader, element, guard.m_conflicts[guard.m_conflict_count++]);
    });
}

// Parses "CHECK" or "CHECK:PHASE".
void ReadIgnored(Reader& reader, const std::string& key) {
    const std::optional<std::string> text = ReadText(reader, key);
    if (!text) {
        return;
    }
    const size_t colon = text->find(':');
    const std::string name = text->substr(0, colon);
    const int32_t check = FindName(V2XSPATCONV_CHECK_NAMES, name);
    if (check < 0) {
        return Reject(reader, key, DescribeUnknown(name, "check", V2XSPATCONV_CHECK_NAMES));
    }
    int32_t phase = 0; // bit 0 means all phases
    if (colon != std::string::npos) {
        const char* const end = text->data() + text->size();
        const auto [stop, error] = std::from_chars(text->data() + colon + 1, end, phase);
        if (error != std::errc{} || stop != end || phase < 1 || phase > PHASE_MAX) {
            return Reject(reader, key, "\"" + *text + "\": expected a SPAT phase from 1 to 32 after the colon");
        }
    }
    reader.config.m_guard.m_ignore[check] |= uint64_t{1} << phase;
}

void ReadIgnore(Reader& reader, const char* key, e_v2xspatconv_source /*source*/) {
    ReadList(reader, key, 0, IGNORE_MAX, [&](const std::string& element) { ReadIgnored(reader, element); });
}

struct Row {
    const char* key;
    void (*read)(Reader& reader, const char* key, e_v2xspatconv_source source);
    v2xspatconv_showFun show;    // null: another table shows the key
    e_v2xspatconv_source source; // ignored for keys that belong to no source
};

#define DEVICE_ROWS(group, source)                                                                                     \
    {"rsuSpatConfigInfo." group ".LocalIp", ReadLocalIp, v2xspatconv_ShowLocalIp, source},                             \
        {"rsuSpatConfigInfo." group ".OnlyFrom", ReadOnlyFrom, v2xspatconv_ShowOnlyFrom, source},                      \
        {"rsuSpatConfigInfo." group ".StaleAfter", ReadStaleAfter, v2xspatconv_ShowStaleAfter, source}, {              \
        "rsuSpatConfigInfo." group ".PhaseRelationship.PhaseID#", ReadOwnPhases, v2xspatconv_ShowOwnPhases, source     \
    }

constexpr char PRIORITY_KEY[] = "rsuSpatConfigInfo.Guard.SourcePriority";
constexpr char STALE_KEY[] = "rsuSpatConfigInfo.Guard.OnStale";

// A row may depend on the settings of the rows above it.
constexpr Row ROWS[] = {
    {"rsuSpatConfigInfo.Corrections.QuietLog", ReadQuietLog, nullptr, {}},
    DEVICE_ROWS("LearnMachine", V2XSPATCONV_LEARNER),
    DEVICE_ROWS("SignalMachine1743", V2XSPATCONV_1743),
    {"rsuSpatConfigInfo.Cloud.StaleAfter", ReadStaleAfter, v2xspatconv_ShowStaleAfter, V2XSPATCONV_CLOUD},
    {PRIORITY_KEY, ReadPriority, v2xspatconv_ShowPriority, {}},
    {STALE_KEY, ReadOnStale, v2xspatconv_ShowOnStale, {}},
    {"rsuSpatConfigInfo.Guard.Conflicts", ReadConflicts, v2xspatconv_ShowConflicts, {}},
    {"rsuSpatConfigInfo.Guard.OnConflict", ReadOnConflict, v2xspatconv_ShowOnConflict, {}},
    {"rsuSpatConfigInfo.Guard.OnFrozen", ReadOnFrozen, v2xspatconv_ShowOnFrozen, {}},
    {"rsuSpatConfigInfo.Guard.Ignore", ReadIgnore, v2xspatconv_ShowIgnore, {}},
    {"rsuSpatConfigInfo.Control.Path", ReadControlPath, v2xspatconv_ShowControlPath, {}},
};

// A value in the place of a group would hide all keys of the group.
constexpr const char* GROUPS[] = {"rsuSpatConfigInfo.Cloud", "rsuSpatConfigInfo.Guard", "rsuSpatConfigInfo.Control"};

// Two adapters without SourcePriority send records of the same intersection in turn.
void CheckBothAdapters(Reader& reader) {
    int32_t count = 0;
    if (!IsOn(reader.config, V2XSPATCONV_LEARNER) || !IsOn(reader.config, V2XSPATCONV_1743) ||
        v2xcfg_GetNodeValue(reader.root, V2XCFG_TYPE_LIST, PRIORITY_KEY, &count, nullptr) != -1) {
        return;
    }
    if (reader.config.m_guard.m_on_stale_unavailable) {
        return Reject(reader, STALE_KEY, "\"unavailable\" with both adapters enabled needs Guard.SourcePriority");
    }
    v2xcfg_Report(&g_scfgLog, V2XCFG_WARNING, reader.root, "rsuSpatConfigInfo.SignalMachine1743.IsEnable",
                  "both adapters are enabled without Guard.SourcePriority, so records of both devices are forwarded");
}

} // namespace

void v2xspatconv_AddGuardKeys(std::vector<const char*>& keys) {
    std::transform(std::begin(ROWS), std::end(ROWS), std::back_inserter(keys), [](const Row& row) { return row.key; });
}

void v2xspatconv_VisitGuard(const spat_conv_config_t& config,
                            const std::function<void(const char* key, cJSON* value)>& visit) {
    for (const Row& row : ROWS) {
        if (row.show != nullptr) {
            visit(row.key, row.show(config, row.source));
        }
    }
}

std::string v2xspatconv_ReadGuard(V2X_CFGHANDLE root, spat_conv_config_t& config) {
    Reader reader{root, config, ""};
    for (v2xspatconv_sourceGuard_t& source : config.m_guard.m_sources) {
        memcpy(source.m_phaseid, config.m_phase_relationship.m_phaseid, sizeof source.m_phaseid);
        snprintf(source.m_local_ip, sizeof source.m_local_ip, "0.0.0.0");
        source.m_stale_after = STALE_DEVICE_MS;
    }
    reader.Source(V2XSPATCONV_CLOUD).m_stale_after = 0;
    for (const char* const group : GROUPS) {
        int32_t count = 0;
        Read(reader, V2XCFG_TYPE_GROUP, group, &count);
    }
    for (const Row& row : ROWS) {
        row.read(reader, row.key, row.source);
    }
    CheckBothAdapters(reader);
    return reader.firstError;
}

const char* v2xspatconv_CheckPhases(int32_t spatPhase, int32_t devicePhase) {
    if (spatPhase < 1 || spatPhase > PHASE_MAX) {
        return "the SPAT phase is outside 1 to 32";
    }
    return devicePhase < 0 || devicePhase > DEVICE_PHASE_MAX ? "the device phase is outside 0 to 255" : nullptr;
}
