// How finely what is copied is diced.
#pragma once

#include "host/render/parts/assembly.h"

namespace ovhost {

/// Sets how finely prototypes are diced: as their nearest copies ask for, within reason.
void FindFinestEdges(const Assembly& parts, SharedParts& shared, double edgePixels);

}  // namespace ovhost
