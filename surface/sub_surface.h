// What glass and water share: the parameters of their inside, and how they set up the reflective shader they
// own.
#pragma once

#include "surface/reflective_shader.h"

/// Sub-surface parameters of a transparent shader.
class SubSurface {
 public:
  /// Declares them on `node`, from the tab on. `methodInPathTracer` is a trMedium method.
  void Declare(trBase* node, const trManRgb& decayTint, long methodInPathTracer);
  /// Hands them to the reflective shader that `node` owns.
  void Give(ReflectiveShader& reflective) const;

 private:
  double decayDistance_, density_;
  trManRgb decayTint_, colour_;
  trShaderLink densityFunction_, colourFunction_;
  unsigned char isColourVolumetric_;
  long methodInLegacy_, methodInPathTracer_;
  trIntHint legacyHint_, pathTracerHint_;
};
