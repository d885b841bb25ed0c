// Specular lobes as one viewer sees them.
#include "host/render/shade/specular_lobe.h"

#include <algorithm>
#include <cmath>

#include "core/guarded.h"
#include "core/reflection.h"
#include "host/base/tangents.h"
#include "host/render/shade/lobes.h"

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979323846;
/// Roughness up to which all light goes one way.
constexpr float kMirrorRoughness = 1e-4f;
/// Relative indices this near to 1 bend nothing.
constexpr double kSameIndex = 1e-4;
/// Mean cosine between a grazing viewer and the facets that it sees, for each unit of small roughness.
constexpr double kSeenSlope = 0.6;
/// Share of the facets that are taken to reflect totally, at most.
constexpr float kMostTotal = 0.25f;

float Ratio(float n, float d) {
  const float ratio = n / GuardedDenominator(d);
  return std::isfinite(ratio) ? ratio : 0.0f;
}

}  // namespace

float InterfaceFresnel(double index, double cosine) {
  const double sine2 = (1 - cosine * cosine) / (index * index);
  if (!(sine2 <= 1)) return 1;
  const double beyond = std::sqrt(1 - sine2);
  return index >= 1 ? trFresnel(index, cosine, beyond) : trFresnel(1 / index, beyond, cosine);
}

SpecularLobe::SpecularLobe(const trLobe& lobe, const trVector& toViewer)
    : lobe_(lobe),
      facets_(lobe.kind == trLobe::kSpecularTransmission ? lobe.facets : lobe.model, lobe.roughness,
              lobe.invTweak),
      normal_(lobe.normal) {
  isTransmission_ = lobe.kind == trLobe::kSpecularTransmission;
  MakeTangents(normal_, side_, front_);
  view_ = Local(toViewer);
  if (!(view_.z > 0) || lobe.colour.IsBlack()) {
    isBlack_ = true;
    return;
  }
  const double magnitude = std::fabs(lobe.index);
  index_ = magnitude > 1e-3 ? std::min(magnitude, 1e3) : 1e-3;
  const bool bendsNothing = isTransmission_ && !lobe.thin && std::fabs(index_ - 1) < kSameIndex;
  isMirror_ = !(lobe.roughness > kMirrorRoughness) || bendsNothing;

  // What layers above have left of the lobe: its colour over what it has at the normal.
  if (lobe.compensated && !isMirror_) {
    energy_.emplace(lobe, view_.z);
    const float broad = energy_->broad.MaxChannel();
    if (broad > 0) broadChance_ = broad / (broad + (energy_->albedo - energy_->broad).MaxChannel());
  } else {
    kappa_ = lobe.compensated ? 0 : trInterreflection(lobe.model, lobe.roughness2);
  }
  const trFCol own = energy_ ? energy_->albedo : WeightAt(view_.z);
  for (int k = 0; k < 3; ++k) scale_[k] = Ratio(lobe.colour[k], own[k]);
}

trFCol SpecularLobe::WeightAt(double vDotH) const {
  const float fresnel = InterfaceFresnel(index_, std::clamp(vDotH, 0.0, 1.0));
  if (isTransmission_) return (trFCol(1.0f) - lobe_.reflectivity * fresnel) * lobe_.base;
  return trRoughReflectance(lobe_.base, lobe_.edge, fresnel, lobe_.fresnelScale, kappa_).Total();
}

trFCol SpecularLobe::Expected() const {
  if (isBlack_ || isMirror_ || energy_) return lobe_.colour;
  const double slope = kSeenSlope * lobe_.roughness / std::hypot(1.0, lobe_.roughness);
  const double mean = std::fmin(std::hypot(view_.z, slope), 1.0), spread = slope * std::sqrt(1 - mean * mean);
  const trFCol near = (WeightAt(mean - spread) + WeightAt(mean) + WeightAt(mean + spread)) * (1.0f / 3);
  // From inside, few facets reflect much more than all others together.
  const float total = isTransmission_ || index_ >= 1 ? 0 : std::min(lobe_.roughness, kMostTotal);
  return (near + (WeightAt(0) - near) * total) * scale_;
}

