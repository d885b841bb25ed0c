// What single scattering between the facets of a rough interface loses, and how lobes get it back.
#pragma once

#include "core/bsdf.h"
#include "host/render/shade/albedo_tables.h"

namespace ovhost {

/// A specular lobe's energy as one viewer has it. Light that an opaque interface's facets pass to each other
/// leaves as a second, broad lobe, tinted by each further reflection (Kulla and Conty, Revisiting Physically
/// Based Shading at Imageworks, 2017); where it could as well go through the interface, reflection and
/// transmission grow alike until they add up to one. A value type; thread-safe.
class LobeEnergy {
 public:
  /// `cosV` is the viewer's at the lobe's normal.
  LobeEnergy(const trLobe& lobe, double cosV);

  /// All that the lobe sends to the viewer of light from all round; the part of it of the broad lobe; and of
  /// a reflection what is left for layers beneath.
  trFCol albedo, broad, beneath;
  trFCol gain{1.0f};  ///< of what facets reflect or transmit at once
  /// Pi times the broad lobe for light at a cosine.
  trFCol Broad(double cosL) const { return broadScale_ * (1 - albedos_.White(cosL)); }

 private:
  InterfaceAlbedo albedos_;
  trFCol broadScale_;
};

}  // namespace ovhost
