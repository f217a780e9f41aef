#include "message_tables.h"

#include <string_view>

#include "VehicleEmergencyExtensions.h"
#include "VehicleSafetyExtensions.h"
#include "table.h"
#include "value_text.h"

namespace msg {
namespace {

constexpr Unit STEERING{1.5, 1, 127};       // degrees
constexpr Unit ACCELERATION{0.01, 2, 2001}; // m/s2
constexpr Unit YAW_RATE{0.01, 2};           // degrees per second

constexpr std::string_view EVENTS[] = {"eventHazardLights",
                                       "eventStopLineViolation",
                                       "eventABSactivated",
                                       "eventTractionControlLoss",
                                       "eventStabilityControlactivated",
                                       "eventHazardousMaterials",
                                       "eventReserved1",
                                       "eventHardBraking",
                                       "eventLightsChanged",
                                       "eventWipersChanged",
                                       "eventFlatTire",
                                       "eventDisabledVehicle",
                                       "eventAirBagDeployment"};
static_assert(std::size(EVENTS) == VehicleEventFlags_eventAirBagDeployment + 1);

constexpr std::string_view LIGHTS[] = {"lowBeamHeadlightsOn",    "highBeamHeadlightsOn", "leftTurnSignalOn",
                                       "rightTurnSignalOn",      "hazardSignalOn",       "automaticLightControlOn",
                                       "daytimeRunningLightsOn", "fogLightOn",           "parkingLightsOn"};
static_assert(std::size(LIGHTS) == ExteriorLights_parkingLightsOn + 1);

std::string FormatPlaceAndMotion(const BasicSafetyMessage_t& bsm) {
    Table table({{"id", Align::left},
                 {"secMark(s)"},
                 {"position(deg)", Align::left},
                 {"elevation(m)"},
                 {"speed(m/s)"},
                 {"heading(deg)"},
                 {"size(m)", Align::left},
                 {"class"}});
    const PositionText place = FormatPosition(bsm.pos);
    table.Add({FormatHex(bsm.id), FormatNumber(&bsm.secMark, MILLISECONDS), place.position, place.elevation,
               FormatNumber(&bsm.speed, SPEED), FormatNumber(&bsm.heading, HEADING), FormatSize(bsm.size),
               FormatNumber(&bsm.vehicleClass.classification)});
    return table.Format();
}

std::string FormatControls(const BasicSafetyMessage_t& bsm) {
    Table table({{"transmission", Align::left},
                 {"steering(deg)"},
                 {"acceleration(m/s2)"},
                 {"lateral(m/s2)"},
                 {"yaw(deg/s)"},
                 {"brakePedal", Align::left},
                 {"abs", Align::left},
                 {"traction", Align::left},
                 {"stability", Align::left}});
    const BrakeSystemStatus_t& brakes = bsm.brakes;
    table.Add({FormatEnumerated(asn_DEF_TransmissionState, &bsm.transmission), FormatNumber(bsm.angle, STEERING),
               FormatNumber(&bsm.accelSet.Long, ACCELERATION), FormatNumber(&bsm.accelSet.lat, ACCELERATION),
               FormatNumber(&bsm.accelSet.yaw, YAW_RATE), FormatEnumerated(asn_DEF_BrakePedalStatus, brakes.brakePadel),
               FormatEnumerated(asn_DEF_AntiLockBrakeStatus, brakes.abs),
               FormatEnumerated(asn_DEF_TractionControlStatus, brakes.traction),
               FormatEnumerated(asn_DEF_StabilityControlStatus, brakes.scs)});
    return table.Format();
}

std::string FormatExtensions(const BasicSafetyMessage_t& bsm) {
    std::string text;
    if (bsm.safetyExt != nullptr) {
        text += "  events: " + FormatBits(bsm.safetyExt->events, EVENTS) +
                "\n  lights: " + FormatBits(bsm.safetyExt->lights, LIGHTS) + "\n";
    }
    if (const VehicleEmergencyExtensions_t* const emergency = bsm.emergencyExt; emergency != nullptr) {
        text += "  emergency: response " + FormatEnumerated(asn_DEF_ResponseType, emergency->responseType) +
                ", siren " + FormatEnumerated(asn_DEF_SirenInUse, emergency->sirenUse) + ", lights " +
                FormatEnumerated(asn_DEF_LightbarInUse, emergency->lightsUse) + "\n";
    }
    return text;
}

} // namespace

std::string FormatBsm(const BasicSafetyMessage_t& bsm) {
    return FormatPlaceAndMotion(bsm) + FormatControls(bsm) + FormatExtensions(bsm);
}

} // namespace msg
