// A frame's diced surfaces as one mesh.
#pragma once

#include "core/micro_handler.h"
#include "host/render/parts/assembly.h"

namespace ovhost {

/// What of the parts is diced and seen by the camera. Where patches meet, their points are the same to the
/// bit, and become one; triangles that are none are left out. Throws std::bad_alloc, also where there are
/// more points than indices.
OV_API trMicroSurface CollectMicroSurface(const Assembly& parts);

}  // namespace ovhost
