// What a cloud layer is at a point, for light that is followed from scattering to scattering.
#include <algorithm>

#include "atmosphere/cloud_layer_v2.h"

namespace {

/// What final modulators and paint make thicker than this many times full density counts as that.
constexpr float kMostModulation = 2.0f;

}  // namespace

bool CloudLayerV2::HasMatter() const { return isDeclared_ && IsEnabled() && !derived_.isEmpty; }

double CloudLayerV2::GreatestExtinction() const {
  const bool isModulated = derived_.Link(CloudLink::kFinalDensity) || settings_.enablePaint || hooks_;
  return std::max(0.0f, derived_.sigma.MaxChannel()) * (isModulated ? kMostModulation : 1.0f);
}

trVolumeMatter CloudLayerV2::MatterAt(trRenderState& state, const trVector& point) {
  trVolumeMatter matter;
  if (!HasMatter()) return matter;
  CloudProbe probe = Probe(state);
  probe.MoveTo(point);
  const double shellHeight = probe.Height();
  const float local = probe.LocalEnvelope();
  CloudSample sample;
  if (!(shellHeight >= 0 && shellHeight < 1) || !(local > 1e-6f) ||
      probe.Sample(local, sample) != CloudProbe::Found::kCloud)
    return matter;
  const auto bound = static_cast<float>(GreatestExtinction());
  for (int c = 0; c < 3; ++c) {
    matter.extinction[c] = std::clamp(sample.opacity[c] * derived_.sigma[c], 0.0f, bound);
    matter.albedo[c] = std::clamp(4.0f * derived_.cloudColour[c], 0.0f, 1.0f);
  }
  return matter;
}
