// Distributions of microfacet normals.
#include "host/render/shade/microfacet.h"

#include <algorithm>
#include <cmath>

#include "host/render/shade/masking_tables.h"

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kInvPi = 1 / kPi;
constexpr double kTwoOverRootPi = 1.12837916709551257390;
/// Cosines below this count as it, so that tails stay finite at the horizon.
constexpr double kLeastCosine = 1e-7;

double HeldBetween(double value, double low, double high) {
  // NaN counts as the lower end.
  return value > low ? std::min(value, high) : low;
}

/// Inverse error function: the single-precision form of Giles (Approximating the erfinv function, 2012) and
/// one step of Newton's method.
double InverseErf(double y) {
  y = std::clamp(y, -0.9999999999, 0.9999999999);
  double w = -std::log((1 - y) * (1 + y)), p;
  if (w < 5) {
    constexpr double kCentre[] = {2.81022636e-08,  3.43273939e-07, -3.5233877e-06,
                                  -4.39150654e-06, 0.00021858087,  -0.00125372503,
                                  -0.00417768164,  0.246640727,    1.50140941};
    w -= 2.5;
    p = 0;
    for (double c : kCentre) p = p * w + c;
  } else {
    constexpr double kTail[] = {-0.000200214257, 0.000100950558, 0.00134934322, -0.00367342844, 0.00573950773,
                                -0.0076224613,   0.00943887047,  1.00167406,    2.83297682};
    w = std::sqrt(w) - 3;
    p = 0;
    for (double c : kTail) p = p * w + c;
  }
  const double x = p * y;
  return x - (std::erf(x) - y) * std::exp(x * x) / kTwoOverRootPi;
}

/// An angle about the normal, from the viewer's own, of the facets of one slope: each wall of a cavity counts
/// as it is turned to the viewer, against the wall across (Heitz and d'Eon 2014). Walls that hide the one
/// across count in full.
double CavityAngle(const trVector& v, double cosH, double u) {
  const double facing = v.z * cosH;
  const double sideways = std::sqrt(std::max(0.0, (v.x * v.x + v.y * v.y) * (1 - cosH * cosH)));
  const double sign = u < 0.5 ? 1 : -1, target = (u < 0.5 ? 2 * u : 2 * u - 1) * (0.5 * kPi);
  const double full = sideways > facing ? std::acos(facing / sideways) : 0;
  if (target <= full) return sign * target;
  const double lean = sideways / std::max(facing, 1e-300), sineOfFull = std::sin(full);
  double low = full, high = kPi - full, phi = std::clamp(target, low, high);
  for (int i = 0; i < 60; ++i) {
    const double error = full + 0.5 * (phi - full + lean * (std::sin(phi) - sineOfFull)) - target;
    if (std::fabs(error) < 1e-12) break;
    (error > 0 ? high : low) = phi;
    phi -= error / std::max(0.5 * (1 + lean * std::cos(phi)), 1e-12);
    if (!(phi > low && phi < high)) phi = 0.5 * (low + high);
  }
  return sign * phi;
}

trVector FromSlopes(double x, double y) {
  const double scale = 1 / std::sqrt(1 + x * x + y * y);
  return {-x * scale, -y * scale, scale};
}

/// Smith's Lambda of GGX, by the squares of cosine and roughness.
double GgxLambda(double cosine2, double alpha2) {
  return 0.5 * (std::sqrt(1 + alpha2 * (1 - cosine2) / cosine2) - 1);
}

trVector FromCosine(double cosine, double phi) {
  const double sine = std::sqrt(std::max(0.0, 1 - cosine * cosine));
  return {sine * std::cos(phi), sine * std::sin(phi), cosine};
}

/// A visible normal of the GGX distribution: the roughness is stretched away, and a cap of the sphere is
/// drawn evenly (Dupuy and Benyoub, Sampling Visible GGX Normals with Spherical Caps, 2023).
trVector SampleGgx(const trVector& v, double alpha, const tr2Vector& draw) {
  const trVector stretched = Normalised({alpha * v.x, alpha * v.y, v.z});
  const double phi = 2 * kPi * draw.x;
  const double z = (1 - draw.y) * (1 + stretched.z) - stretched.z;
  const double sine = std::sqrt(std::clamp(1 - z * z, 0.0, 1.0));
  const trVector half = trVector(sine * std::cos(phi), sine * std::sin(phi), z) + stretched;
  return Normalised({alpha * half.x, alpha * half.y, std::max(0.0, half.z)});
}

