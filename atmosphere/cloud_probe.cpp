// Density of a cloud layer at a point: the network's value as a distance above the cloud's surface, shaped by
// the layer's profile.
#include "atmosphere/cloud_probe.h"

#include <algorithm>
#include <cmath>

namespace {

/// How far below its surface, in units of the network's values, and how far beyond base and top, as a share
/// of the depth, a cloud counts as near.
constexpr float kNearDensity = 0.25f;
constexpr double kNearHeight = 0.1;

/// How much a profile over the height takes from the density: 0 at base and top, 1 between.
float Taper(float h, bool isFlatter) {
  float x = std::sqrt(h);
  if (isFlatter) x = std::sqrt(x);
  const float k = 2.0f * std::fabs(x - 0.5f);
  return 1.0f - k * k;
}

/// Steepens a coverage above 0: below 1 by a power, from 1 on by a straight line of the same slope.
trFCol WithGamma(const trFCol& c, float inverseGamma) {
  const float greatest = c.MaxChannel();
  if (!(greatest > 0.0f) || !(inverseGamma > 1.0f)) return c;
  const float excess = inverseGamma - 1.0f;
  return c * (greatest < 1.0f ? std::pow(greatest, excess) : (greatest - 1.0f) * excess + 1.0f);
}

}  // namespace

CloudProbe::CloudProbe(const CloudSettings& settings, const CloudDerived& derived, CloudHooks* hooks,
                       trShader* paintSolver, const CloudThread& thread, trRenderState& state)
    : settings_(settings),
      derived_(derived),
      hooks_(hooks),
      paintSolver_(paintSolver),
      thread_(thread),
      state_(state),
      si_(state.Shading()),
      guard_(state.Shading()),
      movesHeight_(derived.Link(CloudLink::kAltitudeOffset) || derived.Link(CloudLink::kDepthModulator)) {
  si_.SetWants(trShadingInterface::kCd);
  si_.SetLightDepth(1);
  si_.Object() = {};
  si_.Eye() = state.CurrentRay().origin;
}

void CloudProbe::MoveTo(const trVector& point) {
  const trVector away = point - settings_.centre;
  point_.position = point;
  point_.centreDistance = away.Length();
  point_.up = away * (point_.centreDistance > 1e-12 ? 1.0 / point_.centreDistance : 1e12);
}

float CloudProbe::LocalEnvelope() const {
  if (!settings_.localSphere) return 1.0f;
  if (!(settings_.localSphereRadius > 0)) return 0.0f;
  const double distance = (point_.position - settings_.localSphereCentre).Length();
  return static_cast<float>(
      std::clamp((1.0 - distance * derived_.invLocalRadius) * derived_.invFalloff, 0.0, 1.0));
}

void CloudProbe::SetUp() {
  const trVector seen =
      settings_.moveTexturesWithCloud ? point_.position - settings_.localSphereCentre : point_.position;
  si_.SetSample(seen, point_.up);
  si_.Pg() = si_.Ptg() = settings_.centre + point_.up * settings_.radius;
  state_.ShadeOutputs() = {};
  si_.SmoothSize() = std::max(state_.MicropolySpotSize(point_.position), leastDetail_);
}

trFCol CloudProbe::ColourOf(trShader& shader) {
  if (shader.IsFunction()) return Tamed(shader.FColValueTS(si_));
  shader.ShadeTS(si_);
  return Tamed(si_.Cutil());
}

trFCol CloudProbe::Modulator(CloudLink link) {
  trShader* const shader = derived_.Link(link);
  if (!shader) return trFCol(1.0f);
  SetUp();
  return ColourOf(*shader);
}

float CloudProbe::Paint() {
  if (thread_.paintGiven) return thread_.paintValue;
  if (!paintSolver_) return 1.0f;
  SetUp();
  si_.P() = point_.position;  // paint lies in the sky, wherever textures go
  return Tamed(paintSolver_->FloatValueTS(si_));
}