bool SpecularLobe::Join(const trVector& light, Geometry& g) const {
  trVector half;
  if (!isTransmission_ || lobe_.thin) {
    // A thin wall passes on below what it would reflect above.
    const trVector mirrored = isTransmission_ ? trVector(light.x, light.y, -light.z) : light;
    if (!(mirrored.z > 0)) return false;
    half = Normalised(view_ + mirrored);
    g.lDotH = Dot(mirrored, half);
  } else {
    if (!(light.z < 0)) return false;
    half = Normalised(view_ + light * index_);
    if (half.z < 0) half = -half;
    g.lDotH = -Dot(light, half);
  }
  g.cosV = view_.z;
  g.cosL = std::fabs(light.z);
  g.cosH = half.z;
  g.vDotH = Dot(view_, half);
  return g.vDotH > 0 && g.lDotH > 0;
}

double SpecularLobe::Jacobian(const Geometry& g) const {
  if (!isTransmission_ || lobe_.thin) return 1 / std::max(4 * g.vDotH, 1e-12);
  // Walter et al. 2007, for half vectors of refraction.
  const double root = g.vDotH - index_ * g.lDotH;
  return index_ * index_ * g.lDotH / std::max(root * root, 1e-12);
}

trFCol SpecularLobe::Evaluate(const trVector& toLight) const {
  if (isBlack_ || isMirror_) return {};
  return EvaluateLocal(Local(toLight));
}

trFCol SpecularLobe::EvaluateLocal(const trVector& light) const {
  trFCol value;
  Geometry g;
  if (Join(light, g)) {
    double facets;
    if (isTransmission_ && !lobe_.thin)
      facets = facets_.D(g.cosH) * facets_.G1(g.cosV, g.cosH, g.vDotH) * facets_.G1(g.cosL, g.cosH, g.lDotH) *
               g.vDotH * Jacobian(g) / g.cosV;
    else
      facets = facets_.Reflection(g.cosV, g.cosL, g.cosH, g.vDotH) * g.cosL;
    value = WeightAt(g.vDotH) * scale_ * static_cast<float>(facets);
  }
  if (!energy_) return value;
  value *= energy_->gain;
  if (broadChance_ > 0 && light.z > 0)
    value += energy_->Broad(light.z) * scale_ * static_cast<float>(light.z / kPi);
  return value;
}

double SpecularLobe::Pdf(const trVector& toLight) const {
  return isBlack_ || isMirror_ ? 0 : PdfLocal(Local(toLight));
}

double SpecularLobe::PdfLocal(const trVector& light) const {
  Geometry g;
  double pdf = Join(light, g) ? facets_.PdfHalf(g.cosV, g.cosH, g.vDotH) * Jacobian(g) : 0;
  if (broadChance_ > 0) pdf = (1 - broadChance_) * pdf + broadChance_ * std::fmax(light.z, 0) / kPi;
  return pdf;
}

bool SpecularLobe::SampleMirror(Sampled& out) const {
  trVector local(-view_.x, -view_.y, view_.z);
  if (isTransmission_) {
    local = -view_;
    const double sine2 = (1 - view_.z * view_.z) / (index_ * index_);
    if (!lobe_.thin && sine2 <= 1) local = {-view_.x / index_, -view_.y / index_, -std::sqrt(1 - sine2)};
  }
  out = {World(local), lobe_.colour, 0};
  return true;
}

bool SpecularLobe::SampleFacets(const tr2Vector& draw, trVector& light) const {
  const trVector half = facets_.SampleHalf(view_, draw);
  const double vDotH = Dot(view_, half);
  if (!(vDotH > 0)) return false;
  light = half * (2 * vDotH) - view_;
  if (isTransmission_ && lobe_.thin) {
    light.z = -light.z;
  } else if (isTransmission_) {
    const double sine2 = (1 - vDotH * vDotH) / (index_ * index_);
    if (!(sine2 <= 1)) return false;
    light = half * (vDotH / index_ - std::sqrt(1 - sine2)) - view_ / index_;
  }
  Geometry g;
  return Join(light, g);
}

bool SpecularLobe::Sample(const tr2Vector& draw, Sampled& out) const {
  if (isBlack_) return false;
  if (isMirror_) return SampleMirror(out);
  trVector light;
  if (draw.x < broadChance_) {
    light = CosineDirection({0, 0, 1}, {draw.x / broadChance_, draw.y});
  } else {
    const double x = broadChance_ > 0 ? (draw.x - broadChance_) / (1 - broadChance_) : draw.x;
    if (!SampleFacets({x, draw.y}, light)) return false;
  }
  out.toLight = World(light);
  out.pdf = PdfLocal(light);
  if (!(out.pdf > 0)) return false;
  out.weight = Evaluate(out.toLight) * static_cast<float>(1 / out.pdf);
  return true;
}

}  // namespace ovhost
