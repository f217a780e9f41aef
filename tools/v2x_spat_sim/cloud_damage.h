// Damage to cloud SPAT documents.
#pragma once

#include <cstdint>
#include <string>

#include "cloud_document.h"

namespace sim {

// Makes a good document one of `kind`; `random` chooses among the many ways to do so. Returns false, and leaves the
// document alone, when it is not good or when `kind` is good. A document of several intersections is damaged in all of
// them, so that the daemon makes no record of it.
bool DamageDocument(std::string& text, DocumentKind kind, uint32_t random);

} // namespace sim
