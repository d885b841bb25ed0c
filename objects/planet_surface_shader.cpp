// planet_surface_shader.
#include "objects/planet_surface_shader.h"

#include "core/idioms.h"

namespace {
constexpr trAlias kAliases[] = {{"lowland_color", "lowland_colour"},
                                {"rocky_lowland_color", "rocky_lowland_colour"},
                                {"highland_color", "highland_colour"},
                                {"rocky_highland_color", "rocky_highland_colour"},
                                {"snow_color", "snow_colour"},
                                {"ambient_light_color", "ambient_light_colour"},
                                {"ocean_decay_color", "ocean_decay_colour"}};
}

PlanetSurfaceShader::PlanetSurfaceShader() {
  Param(height_.seed, "seed", trNewSeed());
  DeclareColourRegions();
  DeclareShape();
}

void PlanetSurfaceShader::DeclareColourRegions() {
  GuiTab("Colour regions", "colour_regions_tab");
  Param(lowlandColour_, "lowland_colour", trManRgb(0.02f, 0.08f, 0.01f));
  Param(rockyLowlandColour_, "rocky_lowland_colour", trManRgb(0.15f, 0.15f, 0.15f));
  Param(highlandAltitude_, "highland_altitude", 500.0);
  Param(highlandFuzziness_, "highland_fuzziness", 100.0);
  Param(highlandColour_, "highland_colour", trManRgb(0.2f, 0.2f, 0.05f));
  Param(rockyHighlandColour_, "rocky_highland_colour", trManRgb(0.15f, 0.15f, 0.15f));
  Param(snowline_, "snowline", 1000.0);
  Param(snowlineFuzziness_, "snowline_fuzziness", 100.0);
  Param(snowColour_, "snow_colour", trRgbLinear709(1.0f));
  Param(ambientLightColour_, "ambient_light_colour", trManRgb());
}

void PlanetSurfaceShader::DeclareShape() {
  GuiTab("Continents", "continents_tab");
  Param(height_.continentScale, "continent_scale", 5e6);
  Param(height_.continentAmplitude, "continent_amplitude", 1000.0);
  Param(height_.amplitudeVariation, "amplitude_variation", 1.0);
  Param(height_.continentRoughness, "continent_roughness", 1.0);
  Param(height_.roughnessVariation, "roughness_variation", 1.0);
  GuiTab("Mountains", "mountains_tab");
  Param(height_.mountainScale, "mountain_scale", 5000.0);
  Param(height_.mountainRoughness, "mountain_roughness", 0.5);
  GuiTab("Ocean", "ocean_tab");
  Param(height_.oceanLevel, "ocean_level", 0.0);
  Param(oceanIndexOfRefraction_, "ocean_index_of_refraction", 1.33);
  Param(oceanDecayDistance_, "ocean_decay_distance", 10.0);
  Param(oceanDecayPower_, "ocean_decay_power", 1.5);
  Param(oceanDecayColour_, "ocean_decay_colour", trManRgb(1.0f, 0.4f, 0.2f, true));
  Param(oceanSkyReflection_, "ocean_sky_reflection", trManRgb(0.01f, 0.02f, 0.08f));
  GuiTab("Tweaks", "tweaks_tab");
  Param(height_.octaves, "displacement_octaves", 32);
  Param(height_.warpAmount, "warp_amount", 1.0);
  Param(height_.slopeClip, "slope_clip", 0.25);
  Param(height_.coastlineErosion, "coastline_erosion", 1000.0);
}

long PlanetSurfaceShader::SetParamFromString(const char* name, const trString& value, trBase* who) {
  return trSurfaceShader::SetParamFromString(ResolveAlias(kAliases, name), value, who);
}

long PlanetSurfaceShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const PlanetHeightResult at = PlanetHeight(si.P(), height_);
  si.P() += si.Ng() * std::fmax(at.height, at.ocean);
  return 1;
}

long PlanetSurfaceShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (IsEnabled()) si.SetShadingToLambert(si.Cutil());
  return 1;
}
