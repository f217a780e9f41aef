#include "message_tables.h"

#include <string_view>

#include "ConnectingLane.h"
#include "ConnectsToList.h"
#include "Lane.h"
#include "LaneAttributes.h"
#include "Link.h"
#include "LinkList.h"
#include "Movement.h"
#include "MovementList.h"
#include "Node.h"
#include "PointList.h"
#include "RegulatorySpeedLimit.h"
#include "SpeedLimitList.h"
#include "table.h"
#include "value_text.h"

namespace msg {
namespace {

constexpr std::string_view MANEUVERS[] = {"straight",      "left",           "right",      "uTurn",
                                          "leftTurnOnRed", "rightTurnOnRed", "laneChange", "noStopping",
                                          "yield",         "goWithHalt",     "caution",    "reserved1"};
static_assert(std::size(MANEUVERS) == AllowedManeuvers_reserved1 + 1);

std::string FormatLaneType(const LaneAttributes_t* attributes) {
    if (attributes == nullptr) {
        return "-";
    }
    const LaneTypeAttributes_PR present = attributes->laneType.present;
    const bool isKnown = present > 0 && present <= asn_DEF_LaneTypeAttributes.elements_count;
    return isKnown ? asn_DEF_LaneTypeAttributes.elements[present - 1].name : "unknown";
}

std::string FormatLimits(const SpeedLimitList_t* limits) {
    std::string text;
    for (const RegulatorySpeedLimit_t* limit : Items(limits)) {
        AppendItem(FormatEnumerated(asn_DEF_SpeedLimitType, &limit->type) + " " + FormatNumber(&limit->speed, SPEED),
                   text);
    }
    return text.empty() ? "-" : text;
}

std::string FormatMovements(const MovementList_t& movements) {
    std::string text;
    for (const Movement_t* movement : Items(&movements)) {
        AppendItem(FormatNode(movement->remoteIntersection) + " phase " + FormatNumber(movement->phaseId), text);
    }
    return text;
}

// Returns the cells of node, lane, phase and maneuvers.
Cells FormatConnection(const Connection_t& connection) {
    const ConnectingLane_t* const lane = connection.connectingLane;
    return {FormatNode(connection.remoteIntersection), FormatNumber(lane == nullptr ? nullptr : &lane->lane),
            FormatNumber(connection.phaseId), FormatBits(lane == nullptr ? nullptr : lane->maneuver, MANEUVERS)};
}

// Only the row of the first connection shows the lane's own values. The limits are the last column.
void AddLane(const Lane_t& lane, Table& table) {
    Cells own{FormatNumber(&lane.laneID),
              FormatLaneType(lane.laneAttributes),
              FormatNumber(lane.laneWidth, CENTIMETRES),
              std::to_string(Items(lane.points).size()),
              FormatBits(lane.maneuvers, MANEUVERS),
              FormatLimits(lane.speedLimits)};
    const auto addRow = [&](const Cells& connection) {
        Cells row = own;
        row.insert(row.end() - 1, connection.begin(), connection.end());
        table.Add(std::move(row));
        own.assign(own.size(), "");
    };
    for (const Connection_t* connection : Items(lane.connectsTo)) {
        addRow(FormatConnection(*connection));
    }
    if (Items(lane.connectsTo).empty()) {
        addRow({"-", "-", "-", "-"});
    }
}

std::string FormatName(const DescriptiveName_t* name) {
    return name == nullptr ? "" : "  name " + FormatQuoted(*name);
}

std::string FormatLink(const Link_t& link) {
    Table table({{"lane"},
                 {"type", Align::left},
                 {"width(m)"},
                 {"points"},
                 {"maneuvers", Align::left},
                 {"to node", Align::left},
                 {"to lane"},
                 {"phase"},
                 {"to maneuvers", Align::left},
                 {"limits(m/s)", Align::left}});
    for (const Lane_t* lane : Items(&link.lanes)) {
        AddLane(*lane, table);
    }
    std::string text = "link from " + FormatNode(link.upstreamNodeId) + "  width(m) " +
                       FormatNumber(link.linkWidth, CENTIMETRES) + "  points " +
                       std::to_string(Items(link.points).size()) + FormatName(link.name) + "\n";
    if (link.speedLimits != nullptr) {
        text += "  limits(m/s): " + FormatLimits(link.speedLimits) + "\n";
    }
    if (link.movements != nullptr) {
        text += "  movements: " + FormatMovements(*link.movements) + "\n";
    }
    return text + table.Format();
}

} // namespace

std::string FormatMap(const MapData_t& map) {
    std::string text = "timeStamp " + FormatMinute(map.timeStamp) + "\n";
    for (const Node_t* node : Items(&map.nodes)) {
        text += "node " + FormatNode(node->id) + "  " + FormatPlace(node->refPos) + FormatName(node->name) + "\n";
        for (const Link_t* link : Items(node->inLinks)) {
            text += FormatLink(*link);
        }
    }
    return text;
}

} // namespace msg
