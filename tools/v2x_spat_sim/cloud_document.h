// The cloud's SPAT document: a JSON text with intersections, their phases, and the phases' states.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "json.h"
#include "plan.h"

namespace sim {

// How a document stands to one from which the daemon makes a record.
enum class DocumentKind : size_t {
    good,
    syntax,     // no JSON
    empty,      // nothing but white space
    truncated,  // ends within the text; only what was cut here is known to be so
    overflow,   // more than MAX_DOWN_DOCUMENT bytes
    missingKey, // no intersections, or one without its status, phases, or the id within intersectionId
    wrongType,  // the intersections are no list of objects, or an empty one
};
inline constexpr size_t DOCUMENT_KINDS = 7;

inline constexpr size_t MAX_DOWN_DOCUMENT = 20479; // bytes that the daemon takes

struct Intersection {
    uint16_t region = 1;
    uint16_t node = 2;
};

// What the plan says, with times that count down, in tenths of a second.
std::string PlanDocument(std::span<const PhaseLight> lights, Intersection intersection);

// The whole text as JSON; null when it is none, or when something follows it.
JsonPtr ParseDocument(const std::string& text);

// The first thing that is wrong with a document, in the order of the kinds but for the size, which comes first.
DocumentKind ClassifyDocument(const std::string& text);

// For people, in one line: "1/2 status 1024  1 G15.0  2 R50.0", each phase with its first state: its light ('-'
// unavailable, D dark, r flashing red, R red, g flashing green, G permissive and P protected green, Y yellow, y
// flashing yellow) and the seconds left. Takes any JSON; what is not there is a '?'.
std::string DocumentText(const cJSON* document);

} // namespace sim
