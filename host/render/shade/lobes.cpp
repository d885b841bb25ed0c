// Choosing among lobes and evaluating them.
#include "host/render/shade/lobes.h"

#include <algorithm>
#include <cmath>

#include "host/base/tangents.h"

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979;
/// Roughness of the facets whose slopes vary as those of a bent surface do over a pixel, for each radian that
/// its normal turns from the pixel's middle to its edge.
constexpr double kRoughnessOfTurn = 0.816;
constexpr int kBeckmannSmith = 2;

/// What is left of the positive lobes of a kind after its negative ones have taken theirs, as a factor.
trFCol ShareLeft(const trBsdf& bsdf, int kind) {
  trFCol gives, takes;
  for (int i = 0; i < bsdf.NumLobes(); ++i) {
    const trLobe& lobe = bsdf.Lobe(i);
    if (lobe.kind != kind) continue;
    gives += PositivePart(lobe.colour);
    takes += PositivePart(lobe.colour * -1.0f);
  }
  trFCol share(1.0f);
  for (int c = 0; c < 3; ++c)
    if (takes[c] > 0) share[c] = gives[c] > takes[c] ? (gives[c] - takes[c]) / gives[c] : 0.0f;
  return share;
}

bool IsClearSheet(const trLobe& lobe) {
  return lobe.kind == trLobe::kSpecularTransmission && lobe.thin && lobe.roughness <= kStraightRoughness;
}

}  // namespace

trVector CosineDirection(const trVector& normal, const tr2Vector& draw) {
  const double a = 2 * draw.x - 1, b = 2 * draw.y - 1;
  double r, phi;
  if (a == 0 && b == 0) {
    r = phi = 0;
  } else if (std::fabs(a) > std::fabs(b)) {
    r = a;
    phi = kPi / 4 * (b / a);
  } else {
    r = b;
    phi = kPi / 2 - kPi / 4 * (a / b);
  }
  trVector side, front;
  MakeTangents(normal, side, front);
  return side * (r * std::cos(phi)) + front * (r * std::sin(phi)) +
         normal * std::sqrt(std::fmax(0, 1 - r * r));
}

bool IsPlain(const trBsdf& bsdf, const trFCol& opacity) {
  if (opacity != trFCol(1.0f)) return false;
  for (int i = 0; i < bsdf.NumLobes(); ++i) {
    const trLobe& lobe = bsdf.Lobe(i);
    if (lobe.kind != trLobe::kDiffuseReflection && !lobe.colour.IsBlack()) return false;
  }
  return true;
}

trFCol CoverOf(const trFCol& opacity) {
  trFCol cover;
  for (int c = 0; c < 3; ++c) cover[c] = opacity[c] > 0 ? std::min(opacity[c], 1.0f) : 0.0f;
  return cover;
}

trFCol StraightThrough(const trBsdf& bsdf, const trFCol& opacity, bool bordersToo) {
  const trFCol share = ShareLeft(bsdf, trLobe::kSpecularTransmission);
  trFCol clear;
  for (int i = 0; i < bsdf.NumLobes(); ++i) {
    const trLobe& lobe = bsdf.Lobe(i);
    const bool isBorder = bordersToo && lobe.kind == trLobe::kSpecularTransmission && !lobe.thin;
    if (isBorder || IsClearSheet(lobe)) clear += PositivePart(lobe.colour) * share;
  }
  const trFCol cover = CoverOf(opacity);
  trFCol through;
  for (int c = 0; c < 3; ++c) through[c] = std::min(1.0f - cover[c] + cover[c] * clear[c], 1.0f);
  return through;
}

void LobeSet::Make(const trBsdf& bsdf, const trVector& toViewer, const trVector& normal,
                   const trVector& face) {
  toViewer_ = toViewer;
  normal_ = normal;
  face_ = face;
  diffuse_ = PositivePart(bsdf.ColourOf(trLobe::kDiffuseReflection));
  translucency_ = PositivePart(bsdf.ColourOf(trLobe::kDiffuseTransmission));
  gathered_ = PositivePart(bsdf.ColourOf(trLobe::kLight));
  count_ = 0;
  for (const int kind : {trLobe::kSpecularReflection, trLobe::kSpecularTransmission}) {
    const trFCol share = ShareLeft(bsdf, kind);
    for (int i = 0; i < bsdf.NumLobes(); ++i)
      if (bsdf.Lobe(i).kind == kind) AddSpecular(bsdf, bsdf.Lobe(i), share);
  }
}

