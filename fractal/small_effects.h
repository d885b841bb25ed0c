// Small shaders of displacement: a lean, displacement along the world's axes, a magnet, a choice of shaders,
// and a filter of the smoothing footprint.
#pragma once

#include "fractal/displacement_effect.h"

/// twist_and_shear_shader: points lean in a direction, the farther the higher they are.
class TwistAndShearShader : public DisplacementEffect {
 public:
  TwistAndShearShader();
  long Displace(trShadingInterface& si) override;

 private:
  double leanFactor_, baseAltitude_;
  trVector leanDirection_;
};

/// redirect_shader: three shaders displace along the world's axes, whatever the surface's normal.
class RedirectShader : public DisplacementEffect {
 public:
  RedirectShader();
  long Displace(trShadingInterface& si) override;

 private:
  trShaderLink shaders_[3];
};

/// magnet_shader: draws points to a place, those near by all the way.
class MagnetShader : public DisplacementEffect {
 public:
  MagnetShader();
  long Displace(trShadingInterface& si) override;

 private:
  trVector position_;
  double radius_;
};

/// multi_shader: a shader for each material of an object, by the material's number.
class MultiShader : public trSurfaceShader {
 public:
  MultiShader();
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 1; }

 private:
  static constexpr int kShaders = 16;
  /// That of the element in hand, or null.
  trShader* Chosen(trShadingInterface& si) const;

  trShaderLink shaders_[kShaders];
};

/// smoothing_filter_shader: what stands on its input is evaluated with a larger filter footprint.
class SmoothingFilterShader : public trSurfaceShader {
 public:
  SmoothingFilterShader();
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override;
  unsigned char HasShade() override;

 private:
  double Widened(trShadingInterface& si) const;

  double smoothingScale_;
  trShaderLink scaleModulator_;
  trDoubleHint scaleHint_;
};
