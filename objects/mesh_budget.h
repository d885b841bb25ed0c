// What a generator refuses to make, before it makes it.
#pragma once

#include <cstdint>

#include "core/node.h"

/// Whether there is room for `count` pieces of so many bytes, of so many triangles each. Otherwise an error
/// of `node` that tells the number and the budget; `what` is what the pieces are called. More than the
/// largest number counts as that.
bool FitsMeshBudget(const trBase& node, double count, const char* what, std::uint64_t bytes,
                    double trianglesEach);