void LobeSet::AddSpecular(const trBsdf& bsdf, const trLobe& lobe, const trFCol& scale) {
  trLobe kept = lobe;
  kept.colour = PositivePart(lobe.colour) * scale;
  if (kept.colour.IsBlack()) return;
  const double facing = Dot(kept.normal, toViewer_);
  if (!(kept.normal.LengthSquared() > 0.5) || facing == 0) kept.normal = normal_;
  if (facing < 0) kept.normal = -kept.normal;
  Lobe& added = lobes_[count_++];
  added.colour = kept.colour;
  added.normal = kept.normal;
  added.roughness = kept.roughness;
  added.lightGain = kept.lightGain > 0 && std::isfinite(kept.lightGain) ? kept.lightGain : 0.0f;
  added.isTransmission = kept.kind == trLobe::kSpecularTransmission;
  added.isThin = kept.thin != 0;
  added.isStraight = IsClearSheet(kept);
  added.medium = bsdf.Medium(kept);
  added.chance = 0;
  added.shape.emplace(kept, toViewer_);
  added.isMirror = added.isStraight || added.shape->IsMirror();
  added.lit.reset();
  added.shownDiscs = 0;
}

void LobeSet::ShowSmallDiscs(double turn, double opening) {
  for (int i = 0; i < count_; ++i) {
    Lobe& lobe = lobes_[i];
    if (lobe.isStraight) continue;
    trLobe lit = lobe.shape->Source();
    // The half vectors by which a change of the viewer's direction is made up for.
    const double index = std::fabs(lit.index);
    const double bend = !lobe.isTransmission || lobe.isThin ? 0.5 : 1 / std::fmax(std::fabs(index - 1), 0.1);
    const double roughness = kRoughnessOfTurn * (turn + opening * bend);
    const bool isBlurred = roughness > lobe.roughness && roughness < 1;
    const bool isTurned = lit.litNormal.LengthSquared() > 0.5 && Dot(lit.litNormal, toViewer_) > 0 &&
                          lit.litNormal != lobe.normal;
    if (!isBlurred && !isTurned) continue;
    lobe.shownDiscs = lobe.roughness;
    if (isTurned) lit.normal = lit.litNormal;
    if (isBlurred) {
      lobe.shownDiscs = 2 * roughness;
      lit.roughness = static_cast<float>(std::hypot(roughness, lobe.roughness));
      lit.model = lit.facets = kBeckmannSmith;
      lit.invTweak = 2;
    }
    lobe.lit.emplace(lit, toViewer_);
    lobe.lit->ScaleAs(*lobe.shape);
  }
}

trFCol LobeSet::Albedo() const {
  trFCol sum = diffuse_ + translucency_;
  for (int i = 0; i < count_; ++i) sum += lobes_[i].colour;
  return {std::min(sum.r, 1.0f), std::min(sum.g, 1.0f), std::min(sum.b, 1.0f)};
}

trFCol LobeSet::SpecularColour(bool transmission) const {
  trFCol sum;
  for (int i = 0; i < count_; ++i)
    if (lobes_[i].isTransmission == transmission) sum += lobes_[i].colour;
  return sum;
}

bool LobeSet::Weigh(const trFCol& throughput, const Allowed& allowed) {
  const auto weight = [&throughput](const trFCol& colour) { return (throughput * colour).MaxChannel(); };
  diffuseChance_ = allowed.diffuse ? weight(diffuse_) : 0.0f;
  translucencyChance_ = allowed.diffuse ? weight(translucency_) : 0.0f;
  float sum = diffuseChance_ + translucencyChance_;
  for (int i = 0; i < count_; ++i) {
    lobes_[i].chance = allowed.specular ? weight(lobes_[i].shape->Expected()) : 0.0f;
    sum += lobes_[i].chance;
  }
  if (!(sum > 0) || !std::isfinite(sum)) return false;
  const float scale = 1 / sum;
  diffuseChance_ *= scale;
  translucencyChance_ *= scale;
  for (int i = 0; i < count_; ++i) lobes_[i].chance *= scale;
  return true;
}

