// fake_stones_shader: a stone in many cells of a Voronoi pattern, as displacement and colour of the surface
// that they lie on.
#pragma once

#include "core/idioms.h"

class FakeStonesShader : public trSurfaceShader {
 public:
  FakeStonesShader();
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  long Spawn(trShadingInterface&) override { return 1; }
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 1; }

 private:
  /// How stones are asked for at a point. Lengths in metres.
  struct Asked {
    double scale;           ///< size of a cell
    double variationScale;  ///< of the density
    double tallness;
    double stoneFade,
        variationFade;  ///< 0 to 1: how far stones, and variation, are larger than the footprint
  };
  /// What is there: the stone itself, or as the fade goes to 0 the share of the ground that stones cover.
  struct Stone {
    double presence = 0;
    double height = 0;  ///< metres
    trVector centre;    ///< in cells
  };
  void DeclareDensity();
  void DeclareColour();
  void DeclareMask();
  Stone StoneAt(trShadingInterface& si, const Asked& asked) const;
  double VariedDensity(const trVector& centre, const Asked& asked) const;
  /// The mask at the state, and at the centre of a stone.
  double MaskOnGround(trShadingInterface& si, double scale) const;
  double MaskAtStone(trShadingInterface& si, const trVector& centre, double scale) const;
  double MaskNumber(const trFCol& colour) const;
  void DisplaceBySurface(trShadingInterface& si, const trVector& outward, double cover) const;
  void ShadeStone(trShadingInterface& si, const Stone& stone, double stoneFade) const;

  long seed_, densitySeed_;
  trShaderLink surfaceShader_, scaleFunction_, tallnessFunction_;
  double stoneScale_, stoneDensity_, densityVariation_, densityVariationScale_;
  double stoneTallness_, pancakeEffect_;
  unsigned char varyDensity_, separateGeometry_, onlyDisplaceUpwards_;
  unsigned char applyColour_, colourVariation_;
  trManRgb diffuseColour_;
  double colourVariations_[3];
  unsigned char useMask_, fitMask_, invertMask_, maskAsDensity_;
  trShaderLink maskShader_;
  trDoubleHint pancakeHint_;

  trVector cellOffset_, densityOffset_[3];
};
