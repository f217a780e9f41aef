// Network settings of a participant: unicast UDP on 127.0.0.1. They do not depend on files or environment variables.
#pragma once

#include <cstdint>
#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>

// The only address that participants use.
inline constexpr char V2XDDS_ADDRESS[] = "127.0.0.1";
// Highest domain whose ports are below 65536. The ports of a domain start at 7400 + 250 * domain (RTPS 2.3, 9.6.1).
inline constexpr int32_t V2XDDS_DOMAIN_MAX = 232;

// Returns the attributes of a participant that listens on the lowest free port pair out of the 32 pairs of the domain.
// `domain` is 0 to V2XDDS_DOMAIN_MAX. Throws std::runtime_error if all pairs are in use or if a port cannot be checked.
// With its default attributes Fast DDS would assign a new port pair to every participant of a process, and would create
// a participant without ports if no pair is free.
eprosima::fastrtps::rtps::RTPSParticipantAttributes v2xdds_ParticipantAttributes(int32_t domain);
