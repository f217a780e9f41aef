// How a participant reaches its peers: UDP on 127.0.0.1, unicast only, no settings from files or environment.
#pragma once

#include <cstdint>
#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>

// The only address that participants use.
inline constexpr char V2XDDS_ADDRESS[] = "127.0.0.1";
// The highest domain whose ports exist (RTPS 2.3, 9.6.1: from port 7400 + 250 * domain on).
inline constexpr int32_t V2XDDS_DOMAIN_MAX = 232;

// The settings of a participant. It listens on the lowest free pair of ports, out of the 32 pairs that peers probe. By
// default Fast DDS takes a new pair for every participant of a process, and runs without ports if it finds none. Throws
// std::runtime_error if all pairs are taken or no socket can be created to probe them.
eprosima::fastrtps::rtps::RTPSParticipantAttributes v2xdds_ParticipantAttributes(int32_t domain);
