#include "message_tables.h"

#include "Description.h"
#include "RSITimeDetails.h"
#include "RTEData.h"
#include "RTSData.h"
#include "ReferenceLinkList.h"
#include "ReferencePathList.h"
#include "table.h"
#include "value_text.h"

namespace msg {
namespace {

std::string FormatDescription(const Description_t* description) {
    if (description == nullptr || description->present == Description_PR_NOTHING) {
        return "-";
    }
    return description->present == Description_PR_textString ? FormatQuoted(description->choice.textString)
                                                             : FormatGb2312(description->choice.textGB2312);
}

// Returns the cells that events and signs share.
template <typename Data>
Cells FormatShared(const Data& data, const PositionOffsetLLV_t* offset, const Position3D_t& reference) {
    const PositionText place = FormatPosition(offset, reference);
    const RSITimeDetails_t* const times = data.timeDetails;
    return {place.position,
            place.elevation,
            FormatDay(times == nullptr ? nullptr : times->startTime),
            FormatDay(times == nullptr ? nullptr : times->endTime),
            data.priority == nullptr ? "-" : FormatHex(*data.priority),
            std::to_string(Items(data.referencePaths).size()) + "/" + std::to_string(Items(data.referenceLinks).size()),
            FormatDescription(data.description)};
}

void AddRow(Cells row, const Cells& shared, Table& table) {
    row.insert(row.end(), shared.begin(), shared.end());
    table.Add(std::move(row));
}

} // namespace

std::string FormatRsi(const RoadSideInformation_t& rsi) {
    Table table({{"kind", Align::left},
                 {"id"},
                 {"type"},
                 {"source", Align::left},
                 {"radius(m)"},
                 {"confidence%"},
                 {"position(deg)", Align::left},
                 {"elevation(m)"},
                 {"start", Align::left},
                 {"end", Align::left},
                 {"priority"},
                 {"paths/links"},
                 {"description", Align::left}});
    for (const RTEData_t* event : Items(rsi.rtes)) {
        AddRow({"event", FormatNumber(&event->rteId), FormatNumber(&event->eventType),
                FormatEnumerated(asn_DEF_EventSource, &event->eventSource), FormatNumber(event->eventRadius, RADIUS),
                FormatNumber(event->eventConfidence, CONFIDENCE)},
               FormatShared(*event, event->eventPos, rsi.refPos), table);
    }
    for (const RTSData_t* sign : Items(rsi.rtss)) {
        AddRow({"sign", FormatNumber(&sign->rtsId), FormatNumber(&sign->signType), "-", "-", "-"},
               FormatShared(*sign, sign->signPos, rsi.refPos), table);
    }
    return "moy " + FormatMinute(rsi.moy) + "  id " + FormatHex(rsi.id) + "  " + FormatPlace(rsi.refPos) + "\n" +
           table.Format();
}

} // namespace msg
