// Gathering, keeping and blending indirect light.
#include "host/render/engine/indirect_light.h"

#include <algorithm>
#include <bit>

namespace ovhost {
namespace {

/// Paths of a gathering haven't been dimmed by the surface yet, and many are averaged: they may be brighter
/// than those of a pixel.
constexpr float kLooserClamp = 4;
/// How much wider points lie, and how many fewer bounces they take, where only rays see them.
constexpr int kUnseenSpacing = 2, kUnseenShare = 4;
/// Bounces nearer to the horizon than this cosine count as if they weren't, for the direction of light.
constexpr double kLeastCosine = 0.1;
/// What a vertex that faces quite another way still counts.
constexpr double kLeastAgreement = 0.05;

PathSettings ForGathering(PathSettings settings) {
  settings.clampIndirect *= kLooserClamp;
  settings.followsMatter = false;
  return settings;
}

/// Two vertices at one place with one normal have one key, whatever they are part of.
std::uint64_t KeyOf(const NearVertex& vertex, int rays, bool isOutside, bool isInside) {
  const trFVector& p = vertex.point;
  std::uint64_t key =
      MixBits64(std::uint64_t(std::bit_cast<std::uint32_t>(p.x)) << 32 | std::bit_cast<std::uint32_t>(p.y));
  key = MixBits64(key ^ (std::uint64_t(std::bit_cast<std::uint32_t>(p.z)) << 32 | vertex.normal.bits));
  return MixBits64(key + 4 * static_cast<std::uint64_t>(rays) + 2 * isInside + isOutside) | 1;
}

}  // namespace

IndirectLight::IndirectLight(LitScene& scene, const PathSettings& path, const IndirectSettings& settings,
                             LightCache& cache)
    : scene_(scene),
      settings_(settings),
      cache_(cache),
      gatherer_(scene, ForGathering(path)),
      isDark_(path.maxBounces < 1 || scene.SkyOnSurfaces().IsBlack()) {}

trFCol IndirectLight::At(const SurfaceHit& hit, const SurfacePoint& point, const trVector& normal,
                         bool isSeen, const SurfacePart* inside, PixelSampler& sampler) {
  if (isDark_) return {};
  NearVertex vertices[SurfacePart::kMostNear];
  const double spacing = settings_.spacing * 2 * point.footprint * (isSeen ? 1 : kUnseenSpacing);
  const int count = hit.levels == 0 ? hit.part->VerticesNear(hit, spacing, isSeen, vertices) : 0;
  if (count > 0) {
    const int rays = isSeen ? settings_.rays : std::max(1, settings_.rays / kUnseenShare);
    const bool isOutside = Dot(normal, hit.faceNormal) > 0;
    return Blended(vertices, count, normal, isOutside, rays, inside) * scene_.SkyOnSurfaces();
  }
  const trVector face = Dot(normal, point.face) > 0 ? point.face : -point.face;
  const tr2Vector draw = sampler.Next();
  const trVector direction = CosineDirection(normal, draw);
  if (Dot(direction, face) <= 0) return {};
  const auto random =
      static_cast<std::uint64_t>(draw.x * 0x1p32) << 32 | static_cast<std::uint64_t>(draw.y * 0x1p32);
  return gatherer_.Gather(point.relative + face * point.rayOffset, direction, point.rayOffset, sampler,
                          MixBits64(random), inside) *
         scene_.SkyOnSurfaces();
}

trFCol IndirectLight::Blended(const NearVertex* vertices, int count, const trVector& normal, bool isOutside,
                              int rays, const SurfacePart* inside) {
  trFCol sum;
  double weights = 0;
  for (int i = 0; i < count; ++i) {
    const NearVertex& vertex = vertices[i];
    trVector vertexNormal = vertex.normal.Unpack();
    if (!isOutside) vertexNormal = -vertexNormal;
    const double weight = vertex.weight * std::fmax(Dot(vertexNormal, normal), kLeastAgreement);
    const std::uint64_t key = KeyOf(vertex, rays, isOutside, inside != nullptr);
    const CachedLight light =
        cache_.Find(key, [&] { return AtVertex(trVector(vertex.point), vertexNormal, rays, key, inside); });
    sum += light.For(normal) * static_cast<float>(weight);
    weights += weight;
  }
  return sum * static_cast<float>(1 / weights);
}

CachedLight IndirectLight::AtVertex(const trVector& point, const trVector& normal, int rays,
                                    std::uint64_t key, const SurfacePart* inside) {
  const double offset = RayOffset(point);
  const trVector origin = point + normal * offset;
  CachedLight light;
  for (int i = 0; i < rays; ++i) {
    PixelSampler sampler(key, static_cast<std::uint32_t>(i));
    const trVector direction = CosineDirection(normal, sampler.Next());
    const trFCol bounce = gatherer_.Gather(origin, direction, offset, sampler, key + i, inside);
    light.even += bounce;
    const double scale = 1 / std::fmax(Dot(direction, normal), kLeastCosine);
    for (int axis = 0; axis < 3; ++axis)
      light.along[axis] += bounce * static_cast<float>(direction[axis] * scale);
  }
  const float share = 1.0f / static_cast<float>(rays);
  light.even *= share;
  for (trFCol& along : light.along) along *= share;
  return light;
}

}  // namespace ovhost
