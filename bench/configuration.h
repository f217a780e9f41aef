// A configuration for benchmarks of the daemon's modules.
#pragma once

#include <initializer_list>

// Loads a configuration with this identity, node 2 and region 1, as the daemon would; the log has these tags at their
// usual level. False when it cannot be loaded.
bool loadConfiguration(const char* device, std::initializer_list<const char*> logTags);
