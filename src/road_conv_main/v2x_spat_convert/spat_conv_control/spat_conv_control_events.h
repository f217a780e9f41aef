// Converts journal entries to the events of the control socket. Private to the control socket.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <span>
#include <string>

#include "spat_conv_control.h"
#include "spat_conv_gate.h"
#include "v2x/v2xjournal.h"

// Returns the name of an e_v2xspatconv_source; null for every other value.
const char* v2xspatconv_NameOfSource(uint8_t source);

// Adds the member "phases".
void v2xspatconv_AddPhases(cJSON* object, std::span<const uint8_t> phases);

// Returns the line of a journal entry. `entry` is the head of the kind and what follows it.
std::string v2xspatconv_FormatEvent(v2x_journalKind kind, std::span<const uint8_t> entry);

// Return the line of a new state of the stack application or of the cloud. `wallTime` is in microseconds.
std::string v2xspatconv_FormatStackEvent(const v2xspatconv_peers_t& peers, uint64_t wallTime);
std::string v2xspatconv_FormatCloudEvent(const v2xspatconv_peers_t& peers, uint64_t wallTime);
