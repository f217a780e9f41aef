// Finds the keys of a file that the program does not know.
#include <algorithm>
#include <charconv>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <strings.h>
#include <vector>

#include "v2x/v2xcfg.h"
#include "v2xcfg_context.h"

namespace {

// Bounds of the work for one file.
constexpr size_t MAX_COMPARED = 64;  // a longer name gets no suggestion
constexpr int32_t MAX_REPORTS = 101; // one more than the warnings that v2xcfg_Collect keeps

using Keys = std::span<const char* const>;

struct Report {
    v2xlog_tag_t* tag;
    V2X_CFGHANDLE root;
    Keys known;
    int32_t left = MAX_REPORTS; // number of reports that may follow
};

// Returns the known name with its '#' replaced by the number at the end of `name`, without leading zeros. Returns
// nothing if this is not a number from 0 to 255.
std::optional<std::string> FillIndex(std::string_view known, std::string_view name) {
    if (!known.ends_with('#')) {
        return std::string(known);
    }
    const std::string_view digits = name.substr(name.find_last_not_of("0123456789") + 1);
    uint8_t index = 0;
    known.remove_suffix(1);
    const std::errc error = std::from_chars(digits.data(), digits.data() + digits.size(), index).ec;
    return error == std::errc{} ? std::optional(std::string(known) + std::to_string(index)) : std::nullopt;
}

bool IsKnown(const std::string& key, Keys known) {
    return std::any_of(known.begin(), known.end(), [&](const char* one) { return FillIndex(one, key) == key; });
}

bool IsKnownGroup(const std::string& key, Keys known) {
    const std::string prefix = key + ".";
    return std::any_of(known.begin(), known.end(),
                       [&](const char* one) { return std::string_view(one).starts_with(prefix); });
}

// Returns the number of insertions, deletions and replacements that turn one text into the other. Ignores case.
size_t CountEdits(std::string_view from, std::string_view to) {
    std::vector<size_t> row(to.size() + 1);
    for (size_t column = 0; column <= to.size(); column++) {
        row[column] = column;
    }
    for (size_t line = 1; line <= from.size(); line++) {
        size_t diagonal = row[0];
        row[0] = line;
        for (size_t column = 1; column <= to.size(); column++) {
            const bool isEqual = strncasecmp(&from[line - 1], &to[column - 1], 1) == 0;
            const size_t replaced = diagonal + (isEqual ? 0 : 1);
            diagonal = row[column];
            row[column] = std::min({replaced, row[column] + 1, row[column - 1] + 1});
        }
    }
    return row[to.size()];
}

// Returns the known member of the group that is most similar to `name`, or "" if no member is similar. `prefix` is the
// group's key with a dot at its end, or "" for the root.
std::string FindSimilar(const std::string& prefix, std::string_view name, Keys known) {
    std::string similar;
    size_t least = std::min(2 + name.size() / 4, name.size()); // the number of edits that is too large
    for (std::string_view one : known) {
        if (name.size() > MAX_COMPARED || !one.starts_with(prefix)) {
            continue;
        }
        one.remove_prefix(prefix.size());
        const std::optional<std::string> member = FillIndex(one.substr(0, one.find('.')), name);
        const size_t edits = member ? CountEdits(*member, name) : least;
        if (edits < least) {
            least = edits;
            similar = *member;
        }
    }
    return similar;
}

// Returns the dotted key of a setting.
std::string FindKey(const config_setting_t* setting) {
    std::string key;
    for (; config_setting_is_root(setting) == CONFIG_FALSE; setting = config_setting_parent(setting)) {
        const char* const name = config_setting_name(setting);
        const std::string part = name != nullptr ? name : "[" + std::to_string(config_setting_index(setting)) + "]";
        key = key.empty() ? part : part + "." + key;
    }
    return key;
}

// Returns the first setting, except the one of `key`, whose name is similar to the last name of `key`. Null if there is
// none.
const config_setting_t* FindLookalike(const config_t& config, const std::string& key, Keys known) {
    const size_t nameStart = key.rfind('.') + 1;
    const config_setting_t* const proper = config_lookup(&config, key.c_str());
    std::vector<const config_setting_t*> pending = {config_root_setting(&config)}; // no recursion into a hostile file
    while (!pending.empty()) {
        const config_setting_t* const setting = pending.back();
        const char* const name = config_setting_name(setting);
        pending.pop_back();
        if (setting != proper && name != nullptr &&
            FindSimilar(key.substr(0, nameStart), name, known) == key.substr(nameStart)) {
            return setting;
        }
        const int count = config_setting_is_aggregate(setting) == CONFIG_TRUE ? config_setting_length(setting) : 0;
        for (int i = count - 1; i >= 0; i--) {
            pending.push_back(config_setting_get_elem(setting, static_cast<unsigned>(i)));
        }
    }
    return nullptr;
}

void ReportGroup(Report& report, const config_setting_t* group, const std::string& prefix) {
    const int count = config_setting_length(group);
    for (int i = 0; i < count && report.left > 0; i++) {
        const config_setting_t* const setting = config_setting_get_elem(group, static_cast<unsigned>(i));
        const std::string name = config_setting_name(setting);
        const std::string key = prefix + name;
        std::string reason;
        if (IsKnown(key, report.known)) {
            continue;
        }
        if (!IsKnownGroup(key, report.known)) {
            const std::string similar = FindSimilar(prefix, name, report.known);
            reason = "unknown key " + name + (similar.empty() ? "" : ", did you mean " + similar + "?");
        } else if (config_setting_is_group(setting)) {
            ReportGroup(report, setting, key + "."); // no deeper than the known keys
            continue;
        } else {
            reason = std::string("expected a group, found ") + v2xcfg_TypeName(config_setting_type(setting));
        }
        v2xcfg_Report(report.tag, V2XCFG_WARNING, report.root, key.c_str(), reason.c_str());
        report.left--;
    }
}

} // namespace

void v2xcfg_ReportUnknownKeys(v2xlog_tag_t* tag, V2X_CFGHANDLE root, const char* const* known, int32_t count) {
    Report report{tag, root, Keys(known, static_cast<size_t>(count))};
    ReportGroup(report, config_root_setting(&root->config), "");
}

bool v2xcfg_RejectLookalike(v2xlog_tag_t* tag, V2X_CFGHANDLE root, const char* const* known, int32_t count,
                            const char* key) {
    const config_setting_t* const setting = FindLookalike(root->config, key, Keys(known, static_cast<size_t>(count)));
    if (setting != nullptr) {
        const std::string name = config_setting_name(setting);
        const std::string found = FindKey(setting);
        const std::string prefix = found.substr(0, found.size() - name.size());
        const std::string meant = key;
        // the text of v2xcfg_ReportUnknownKeys if the group is right, so that one line reports the key
        const bool isInGroup = prefix == meant.substr(0, meant.rfind('.') + 1);
        const std::string reason =
            "unknown key " + name + ", did you mean " + (isInGroup ? meant.substr(prefix.size()) : meant) + "?";
        v2xcfg_Report(tag, V2XCFG_ERROR, root, found.c_str(), reason.c_str());
    }
    return setting != nullptr;
}
