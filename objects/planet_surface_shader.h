// planet_surface_shader: the old all-in-one globe, kept so that its projects load.
#pragma once

#include "core/shader.h"
#include "objects/planet_height.h"

class PlanetSurfaceShader : public trSurfaceShader {
 public:
  PlanetSurfaceShader();
  /// Moves the point along Ng to the ground, or to the sea where that is higher.
  long Displace(trShadingInterface& si) override;
  /// A Lambert surface of the colour that the input left. The globe's own colours are stored and have never
  /// reached the picture.
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 1; }

 private:
  void DeclareColourRegions();
  void DeclareShape();

  PlanetHeightParams height_;
  trManRgb lowlandColour_, rockyLowlandColour_, highlandColour_, rockyHighlandColour_, snowColour_,
      ambientLightColour_, oceanSkyReflection_;
  trManRgb oceanDecayColour_;
  double highlandAltitude_, highlandFuzziness_, snowline_, snowlineFuzziness_;
  double oceanIndexOfRefraction_, oceanDecayDistance_, oceanDecayPower_;
};
