// What the parts of a frame are like to light: found out before the render by asking points of them.
#pragma once

#include <vector>

#include "host/render/shade/lit_scene.h"

namespace ovhost {

/// Sets, for each of the parts, whether shadow rays have to look at it and whether some of its points may be
/// plain. Returns whether shadow rays have to look at any. Ends soon once the scene's render is to stop.
/// After shaders were started.
bool ClassifyParts(LitScene& scene, const std::vector<SurfacePart*>& parts);

}  // namespace ovhost
