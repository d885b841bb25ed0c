// The sun's parameters.
#include "host/project/sunlight.h"

#include "core/idioms.h"

trSunlightNode::trSunlightNode() {
  DeclareTrue("is_sunlight");
  DeclareTrue("is_light");
  SetRange(headingHint_, this, {.min = 0, .max = 360});
  SetRange(elevationHint_, this, {.min = -90, .max = 90});
  SetRange(strengthHint_, this, {.min = 0, .max = 20});
  SetRange(diameterHint_, this, {.min = 0, .max = 10});
  Param(enable_, "enable", 1);
  // Degrees clockwise from north, seen from above.
  Param(heading_, "heading", 135.0, &headingHint_);
  Param(elevation_, "elevation", 30.0, &elevationHint_);
  Param(colour_, "colour", trRgbLinear709(1.0f));
  Param(strength_, "strength", 2.0, &strengthHint_);
  // The sun from the earth's mean distance: 0.533 degrees.
  Param(angularDiameter_, "angular_diameter", 0.533, &diameterHint_);
  Param(castShadows_, "cast_shadows", 1);
  Param(glowInAtmosphere_, "glow_in_atmosphere", 1);
  Param(visibleDisc_, "visible_disc", 1);
}

trVector trSunlightNode::Direction() const {
  const double heading = heading_ * kDegreesToRadians, elevation = elevation_ * kDegreesToRadians;
  return Normalised({std::sin(heading) * std::cos(elevation), std::sin(elevation),
                     std::cos(heading) * std::cos(elevation)});
}

double trSunlightNode::AngularRadius() const {
  return std::clamp(angularDiameter_, 0.0, 90.0) * 0.5 * kDegreesToRadians;
}
