// The keys that the configuration files of the process contain.
#include "v2x/v2xcfg.h"

#include <mutex>
#include <set>
#include <string>

#include "v2xcfg_context.h"

namespace {

struct FoundKeys {
    std::mutex lock;
    std::set<std::string> keys;
};

// Never destroyed: threads may read keys while the process exits.
FoundKeys& GetFoundKeys() {
    static auto* const found = new FoundKeys;
    return *found;
}

} // namespace

void v2xcfg_AddFoundKey(const std::string& key) {
    FoundKeys& found = GetFoundKeys();
    const std::lock_guard guard(found.lock);
    found.keys.insert(key);
}

bool v2xcfg_HasKey(const char* key) {
    FoundKeys& found = GetFoundKeys();
    const std::lock_guard guard(found.lock);
    const std::string member = std::string(key) + ".";
    const auto next = found.keys.lower_bound(member);
    return found.keys.contains(key) || (next != found.keys.end() && next->starts_with(member));
}
