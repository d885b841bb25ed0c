// Animated parameters.
#pragma once

#include "core/node.h"

namespace ovhost {

/// Updates every animated parameter of the tree to `frame`.
OV_API void UpdateAnimation(trBase* root, double frame);

}  // namespace ovhost