/// A visible slope of the Beckmann distribution of roughness 1 along the direction of view, whose angle to
/// the normal has the given sine and cosine: the cumulative distribution is inverted by Newton's method held
/// inside a shrinking bracket.
double SampleBeckmannSlope(double sine, double cosine, double u) {
  const auto cumulative = [&](double x) {
    return 0.5 * (cosine * (1 + std::erf(x)) + sine * (0.5 * kTwoOverRootPi) * std::exp(-x * x));
  };
  constexpr double kReach = 6;  // beyond it the density is below 1e-15
  const double steepest = sine > 0 ? std::min(kReach, cosine / sine) : kReach;
  const double target = u * cumulative(steepest);
  double low = -kReach, high = steepest;
  double x = std::clamp(InverseErf(2 * u - 1) - 0.5 * sine, low, high);
  for (int i = 0; i < 40; ++i) {
    const double error = cumulative(x) - target;
    if (std::fabs(error) < 1e-10) break;
    (error > 0 ? high : low) = x;
    const double density = 0.5 * kTwoOverRootPi * (cosine - x * sine) * std::exp(-x * x);
    x -= error / std::max(density, 1e-30);
    if (!(x > low && x < high)) x = 0.5 * (low + high);
  }
  return x;
}

/// A visible normal of the Beckmann distribution (Heitz and d'Eon, Importance Sampling Microfacet-Based BSDFs
/// using the Distribution of Visible Normals, 2014).
trVector SampleBeckmann(const trVector& v, double alpha, const tr2Vector& draw) {
  const trVector stretched = Normalised({alpha * v.x, alpha * v.y, v.z});
  const double sine = std::sqrt(stretched.x * stretched.x + stretched.y * stretched.y);
  const double cosPhi = sine > 0 ? stretched.x / sine : 1, sinPhi = sine > 0 ? stretched.y / sine : 0;
  // Facets that lean towards the viewer have slopes against the direction of view.
  const double along = SampleBeckmannSlope(sine, stretched.z, draw.x), across = InverseErf(2 * draw.y - 1);
  return FromSlopes(alpha * (cosPhi * along - sinPhi * across), alpha * (sinPhi * along + cosPhi * across));
}

}  // namespace

Microfacet::Microfacet(int model, double roughness, double invTweak) {
  shape_ = model == 0 ? kBlinn : model == 1 ? kBeckmannCavities : model == 2 ? kBeckmannSmith : kGgx;
  alpha_ = HeldBetween(roughness, 1e-4, 1e4);
  alpha2_ = proposal2_ = alpha_ * alpha_;
  if (shape_ == kBlinn) {
    // The exponent whose lobe is as wide as Beckmann's (Walter et al., Microfacet Models for Refraction
    // through Rough Surfaces, 2007).
    tail_ = std::max(0.0, 2 / alpha2_ - 2);
    scale_ = (tail_ + 2) / (2 * kPi);
    return;
  }
  const double tail = HeldBetween(invTweak, kLeastTail, kGreatestTail);
  isNeutral_ = tail == 2;
  if (shape_ == kGgx) {
    tail_ = GgxTailPower(tail);
    scale_ = isNeutral_ ? kInvPi : (tail_ - 1) * kInvPi;
  } else {
    tail_ = tail;
    scale_ = isNeutral_ ? kInvPi : tail / (2 * kPi * std::tgamma(2 / tail));
  }
  if (isNeutral_) return;
  if (!HasCavities()) tableRow_ = MaskingRow(tail);
  // The stand-in's typical slope is the tweaked one's, by their medians or means.
  const double spread =
      shape_ == kGgx ? std::sqrt(std::exp2(1 / (tail_ - 1)) - 1)
                     : 2 * std::tgamma(3 / tail) / (kPi * std::tgamma(2 / tail)) * std::sqrt(kPi) * 0.5;
  proposal2_ = alpha2_ * std::max(0.25, spread * spread);
}

