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
  Param(lowlandColour_, "lowland_colour", trManRgb(0.02f, 0.08f, 0.01f))
      .Alias("lowland_color")
      .About("Kept for older projects; without effect.");
  Param(rockyLowlandColour_, "rocky_lowland_colour", trManRgb(0.15f, 0.15f, 0.15f))
      .Alias("rocky_lowland_color")
      .About("Kept for older projects; without effect.");
  Param(highlandAltitude_, "highland_altitude", 500.0).About("Kept for older projects; without effect.");
  Param(highlandFuzziness_, "highland_fuzziness", 100.0).About("Kept for older projects; without effect.");
  Param(highlandColour_, "highland_colour", trManRgb(0.2f, 0.2f, 0.05f))
      .Alias("highland_color")
      .About("Kept for older projects; without effect.");
  Param(rockyHighlandColour_, "rocky_highland_colour", trManRgb(0.15f, 0.15f, 0.15f))
      .Alias("rocky_highland_color")
      .About("Kept for older projects; without effect.");
  Param(snowline_, "snowline", 1000.0).About("Kept for older projects; without effect.");
  Param(snowlineFuzziness_, "snowline_fuzziness", 100.0).About("Kept for older projects; without effect.");
  Param(snowColour_, "snow_colour", trRgbLinear709(1.0f))
      .Alias("snow_color")
      .About("Kept for older projects; without effect.");
  Param(ambientLightColour_, "ambient_light_colour", trManRgb())
      .Alias("ambient_light_color")
      .About("Kept for older projects; without effect.");
}

void PlanetSurfaceShader::DeclareShape() {
  // The defaults are those of the height's own settings.
  GuiTab("Continents", "continents_tab");
  Param(height_.continentScale, "continent_scale", height_.continentScale)
      .About("Size of the continents, metres.");
  Param(height_.continentAmplitude, "continent_amplitude", height_.continentAmplitude)
      .About("Height of the largest forms, metres.");
  Param(height_.amplitudeVariation, "amplitude_variation", height_.amplitudeVariation)
      .About("How much higher ground becomes where it has risen already. 0 is alike everywhere.");
  Param(height_.continentRoughness, "continent_roughness", height_.continentRoughness)
      .About("How slowly finer forms weaken, down to the mountain scale.");
  Param(height_.roughnessVariation, "roughness_variation", height_.roughnessVariation)
      .About("How much rougher ground becomes where it has risen already.");
  GuiTab("Mountains", "mountains_tab");
  Param(height_.mountainScale, "mountain_scale", height_.mountainScale)
      .About("Size below which forms have the mountains' roughness, metres.");
  Param(height_.mountainRoughness, "mountain_roughness", height_.mountainRoughness)
      .About("How slowly finer forms weaken below the mountain scale.");
  GuiTab("Ocean", "ocean_tab");
  Param(height_.oceanLevel, "ocean_level", height_.oceanLevel).About("Height of the sea, metres.");
  Param(oceanIndexOfRefraction_, "ocean_index_of_refraction", 1.33)
      .About("Kept for older projects; without effect.");
  Param(oceanDecayDistance_, "ocean_decay_distance", 10.0).About("Kept for older projects; without effect.");
  Param(oceanDecayPower_, "ocean_decay_power", 1.5).About("Kept for older projects; without effect.");
  Param(oceanDecayColour_, "ocean_decay_colour", trManRgb(1.0f, 0.4f, 0.2f, true))
      .Alias("ocean_decay_color")
      .About("Kept for older projects; without effect.");
  Param(oceanSkyReflection_, "ocean_sky_reflection", trManRgb(0.01f, 0.02f, 0.08f))
      .About("Kept for older projects; without effect.");
  GuiTab("Tweaks", "tweaks_tab");
  Param(height_.octaves, "displacement_octaves", height_.octaves)
      .About("How many sizes of form are added up, each 1.92 times finer; 100 at most.");
  Param(height_.warpAmount, "warp_amount", height_.warpAmount)
      .About("How far forms are bent, against their own size. 0 leaves them round.");
  Param(height_.slopeClip, "slope_clip", height_.slopeClip)
      .About("How high a form may be against its own size. Lower cuts off needles.");
  Param(height_.coastlineErosion, "coastline_erosion", height_.coastlineErosion)
      .About("How much ground below 0 is calmed: smooth shores and sea floors.");
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
