#include "message_tables.h"

#include "ParticipantData.h"
#include "VehicleClassification.h"
#include "table.h"
#include "value_text.h"

namespace msg {
namespace {

void AddParticipant(const ParticipantData_t& participant, const Position3D_t& reference, Table& table) {
    const PositionText place = FormatPosition(&participant.pos, reference);
    const VehicleClassification_t* const vehicle = participant.vehicleClass;
    table.Add({FormatNumber(&participant.ptcId), FormatEnumerated(asn_DEF_ParticipantType, &participant.ptcType),
               FormatEnumerated(asn_DEF_SourceType, &participant.source),
               participant.id == nullptr ? "-" : FormatHex(*participant.id),
               FormatNumber(&participant.secMark, MILLISECONDS), place.position, place.elevation,
               FormatNumber(&participant.speed, SPEED), FormatNumber(&participant.heading, HEADING),
               FormatSize(participant.size), FormatNumber(vehicle == nullptr ? nullptr : &vehicle->classification)});
}

} // namespace

std::string FormatRsm(const RoadsideSafetyMessage_t& rsm) {
    Table table({{"ptcId"},
                 {"type", Align::left},
                 {"source", Align::left},
                 {"id", Align::left},
                 {"secMark(s)"},
                 {"position(deg)", Align::left},
                 {"elevation(m)"},
                 {"speed(m/s)"},
                 {"heading(deg)"},
                 {"size(m)", Align::left},
                 {"class"}});
    for (const ParticipantData_t* participant : Items(&rsm.participants)) {
        AddParticipant(*participant, rsm.refPos, table);
    }
    return "id " + FormatHex(rsm.id) + "  " + FormatPlace(rsm.refPos) + "\n" + table.Format();
}

} // namespace msg
