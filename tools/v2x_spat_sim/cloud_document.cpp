#include "cloud_document.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "damage.h"
#include "v2x/v2xipc_data.h"

namespace sim {
namespace {

constexpr const char* INTERSECTIONS = "intersections";
constexpr uint64_t FIXED_TIME_OPERATION = 1U << 10; // the sixth of 16 bits

uint8_t ToLightCode(Colour colour) {
    constexpr uint8_t LIGHTS[] = {V2XIPC_LIGHT_PERMISSIVE_GREEN, V2XIPC_LIGHT_RED, V2XIPC_LIGHT_YELLOW};
    return LIGHTS[static_cast<size_t>(colour)];
}

void AddPhase(cJSON* phases, const PhaseLight& light) {
    cJSON* const phase = AddObject(phases);
    AddNumber(phase, "phaseId", light.phase);
    cJSON* const state = AddObject(cJSON_AddArrayToObject(phase, "phaseStates"));
    AddNumber(state, "light", ToLightCode(light.colour));
    cJSON* const counting = cJSON_AddObjectToObject(cJSON_AddObjectToObject(state, "timing"), "counting");
    AddNumber(counting, "startTime", 0);
    AddNumber(counting, "likelyEndTime", 10 * light.secondsLeft);
}

bool HasKey(const cJSON* object, const char* key) {
    return cJSON_GetObjectItemCaseSensitive(object, key) != nullptr;
}

DocumentKind ClassifyIntersection(const cJSON* intersection) {
    if (!cJSON_IsObject(intersection)) {
        return DocumentKind::wrongType;
    }
    const cJSON* const id = cJSON_GetObjectItemCaseSensitive(intersection, "intersectionId");
    const bool isWhole =
        HasKey(intersection, "status") && HasKey(intersection, "phases") && (id == nullptr || HasKey(id, "id"));
    return isWhole ? DocumentKind::good : DocumentKind::missingKey;
}

std::string FormatNumber(const cJSON* object, const char* key) {
    const cJSON* const number = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsNumber(number) != 0 ? FormatText("%.15g", number->valuedouble) : "?";
}

const cJSON* FirstElement(const cJSON* object, const char* key) {
    return cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(object, key), 0);
}

std::string FormatLight(const cJSON* state) {
    constexpr std::string_view LETTERS = "-DrRgGPYy";
    const cJSON* const light = cJSON_GetObjectItemCaseSensitive(state, "light");
    const bool isKnown = cJSON_IsNumber(light) != 0 && light->valuedouble >= 0 && light->valuedouble < 9;
    return {isKnown ? LETTERS[static_cast<size_t>(light->valuedouble)] : '?'};
}

// Shows the time that counts down, or '?' for any other time.
std::string FormatSeconds(const cJSON* state) {
    const cJSON* const timing = cJSON_GetObjectItemCaseSensitive(state, "timing");
    const cJSON* const counting = cJSON_GetObjectItemCaseSensitive(timing, "counting");
    const cJSON* const end = cJSON_GetObjectItemCaseSensitive(counting, "likelyEndTime");
    const bool isKnown = cJSON_IsNumber(end) != 0 && end->valuedouble != V2XIPC_TIME_UNKNOWN;
    return isKnown ? FormatText("%.1f", end->valuedouble / 10) : "?";
}

std::string FormatIntersection(const cJSON* intersection) {
    const cJSON* const id = cJSON_GetObjectItemCaseSensitive(intersection, "intersectionId");
    std::string text =
        FormatNumber(id, "region") + "/" + FormatNumber(id, "id") + " status " + FormatNumber(intersection, "status");
    const cJSON* phase = nullptr;
    cJSON_ArrayForEach(phase, cJSON_GetObjectItemCaseSensitive(intersection, "phases")) {
        const cJSON* const state = FirstElement(phase, "phaseStates");
        text += "  " + FormatNumber(phase, "phaseId") + " " + FormatLight(state) + FormatSeconds(state);
    }
    return text;
}

// Each function below damages a good document.

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
    } while (ParseDocument(text) != nullptr); // truncating white space leaves a valid document
}

// Inserts blanks before the last brace, so that a truncated document is never valid.
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

// Repeats with another key if the document lacks the chosen key.
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
constexpr Damage DAMAGES[] = {
    nullptr, DamageSyntax, DamageToEmpty, DamageTruncated, DamageOverflow, DamageKey, DamageType,
};
static_assert(std::size(DAMAGES) == std::size(DOCUMENT_KINDS));

} // namespace

