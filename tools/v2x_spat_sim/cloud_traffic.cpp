#include "cloud_traffic.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <utility>

#include "text.h"

namespace sim {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the bytes of numbers are copied from memory without a swap");

constexpr size_t STATUS_SIZE = 26;

// Calls `visit` with each number of the status, in the order on the wire.
template <typename Status, typename Visit>
void VisitNumbers(Status& status, Visit visit) {
    visit(status.service);
    visit(status.run);
    visit(status.sent);
    visit(status.lastSent);
    visit(status.received);
    visit(status.lastReceived);
}

std::string FormatName(std::span<const char* const> names, const char* what, uint8_t number) {
    const bool isKnown = number < names.size() && names[number] != nullptr;
    return isKnown ? names[number] : FormatText("%s %u", what, number);
}

JsonPtr MakeLineObject(const std::string& topic, uint64_t time) {
    JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "topic", topic.c_str());
    AddNumber(object.get(), "receiveTime", time);
    return object;
}

// Copies a document of one line unchanged, so that its numbers keep all digits.
void AddDocument(cJSON* object, const std::string& text, JsonPtr parsed) {
    if (text.find_first_of("\r\n") == std::string::npos) {
        cJSON_AddRawToObject(object, "document", text.c_str());
    } else {
        cJSON_AddItemToObject(object, "document", parsed.release());
    }
}

void AddStatus(cJSON* object, const ServiceStatus& status) {
    cJSON* const entry = cJSON_AddObjectToObject(object, "status");
    AddNumber(entry, "service", status.service);
    AddNumber(entry, "run", status.run);
    AddNumber(entry, "sent", status.sent);
    AddNumber(entry, "lastSent", status.lastSent);
    AddNumber(entry, "received", status.received);
    AddNumber(entry, "lastReceived", status.lastReceived);
}

PlanSource::Encode MakeEncoder(Intersection intersection) {
    return [intersection](std::span<const PhaseLight> lights) {
        const std::string text = PlanDocument(lights, intersection);
        return std::vector<uint8_t>(text.begin(), text.end());
    };
}

} // namespace

std::string EncodeStatus(const ServiceStatus& status) {
    std::string bytes;
    VisitNumbers(status, [&](auto number) {
        char copy[sizeof number];
        std::memcpy(copy, &number, sizeof number);
        bytes.append(copy, sizeof number);
    });
    return bytes;
}

std::optional<ServiceStatus> ReadStatus(std::span<const uint8_t> bytes) {
    if (bytes.size() != STATUS_SIZE) {
        return std::nullopt;
    }
    ServiceStatus status;
    VisitNumbers(status, [&](auto& number) {
        std::memcpy(&number, bytes.data(), sizeof number);
        bytes = bytes.subspan(sizeof number);
    });
    return status;
}

std::string FormatStatus(const ServiceStatus& status) {
    constexpr const char* SERVICES[] = {nullptr, "MAP", "SPAT", "RSI", "RSM", "cloud"};
    constexpr const char* RUNS[] = {nullptr, "available", "unavailable"};
    return FormatText("%s %s, %" PRIu32 " sent, %" PRIu32 " received",
                      FormatName(SERVICES, "service", status.service).c_str(),
                      FormatName(RUNS, "run status", status.run).c_str(), status.sent, status.received);
}

UpReader::UpReader(std::string documentTopic, std::string statusTopic, bool json)
    : m_documentTopic(std::move(documentTopic)), m_statusTopic(std::move(statusTopic)), m_json(json) {}

std::string UpReader::OnDocumentSample(std::span<const uint8_t> sample, uint64_t time) {
    const auto document = m_joiner.Add(sample);
    return document ? DocumentLine(*document, time) : "";
}

