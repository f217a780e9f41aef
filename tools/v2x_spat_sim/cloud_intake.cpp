#include "cloud_intake.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "cloud_document.h"
#include "json.h"
#include "service_status.h"
#include "text.h"

namespace sim {
namespace {

JsonPtr LineObject(const std::string& topic, uint64_t time) {
    JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "topic", topic.c_str());
    AddUnsigned(object.get(), "receiveTime", time);
    return object;
}

// As it came where that is one line: its numbers keep their digits.
void AddDocument(cJSON* object, const std::string& text, JsonPtr parsed) {
    if (std::ranges::none_of(text, [](char byte) { return byte == '\n' || byte == '\r'; })) {
        cJSON_AddRawToObject(object, "document", text.c_str());
    } else {
        cJSON_AddItemToObject(object, "document", parsed.release());
    }
}

void AddStatus(cJSON* object, const ServiceStatus& status) {
    const std::pair<const char*, uint64_t> numbers[] = {
        {"service", status.service},   {"run", status.run},           {"sent", status.sent},
        {"lastSent", status.lastSent}, {"received", status.received}, {"lastReceived", status.lastReceived},
    };
    cJSON* const entry = cJSON_AddObjectToObject(object, "status");
    for (const auto& [key, number] : numbers) {
        AddUnsigned(entry, key, number);
    }
}

} // namespace

CloudIntake::CloudIntake(std::string documentTopic, std::string statusTopic, bool json)
    : m_documentTopic(std::move(documentTopic)), m_statusTopic(std::move(statusTopic)), m_json(json) {}

std::string CloudIntake::OnDocumentSample(std::span<const uint8_t> sample, uint64_t time) {
    const auto document = m_assembler.Add(sample);
    return document ? DocumentLine(*document, time) : "";
}

std::string CloudIntake::DocumentLine(const PieceAssembler::Document& document, uint64_t time) {
    JsonPtr parsed = document.isTooLarge ? nullptr : ParseDocument(document.text);
    const bool isGood = parsed != nullptr;
    ++(isGood ? m_good : m_bad);
    if (!m_json) {
        const std::string reading = isGood ? DocumentText(parsed.get()) : "no JSON document";
        return FormatText("%s  %zu bytes in %zu: %s", m_documentTopic.c_str(), document.text.size(), document.pieces,
                          reading.c_str());
    }
    const JsonPtr object = LineObject(m_documentTopic, time);
    AddUnsigned(object.get(), "bytes", document.text.size());
    AddUnsigned(object.get(), "pieces", document.pieces);
    if (isGood) {
        AddDocument(object.get(), document.text, std::move(parsed));
    } else {
        cJSON_AddStringToObject(object.get(), "refused", "no JSON document");
    }
    return JsonLine(object);
}

std::string CloudIntake::OnStatusSample(std::span<const uint8_t> sample, uint64_t time) {
    const auto status = ReadStatus(sample);
    ++(status ? m_statuses : m_badStatuses);
    if (!m_json) {
        const std::string reading =
            status ? StatusText(*status) : FormatText("%zu bytes are no status record", sample.size());
        return m_statusTopic + "  " + reading;
    }
    const JsonPtr object = LineObject(m_statusTopic, time);
    if (status) {
        AddStatus(object.get(), *status);
    } else {
        cJSON_AddStringToObject(object.get(), "refused", "no status record");
    }
    return JsonLine(object);
}

void CloudIntake::AddTo(Summary& summary) const {
    summary.text +=
        FormatText("%" PRIu64 " documents up (%" PRIu64 " good, %" PRIu64 " bad), %" PRIu64 " status records",
                   Documents(), m_good, m_bad, m_statuses);
    if (m_badStatuses != 0) {
        summary.text += FormatText(" and %" PRIu64 " samples that are none", m_badStatuses);
    }
    summary.numbers.insert(summary.numbers.end(), {{"up", Documents()},
                                                   {"upGood", m_good},
                                                   {"upBad", m_bad},
                                                   {"statusRecords", m_statuses},
                                                   {"statusBad", m_badStatuses}});
}

} // namespace sim
