// Copies samples to the journal.
#pragma once

#include <cstdint>
#include <span>
#include <string>

// Copies the octets of a sample that a writer has sent, or a reader delivers, to the journal, if samples are selected.
// Any thread.
void v2xdds_Tap(const std::string& topic, bool isSent, std::span<const uint8_t> octets);
