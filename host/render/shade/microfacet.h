// Rough interfaces: distributions of microfacet normals with their masking.
#pragma once

#include "core/api.h"
#include "core/vector.h"

namespace ovhost {

/// A distribution of microfacet normals about +z, the same in all directions round it, with its masking and
/// shadowing. Angles come as cosines: `cosH` of the half vector, `cosV` and `cosL` of two directions on the
/// upper side (above 0), `vDotH` and `lDotH` between those and the half vector. A value type; thread-safe.
class OV_API Microfacet {
 public:
  /// Models as in trLobe: 0 Blinn, 1 Beckmann in V cavities, 2 Beckmann with Smith's masking; anything else
  /// is GGX. `roughness` is held between 1e-4 and 1e4; `invTweak`, where 2 is neutral, between 0.5 and 8.
  Microfacet(int model, double roughness, double invTweak);

  /// Facets per solid angle of half vectors and per area of surface; its integral times the cosine is 1.
  double D(double cosH) const;
  /// Share of the facets facing along the half vector that a viewer sees.
  double G1(double cosV, double cosH, double vDotH) const;
  /// Share that both a viewer and a light on the same side see.
  double G2(double cosV, double cosL, double cosH, double vDotH, double lDotH) const;
  /// D G2 / (4 cosV cosL) for reflection, finite at all angles.
  double Reflection(double cosV, double cosL, double cosH, double vDotH) const;

  /// Draws a half vector that `v` (unit, above the surface) sees; by the visible normals where the model has
  /// a closed form for them.
  trVector SampleHalf(const trVector& v, const tr2Vector& draw) const;
  /// Density of SampleHalf, per solid angle of half vectors.
  double PdfHalf(double cosV, double cosH, double vDotH) const;

 private:
  enum Shape { kBlinn, kBeckmannCavities, kBeckmannSmith, kGgx };
  bool HasCavities() const { return shape_ == kBlinn || shape_ == kBeckmannCavities; }
  double Lambda(double cosine) const;
  /// Facets about a radial slope, as seen by SampleHalf where that isn't by D itself.
  double ProposalD(double cosH) const;
  trVector SampleCavities(const trVector& v, const tr2Vector& draw) const;

  Shape shape_;
  bool isNeutral_ = true;  ///< tails without tweak, which have closed forms
  double alpha_, alpha2_;
  double tail_ = 2;       ///< exponent of the tails
  double scale_ = 1;      ///< of D
  double proposal2_ = 1;  ///< squared roughness of the GGX that stands in for tweaked tails in sampling
  double tableRow_ = 0;   ///< of the masking of tweaked tails
};

}  // namespace ovhost
