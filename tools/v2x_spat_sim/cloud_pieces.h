// Documents as they travel on a topic: in samples of at most 1024 bytes, the last one shorter. A document whose size is
// a multiple of 1024 is followed by a sample of one byte holding 0, which ends it and is no part of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sim {

inline constexpr size_t PIECE_SIZE = 1024;

// What is to be published for a document, in order: `piece` bytes at a time, or all at once when that is 0 (the unit's
// library cuts it then), and the sample that ends it where that is needed. An empty document is that sample alone.
std::vector<std::string> CutDocument(const std::string& text, size_t piece);

// Puts the samples of one topic together. One thread at a time.
class PieceAssembler {
public:
    struct Document {
        std::string text;
        size_t pieces;   // samples, with the one that ends it
        bool isTooLarge; // the text is the first MAX_DOCUMENT bytes alone
    };
    static constexpr size_t MAX_DOCUMENT = 1048576; // what the unit's library takes at a time

    // One more sample; the document when that is the last one of it.
    std::optional<Document> Add(std::span<const uint8_t> sample);

private:
    Document m_document{};
};

} // namespace sim
