// Fresnel reflectance and the highlight models.
//
// A model's result, multiplied by (S + C), by the cosine at the surface and by a light's Intensity, is the
// reflected radiance: pi times the microfacet term (distribution and shadowing over four cosines), times the
// reflectance S + (C - S) F per channel over S + C, with F the exact Fresnel reflectance at the half vector.
// `n`, `l`, `v` are unit vectors on one side: normal, to the light, to the viewer. `a` is the roughness (the
// root mean square slope times the square root of 2), `a2` its square, `f` (ior - 1) / (ior + 1), `invTweak`
// one over the tweak of the tails: 2 is neutral, less makes them heavier, more lighter. All are finite for
// any finite input, and none reflects more light than it gets: light scatters once, and what the shadowing
// takes is lost. Thread-safe.
//
// Blinn       cosine power of exponent 2 / a^2 - 2, shadowing by V cavities (Blinn 1977, Torrance and Sparrow
//             1967), normalised.
// Beckmann    OV 2: slopes s of density exp(-(s / a)^invTweak), shadowing by V cavities (Cook and Torrance
//             1982). OV 4.5: the same slopes under Smith's shadowing, exact for each tail and correlated in
//             height (Heitz 2014).
// GGX         slopes of density (1 + (s / a)^2)^-(1.5 + invTweak / 4), the exponent 2 of GGX at neutral
//             (Walter et al. 2007, Ribardiere et al. 2017), Smith's shadowing as above.
// OV 4.5 and GGX take the reflectance of a rough surface (trRoughReflectance).
#pragma once

#include <algorithm>

#include "core/api.h"
#include "core/bsdf.h"
#include "core/colour.h"
#include "core/vector.h"

/// Unpolarised reflectance of a dielectric of relative index `ior`, exact: cosine on the air side first, in
/// the medium second.
OV_API float trFresnel(double ior, double cosAir, double cosMedium);

OV_API trFCol trBlinnModified(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                              const trVector& l, const trVector& v, const trFCol& a);
OV_API trFCol trSpecularBeckmannOV2(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                                    const trVector& l, const trVector& v, const trFCol& a,
                                    const trFCol& invTweak);
OV_API trFCol trSpecularBeckmannOV45(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                                     const trVector& l, const trVector& v, double a, double invTweak,
                                     double a2, double f);
OV_API trFCol trSpecularGGX(const trFCol& s, const trFCol& c, const trFCol& ior, const trVector& n,
                            const trVector& l, const trVector& v, double a, double invTweak, double a2,
                            double f);

/// How many parts of light leave a rough surface by two facets for each part that leaves by one, as
/// trRoughReflectance counts them: grows with the squared roughness. 0 for the older models.
inline float trInterreflection(int model, float a2) {
  if (model < 2) return 0;
  return std::min(model == 3 ? 1.4f * a2 : a2, 1e12f);
}

/// Reflectance of a rough surface: base + (edge - base) * fresnel.
struct trRoughReflectanceTerms {
  trFCol base, edge, fresnel;
  trFCol Total() const { return base + (edge - base) * fresnel; }
};
/// The mean of one part reflected once and `kappa` (trInterreflection) parts reflected twice, `f` standing
/// for Fresnel's share the second time: rough surfaces are darker and more saturated, but where S and C
/// are 1. It makes up for nothing that shadowing takes off a lobe: that, and
/// this with it, is for compensated lobes (trSharesOf). At a kappa of 0 the terms are S, C and F unchanged.
inline trRoughReflectanceTerms trRoughReflectance(const trFCol& s, const trFCol& c, float fresnel, float f,
                                                  float kappa) {
  trRoughReflectanceTerms terms{s, c, trFCol(fresnel)};
  if (!(kappa > 0)) return terms;
  for (int k = 0; k < 3; ++k) {
    terms.fresnel[k] = fresnel * (1 + kappa * std::clamp(c[k] * f, 0.0f, 1.0f)) / (1 + kappa);
    terms.base[k] = s[k] * (1 + kappa * std::clamp(s[k] + (c[k] - s[k]) * f, 0.0f, 1.0f)) / (1 + kappa);
  }
  return terms;
}

/// What becomes of light at a compensated lobe of kind 4 or 5, for a viewer at `cosine` to its normal: its
/// albedo, and what a reflection leaves to layers beneath it. A white interface's reflection and
/// transmission, or reflection and what is left, add up to 1 at any roughness. Thread-safe.
struct trLobeShares {
  trFCol albedo, beneath;
};
OV_API trLobeShares trSharesOf(const trLobe& lobe, double cosine);

/// What a compensated lobe of kind 4 shows of a light: times the cosine at the lobe's normal and the light's
/// Intensity it is the reflected radiance. `l` and `v` are unit vectors. Thread-safe.
OV_API trFCol trCompensatedHighlight(const trLobe& lobe, const trVector& l, const trVector& v);
