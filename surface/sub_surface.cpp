// Sub-surface parameters.
#include "surface/sub_surface.h"

void SubSurface::Declare(trBase* node, const trManRgb& decayTint, long methodInPathTracer) {
  SetMenu(legacyHint_, node, {{"Pseudo-volumetric", 0}});
  SetMenu(pathTracerHint_, node,
          {{"Hard surface approximation", 0},
           {"Subsurface scatter towards normal", 1},
           {"Subsurface scatter in all directions", 2}});
  node->Param(decayDistance_, "decay_distance", 10.0)
      .About(
          "Way inside after which a third of the light is left, metres. Small is murky; below 0 nothing is "
          "absorbed.");
  node->Param(decayTint_, "decay_tint", decayTint)
      .About("Colour that light takes on inside: dark channels are absorbed the sooner.");
  node->Param(density_, "volume_1_density", 0.0)
      .Display("Volume density")
      .About("How much the inside scatters, against what it absorbs: 0 is clear, more is milky.");
  node->Param(colour_, "volume_1_colour", trRgbLinear709(0.5f))
      .Display("Volume colour")
      .About("Colour of what scatters inside.");
  node->Param(densityFunction_, "volume_1_density_function", "")
      .Display("Volume density function")
      .About("Shader that multiplies the density; held between 0 and 1.");
  node->Param(colourFunction_, "volume_1_colour_function", "")
      .Display("Volume colour function")
      .About("Shader that multiplies the volume's colour.");
  node->Param(isColourVolumetric_, "volume_1_colour_is_volumetric", 0)
      .Display("Evaluate colour function volumetrically (without UVs)")
      .About("Looks the colour function up at points inside. Off, it is taken at the surface.");
  node->Param(methodInLegacy_, "volume_method_in_legacy_render", 0, &legacyHint_)
      .Display("Lighting method in Std")
      .NotSaved()
      .About("Lighting of the inside by the standard engine. There is one method, so this has no effect.");
  node->Param(methodInPathTracer_, "volume_method_in_path_tracer", methodInPathTracer, &pathTracerHint_)
      .Display("Lighting method in PT")
      .About(
          "How the path tracer lights the inside: as a coloured surface, or by scattered paths, the last "
          "fully.");
}

void SubSurface::Give(ReflectiveShader& reflective) const {
  reflective.decayDistance = decayDistance_;
  reflective.decayTint = decayTint_;
  reflective.volumeDensity = density_;
  reflective.volumeColour = colour_;
  reflective.volumeDensityFunction = &densityFunction_;
  reflective.volumeColourFunction = &colourFunction_;
  reflective.isColourVolumetric = isColourVolumetric_;
  reflective.volumeMethod = static_cast<int>(methodInPathTracer_);
}
