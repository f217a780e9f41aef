// How a participant reaches its peers: UDP on one loop-back address, unicast alone, no file or environment asked.
#pragma once

#include <cstdint>
#include <fastdds/rtps/attributes/RTPSParticipantAttributes.h>
#include <string>

// The highest domain whose ports exist (RTPS 2.3, 9.6.1: port 7400 + 250 * domain and on).
inline constexpr int32_t V2XDDS_DOMAIN_MAX = 232;

// Whether it is the IPv4 address of a loop-back interface of this machine.
bool v2xdds_IsLoopback(const char* address);

// The number of a participant, 0 to 31, which says at which pair of ports it listens: the lowest whose pair is free and
// that no other participant of this process has. The library by itself goes on counting, and would leave the ports that
// peers look at; where it finds no port it runs without, and nobody hears of it. Given back at the end.
class v2xdds_number {
public:
    // Throws std::runtime_error when all are taken, or no socket can be had to look.
    v2xdds_number(const std::string& address, int32_t domain);
    ~v2xdds_number();
    v2xdds_number(const v2xdds_number&) = delete;
    v2xdds_number& operator=(const v2xdds_number&) = delete;
    int32_t Value() const { return m_value; }

private:
    int32_t m_value;
};

// The settings of a participant on this address. Throws std::runtime_error when the system has no random numbers.
eprosima::fastrtps::rtps::RTPSParticipantAttributes v2xdds_ParticipantAttributes(const std::string& address,
                                                                                 const v2xdds_number& number);
