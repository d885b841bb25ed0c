// Sub-surface parameters.
#include "surface/sub_surface.h"

void SubSurface::Declare(trBase* node, const trManRgb& decayTint, long methodInPathTracer) {
  SetMenu(legacyHint_, node, {{"Pseudo-volumetric", 0}});
  SetMenu(pathTracerHint_, node,
          {{"Hard surface approximation", 0},
           {"Subsurface scatter towards normal", 1},
           {"Subsurface scatter in all directions", 2}});
  node->Param(decayDistance_, "decay_distance", 10.0);
  node->Param(decayTint_, "decay_tint", decayTint);
  node->Param(density_, "volume_1_density", 0.0).Display("Volume density");
  node->Param(colour_, "volume_1_colour", trRgbLinear709(0.5f)).Display("Volume colour");
  node->Param(densityFunction_, "volume_1_density_function", "").Display("Volume density function");
  node->Param(colourFunction_, "volume_1_colour_function", "").Display("Volume colour function");
  node->Param(isColourVolumetric_, "volume_1_colour_is_volumetric", 0)
      .Display("Evaluate colour function volumetrically (without UVs)");
  node->Param(methodInLegacy_, "volume_method_in_legacy_render", 0, &legacyHint_)
      .Display("Lighting method in Std")
      .NotSaved();
  node->Param(methodInPathTracer_, "volume_method_in_path_tracer", methodInPathTracer, &pathTracerHint_)
      .Display("Lighting method in PT");
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
