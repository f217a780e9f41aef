#include "cloud_document.h"

#include <array>

#include "cloud_pieces.h"
#include "text.h"
#include "v2x/v2xipc_data.h"

namespace sim {
namespace {

constexpr const char* INTERSECTIONS = "intersections";
constexpr uint64_t FIXED_TIME_OPERATION = 1U << 10; // the sixth of 16 bits

uint8_t LightOf(Colour colour) {
    constexpr uint8_t LIGHTS[] = {V2XIPC_LIGHT_PERMISSIVE_GREEN, V2XIPC_LIGHT_RED, V2XIPC_LIGHT_YELLOW};
    return LIGHTS[static_cast<size_t>(colour)];
}

void AddPhase(cJSON* phases, const PhaseLight& light) {
    cJSON* const phase = AddObject(phases);
    AddUnsigned(phase, "phaseId", light.phase);
    cJSON* const state = AddObject(cJSON_AddArrayToObject(phase, "phaseStates"));
    AddUnsigned(state, "light", LightOf(light.colour));
    cJSON* const counting = cJSON_AddObjectToObject(cJSON_AddObjectToObject(state, "timing"), "counting");
    AddUnsigned(counting, "startTime", 0);
    AddUnsigned(counting, "likelyEndTime", uint64_t{10} * light.secondsLeft);
}

bool Has(const cJSON* object, const char* key) {
    return cJSON_GetObjectItemCaseSensitive(object, key) != nullptr;
}

DocumentKind ClassifyIntersection(const cJSON* intersection) {
    if (!cJSON_IsObject(intersection)) {
        return DocumentKind::wrongType;
    }
    const cJSON* const id = cJSON_GetObjectItemCaseSensitive(intersection, "intersectionId");
    const bool isWhole = Has(intersection, "status") && Has(intersection, "phases") && (id == nullptr || Has(id, "id"));
    return isWhole ? DocumentKind::good : DocumentKind::missingKey;
}

std::string NumberText(const cJSON* object, const char* key) {
    const cJSON* const number = cJSON_GetObjectItemCaseSensitive(object, key);
    return cJSON_IsNumber(number) != 0 ? FormatText("%.15g", number->valuedouble) : "?";
}

const cJSON* First(const cJSON* object, const char* key) {
    return cJSON_GetArrayItem(cJSON_GetObjectItemCaseSensitive(object, key), 0);
}

std::string LightText(const cJSON* state) {
    constexpr std::string_view LETTERS = "-DrRgGPYy";
    const cJSON* const light = cJSON_GetObjectItemCaseSensitive(state, "light");
    const bool isKnown = cJSON_IsNumber(light) != 0 && light->valuedouble >= 0 && light->valuedouble < 9;
    return {isKnown ? LETTERS[static_cast<size_t>(light->valuedouble)] : '?'};
}

// Times of the other form do not count down and are not shown.
std::string SecondsText(const cJSON* state) {
    const cJSON* const timing = cJSON_GetObjectItemCaseSensitive(state, "timing");
    const cJSON* const counting = cJSON_GetObjectItemCaseSensitive(timing, "counting");
    const cJSON* const end = cJSON_GetObjectItemCaseSensitive(counting, "likelyEndTime");
    const bool isKnown = cJSON_IsNumber(end) != 0 && end->valuedouble != V2XIPC_TIME_UNKNOWN;
    return isKnown ? FormatText("%.1f", end->valuedouble / 10) : "?";
}

std::string IntersectionText(const cJSON* intersection) {
    const cJSON* const id = cJSON_GetObjectItemCaseSensitive(intersection, "intersectionId");
    std::string text =
        NumberText(id, "region") + "/" + NumberText(id, "id") + " status " + NumberText(intersection, "status");
    const cJSON* phase = nullptr;
    cJSON_ArrayForEach(phase, cJSON_GetObjectItemCaseSensitive(intersection, "phases")) {
        const cJSON* const state = First(phase, "phaseStates");
        text += "  " + NumberText(phase, "phaseId") + " " + LightText(state) + SecondsText(state);
    }
    return text;
}

} // namespace

std::string PlanDocument(std::span<const PhaseLight> lights, Intersection intersection) {
    const JsonPtr document(cJSON_CreateObject());
    cJSON_AddStringToObject(document.get(), "name", "v2x_spat_sim");
    cJSON* const entry = AddObject(cJSON_AddArrayToObject(document.get(), INTERSECTIONS));
    cJSON* const id = cJSON_AddObjectToObject(entry, "intersectionId");
    AddUnsigned(id, "region", intersection.region);
    AddUnsigned(id, "id", intersection.node);
    AddUnsigned(entry, "status", FIXED_TIME_OPERATION);
    cJSON* const phases = cJSON_AddArrayToObject(entry, "phases");
    for (const PhaseLight& light : lights) {
        AddPhase(phases, light);
    }
    return JsonLine(document);
}

JsonPtr ParseDocument(const std::string& text) {
    const char* end = nullptr;
    JsonPtr document(cJSON_ParseWithOpts(text.c_str(), &end, 1));
    const bool isWhole = document != nullptr && end == text.c_str() + text.size(); // no NUL within
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

std::string DocumentText(const cJSON* document) {
    const cJSON* const intersections = cJSON_GetObjectItemCaseSensitive(document, INTERSECTIONS);
    std::string text;
    const cJSON* intersection = nullptr;
    cJSON_ArrayForEach(intersection, intersections) {
        text += (text.empty() ? "" : "; ") + IntersectionText(intersection);
    }
    if (!text.empty()) {
        return text;
    }
    return cJSON_IsArray(intersections) != 0 ? "no intersections" : "no list of intersections";
}

} // namespace sim
