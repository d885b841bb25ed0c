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
  Param(enable_, "enable", 1).About("Whether this sun shines.");
  Param(heading_, "heading", 135.0, &headingHint_)
      .About(
          "Compass direction in which the sun stands, degrees clockwise from north: 90 is east, 180 south.");
  Param(elevation_, "elevation", 30.0, &elevationHint_)
      .About(
          "Height over the horizon, degrees: 90 is overhead, a few give long shadows and red light, below 0 "
          "it has set.");
  Param(colour_, "colour", trRgbLinear709(1.0f))
      .About(
          "Colour of the sunlight before the air changes it. A low sun becomes red by the atmosphere alone.");
  Param(strength_, "strength", 2.0, &strengthHint_)
      .About(
          "Radiance of a white matt surface that faces the sun, outside of the air. The render node's "
          "exposure brightens all alike.");
  Param(angularDiameter_, "angular_diameter", 0.533, &diameterHint_)
      .About(
          "Width of the disc in the sky, degrees; 0.533 is the sun seen from the Earth. Larger makes edges "
          "of shadows softer.");
  Param(castShadows_, "cast_shadows", 1)
      .About(
          "Off, neither surfaces nor clouds nor air keep any of this sun's light back, as of a fill light.");
  Param(glowInAtmosphere_, "glow_in_atmosphere", 1)
      .About("Whether haze and clouds are bright round the sun. Off, the glow has no bright middle.");
  Param(visibleDisc_, "visible_disc", 1).About("Whether the disc itself is seen in the sky.");
}

trVector trSunlightNode::Direction() const {
  const double heading = heading_ * kDegreesToRadians, elevation = elevation_ * kDegreesToRadians;
  return Normalised({std::sin(heading) * std::cos(elevation), std::sin(elevation),
                     std::cos(heading) * std::cos(elevation)});
}

double trSunlightNode::AngularRadius() const {
  return std::clamp(angularDiameter_, 0.0, 90.0) * 0.5 * kDegreesToRadians;
}
