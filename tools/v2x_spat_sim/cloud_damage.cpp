#include "cloud_damage.h"

#include <array>
#include <string_view>

#include "damage.h"

namespace sim {
namespace {

// What follows takes a good document.

void DamageSyntax(std::string& text, Chance& chance) {
    constexpr std::string_view WRONG = "{}[]:,\"\\x";
    const std::string good = text;
    do {
        text = good;
        text[chance.Below(text.size())] = WRONG[chance.Below(WRONG.size())];
    } while (ParseDocument(text) != nullptr);
}

void DamageToEmpty(std::string& text, Chance& chance) {
    constexpr std::string_view BLANKS[] = {"", " ", "\n", "\r\n\t"};
    text = BLANKS[chance.Below(std::size(BLANKS))];
}

void DamageTruncated(std::string& text, Chance& chance) {
    const std::string good = text;
    do {
        text = good.substr(0, 1 + chance.Below(good.size() - 1));
    } while (ParseDocument(text) != nullptr); // white space was behind it
}

// Blanks in front of its end, so that what a reader keeps of it is no document.
void DamageOverflow(std::string& text, Chance& chance) {
    constexpr size_t MOST_ABOVE = 4096;
    const size_t size = MAX_DOWN_DOCUMENT + 1 + chance.Below(MOST_ABOVE);
    text.insert(text.rfind('}'), size - text.size(), ' ');
}

void RemoveKey(cJSON* document, const char* key) {
    cJSON_DeleteItemFromObjectCaseSensitive(document, key);
    cJSON* intersection = nullptr;
    cJSON_ArrayForEach(intersection, cJSON_GetObjectItemCaseSensitive(document, "intersections")) {
        cJSON_DeleteItemFromObjectCaseSensitive(intersection, key);
        cJSON* const id = cJSON_GetObjectItemCaseSensitive(intersection, "intersectionId");
        cJSON_DeleteItemFromObjectCaseSensitive(id, key);
    }
}

// Again where the document has no such key.
void DamageKey(std::string& text, Chance& chance) {
    constexpr const char* KEYS[] = {"intersections", "status", "phases", "id"};
    const JsonPtr document = ParseDocument(text);
    do {
        RemoveKey(document.get(), KEYS[chance.Below(std::size(KEYS))]);
        text = JsonLine(document);
    } while (ClassifyDocument(text) == DocumentKind::good);
}

void DamageType(std::string& text, Chance& chance) {
    constexpr const char* OTHERS[] = {"\"none\"", "17", "null", "true", "{}", "[]", "[1,2]", "[\"one\"]"};
    const JsonPtr document = ParseDocument(text);
    cJSON* const other = cJSON_Parse(OTHERS[chance.Below(std::size(OTHERS))]);
    if (cJSON_ReplaceItemInObjectCaseSensitive(document.get(), "intersections", other) == 0) {
        cJSON_Delete(other);
    }
    text = JsonLine(document);
}

using Damage = void (*)(std::string& text, Chance& chance);
constexpr std::array<Damage, DOCUMENT_KINDS> DAMAGES = {
    nullptr, DamageSyntax, DamageToEmpty, DamageTruncated, DamageOverflow, DamageKey, DamageType,
};

} // namespace

bool DamageDocument(std::string& text, DocumentKind kind, uint32_t random) {
    const Damage damage = DAMAGES[static_cast<size_t>(kind)];
    if (damage == nullptr || ClassifyDocument(text) != DocumentKind::good) {
        return false;
    }
    Chance chance(random);
    damage(text, chance);
    return true;
}

} // namespace sim
