// The specular lobes of a reflection as path engines evaluate and sample them.
#pragma once

#include <optional>

#include "core/bsdf.h"
#include "host/render/shade/lobe_energy.h"
#include "host/render/shade/microfacet.h"

namespace ovhost {

/// A lobe of kind 4 or 5 as one viewer sees it. Weights are for radiance without the squared index that
/// radiance gains in denser media, so that light which enters and leaves again keeps its measure. Reflectance
/// and transmittance are taken at the half vector and scaled by what `colour` has to the lobe's own at the
/// normal. Lobes that aren't compensated reflect or transmit at most what single scattering between
/// microfacets leaves. A value type; thread-safe.
class OV_API SpecularLobe {
 public:
  /// `toViewer` is a unit vector on the side of the lobe's normal; elsewhere the lobe is black.
  SpecularLobe(const trLobe& lobe, const trVector& toViewer);

  const trLobe& Source() const { return lobe_; }
  /// Takes over what layers above have left of another lobe of the same surface.
  void ScaleAs(const SpecularLobe& other) { scale_ = other.scale_; }
  /// As if no layers lay above.
  void Unscale() { scale_ = trFCol(1.0f); }
  /// Whether all light goes one way: then Evaluate and Pdf are 0, and only Sample knows where.
  bool IsMirror() const { return isMirror_; }
  /// About what all of the lobe sends to the viewer: at grazing angles rough surfaces show facets that are
  /// turned to who looks, and near total reflection some that reflect all; `colour` knows the normal's alone.
  trFCol Expected() const;
  /// The lobe's value times the light's cosine at the lobe's normal.
  trFCol Evaluate(const trVector& toLight) const;
  /// Density of Sample, per solid angle.
  double Pdf(const trVector& toLight) const;

  struct Sampled {
    trVector toLight;
    trFCol weight;   ///< Evaluate / Pdf; the lobe's colour for mirrors
    double pdf = 0;  ///< 0 for mirrors
  };
  /// Draws a direction to light; false where the draw goes nowhere, which counts as a black sample.
  bool Sample(const tr2Vector& draw, Sampled& out) const;

 private:
  struct Geometry {
    double cosV, cosL, cosH, vDotH, lDotH;
  };
  trVector Local(const trVector& d) const { return {Dot(d, side_), Dot(d, front_), Dot(d, normal_)}; }
  trVector World(const trVector& d) const { return side_ * d.x + front_ * d.y + normal_ * d.z; }
  /// The half vector between the viewer and a local direction; false where no facet joins them.
  bool Join(const trVector& light, Geometry& g) const;
  /// Solid angle of half vectors per solid angle of light directions.
  double Jacobian(const Geometry& g) const;
  trFCol WeightAt(double vDotH) const;
  bool SampleMirror(Sampled& out) const;
  /// A local direction by what facets reflect or transmit at once; false where that goes nowhere.
  bool SampleFacets(const tr2Vector& draw, trVector& light) const;
  trFCol EvaluateLocal(const trVector& light) const;
  double PdfLocal(const trVector& light) const;

  trLobe lobe_;
  Microfacet facets_;
  trVector normal_, side_, front_, view_;  ///< a frame, and the viewer in it
  trFCol scale_;                           ///< colour over what the lobe has at its normal
  double index_ = 1;
  float kappa_ = 0;
  std::optional<LobeEnergy> energy_;  ///< of compensated lobes
  double broadChance_ = 0;            ///< of drawing from what facets pass to each other
  bool isTransmission_ = false, isMirror_ = false, isBlack_ = false;
};

/// Exact reflectance of the border to a medium of relative index `index` for light at `cosine` to the normal;
/// 1 where all is reflected.
OV_API float InterfaceFresnel(double index, double cosine);

}  // namespace ovhost
