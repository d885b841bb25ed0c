// Indirect light at vertices of diced surfaces, worked out once for all samples near them.
#pragma once

#include "core/colour.h"
#include "core/vector.h"
#include "host/base/shared_table.h"

namespace ovhost {

/// Light that a point of a surface receives from everything but suns, for normals near one normal.
struct CachedLight {
  trFCol even;      ///< mean over the hemisphere, by cosine: what a white surface sends back
  trFCol along[3];  ///< the same from all directions times the direction, by x, y and z

  /// For another normal of the same point: half way between light that comes from all round, which doesn't
  /// care, and light from where most of it comes from. Exact for an even dome of light above the horizon.
  trFCol For(const trVector& normal) const {
    trFCol light = even * 0.5f;
    for (int i = 0; i < 3; ++i) light += along[i] * static_cast<float>(0.5 * normal[i]);
    for (int c = 0; c < 3; ++c) light[c] = light[c] > 0.1f * even[c] ? light[c] : 0.1f * even[c];
    return light;
  }
};

/// The table that all threads share.
using LightCache = SharedTable<CachedLight>;

}  // namespace ovhost
