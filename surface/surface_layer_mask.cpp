// The mask of surface_layer: limits, mask shader, intersection, breakup, softening, cheap rejections first.
#include <atomic>

#include "surface/surface_layer.h"

namespace {

constexpr long kFavourRises = 1, kDisplacementIntersection = 2;
constexpr double kSmallestZone = 0.0001;
constexpr float kSmallestRatio = 1e-6f;

/// Smooth step of the mask over a ramp that widens with the square of the softness.
trFCol Softened(const trFCol& v, float softness) {
  const float k = 1.0f / GuardedDenominator(softness);
  trFCol mask;
  for (int i = 0; i < 3; ++i) {
    const float u = std::clamp(v[i] * k * k, 0.0f, 1.0f);
    mask[i] = (3.0f - 2.0f * u) * u * u;
  }
  return mask;
}

}  // namespace

double SurfaceLayer::LimitFactor(trShadingInterface& si, bool exact) const {
  return 1.0 - compass_.Terms(si, exact) - slope_.Terms(si, exact) - altitude_.Terms(si, exact);
}

void SurfaceLayer::Found::Restore(trShadingInterface& si) const {
  si.Pg() = pg;
  si.Pt() = pt;
  si.P() = p;
  si.Ng() = ng;
  si.Nt() = nt;
  si.N() = n;
}

trFCol SurfaceLayer::Mask(trShadingInterface& si, Pass pass, Underlying& base) {
  const Found found(si);
  if (!intersectUnderlying_) return MaskInPlace(si, pass, found, base);

  si.Pt() = si.P() = found.pg;
  si.Nt() = si.N() = found.ng;
  DisplaceInput(si);
  base = {si.Pt(), si.P(), si.N()};
  const trFCol mask = MaskInPlace(si, pass, found, base);
  if (pass == Pass::kShade) found.Restore(si);
  return mask;
}

trFCol SurfaceLayer::MaskInPlace(trShadingInterface& si, Pass pass, const Found& found,
                                 const Underlying& base) {
  if (breakup_.coverage <= 0) return {};
  const bool isDisplacing = pass == Pass::kDisplace;
  const double limits = LimitFactor(si, isDisplacing ? exactForDisplacement_ : exactForShading_);
  if (limits <= 0) return {};
  trFCol mask(Tamed(static_cast<float>(limits * breakup_.coverage)));

  float byShader = 1;
  if (!maskShader_.Apply(si, mask, byShader)) return mask;

  if (intersectUnderlying_) {
    if (!Intersect(si, pass, base, mask)) return {};
    // Colour is broken up where it is shaded, in the texture space that transforms and warps have made.
    if (!isDisplacing) found.Restore(si);
  }

  // A new layer breaks up colour alone: its displacement keeps its smooth outline.
  trFCol broken = mask;
  if (!(isDisplacing && onlyBreakupColour_) && !breakup_.Apply(si, broken)) return broken;
  if (broken.MaxChannel() <= 0) return {};
  mask = Softened(broken, isDisplacing ? 1.0f : static_cast<float>(fuzzyZoneSoftness_));
  return maskShader_.asCoverage ? mask : mask * byShader;
}

bool SurfaceLayer::Intersect(trShadingInterface& si, Pass pass, const Underlying& base, trFCol& mask) {
  // Where this layer's surface would lie.
  const bool isDisplacing = pass == Pass::kDisplace,
             isByDisplacement = intersectionMode_ == kDisplacementIntersection;
  trVector top = si.Pt();
  if (isByDisplacement || isDisplacing) DisplaceLayer(si);
  if (isByDisplacement) top = si.P();

  // The sheet shows the width in force; every thread stores the same.
  const std::atomic_ref<double> wantedZone(intersectionZone_);
  double zone = wantedZone.load(std::memory_order_relaxed);
  if (!(zone >= kSmallestZone)) wantedZone.store(zone = kSmallestZone, std::memory_order_relaxed);
  const double cover = Luminance(mask), steepness = cover / zone;
  if (steepness <= kSmallestRatio) return false;

  // How far it is raised or sunk for its cover, and its height over what lies beneath.
  double shift = (1 - cover) * minIntersectionShift_ + cover * intersectionShift_ + (cover - 0.5) / steepness;
  if (intersectionMode_ == kFavourRises) shift -= 2 * Dot(top - base.p, base.n);
  const double weight = isByDisplacement ? 1 : smoothingEffect_ ? smoothingAmount_ : 0;
  si.P() += base.n * (weight * shift);
  const float height = Tamed(static_cast<float>(Dot(top + base.n * shift - base.p, base.n)));
  for (int i = 0; i < 3; ++i)
    mask[i] = std::clamp(static_cast<float>(mask[i] / zone) * height + 0.5f, 0.0f, 1.0f);

  if (isDisplacing) {
    const double raised = 1 - SmoothStep(Luminance(mask));
    si.P() += base.n * (raised * zone * 0.5 * weight);
  }
  return true;
}
