// planet_surface_shader.
#include "objects/planet_surface_shader.h"

#include "core/idioms.h"

PlanetSurfaceShader::PlanetSurfaceShader() {
  Seed(height_.seed);
  DeclareColourRegions();
  DeclareShape();
}

void PlanetSurfaceShader::DeclareColourRegions() {
  GuiTab("Colour regions", "colour_regions_tab");
  Param(lowlandColour_, "lowland_colour", trManRgb(0.02f, 0.08f, 0.01f)).Alias("lowland_color");
  Param(rockyLowlandColour_, "rocky_lowland_colour", trManRgb(0.15f, 0.15f, 0.15f))
      .Alias("rocky_lowland_color");
  Param(highlandAltitude_, "highland_altitude", 500.0);
  Param(highlandFuzziness_, "highland_fuzziness", 100.0);
  Param(highlandColour_, "highland_colour", trManRgb(0.2f, 0.2f, 0.05f)).Alias("highland_color");
  Param(rockyHighlandColour_, "rocky_highland_colour", trManRgb(0.15f, 0.15f, 0.15f))
      .Alias("rocky_highland_color");
  Param(snowline_, "snowline", 1000.0);
  Param(snowlineFuzziness_, "snowline_fuzziness", 100.0);
  Param(snowColour_, "snow_colour", trRgbLinear709(1.0f)).Alias("snow_color");
  Param(ambientLightColour_, "ambient_light_colour", trManRgb()).Alias("ambient_light_color");
}

void PlanetSurfaceShader::DeclareShape() {
  // The defaults are those of the height's own settings.
  GuiTab("Continents", "continents_tab");
  Param(height_.continentScale, "continent_scale", height_.continentScale);
  Param(height_.continentAmplitude, "continent_amplitude", height_.continentAmplitude);
  Param(height_.amplitudeVariation, "amplitude_variation", height_.amplitudeVariation);
  Param(height_.continentRoughness, "continent_roughness", height_.continentRoughness);
  Param(height_.roughnessVariation, "roughness_variation", height_.roughnessVariation);
  GuiTab("Mountains", "mountains_tab");
  Param(height_.mountainScale, "mountain_scale", height_.mountainScale);
  Param(height_.mountainRoughness, "mountain_roughness", height_.mountainRoughness);
  GuiTab("Ocean", "ocean_tab");
  Param(height_.oceanLevel, "ocean_level", height_.oceanLevel);
  Param(oceanIndexOfRefraction_, "ocean_index_of_refraction", 1.33);
  Param(oceanDecayDistance_, "ocean_decay_distance", 10.0);
  Param(oceanDecayPower_, "ocean_decay_power", 1.5);
  Param(oceanDecayColour_, "ocean_decay_colour", trManRgb(1.0f, 0.4f, 0.2f, true)).Alias("ocean_decay_color");
  Param(oceanSkyReflection_, "ocean_sky_reflection", trManRgb(0.01f, 0.02f, 0.08f));
  GuiTab("Tweaks", "tweaks_tab");
  Param(height_.octaves, "displacement_octaves", height_.octaves);
  Param(height_.warpAmount, "warp_amount", height_.warpAmount);
  Param(height_.slopeClip, "slope_clip", height_.slopeClip);
  Param(height_.coastlineErosion, "coastline_erosion", height_.coastlineErosion);
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
