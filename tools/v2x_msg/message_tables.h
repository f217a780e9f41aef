// Formats the content of each type of message as lines of text. value_text.h formats the values.
#pragma once

#include <string>

#include "v2x/v2xmsgset.h"

namespace msg {

// The vehicle's position and motion, its brakes, and events and lights if present.
std::string FormatBsm(const BasicSafetyMessage_t& bsm);

// Each node with its links. Each link has its movements, and a row for each connection of each lane.
std::string FormatMap(const MapData_t& map);

// A row for each participant.
std::string FormatRsm(const RoadsideSafetyMessage_t& rsm);

// Each intersection with its time and status, and a row for each state of each phase. Times are in seconds.
std::string FormatSpat(const SPAT_t& spat);

// A row for each event and each sign.
std::string FormatRsi(const RoadSideInformation_t& rsi);

} // namespace msg
