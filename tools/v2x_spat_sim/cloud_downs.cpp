#include "cloud_downs.h"

#include <algorithm>
#include <cinttypes>

#include "cloud_damage.h"
#include "cloud_pieces.h"
#include "text.h"

namespace sim {
namespace {

PlanSource::Encode Encoder(Intersection intersection) {
    return [intersection](std::span<const PhaseLight> lights) {
        const std::string text = PlanDocument(lights, intersection);
        return std::vector<uint8_t>(text.begin(), text.end());
    };
}

struct KindName {
    const char* key;
    const char* text;
};
constexpr std::array<KindName, DOCUMENT_KINDS> KINDS = {{
    {"downGood", "good"},
    {"downSyntax", "wrong syntax"},
    {"downEmpty", "empty"},
    {"downTruncated", "truncated"},
    {"downOverflow", "too large"},
    {"downMissingKey", "missing key"},
    {"downWrongType", "wrong type"},
}};

} // namespace

CloudDowns::CloudDowns(const DownOptions& options, uint32_t seed)
    : m_options(options),
      m_plan(options.rate, options.phases, std::chrono::nanoseconds(0), Encoder(options.intersection)),
      m_damage(options.bad, std::max<size_t>(options.badKinds.size(), 1), seed) {}

std::chrono::nanoseconds CloudDowns::Due(std::chrono::nanoseconds now) {
    return m_plan.Due(now).value();
}

std::string CloudDowns::NextText() {
    const std::vector<uint8_t> plan = m_plan.Take();
    if (m_options.documents.empty()) {
        return {plan.begin(), plan.end()};
    }
    const std::string& text = m_options.documents[m_next];
    m_next = (m_next + 1) % m_options.documents.size();
    return text;
}

CloudDowns::Load CloudDowns::Take() {
    std::string text = NextText();
    const auto hit = m_damage.Next();
    const DocumentKind wanted = hit ? m_options.badKinds[hit->kind] : DocumentKind::good;
    const bool isDamaged = hit && DamageDocument(text, wanted, hit->random);
    return {CutDocument(text, m_options.fragment), isDamaged ? wanted : ClassifyDocument(text)};
}

void CloudDowns::Sent(const Load& load, bool isTaken) {
    if (!isTaken) {
        ++m_errors;
        return;
    }
    ++m_all;
    ++m_byKind[static_cast<size_t>(load.kind)];
}

void CloudDowns::AddTo(Summary& summary) const {
    std::string kinds;
    summary.numbers.emplace_back("down", m_all);
    for (size_t kind = 0; kind < DOCUMENT_KINDS; ++kind) {
        summary.numbers.emplace_back(KINDS[kind].key, m_byKind[kind]);
        if (m_byKind[kind] != 0) {
            kinds += FormatText("%s%" PRIu64 " %s", kinds.empty() ? " (" : ", ", m_byKind[kind], KINDS[kind].text);
        }
    }
    kinds += kinds.empty() ? "" : ")";
    summary.text += FormatText(", %" PRIu64 " documents down%s", m_all, kinds.c_str());
    summary.numbers.emplace_back("downBad", m_all - m_byKind[static_cast<size_t>(DocumentKind::good)]);
    summary.numbers.emplace_back("downErrors", m_errors);
    if (m_errors != 0) {
        summary.text += FormatText(", %" PRIu64 " refused by the library", m_errors);
    }
}

} // namespace sim
