// Fresnel reflectance and the highlight models.
//
// A model's result, multiplied by (S + C), by the cosine at the surface and by a light's Intensity, is the
// reflected radiance: pi times the microfacet term (distribution and shadowing over four cosines), times the
// reflectance S + (C - S) F per channel over S + C, with F the Fresnel reflectance at the half vector. `n`,
// `l`, `v` are unit vectors on one side: normal, to the light, to the viewer. `a` is the roughness, `a2` its
// square, `f` (ior - 1) / (ior + 1), `invTweak` one over the tweak of the tails (2 is neutral). All are
// finite for any finite input. Thread-safe.
#pragma once

#include "core/api.h"
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