std::string PlanDocument(std::span<const PhaseLight> lights, Intersection intersection) {
    const JsonPtr document(cJSON_CreateObject());
    cJSON_AddStringToObject(document.get(), "name", "v2x_spat_sim");
    cJSON* const entry = AddObject(cJSON_AddArrayToObject(document.get(), INTERSECTIONS));
    cJSON* const id = cJSON_AddObjectToObject(entry, "intersectionId");
    AddNumber(id, "region", intersection.region);
    AddNumber(id, "id", intersection.node);
    AddNumber(entry, "status", FIXED_TIME_OPERATION);
    cJSON* const phases = cJSON_AddArrayToObject(entry, "phases");
    for (const PhaseLight& light : lights) {
        AddPhase(phases, light);
    }
    return JsonLine(document);
}

JsonPtr ParseDocument(const std::string& text) {
    const char* end = nullptr;
    JsonPtr document(cJSON_ParseWithOpts(text.c_str(), &end, 1));
    const bool isWhole = document != nullptr && end == text.c_str() + text.size(); // false if the text contains a NUL
    return isWhole ? std::move(document) : nullptr;
}

DocumentKind ClassifyDocument(const std::string& text) {
    if (text.size() > MAX_DOWN_DOCUMENT) {
        return DocumentKind::overflow;
    }
    const JsonPtr document = ParseDocument(text);
    if (document == nullptr) {
        const bool isEmpty = text.find_first_not_of(" \t\r\n") == std::string::npos;
        return isEmpty ? DocumentKind::empty : DocumentKind::syntax;
    }
    const cJSON* const intersections = cJSON_GetObjectItemCaseSensitive(document.get(), INTERSECTIONS);
    if (intersections == nullptr) {
        return DocumentKind::missingKey;
    }
    DocumentKind kind = DocumentKind::wrongType;
    const cJSON* intersection = nullptr;
    if (cJSON_IsArray(intersections) != 0) {
        cJSON_ArrayForEach(intersection, intersections) {
            kind = ClassifyIntersection(intersection);
            if (kind != DocumentKind::good) {
                break;
            }
        }
    }
    return kind;
}

bool DamageDocument(std::string& text, DocumentKind kind, uint32_t random) {
    const Damage damage = DAMAGES[static_cast<size_t>(kind)];
    if (damage == nullptr || ClassifyDocument(text) != DocumentKind::good) {
        return false;
    }
    Chance chance(random);
    damage(text, chance);
    return true;
}

std::string FormatDocument(const cJSON* document) {
    const cJSON* const intersections = cJSON_GetObjectItemCaseSensitive(document, INTERSECTIONS);
    std::string text;
    const cJSON* intersection = nullptr;
    cJSON_ArrayForEach(intersection, intersections) {
        text += (text.empty() ? "" : "; ") + FormatIntersection(intersection);
    }
    if (!text.empty()) {
        return text;
    }
    return cJSON_IsArray(intersections) != 0 ? "no intersections" : "no list of intersections";
}

std::vector<std::string> CutDocument(const std::string& text, size_t fragmentSize) {
    std::vector<std::string> samples;
    const size_t size = fragmentSize == 0 ? text.size() : fragmentSize;
    for (size_t at = 0; at < text.size(); at += size) {
        samples.push_back(text.substr(at, size));
    }
    if (text.size() % SAMPLE_SIZE == 0) {
        samples.emplace_back(1, '\0');
    }
    return samples;
}

std::optional<SampleJoiner::Document> SampleJoiner::Add(std::span<const uint8_t> sample) {
    std::string& text = m_document.text;
    ++m_document.samples;
    const bool isEnd = sample.size() == 1 && sample[0] == 0 && text.size() % SAMPLE_SIZE == 0;
    if (!isEnd) {
        const size_t appended = std::min(sample.size(), MAX_DOCUMENT - text.size());
        text.append(sample.begin(), sample.begin() + static_cast<ptrdiff_t>(appended));
        m_document.isTooLarge = m_document.isTooLarge || appended < sample.size();
    }
    if (sample.size() >= SAMPLE_SIZE) {
        return std::nullopt;
    }
    return std::exchange(m_document, {});
}

} // namespace sim
