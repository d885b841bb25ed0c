// simple_shape_shader: a figure on the ground or in texture space, as a colour, a mask or a displacement.
#pragma once

#include <vector>

#include "core/idioms.h"

class ShapeShader : public trSurfaceShader {
 public:
  ShapeShader();
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return applyDisplacement_; }
  unsigned char HasShade() override { return applyColour_; }

 private:
  enum Type : long { kRectangle = 0, kEllipse = 1, kPolygon = 2, kStar = 3 };
  enum Space : long { kGround = 0, kTexture = 1 };
  enum Profile : long { kLinear = 0, kSmooth = 1, kRound = 2, kHollow = 3 };
  static constexpr long kMaxSides = 64;

  /// How much of the shape there is at the state, 0 outside to 1 inside of the edge.
  double Coverage(trShadingInterface& si) const;
  /// The coverage times the mask into `amount`; false where the mask leads nowhere.
  bool Amount(trShadingInterface& si, float& amount) const;
  /// Metres from the outline inwards, of a point in the shape's own frame; 0 or less outside.
  double DepthInside(double x, double z) const;
  double DepthInEllipse(double x, double z) const;
  double DepthInOutline(double x, double z) const;

  long type_, numberOfSides_;
  double starInnerRadius_;
  long space_;
  trVector centre_;
  tr2Vector size_;
  double rotation_;
  long edgeProfile_;
  double edgeWidth_;
  unsigned char invertShape_;
  unsigned char applyColour_;
  trManRgb colour_;
  unsigned char applyDisplacement_;
  trDisplacementDirection displacementDirection_;
  double displacementAmplitude_;
  trMask mask_;
  trIntHint typeHint_, sidesHint_, spaceHint_, profileHint_;
  trDoubleHint shareHint_, rotationHint_, metresHint_, amplitudeHint_;

  double halfX_ = 0, halfZ_ = 0, sine_ = 0, cosine_ = 1;
  std::vector<tr2Vector> outline_;  ///< of polygons and stars, metres in the shape's own frame
};