bool LobeSet::Sample(double choice, const tr2Vector& draw, Sampled& out) const {
  if (choice < diffuseChance_) return SampleDiffuse(false, draw, out);
  choice -= diffuseChance_;
  if (choice < translucencyChance_) return SampleDiffuse(true, draw, out);
  choice -= translucencyChance_;
  const Lobe* last = nullptr;
  for (int i = 0; i < count_; ++i) {
    if (lobes_[i].chance <= 0) continue;
    last = &lobes_[i];
    if (choice < last->chance) break;
    choice -= last->chance;
  }
  // Rounding may leave a little over for the last lobe.
  if (last) return SampleSpecular(*last, draw, out);
  return diffuseChance_ > 0 && SampleDiffuse(false, draw, out);
}

bool LobeSet::SampleDiffuse(bool through, const tr2Vector& draw, Sampled& out) const {
  const trVector normal = through ? -normal_ : normal_;
  out = Sampled();
  out.direction = CosineDirection(normal, draw);
  // A shading normal's hemisphere reaches behind the face: nothing comes from there.
  if (Dot(out.direction, through ? -face_ : face_) <= 0) return false;
  const float chance = through ? translucencyChance_ : diffuseChance_;
  out.weight = (through ? translucency_ : diffuse_) * (1 / chance);
  out.pdf = Dot(out.direction, normal) / kPi * chance;
  return true;
}

bool LobeSet::SampleSpecular(const Lobe& lobe, const tr2Vector& draw, Sampled& out) const {
  out = Sampled();
  out.kind = lobe.isTransmission ? LightKind::kTransmission : LightKind::kSpecular;
  out.roughness = lobe.roughness;
  out.lightGain = lobe.lightGain;
  out.medium = lobe.medium;
  out.isStraight = lobe.isStraight;
  out.isAcross = lobe.isTransmission && !lobe.isThin;
  out.shownDiscs = lobe.shownDiscs;
  if (lobe.isStraight) {
    out.direction = -toViewer_;
    out.weight = lobe.colour * (1 / lobe.chance);
    return true;
  }
  SpecularLobe::Sampled sampled;
  if (!lobe.shape->Sample(draw, sampled)) return false;
  // What a bent normal sends to the wrong side of the face comes back as from a mirror.
  const double side = Dot(sampled.toLight, face_);
  if (lobe.isTransmission ? side > 0 : side < 0)
    sampled.toLight = Normalised(sampled.toLight - face_ * (2 * side));
  out.direction = sampled.toLight;
  out.weight = sampled.weight * (1 / lobe.chance);
  out.pdf = sampled.pdf * lobe.chance;
  return true;
}

LobeSet::Lit LobeSet::Evaluate(const trVector& direction, double lightPdf, double lightRadius,
                               bool transmits) const {
  Lit lit;
  const double cosine = Dot(normal_, direction);
  const bool isFacing = Dot(face_, direction) > 0;
  // A lit shading normal over a turned-away face is the face's own shadow.
  if (cosine > 0 && isFacing) lit.diffuse = diffuse_ * static_cast<float>(cosine / kPi);
  if (cosine < 0) lit.diffuse = translucency_ * static_cast<float>(-cosine / kPi);
  for (int i = 0; i < count_; ++i) {
    const Lobe& lobe = lobes_[i];
    const bool isSmall = lightRadius < lobe.shownDiscs;
    if ((lobe.isMirror && !isSmall) || lobe.isTransmission == isFacing) continue;
    if (lobe.isTransmission && !lobe.isThin && !transmits) continue;
    trFCol value;
    if (isSmall) {
      value = lobe.lit->Evaluate(direction) * lobe.lightGain;
    } else {
      const double pdf = lobe.shape->Pdf(direction) * lobe.chance;
      value = lobe.shape->Evaluate(direction) *
              (lobe.lightGain * static_cast<float>(PowerHeuristic(lightPdf, pdf)));
    }
    (lobe.isTransmission ? lit.transmission : lit.specular) += value;
  }
  return lit;
}

}  // namespace ovhost
