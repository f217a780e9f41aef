// How a participant reaches its peers: UDP on one loop-back address, unicast alone, no file or environment asked.
#pragma once

#include <cstdint>
#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>
#include <string>

// The highest domain whose ports exist (RTPS 2.3, 9.6.1: port 7400 + 250 * domain and on).
inline constexpr int32_t V2XDDS_DOMAIN_MAX = 232;

// Whether it is the IPv4 address of a loop-back interface of this machine.
bool v2xdds_IsLoopback(const char* address);

// The settings of a participant on this address.
eprosima::fastrtps::rtps::RTPSParticipantAttributes v2xdds_ParticipantAttributes(const std::string& address);