std::string UpReader::DocumentLine(const SampleJoiner::Document& document, uint64_t time) {
    JsonPtr parsed = document.isTooLarge ? nullptr : ParseDocument(document.text);
    const bool isGood = parsed != nullptr;
    ++(isGood ? m_good : m_bad);
    if (!m_json) {
        const std::string reading = isGood ? FormatDocument(parsed.get()) : "not a JSON document";
        return FormatText("%s  %zu bytes in %zu samples: %s", m_documentTopic.c_str(), document.text.size(),
                          document.samples, reading.c_str());
    }
    const JsonPtr object = MakeLineObject(m_documentTopic, time);
    AddNumber(object.get(), "bytes", document.text.size());
    AddNumber(object.get(), "pieces", document.samples);
    if (isGood) {
        AddDocument(object.get(), document.text, std::move(parsed));
    } else {
        cJSON_AddStringToObject(object.get(), "refused", "not a JSON document");
    }
    return JsonLine(object);
}

std::string UpReader::OnStatusSample(std::span<const uint8_t> sample, uint64_t time) {
    const auto status = ReadStatus(sample);
    ++(status ? m_statuses : m_badStatuses);
    if (!m_json) {
        return m_statusTopic + "  " +
               (status ? FormatStatus(*status) : FormatText("not a status record: %zu bytes", sample.size()));
    }
    const JsonPtr object = MakeLineObject(m_statusTopic, time);
    if (status) {
        AddStatus(object.get(), *status);
    } else {
        cJSON_AddStringToObject(object.get(), "refused", "not a status record");
    }
    return JsonLine(object);
}

Summary UpReader::MakeSummary() const {
    Summary summary(
        FormatText("%" PRIu64 " documents up (%" PRIu64 " good, %" PRIu64 " bad)", Documents(), m_good, m_bad));
    summary.Add("up", Documents());
    summary.Add("upGood", m_good);
    summary.Add("upBad", m_bad);
    summary.Add("statusRecords", m_statuses, "status records");
    summary.AddIfAny("statusBad", m_badStatuses, "invalid status records");
    return summary;
}

DownSource::DownSource(const DownOptions& options, uint32_t seed)
    : m_options(options),
      m_plan(options.rate, options.phases, std::chrono::nanoseconds(static_cast<int64_t>(options.start * 1e9)),
             MakeEncoder(options.intersection), options.faults),
      m_damage(options.damage, seed) {}

std::chrono::nanoseconds DownSource::DueTime(std::chrono::nanoseconds now) {
    return m_plan.DueTime(now).value();
}

std::optional<std::string> DownSource::NextText() {
    const std::vector<uint8_t> plan = m_plan.TakeNext();
    if (m_options.documents.empty()) {
        return plan.empty() ? std::nullopt : std::optional(std::string(plan.begin(), plan.end()));
    }
    const std::string& text = m_options.documents[m_next];
    m_next = (m_next + 1) % m_options.documents.size();
    return text;
}

DownSource::Publication DownSource::TakeNext() {
    std::optional<std::string> next = NextText();
    if (!next) {
        return {{}, DocumentKind::good};
    }
    std::string& text = *next;
    const auto hit = m_damage.Next();
    const DocumentKind wanted = hit ? static_cast<DocumentKind>(hit->kind) : DocumentKind::good;
    const bool isDamaged = hit && DamageDocument(text, wanted, hit->random);
    return {CutDocument(text, m_options.fragmentSize), isDamaged ? wanted : ClassifyDocument(text)};
}

void DownSource::CountSent(const Publication& publication, bool isPublished) {
    if (isPublished) {
        m_kinds.Add(publication.kind);
    } else {
        ++m_errors;
    }
}

void DownSource::AddCounts(Summary& summary) const {
    summary.Add("down", Total(), "documents down" + m_kinds.Text());
    m_kinds.AddNumbers(summary);
    summary.Add("downBad", Total() - m_kinds.Good());
    summary.AddIfAny("downErrors", m_errors, "rejected by the DDS library");
}

} // namespace sim
