// A sample's light by what sent it to the eye.
#pragma once

#include <cmath>

#include "host/render/air/brightness.h"

namespace ovhost {

/// What the first scattering of a path was: it says to which of a picture's light layers the path belongs.
/// kDirect before any.
enum class LightKind : unsigned char { kDirect, kDiffuse, kSpecular, kTransmission };

/// Light layers: together they are the picture.
struct LightLayers {
  trFCol diffuse;       ///< scattered by matt surfaces, on either side
  trFCol specular;      ///< mirrored, sharp or rough
  trFCol transmission;  ///< come through clear surfaces
  trFCol emission;      ///< sent out by the surface that is seen
  trFCol sky;           ///< from the air before it, and a sun's disc

  /// The layer of a scattering; light that was not scattered at all is the sky's.
  trFCol& Of(LightKind kind) {
    switch (kind) {
      case LightKind::kDiffuse:
        return diffuse;
      case LightKind::kSpecular:
        return specular;
      case LightKind::kTransmission:
        return transmission;
      case LightKind::kDirect:
        break;
    }
    return sky;
  }
  trFCol Sum() const { return diffuse + specular + transmission + emission + sky; }
};

/// What there is of a colour above nothing; NaN and infinity count as nothing.
inline trFCol PositivePart(const trFCol& c) {
  const auto part = [](float x) { return x > 0 && std::isfinite(x) ? x : 0.0f; };
  return {part(c.r), part(c.g), part(c.b)};
}

}  // namespace ovhost
