// From a render node's parameters to the engines' settings.
#include "host/render/engine/engine_settings.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

/// Longest edge of a micropolygon at detail 1, pixels. Patches are cut in halves, so edges measure 0.9
/// to 1.8.
constexpr double kEdgePixels = 2.0;
/// What a surface may have outside the view, where vertices don't go by pixels.
constexpr double kVerticesOutOfView = 1e6;
/// Entries of the cache of indirect light for each pixel; what it has for rays that roam scenes however small
/// the picture is; and its share of the memory at most.
constexpr double kCachedPerPixel = 2, kLeastCached = 1 << 20, kCacheShare = 0.1;

/// How many vertices a surface may have; 0 for no limit.
std::uint64_t PictureVertices(double pixels, double edgePixels, double perPixel) {
  if (!(perPixel > 0)) return 0;
  const double detail = kEdgePixels / edgePixels;
  return static_cast<std::uint64_t>(
      std::fmin(kVerticesOutOfView + perPixel * pixels * detail * detail, 0x1p60));
}

}  // namespace

EngineSettings SettingsOf(const trRenderNode& node, double pixels) {
  EngineSettings settings;
  settings.edgePixels = kEdgePixels / std::clamp(node.Detail(), 0.01, 16.0);
  settings.pictureVertices = PictureVertices(pixels, settings.edgePixels, node.DicingLimit());
  settings.compensatesEnergy = node.CompensatesEnergy();
  settings.cloudSteps = node.CloudSteps();

  PathSettings& path = settings.path;
  path.maxBounces = static_cast<int>(std::clamp<long>(node.MaxBounces(), 0, 64));
  path.maxSpecularBounces = static_cast<int>(std::clamp<long>(node.MaxSpecularBounces(), 0, 256));
  path.clampIndirect = static_cast<float>(node.ClampIndirect());
  path.rouletteStart = static_cast<int>(std::clamp<long>(node.RouletteStart(), 0, 64));
  path.leastSurvival = node.RouletteStart() < 0 ? 1 : std::clamp(node.LeastSurvival(), 0.0, 1.0);
  path.followsMatter = node.FollowsLightThroughClouds();
  path.filter =
      PixelFilter(static_cast<PixelFilter::Shape>(std::clamp<long>(node.Filter(), 0, 3)), node.FilterWidth());

  settings.indirect.rays = static_cast<int>(std::clamp<long>(node.IndirectSamples(), 1, 1 << 16));
  settings.indirect.spacing = std::clamp(node.IndirectSpacing(), 0.1, 1000.0);
  settings.trace.maxDepth = path.maxSpecularBounces + 1;
  settings.trace.leastImportance = std::clamp(node.LeastImportance(), 0.0, 1.0);
  return settings;
}

std::unique_ptr<LightCache> MakeLightCache(double pixels, std::uint64_t memory) {
  const double wanted =
      std::min(std::max(pixels * kCachedPerPixel, kLeastCached),
               static_cast<double>(memory) * kCacheShare / static_cast<double>(LightCache::kEntryBytes));
  return std::make_unique<LightCache>(std::clamp(static_cast<int>(std::log2(wanted + 1)), 10, 26));
}

}  // namespace ovhost