trFCol CloudProbe::Coverage(float localEnvelope, float paint) {
  trFCol c(1.0f);
  if (derived_.density) {
    SetUp();
    if (hooks_) hooks_->BeforeDensity(si_, point_);
    c = ColourOf(*derived_.density);
    if (hooks_) hooks_->AfterDensity(si_, point_, c);
  }
  c += trFCol(derived_.coverageAdjust);
  const float painted = derived_.paintAddsCoverage ? std::max(0.0f, paint - 1.0f) : 0.0f;
  if (painted > 1e-6f) c += (trFCol(1.0f) - c) * (1.0f - std::exp(-painted));
  const trFCol rim(derived_.valueAtRadius);
  if (localEnvelope != 1.0f) c = rim + (c - rim) * localEnvelope;
  return WithGamma(c, derived_.invGamma);
}

CloudProbe::Found CloudProbe::Sample(float localEnvelope, CloudSample& sample) {
  const bool isPainted = settings_.enablePaint != 0;
  const float paint = isPainted ? Paint() : 1.0f;
  float envelope = 1.0f;
  if (hooks_) {
    SetUp();
    envelope = hooks_->Envelope(si_, point_);
    if (!(envelope > 1e-6f)) {
      sample.density = trFCol();
      return Found::kClear;
    }
  }

  // The height, as shaders bend it
  double height = Height();
  sample.thickness = 1.0f;
  if (derived_.Link(CloudLink::kAltitudeOffset))
    height -= derived_.invDepth * Luminance(Modulator(CloudLink::kAltitudeOffset)) *
              derived_.altitudeOffsetMultiplier;
  if (trShader* const modulator = derived_.Link(CloudLink::kDepthModulator)) {
    SetUp();
    if (hooks_) hooks_->BeforeDepthModulator(si_, point_);
    trFCol colour = ColourOf(*modulator);
    if (hooks_) hooks_->AfterDepthModulator(si_, point_, colour);
    sample.thickness = Luminance(colour);
    const float centre = derived_.depthModulatorCentre;
    height = centre + (height - centre) / GuardedDenominator(sample.thickness);
  }
  sample.isNear = height > -kNearHeight && height < 1.0 + kNearHeight;
  if (!(height >= 0.0 && height < 1.0)) return Found::kNothing;

  // The profile
  float h = static_cast<float>(height);
  if (settings_.invertProfile) h = 1.0f - h;
  double& feature = si_.DEV_CloudFeatureScalar();
  const double savedFeature = feature;
  if (settings_.baseWispiness > 0) feature = std::pow(static_cast<double>(h), settings_.baseWispiness);
  const auto scale = static_cast<float>(feature);
  const float softness =
      settings_.baseSoftness > 0 ? std::pow(h, static_cast<float>(settings_.baseSoftness)) : 1.0f;
  const float taper = settings_.taperTopAndBase ? Taper(h, settings_.flatterBase != 0) : 1.0f;

  // The density: the taper draws the cloud's surface up near base and top.
  const trFCol coverage = Coverage(localEnvelope, paint);
  const trFCol above = (coverage + trFCol(1.0f)) * taper - trFCol(1.0f);
  sample.isNear = above.MaxChannel() > -kNearDensity;
  trFCol d = above * (scale * softness);
  feature = savedFeature;
  sample.density = d;
  if (!(d.MaxChannel() >= 0.0f)) return Found::kClear;

  trFCol modulator(envelope);
  if (trShader* const shader = derived_.Link(CloudLink::kFinalDensity)) {
    SetUp();
    if (hooks_) hooks_->BeforeFinalModulator(si_, point_);
    trFCol colour = ColourOf(*shader);
    if (hooks_) hooks_->AfterFinalModulator(si_, point_, colour);
    modulator *= colour;
    feature = savedFeature;
  }
  if (isPainted) modulator *= paint;
  for (int c = 0; c < 3; ++c)
    sample.opacity[c] = std::min(1.0f, d[c] * derived_.edgeSharpness) * modulator[c];
  sample.density = d * modulator;
  return Found::kCloud;
}
