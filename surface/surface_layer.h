// surface_layer: colour and displacement over a part of a surface, chosen by altitude, slope, direction, a
// mask and a fractal.
#pragma once

#include "surface/layer_limits.h"

class SurfaceLayer : public trSurfaceShader {
 public:
  SurfaceLayer();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 1; }

 private:
  enum class Pass { kDisplace, kShade };
  /// What lies beneath: texture point, point and normal.
  struct Underlying {
    trVector pt, p, n;
  };
  /// The points and normals of a sample as the mask found them.
  struct Found {
    trVector pg, pt, p, ng, nt, n;
    explicit Found(trShadingInterface& si)
        : pg(si.Pg()), pt(si.Pt()), p(si.P()), ng(si.Ng()), nt(si.Nt()), n(si.N()) {}
    void Restore(trShadingInterface& si) const;
  };

  void DeclareColour();
  void DeclareCoverage();
  void DeclareLimits();
  void DeclareEffects();

  /// The layer's mask at the state, black where the layer is absent. With `intersect_underlying` on it runs
  /// the input's displacement afresh and fills `base`.
  trFCol Mask(trShadingInterface& si, Pass pass, Underlying& base);
  trFCol MaskInPlace(trShadingInterface& si, Pass pass, const Found& found, const Underlying& base);
  double LimitFactor(trShadingInterface& si, bool exact) const;
  /// Turns the mask into how far this layer stands out of what it intersects. False where it doesn't.
  bool Intersect(trShadingInterface& si, Pass pass, const Underlying& base, trFCol& mask);
  /// The layer's own displacement, then its children's.
  void DisplaceLayer(trShadingInterface& si);
  void ShadeLayer(trShadingInterface& si);

  trShader* ChildLayers() const { return LinkedShader(childLayers_); }

  // Colour and luminosity
  unsigned char applyColour_, enableTestColour_, luminous_;
  trManRgb diffuseColour_, testColour_, luminosityTint_;
  double luminosityMultiplier_;
  trShaderLink colourFunction_, luminosityFunction_;
  trDoubleHint strengthHint_;

  // Displacement
  trDisplacementDirection direction_;
  double displacementMultiplier_, displacementOffset_, smoothingAmount_;
  trShaderLink displacementFunction_, childLayers_;
  unsigned char smoothingEffect_;
  trDoubleHint smoothingHint_;

  // Where
  Breakup breakup_;
  unsigned char onlyBreakupColour_;
  LayerMaskShader maskShader_;
  AltitudeLimits altitude_;
  SlopeLimits slope_;
  DirectionLimit compass_;

  // Effects
  unsigned char intersectUnderlying_, exactForShading_, exactForDisplacement_;
  long intersectionMode_;
  double intersectionZone_, smoothingScale_, intersectionShift_, minIntersectionShift_;
  double fuzzyZoneSoftness_;
  trIntHint intersectionModeHint_;
  trDoubleHint smoothingScaleHint_, shiftHint_;
};
