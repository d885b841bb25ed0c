// The sun.
#pragma once

#include "core/node.h"

/// Parallel light from a disc in the sky. x is east, y up, z north.
class OV_API trSunlightNode : public trBase {
 public:
  trSunlightNode();

  bool IsEnabled() const { return enable_ != 0; }
  /// Unit vector towards the sun.
  trVector Direction() const;
  /// Radiance that a white diffuse surface facing the sun gives off.
  trFCol Radiance() const { return colour_.ToRender() * static_cast<float>(strength_); }
  double AngularRadius() const;  ///< radians
  bool CastsShadows() const { return castShadows_ != 0; }
  bool GlowsInAtmosphere() const { return glowInAtmosphere_ != 0; }
  bool HasVisibleDisc() const { return visibleDisc_ != 0; }

 private:
  trDoubleHint headingHint_, elevationHint_, strengthHint_, diameterHint_;
  unsigned char enable_, castShadows_, glowInAtmosphere_, visibleDisc_;
  double heading_, elevation_, strength_, angularDiameter_;
  trManRgb colour_;
};
