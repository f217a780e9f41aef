#include "cloud_pieces.h"

#include <algorithm>
#include <utility>

namespace sim {

std::vector<std::string> CutDocument(const std::string& text, size_t piece) {
    std::vector<std::string> pieces;
    const size_t most = piece == 0 ? text.size() : piece;
    for (size_t at = 0; at < text.size(); at += most) {
        pieces.push_back(text.substr(at, most));
    }
    if (text.size() % PIECE_SIZE == 0) {
        pieces.emplace_back(1, '\0');
    }
    return pieces;
}

std::optional<PieceAssembler::Document> PieceAssembler::Add(std::span<const uint8_t> sample) {
    std::string& text = m_document.text;
    ++m_document.pieces;
    const bool isEndAlone = sample.size() == 1 && sample[0] == 0 && text.size() % PIECE_SIZE == 0;
    if (!isEndAlone) {
        const size_t taken = std::min(sample.size(), MAX_DOCUMENT - text.size());
        text.append(sample.begin(), sample.begin() + static_cast<ptrdiff_t>(taken));
        m_document.isTooLarge = m_document.isTooLarge || taken < sample.size();
    }
    if (sample.size() >= PIECE_SIZE) {
        return std::nullopt;
    }
    return std::exchange(m_document, {});
}

} // namespace sim
