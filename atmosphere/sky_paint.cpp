// Paint on the sky: lookups, and the merge of several paints.
#include "atmosphere/sky_paint.h"

#include <algorithm>

namespace {

/// Viewpoints nearer to each other than the digits that a project keeps of them are one.
bool IsSamePlace(const trVector& a, const trVector& b) {
  const auto same = [](double p, double q) {
    return std::fabs(p - q) <= 1e-6 * std::max({1.0, std::fabs(p), std::fabs(q)});
  };
  return same(a.x, b.x) && same(a.y, b.y) && same(a.z, b.z);
}

/// What one ink over another leaves uncovered is the product of what each leaves.
float Covered(float p, float q) { return 1.0f - (1.0f - std::min(p, 1.0f)) * (1.0f - std::min(q, 1.0f)); }

}  // namespace

void SkyPaint::Sample(trFCol& result, const trShadingInterface& si, long index) const {
  result = trFCol();
  if (index < 0 || index >= trSkyPaintStore::kViewpoints) return;
  const trSkyPaintGuard::Reader reader(store_.guard, si.Thread());
  if (!reader.MayRead()) return;
  const trSkyPaintStore::Record& record = store_.records[static_cast<std::size_t>(index)];
  if (!record.isInUse) return;
  const trSkyPaintSpot spot = trSkyPaintSpotOf(si.P() - record.position);
  if (spot.face == trSkyPaintFace::kNone) return;
  const trImage& face = record.face[static_cast<int>(spot.face)];
  result = face.FColInterpolateBilinear(spot.u * static_cast<float>(face.width),
                                        spot.v * static_cast<float>(face.height), false, false);
}

std::vector<trSkyPaintViewpoint> SkyPaint::Viewpoints() {
  std::vector<trSkyPaintViewpoint> list;
  for (const trSkyPaintStore::Record& record : store_.records)
    list.push_back({record.isInUse, record.position});
  return list;
}

void* SkyPaint::RequestMember(const char* name) {
  return trString(name) == "sky paint store" ? &store_ : SkyPaintBase::RequestMember(name);
}

// ---------------------------------------------------------------------------------------------------------------

SkyPaintMerge::SkyPaintMerge() {
  constexpr const char* kNames[kInputs] = {"paint_1", "paint_2", "paint_3", "paint_4"};
  for (int i = 0; i < kInputs; ++i)
    Param(input_[i], kNames[i], "")
        .About("A sky paint to merge: where any of them has paint, the merge has.");
}

std::vector<trSkyPaintViewpoint> SkyPaintMerge::Viewpoints() {
  if (isListing_) return {};
  isListing_ = true;
  sources_.clear();
  std::vector<trSkyPaintViewpoint> merged;
  std::vector<const SkyPaintBase*> seen;
  for (const trSkyPaintLink& link : input_) {
    auto* const paint = static_cast<SkyPaintBase*>(link.LinkedNode(true));
    if (!paint || std::find(seen.begin(), seen.end(), paint) != seen.end()) continue;
    seen.push_back(paint);
    const std::vector<trSkyPaintViewpoint> own = paint->Viewpoints();
    for (std::size_t k = 0; k < own.size(); ++k) {
      if (!own[k].isInUse) continue;
      const auto same = std::find_if(merged.begin(), merged.end(), [&](const trSkyPaintViewpoint& other) {
        return IsSamePlace(other.position, own[k].position);
      });
      sources_.push_back({paint, static_cast<long>(k), static_cast<long>(same - merged.begin())});
      if (same == merged.end()) merged.push_back(own[k]);
    }
  }
  isListing_ = false;
  return merged;
}

void SkyPaintMerge::Sample(trFCol& result, const trShadingInterface& si, long index) const {
  result = trFCol();
  for (const Source& source : sources_) {
    if (source.merged != index) continue;
    trFCol own;
    source.paint->Sample(own, si, source.index);
    result = {Covered(result.r, own.r), Covered(result.g, own.g), Covered(result.b, own.b)};
  }
}
