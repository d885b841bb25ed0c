// The distribution shaders: a colour, or a stack of layers, spread over a surface by limits, without a
// displacement of their own. Version 4 is the current one; 2 and 3 serve old projects.
#pragma once

#include "surface/layer_limits.h"

/// What the versions share: a colour by a mask.
class DistributionBase : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

 protected:
  /// The mask at the state; black where nothing is spread.
  virtual trFCol Mask(trShadingInterface& si) const = 0;
  virtual trShader* ChildLayers() const { return nullptr; }

  /// Smooth step of each channel over a ramp about 0.5 that is as wide as the softness.
  trFCol Softened(const trFCol& v) const;
  /// Breakup of the oldest form, which leaves cover out of the contrast. The contrast holds without a fractal
  /// too.
  trFCol LegacyBroken(trShadingInterface& si, double cover, trShader* fractal) const;

  trManRgb colour_;
  Breakup breakup_;
  AltitudeLimits altitude_;
  SlopeLimits slope_;
  double softness_;
};

/// Versions 3 and 4 may spread a stack of layers in place of a colour.
class LayeredDistribution : public DistributionBase {
 public:
  long OnFirstCreate() override;

 protected:
  void DeclareColour();
  trShader* ChildLayers() const override { return LinkedShader(childLayers_); }

 private:
  trShaderLink childLayers_;
};

class DistributionShaderV4 : public LayeredDistribution {
 public:
  DistributionShaderV4();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  unsigned char HasDisplacement() override { return ChildLayers() != nullptr; }
  unsigned char HasShade() override { return 1; }

 protected:
  trFCol Mask(trShadingInterface& si) const override;

 private:
  LayerMaskShader maskShader_;
  DirectionLimit compass_;
  unsigned char exact_;
};

class DistributionShaderV3 : public LayeredDistribution {
 public:
  DistributionShaderV3();
  unsigned char HasDisplacement() override { return ChildLayers() != nullptr; }
  unsigned char HasShade() override { return 1; }

 protected:
  trFCol Mask(trShadingInterface& si) const override;

 private:
  unsigned char version4_;
};

class DistributionShaderV2 : public DistributionBase {
 public:
  DistributionShaderV2();
  long OnFirstCreate() override;
  unsigned char HasDisplacement() override { return 0; }
  unsigned char HasShade() override { return 1; }

 protected:
  trFCol Mask(trShadingInterface& si) const override;
};
