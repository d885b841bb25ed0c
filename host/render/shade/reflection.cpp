// Fresnel reflectance and the highlight models.
#include "core/reflection.h"

#include <algorithm>
#include <cmath>

#include "core/guarded.h"
#include "host/render/shade/specular_lobe.h"

using ovhost::Microfacet;

namespace {

constexpr double kPi = 3.14159265358979323846;

float FiniteOr0(double value) {
  return std::fabs(value) < 3e38 ? static_cast<float>(value) : 0.0f;  // NaN counts as 0
}

/// Light, viewer and normal at one point.
struct Highlight {
  double cosV, cosL, cosH, vDotH;

  Highlight(const trVector& n, const trVector& l, const trVector& v) {
    const trVector h = Normalised(l + v);
    cosV = Dot(n, v);
    cosL = Dot(n, l);
    cosH = Dot(n, h);
    vDotH = Dot(v, h);
  }
  /// Only what both see, and in front of it, shines. Also false for NaN.
  bool IsLit() const { return cosV > 0 && cosL > 0 && cosH > 0 && vDotH > 0; }
  double Facets(int model, double a, double invTweak) const {
    return kPi * Microfacet(model, a, invTweak).Reflection(cosV, cosL, cosH, vDotH);
  }
};

/// The reflectance at the half vector over S + C.
float Share(float s, float c, float reflectance) { return FiniteOr0(GuardedDivide(reflectance, s + c)); }

trFCol Shares(const trFCol& s, const trFCol& c, const trFCol& ior, double vDotH, double f, float kappa) {
  trFCol shares;
  float fresnel = 0, index = 0;
  for (int k = 0; k < 3; ++k) {
    if (k == 0 || ior[k] != index) {
      index = ior[k];
      fresnel = ovhost::InterfaceFresnel(std::fabs(index) > 1e-3f ? std::fabs(index) : 1e-3, vDotH);
    }
    const trFCol total =
        trRoughReflectance(trFCol(s[k]), trFCol(c[k]), fresnel, static_cast<float>(f), kappa).Total();
    shares[k] = Share(s[k], c[k], total.r);
  }
  return shares;
}

/// The models whose roughness may differ between channels.
trFCol PerChannel(int model, const trFCol& s, const trFCol& c, const trFCol& ior, const Highlight& at,
                  const trFCol& a, const trFCol& invTweak) {
  if (!at.IsLit()) return {};
  trFCol result = Shares(s, c, ior, at.vDotH, 0, 0);
  double facets = 0;
  for (int k = 0; k < 3; ++k) {
    if (k == 0 || a[k] != a[k - 1] || invTweak[k] != invTweak[k - 1])
      facets = at.Facets(model, a[k], invTweak[k]);
    result[k] = FiniteOr0(result[k] * facets);
  }
  return result;
}

trFCol OneRoughness(int model, const trFCol& s, const trFCol& c, const trFCol& ior, const Highlight& at,
                    double a, double invTweak, double a2, double f) {
  if (!at.IsLit()) return {};
  trFCol result = Shares(s, c, ior, at.vDotH, f, trInterreflection(model, static_cast<float>(a2)));
  const double facets = at.Facets(model, a, invTweak);
  for (int k = 0; k < 3; ++k) result[k] = FiniteOr0(result[k] * facets);
  return result;
}

}  // namespace

float trFresnel(double ior, double cosAir, double cosMedium) {
  const double across = GuardedDivide(cosAir - ior * cosMedium, cosAir + ior * cosMedium);
  const double along = GuardedDivide(ior * cosAir - cosMedium, ior * cosAir + cosMedium);
  const double reflectance = 0.5 * (across * across + along * along);
  return reflectance < 1 ? static_cast<float>(reflectance) : 1.0f;
}

trFCol trBlinnModified(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                       const trVector& l, const trVector& v, const trFCol& a) {
  return PerChannel(0, s, c, ior, Highlight(n, l, v), a, trFCol(2.0f));
}

trFCol trSpecularBeckmannOV2(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                             const trVector& l, const trVector& v, const trFCol& a, const trFCol& invTweak) {
  return PerChannel(1, s, c, ior, Highlight(n, l, v), a, invTweak);
}

trFCol trSpecularBeckmannOV45(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                              const trVector& l, const trVector& v, double a, double invTweak, double a2,
                              double f) {
  return OneRoughness(2, s, c, ior, Highlight(n, l, v), a, invTweak, a2, f);
}

trFCol trSpecularGGX(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                     const trVector& l, const trVector& v, double a, double invTweak, double a2, double f) {
  return OneRoughness(3, s, c, ior, Highlight(n, l, v), a, invTweak, a2, f);
}

trLobeShares trSharesOf(const trLobe& lobe, double cosine) {
  const ovhost::LobeEnergy energy(lobe, cosine);
  return {energy.albedo, energy.beneath};
}

trFCol trCompensatedHighlight(const trLobe& lobe, const trVector& l, const trVector& v) {
  const double cosine = Dot(lobe.normal, l);
  if (!(cosine > 0)) return {};
  trLobe whole = lobe;
  whole.colour = trFCol(1.0f);
  ovhost::SpecularLobe shape(whole, v);
  shape.Unscale();
  const trFCol value = shape.Evaluate(l) * static_cast<float>(kPi / cosine);
  return {FiniteOr0(value.r), FiniteOr0(value.g), FiniteOr0(value.b)};
}
