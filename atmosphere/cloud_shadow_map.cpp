// The opacity of a cloud layer seen from straight above, in place of its shadow rays.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "atmosphere/cloud_bake.h"
#include "atmosphere/cloud_layer_v2.h"

namespace {

constexpr int kMostPixels = 32768;

float* Row(trFloatMap& map, int y) { return static_cast<float*>(map.ScanlineRaw(y)); }

int SizeOf(double pixels) {
  return static_cast<int>(std::clamp(std::floor(pixels), 1.0, static_cast<double>(kMostPixels)));
}

/// A cone over an ellipse, of sum 1. Rows of `width` weights.
std::vector<float> ConeKernel(double radiusX, double radiusY, int width, int height) {
  std::vector<float> kernel(static_cast<size_t>(width) * static_cast<size_t>(height));
  double sum = 0;
  for (int row = 0; row < height; ++row)
    for (int column = 0; column < width; ++column) {
      const double i = (column - width / 2) / (radiusX + 1), j = (row - height / 2) / (radiusY + 1);
      const double weight = std::max(0.0, 1.0 - std::sqrt(i * i + j * j));
      kernel[static_cast<size_t>(row) * static_cast<size_t>(width) + static_cast<size_t>(column)] =
          static_cast<float>(weight);
      sum += weight;
    }
  if (sum != 0)
    for (float& weight : kernel) weight = static_cast<float>(weight / sum);
  return kernel;
}

}  // namespace

void CloudLayerV2::PrepareShadowMap(trRenderState& state) {
  if (!IsEnabled() || !settings_.useShadowMap || !settings_.enableSecondary)
    shadowMap_.Cleanup();
  else
    GenerateShadowMap(state);
}

void CloudLayerV2::GenerateShadowMap(trRenderState& state) {
  const int width = SizeOf(settings_.shadowMapResolution.x), height = SizeOf(settings_.shadowMapResolution.y);
  const trScopedErrorsWarningsContext context(this);
  trPrintMessage("Generating 2D shadow map for " + Name() + "..");
  shadowMap_.Cleanup();
  if (!shadowMap_.Init(0, 0, width, height)) {
    trError("A shadow map of " + std::to_string(width) + " by " + std::to_string(height) +
            " can't be had. The cloud casts no shadow by it.");
    return;
  }
  shadowMap_.Clear();
  isShadowMapSolving_ = true;
  const bool isDone = FillShadowMap(state, width, height);
  isShadowMapSolving_ = false;
  if (!isDone) {
    trWarning("Aborted generating 2D shadow map");
    return;
  }
  trPrintMessage("Blurring");
  BlurShadowMap(settings_.shadowMapBlurRadius.x, settings_.shadowMapBlurRadius.y);
  trPrintMessage("Finished generating 2D shadow map");
}

bool CloudLayerV2::FillShadowMap(trRenderState& state, int width, int height) {
  const CloudNesting nesting(state, Thread(state));
  CloudDraws draws(state);
  trRenderState::Ray& ray = state.CurrentRay();
  ray.depth = 2;
  ray.wantsColour = false;
  ray.quality = 1;
  const trVector& centre = settings_.localSphereCentre;
  const double reach = settings_.localSphereRadius, stepX = 2 * reach / width, stepZ = 2 * reach / height;
  unsigned long progress = 0;
  for (int y = 0; y < height; ++y) {
    if (!ReportProgress(progress, "Generating 2D shadow map",
                        static_cast<float>(y) / static_cast<float>(height), -1.0f))
      return false;
    float* const row = Row(shadowMap_, y);
    for (int x = 0; x < width; ++x) {
      // A line straight down in the world, through the layer at its local sphere.
      const double px = (x + 0.5 - width * 0.5) * stepX + centre.x,
                   pz = (y + 0.5 - height * 0.5) * stepZ + centre.z;
      ray.origin = {px, centre.y - settings_.depth, pz};
      ray.end = {px, centre.y + settings_.depth, pz};
      draws.Restart(static_cast<std::uint64_t>(y) * kMostPixels + static_cast<std::uint64_t>(x));
      row[x] = std::clamp(Luminance(trFCol(1.0f) - MarchAlone(state)), 0.0f, 1.0f);
    }
  }
  ReportProgress(progress, "Generating 2D shadow map", 1.0f, -1.0f);
  return true;
}

void CloudLayerV2::BlurShadowMap(double radiusX, double radiusY) {
  if (!(radiusX >= 0) || !(radiusY >= 0) || (radiusX == 0 && radiusY == 0)) return;
  const int width = shadowMap_.width, height = shadowMap_.height;
  // A kernel that reaches past the map on both sides has the whole map under its middle.
  const int halfX = static_cast<int>(std::min(std::ceil(radiusX), static_cast<double>(width))),
            halfY = static_cast<int>(std::min(std::ceil(radiusY), static_cast<double>(height)));
  const int across = 2 * halfX + 1, down = 2 * halfY + 1;
  const std::vector<float> kernel = ConeKernel(radiusX, radiusY, across, down);
  trFloatMap source;
  if (!source.Init(0, 0, width, height)) {
    trError("CloudLayerV2::Blur2dShadowMap was unable to create allocate temporary buffer");
    return;
  }
  for (int y = 0; y < height; ++y)
    std::memcpy(Row(source, y), Row(shadowMap_, y), static_cast<size_t>(width) * sizeof(float));
  unsigned long progress = 0;
  for (int y = 0; y < height; ++y) {
    if (!ReportProgress(progress, "Blurring 2D shadow map",
                        static_cast<float>(y) / static_cast<float>(height), -1.0f))
      return;
    float* const row = Row(shadowMap_, y);
    for (int x = 0; x < width; ++x) {
      float sum = 0;
      const float* weight = kernel.data();
      for (int j = -halfY; j <= halfY; ++j) {
        const float* const from = Row(source, std::clamp(y + j, 0, height - 1));
        for (int i = -halfX; i <= halfX; ++i) sum += *weight++ * from[std::clamp(x + i, 0, width - 1)];
      }
      row[x] = sum;
    }
  }
  ReportProgress(progress, "Blurring 2D shadow map", 1.0f, -1.0f);
}

trFCol CloudLayerV2::ShadowMapOpacity(const trVector& point) const {
  const int width = shadowMap_.width, height = shadowMap_.height;
  if (width < 1 || height < 1) return {};
  const double scale = SafeReciprocal(2 * settings_.localSphereRadius);
  const double u = (point.x - settings_.localSphereCentre.x) * width * scale + width * 0.5;
  const double v = (point.z - settings_.localSphereCentre.z) * height * scale + height * 0.5;
  return shadowMap_.FColLookupSmooth(u, v, false, false);
}
