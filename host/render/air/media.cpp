// Absorption and scattering along a path inside a surface.
#include "host/render/air/media.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

/// A decay distance up to this lets nothing through, metres.
constexpr double kOpaqueDistance = 1e-6;
/// Media that scatter less than this share of what they take out look black anyway.
constexpr float kLeastAlbedo = 1e-3f;

}  // namespace

PathMedium::PathMedium(const trMedium& medium) : source_(medium) {
  if (medium.decayDistance < 0 || !std::isfinite(medium.decayDistance)) return;
  isOpaque_ = medium.decayDistance <= kOpaqueDistance;
  const double scale = isOpaque_ ? 1.0 : 1.0 / medium.decayDistance;
  const double density = medium.volumeDensity > 0 ? std::min(medium.volumeDensity, 1e6) : 0.0;
  scatters_ = density > 0;
  scattering_ = static_cast<float>(density * scale);
  for (int c = 0; c < 3; ++c) {
    const float tint = std::isfinite(medium.decayTint[c]) ? medium.decayTint[c] : 0.0f;
    absorption_[c] = static_cast<float>(scale / std::max(tint, 1e-6f));
    extinction_[c] = absorption_[c] + scattering_;
  }
  method_ = medium.method == 1   ? MediumMethod::kTowardsNormal
            : medium.method == 2 ? MediumMethod::kAllDirections
                                 : MediumMethod::kHardSurface;
}

trFCol PathMedium::Albedo(const trFCol& scatteringColour) const {
  trFCol albedo;
  for (int c = 0; c < 3; ++c)
    albedo[c] = extinction_[c] > 0
                    ? std::clamp(scatteringColour[c], 0.0f, 1.0f) * scattering_ / extinction_[c]
                    : 0.0f;
  return albedo;
}

trFCol PathMedium::Transmittance(double length) const {
  if (isOpaque_) return {};
  const double legs = scatters_ ? 1 : 2;
  trFCol left;
  for (int c = 0; c < 3; ++c) left[c] = static_cast<float>(std::exp(-legs * extinction_[c] * length));
  return left;
}

trFCol PathMedium::OfSurroundings(const trFCol& scatteringColour) const {
  const trFCol albedo = Albedo(scatteringColour), reflected = DeepReflectance(albedo);
  trFCol light;
  for (int c = 0; c < 3; ++c) light[c] = reflected[c] / std::max(albedo[c], kLeastAlbedo);
  return light;
}

trFCol PathMedium::OfBeam(const trFCol& scatteringColour, double cosine, double length) const {
  // Scattered light goes on into the depth: what is left of a beam and of its light decays slower than the
  // beam alone, at the rate of diffusion in the limit of little absorption.
  const trFCol albedo = Albedo(scatteringColour);
  trFCol light = OfSurroundings(scatteringColour) * static_cast<float>(cosine);
  for (int c = 0; c < 3; ++c) {
    const float slower = std::sqrt(1 - std::min(albedo[c], 1.0f));
    light[c] *= (1 + slower) * static_cast<float>(std::exp(-slower * extinction_[c] * length));
  }
  return light;
}

double PathMedium::SampleDistance(double length, const trFCol& throughput, const tr2Vector& draw,
                                  trFCol& weight) const {
  if (!scatters_ || isOpaque_) {
    weight = Transmittance(length);
    return length;
  }
  // A channel by what it carries; then all channels' densities share the draw.
  float chance[3], sum = 0;
  for (int c = 0; c < 3; ++c) sum += chance[c] = std::max(throughput[c], 0.0f);
  for (float& c : chance) c = sum > 0 ? c / sum : 1.0f / 3;
  double pick = draw.x;
  int channel = 0;
  while (channel < 2 && pick >= chance[channel]) pick -= chance[channel++];
  const double drawn = -std::log1p(-draw.y) / std::max(extinction_[channel], 1e-30f);
  const bool isThrough = !(drawn < length);
  const double distance = isThrough ? length : drawn;
  const trFCol left = Transmittance(distance);
  double pdf = 0;
  for (int c = 0; c < 3; ++c) pdf += chance[c] * left[c] * (isThrough ? 1.0 : extinction_[c]);
  for (int c = 0; c < 3; ++c)
    weight[c] = pdf > 0 ? static_cast<float>(left[c] * (isThrough ? 1.0 : extinction_[c]) / pdf) : 0.0f;
  return distance;
}

trFCol DeepReflectance(const trFCol& albedo) {
  // Semi-infinite, isotropic (van de Hulst, Multiple Light Scattering, 1980).
  trFCol result;
  for (int c = 0; c < 3; ++c) {
    const float s = std::sqrt(1 - std::clamp(albedo[c], 0.0f, 1.0f));
    result[c] = (1 - s) * (1 - 0.139f * s) / (1 + 1.17f * s);
  }
  return result;
}

trVector SphereDirection(const tr2Vector& draw) {
  const double z = 1 - 2 * draw.x, r = std::sqrt(std::fmax(0, 1 - z * z)),
               phi = 2 * 3.14159265358979 * draw.y;
  return {r * std::cos(phi), r * std::sin(phi), z};
}

}  // namespace ovhost
