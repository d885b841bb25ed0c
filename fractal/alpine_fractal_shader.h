// The alpine fractals: displacement alone, by mountain ranges.
#pragma once

#include "core/idioms.h"
#include "fractal/alpine_kernels.h"

/// "Random Seed" of the alpine fractals.
class AlpineFractalShader_RandomiseButton : public trRandomSeedGuiPushButton {
 public:
  using trRandomSeedGuiPushButton::trRandomSeedGuiPushButton;
};

/// What both have: scales, height, mask, and displacement by the evaluation of the class.
class AlpineFractalShaderBase : public trSurfaceShader {
 public:
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  unsigned char HasShade() override { return 0; }

  /// What the evaluations run on. Thread-safe during a render.
  const AlpineSettings& Settings() const { return settings_; }
  const AlpineDerived& Derived() const { return derived_; }

 protected:
  AlpineFractalShaderBase();
  void DeclareSeedAndScale();
  void DeclareDisplacement();
  void DeclareRidges();
  /// Height at the state, metres.
  virtual double Height(trShadingInterface& si) const = 0;

  AlpineSettings settings_;
  trMask mask_;
  trDoubleHint shareHint_;

 private:
  AlpineDerived derived_;
  trDisplacementDirection displacementDirection_;
  trDoubleHint scaleHint_, smallestHint_, amplitudeHint_, roughnessHint_;
  AlpineFractalShader_RandomiseButton randomiseButton_{this};
};

/// `alpine_fractal_shader_v2`: ridges with spurs and gullies that run down their flanks, over filled valleys.
class AlpineFractalShaderV2 : public AlpineFractalShaderBase {
 public:
  AlpineFractalShaderV2();

 protected:
  double Height(trShadingInterface& si) const override;
};

/// `alpine_fractal_shader`, and `experiment_TEST`: a ridged multifractal.
class AlpineFractalShader : public AlpineFractalShaderBase {
 public:
  AlpineFractalShader();

 protected:
  double Height(trShadingInterface& si) const override;
};
