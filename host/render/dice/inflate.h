// Particles of other kinds than plain copies, as triangles.
#pragma once

#include <memory>

#include "core/render_state.h"
#include "core/scene.h"

namespace ovhost {

/// Has every element of a scene's particles inflated into one scene of triangles in the world, each with its
/// particle's table index as its part. `view` is what elements far away are thinned out for.
std::unique_ptr<trScene> InflateParticles(const trScene& particles, const trView& view, std::uint64_t seed);

}  // namespace ovhost