double Microfacet::D(double cosH) const {
  if (!(cosH > 0)) return 0;
  if (shape_ == kBlinn) return scale_ * std::pow(std::min(cosH, 1.0), tail_);
  const double c2 = std::min(1.0, cosH * cosH), s2 = 1 - c2;
  if (shape_ == kGgx && isNeutral_) {
    const double root = c2 * alpha2_ + s2;
    return kInvPi * alpha2_ / (root * root);
  }
  const double held = std::max(c2, kLeastCosine * kLeastCosine);
  const double slope2 = s2 / (held * alpha2_);
  double facets;
  if (shape_ == kGgx)
    facets = std::pow(1 + slope2, -tail_);
  else
    facets = std::exp(-(isNeutral_ ? slope2 : std::pow(slope2, 0.5 * tail_)));
  return scale_ * facets / (alpha2_ * held * held);
}

double Microfacet::Lambda(double cosine) const {
  const double c2 = std::max(cosine * cosine, kLeastCosine * kLeastCosine), s2 = 1 - c2;
  if (!(s2 > 0)) return 0;
  if (shape_ == kGgx && isNeutral_) return GgxLambda(c2, alpha2_);
  const double slope = std::sqrt(c2 / (s2 * alpha2_));
  if (!isNeutral_)
    return shape_ == kGgx ? TweakedGgxLambda(tableRow_, slope) : TweakedBeckmannLambda(tableRow_, slope);
  if (slope > 6) return 0;
  return 0.25 * kTwoOverRootPi * std::exp(-slope * slope) / slope - 0.5 * std::erfc(slope);
}

double Microfacet::G1(double cosV, double cosH, double vDotH) const {
  if (!(cosV > 0) || !(vDotH > 0)) return 0;
  if (HasCavities()) return std::min(1.0, 2 * cosH * cosV / vDotH);
  return 1 / (1 + Lambda(cosV));
}

double Microfacet::G2(double cosV, double cosL, double cosH, double vDotH, double lDotH) const {
  if (!(cosV > 0) || !(cosL > 0) || !(vDotH > 0) || !(lDotH > 0)) return 0;
  // Both walls of a cavity (Cook and Torrance 1982); heights that viewer and light share (Heitz 2014).
  if (HasCavities()) return std::min(1.0, std::min(2 * cosH * cosV / vDotH, 2 * cosH * cosL / lDotH));
  return 1 / (1 + Lambda(cosV) + Lambda(cosL));
}

double Microfacet::Reflection(double cosV, double cosL, double cosH, double vDotH) const {
  cosV = std::max(cosV, kLeastCosine);
  cosL = std::max(cosL, kLeastCosine);
  return D(cosH) * G2(cosV, cosL, cosH, vDotH, vDotH) / (4 * cosV * cosL);
}

trVector Microfacet::SampleHalf(const trVector& v, const tr2Vector& draw) const {
  if (HasCavities()) return SampleCavities(v, draw);
  if (isNeutral_ && shape_ == kBeckmannSmith) return SampleBeckmann(v, alpha_, draw);
  return SampleGgx(v, std::sqrt(proposal2_), draw);
}

trVector Microfacet::SampleCavities(const trVector& v, const tr2Vector& draw) const {
  double cosH;
  if (shape_ == kBlinn) {
    cosH = std::pow(1 - draw.x, 1 / (tail_ + 2));
  } else {
    const double slope2 = isNeutral_ ? -std::log1p(-draw.x) : draw.x / (1 - draw.x);
    cosH = 1 / std::sqrt(1 + proposal2_ * slope2);
  }
  const double phi = CavityAngle(v, cosH, draw.y) + std::atan2(v.y, v.x);
  return FromCosine(cosH, phi);
}

double Microfacet::ProposalD(double cosH) const {
  if (isNeutral_) return D(cosH);
  const double c2 = std::min(1.0, cosH * cosH), root = c2 * proposal2_ + (1 - c2);
  return kInvPi * proposal2_ / (root * root);
}

double Microfacet::PdfHalf(double cosV, double cosH, double vDotH) const {
  if (!(cosV > 0) || !(cosH > 0) || !(vDotH > 0)) return 0;
  const double held = std::max(cosV, kLeastCosine);
  const double visible =
      isNeutral_ || HasCavities() ? G1(held, cosH, vDotH) : 1 / (1 + GgxLambda(held * held, proposal2_));
  return ProposalD(cosH) * visible * vDotH / held;
}

}  // namespace ovhost
