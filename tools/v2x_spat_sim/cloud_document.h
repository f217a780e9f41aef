// Makes, damages, classifies and splits the cloud's SPAT documents. A document is a JSON text with intersections, their
// phases and the states of the phases.
//
// A document is published in samples of at most 1024 bytes. A sample below 1024 bytes ends the document. If the size is
// a multiple of 1024, an end sample follows: one byte, 0, which does not belong to the document.
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
    good,       // the daemon converts the document to a record
    syntax,     // the document is not JSON
    empty,      // the document has only white space
    truncated,  // the end of the document is missing; ClassifyDocument returns `syntax` instead
    overflow,   // the document has more than MAX_DOWN_DOCUMENT bytes
    missingKey, // "intersections" is missing, or an intersection lacks its status, its phases or its id
    wrongType,  // "intersections" is not a list of objects, or the list is empty
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

inline constexpr size_t MAX_DOWN_DOCUMENT = 20479; // bytes; the daemon rejects longer documents

struct Intersection {
    uint16_t region = 1;
    uint16_t node = 2;
};

// Encodes the plan's lights as a document. The times count down, in 0.1 s.
std::string PlanDocument(std::span<const PhaseLight> lights, Intersection intersection);

// Parses the text as one JSON value. Returns null if the text is invalid or has more than white space after the value.
JsonPtr ParseDocument(const std::string& text);

// Returns the first fault of a document. The order of the checks is the size, then the other kinds in their order.
DocumentKind ClassifyDocument(const std::string& text);

// Damages a good document so that the document is of `kind`. `random` selects one of many possible changes. Returns
// false without a change if the document is not good or if `kind` is good. Damages all intersections, so that the
// daemon converts none of them to a record.
bool DamageDocument(std::string& text, DocumentKind kind, uint32_t random);

// Formats a document as one line for people: "1/2 status 1024  1 G15.0  2 R50.0". Each phase has its id, and the light
// and the remaining seconds of its first state. Lights: '-' unavailable, D dark, r flashing red, R red, g flashing
// green, G permissive green, P protected green, Y yellow, y flashing yellow. Accepts any JSON; shows '?' for a missing
// value.
std::string FormatDocument(const cJSON* document);

inline constexpr size_t SAMPLE_SIZE = 1024;

// Splits a document into the samples to publish, in order. Each sample has at most `fragmentSize` bytes. If
// `fragmentSize` is 0, the document is one sample, which the platform's DDS library splits. Appends the end sample if
// the size of the document is a multiple of 1024, or 0.
std::vector<std::string> CutDocument(const std::string& text, size_t fragmentSize);

// Joins the samples of one topic. One thread at a time.
class SampleJoiner {
public:
    struct Document {
        std::string text;
        size_t samples;  // number of samples, including the end sample
        bool isTooLarge; // the document is longer than MAX_DOCUMENT bytes, and `text` is truncated
    };
    static constexpr size_t MAX_DOCUMENT = 1048576; // bytes; the platform's DDS library rejects longer payloads

    // Appends a sample. Returns the document if the sample ends the document.
    std::optional<Document> Add(std::span<const uint8_t> sample);

private:
    Document m_document{};
};

} // namespace sim
