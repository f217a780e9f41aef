// The cloud's SPAT document: a JSON text with intersections, their phases and the phases' states; what can be wrong
// with one; and how it is cut into samples of a topic.
//
// A sample has at most 1024 bytes, and a shorter one ends the document. A document whose size is a multiple of 1024 is
// followed by a sample of one byte, 0, which is not part of it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "plan.h"
#include "summary.h"
#include "text.h"

namespace sim {

enum class DocumentKind : size_t {
    good,       // the daemon makes a record of it
    syntax,     // not JSON
    empty,      // nothing but white space
    truncated,  // cut short; classified as wrong syntax
    overflow,   // more than MAX_DOWN_DOCUMENT bytes
    missingKey, // without intersections, or one lacks its status, phases or the id in its intersectionId
    wrongType,  // the intersections are not a list of objects, or the list is empty
};
inline constexpr KindName DOCUMENT_KINDS[] = {
    {nullptr, "downGood", "good"},
    {"syntax", "downSyntax", "wrong syntax"},
    {"empty", "downEmpty", "empty"},
    {"truncated", "downTruncated", "truncated"},
    {"overflow", "downOverflow", "too large"},
    {"missing-key", "downMissingKey", "missing key"},
    {"wrong-type", "downWrongType", "wrong type"},
};

inline constexpr size_t MAX_DOWN_DOCUMENT = 20479; // bytes that the daemon accepts

struct Intersection {
    uint16_t region = 1;
    uint16_t node = 2;
};

// The plan's lights as a document, with times that count down, in tenths of a second.
std::string PlanDocument(std::span<const PhaseLight> lights, Intersection intersection);

// The whole text as JSON; null when it is not JSON or when something follows the JSON value.
JsonPtr ParseDocument(const std::string& text);

// The first fault of a document: the size, then the other kinds in their order.
DocumentKind ClassifyDocument(const std::string& text);

// Turns a good document into one of `kind`; `random` chooses among the many ways to do so. Returns false, and leaves
// the document alone, when it is not good or when `kind` is good. All intersections of a document are damaged, so that
// the daemon makes no record of it.
bool DamageDocument(std::string& text, DocumentKind kind, uint32_t random);

// One line for people: "1/2 status 1024  1 G15.0  2 R50.0", each phase with the light and the seconds left of its first
// state. Lights: '-' unavailable, D dark, r flashing red, R red, g flashing green, G permissive and P protected green,
// Y yellow, y flashing yellow. Takes any JSON; a missing value is shown as '?'.
std::string DocumentText(const cJSON* document);

inline constexpr size_t SAMPLE_SIZE = 1024;

// The samples to publish for a document, in order: `piece` bytes each, or all at once when `piece` is 0 (the platform's
// library then cuts it), and the end sample where one is needed. An empty document is the end sample alone.
std::vector<std::string> CutDocument(const std::string& text, size_t piece);

// Joins the samples of one topic. One thread at a time.
class SampleJoiner {
public:
    struct Document {
        std::string text;
        size_t samples;  // with the end sample
        bool isTooLarge; // the text is only the first MAX_DOCUMENT bytes
    };
    static constexpr size_t MAX_DOCUMENT = 1048576; // the most that the platform's library accepts at a time

    // Adds a sample; returns the document when this sample ends it.
    std::optional<Document> Add(std::span<const uint8_t> sample);

private:
    Document m_document{};
};

} // namespace sim
