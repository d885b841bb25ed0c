// Links of a tree looked up.
#pragma once

#include <cstdint>

#include "core/node.h"

namespace ovhost {

/// Counts up whenever any tree or link changes. Thread-safe.
std::uint32_t GraphGeneration();
void BumpGraphGeneration();

/// Looks every link of the tree up now, so that render threads only read.
OV_API void ResolveAllLinks(trBase* root);

}  // namespace ovhost
