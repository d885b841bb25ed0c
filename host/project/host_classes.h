// The node classes of the host itself.
#pragma once

#include "core/api.h"

namespace ovhost {

/// Registers the host's own node classes, once.
OV_API void RegisterHostClasses();

}  // namespace ovhost
