// Who beeps.
#pragma once

#include "core/console.h"

namespace ovhost {

/// Beeps by other means than the terminal's bell (applications, tests); null restores. Calls are serialised.
/// Thread-safe.
using Beeper = void (*)(void* context);
OV_API void SetBeeper(Beeper beeper, void* context);

}  // namespace ovhost
