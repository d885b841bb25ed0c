// Asking points of parts what they let through.
#include "host/render/frame/part_classes.h"

#include <algorithm>

#include "host/base/sampler.h"
#include "host/render/shade/lobes.h"
#include "host/render/shade/shading_context.h"

namespace ovhost {
namespace {

/// Points at which parts are looked at: all together, and of one part.
constexpr int kAllProbes = 1 << 15, kLeastProbes = 64, kMostProbes = 2048;

/// What points spread over a part are like: whether some let light straight through, and whether some are
/// plain.
struct PartClasses {
  bool isClear = false, isPlain = false;
};

/// A drawn point of the part, seen from outside, a little off the surface.
void ShadeProbe(ShadingContext& shading, const SurfacePart& part, int probe) {
  const std::uint64_t random = MixBits64(0x5eed + probe);
  SurfaceHit hit;
  hit.part = &part;
  hit.primitive = static_cast<std::uint32_t>(random % part.NumPrimitives());
  hit.u = static_cast<double>(random >> 40) * 0x1p-24;
  hit.v = static_cast<double>(random >> 16 & 0xffffff) * 0x1p-24;
  part.MapToPrimitive(hit.u, hit.v);
  hit.faceNormal = {0, 1, 0};
  SurfacePoint point;
  shading.hits.Locate(hit, part.PointAt(hit.primitive, hit.u, hit.v), {0, -1, 0}, 0, point);
  hit.faceNormal = point.normal;
  hit.distance = 1;
  shading.ShadeForLight(hit, point.relative + point.normal, -point.normal);
}

PartClasses ClassesOf(ShadingContext& shading, const SurfacePart& part, int probes) {
  PartClasses found;
  if (part.NumPrimitives() == 0) return found;
  for (int i = 0; i < probes && !(found.isClear && found.isPlain); ++i) {
    ShadeProbe(shading, part, i);
    const trBsdf& bsdf = shading.si.Bsdf();
    const trFCol& opacity = shading.si.Oo_surf();
    found.isPlain |= IsPlain(bsdf, opacity);
    found.isClear |= !StraightThrough(bsdf, opacity, false).IsBlack();
  }
  return found;
}

}  // namespace

bool ClassifyParts(LitScene& scene, const std::vector<SurfacePart*>& parts) {
  // Small clear spots are found where there are few parts to look at.
  const int probes = std::clamp(kAllProbes / static_cast<int>(parts.size() + 1), kLeastProbes, kMostProbes);
  ShadingContext shading(scene, scene);
  bool hasSeeThrough = false;
  for (SurfacePart* part : parts) {
    if (scene.IsPausingOrAborting()) break;
    const PartClasses classes = ClassesOf(shading, *part, probes);
    part->mayBePlain = classes.isPlain;
    part->isSeeThrough = classes.isClear && (part->rayKinds & kShadowRays);
    hasSeeThrough |= part->isSeeThrough;
  }
  return hasSeeThrough;
}

}  // namespace ovhost
