// What follows from a cloud layer's parameters.
#include <algorithm>
#include <cmath>

#include "atmosphere/atmosphere_medium.h"
#include "atmosphere/cloud_layer_v2.h"
#include "core/idioms.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
/// The Sun's, seen from the Earth, radians: the rim that phase functions are tabulated with.
constexpr float kSunRadius = 0.004654f;

trShader* ShaderOf(const trShaderLink& link) {
  trBase* const linked = link.LinkedNode(true);
  return linked && linked->IsTrue("is_shader") ? static_cast<trShader*>(linked) : nullptr;
}

/// A number that single precision holds.
float Float(double x) { return Tamed(static_cast<float>(x)); }

}  // namespace

void CloudLayerV2::PrepareCloudDerived() {
  const CloudSettings& s = settings_;
  CloudDerived d;

  // The shell and the local sphere
  d.baseRadius = std::max(0.0, s.radius + s.altitude - s.depth / 2);
  d.topRadius = std::max(0.0, s.radius + s.altitude + s.depth / 2);
  d.baseRadiusSquared = d.baseRadius * d.baseRadius;
  d.topRadiusSquared = d.topRadius * d.topRadius;
  d.invDepth = 1.0 / s.depth;
  d.invFalloff = SafeReciprocal(s.localSphereFalloff);
  d.invLocalRadius = SafeReciprocal(s.localSphereRadius);

  // Density and colours
  d.edgeSharpness = Float(s.edgeSharpness);
  d.edgeDensity = Float(s.edgeSharpness * s.density);
  d.sigma = trFCol(Float(s.density));
  d.cloudColour = s.colour.ToRender();
  if (!layout_.usesVoxelScatter) d.scatterColour = s.scatteringColour.ToRender();
  d.enviro = s.enviroLightTint.ToRender() * Float(s.enviroLight);
  d.coverageAdjust = Float(s.coverageAdjust);
  d.invGamma = Float(1.0 / s.coverageGamma);
  d.valueAtRadius = Float(s.localSphereValueAtRadius);

  // Shaders
  d.density = densityOverride_ ? densityOverride_ : ShaderOf(s.densityShader);
  const trShaderLink* const links[] = {
      &s.altitudeOffsetFunction, &s.depthModulator,       &s.finalDensityModulator, &s.shadowFunction,
      &s.directLightModulator,   &s.enviroLightModulator, &s.ambientLightModulator};
  for (int i = 0; i < static_cast<int>(CloudLink::kCount); ++i)
    d.link[i] = linkOverride_[i] ? linkOverride_[i] : ShaderOf(*links[i]);
  d.altitudeOffsetMultiplier = Float(s.altitudeOffsetMultiplier);
  d.depthModulatorCentre = Float(s.depthModulatorCentre);

  // Steps and light
  d.stepMetres = s.depth / static_cast<double>(std::max(1L, s.numberOfSamples));
  d.opticalDepth = Float(s.depth * s.density);
  d.sqrtEdge = Float(std::sqrt(std::max(0.0, s.edgeSharpness)));
  d.fakeScatter = Float(s.fakeInternalScattering);
  d.sqrtFakeScatter = Float(std::sqrt(std::max(0.0, s.fakeInternalScattering)));
  d.propagationDecay = Float(std::exp(-s.lightPropagation));
  d.mixExponent = Float(std::log(std::max(1e-6, s.lightPropagationMix)) / std::log(0.5));
  d.enviroAnisotropy = s.anisotropicEnviroLight ? 1.0f - Phase(-1.0f, true, 1e-6f) : 0.0f;
  d.inverseMeanPhase = InverseMeanPhase();

  d.paintAddsCoverage = layout_.marchesAsV2;
  const auto isLarge = [](double x) { return std::fabs(x) > 0 && std::isfinite(x); };
  d.isEmpty = !(s.depth > 0) || !(d.topRadius > d.baseRadius) || !isLarge(s.density) ||
              !isLarge(s.edgeSharpness) || !isLarge(s.coverageGamma) || s.numberOfSamples < 1;
  derived_ = d;
}

float CloudLayerV2::Phase(float cosAngle, bool glow, float radius) const {
  return atmosphere::GlowPhase(cosAngle, glow, radius, static_cast<float>(settings_.sunGlowAmount),
                               static_cast<float>(settings_.sunGlowPower),
                               settings_.improvedLightingModel != 0);
}

float CloudLayerV2::InverseMeanPhase() {
  const CloudSettings& s = settings_;
  const bool isImproved = s.improvedLightingModel != 0;
  if (inverseMean_ != 0 && s.sunGlowAmount == meanOfAmount_ && s.sunGlowPower == meanOfPower_ &&
      isImproved == meanOfImproved_)
    return inverseMean_;
  meanOfAmount_ = s.sunGlowAmount;
  meanOfPower_ = s.sunGlowPower;
  meanOfImproved_ = isImproved;
  // Simpson's rule over u, the angle being pi u^3: steps crowd in the glow.
  constexpr int kIntervals = 256;
  double sum = 0;
  for (int i = 0; i <= kIntervals; ++i) {
    const double u = static_cast<double>(i) / kIntervals, angle = kPi * u * u * u;
    const double weight = i == 0 || i == kIntervals ? 1 : i % 2 ? 4 : 2;
    const float phase = std::max(0.0f, Phase(static_cast<float>(std::cos(angle)), true, kSunRadius));
    sum += weight * phase * 0.5 * std::sin(angle) * 3 * kPi * u * u;
  }
  const double mean = sum / (3 * kIntervals);
  inverseMean_ = mean > 1e-6 && mean < 1e6 ? static_cast<float>(1.0 / mean) : 1.0f;
  return inverseMean_;
}

float CloudLayerV2::PhaseFunction(double cosAngle) const {
  return std::max(0.0f, Phase(static_cast<float>(cosAngle), true, kSunRadius)) * derived_.inverseMeanPhase;
}
