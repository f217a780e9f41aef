// The configuration of benchmarks that link the daemon's modules.
#pragma once

#include <initializer_list>

// Registers the log tags at their default level, then loads a configuration with this device id, node 2 and region 1.
// Returns false if loading fails.
bool loadConfiguration(const char* device, std::initializer_list<const char*> logTags);
