// fractal_warp_shader.
#include "fractal/fractal_warp_shader.h"

#include "core/noise_pair.h"
#include "core/seed.h"

namespace {

constexpr double kTiny = 9.999999974752427e-07;

double Log2(double x) { return std::log(x) * 1.44269504088896; }

/// Mean displacement of a step of size `step` under the exponential fall-off of rate `rate`.
double StepWeight(double step, double rate) { return (1 - std::exp(-step * rate)) / rate; }

}  // namespace

FractalWarpShader::FractalWarpShader() {
  SetRange(scaleHint_, this, {.min = 0, .max = 1e6, .focusPower = 4});
  SetRange(upToTwoHint_, this, {.max = 2});
  SetAbout(this, "input_node", "Network that is looked up at the warped points.");
  Param(scale_, "scale", 1000.0, &scaleHint_).About("Size of the largest bends, metres.");
  Param(warpAmount_, "warp_amount", 1.0, &upToTwoHint_)
      .About("How far points are shifted, against the scale. More twists, up to torn forms.");
  Param(variation_, "variation", 1.5, &upToTwoHint_)
      .About("How much fine bends stir the larger ones. 0 leaves them even, more makes them swirl.");
  Param(roughness_, "roughness", 1.0, &upToTwoHint_).About("How slowly finer bends weaken. Low is smooth.");
  Param(seed_, "seed", 0).About("Where the random numbers begin: another one gives other bends.");
  PushButton(randomiseButton_, "randomise_button");
  Param(scaleFilter_, "scale_filter", "")
      .Display("Scale modulator (exponential)")
      .About(
          "Shader that coarsens the warp: where it is white all bends count, and the darker it is the finer "
          "ones alone.");
  Param(obeySmoothingFilter_, "obey_smoothing_filter", 1)
      .Display("Obey downstream smoothing filters")
      .About("Leaves out bends finer than a pixel, or than what a node downstream smooths.");
  mask_.Declare(this, 0);
}

long FractalWarpShader::OnFirstCreate() {
  trSurfaceShader::OnFirstCreate();
  SetParam("seed", static_cast<long>(trGlobalRand.genrand() & 255), this);
  return 1;
}

void FractalWarpShader::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  mask_.OnParamChanged(this, index, who);
  tablesDirty_.store(true, std::memory_order_release);
}

long FractalWarpShader::Displace(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  const trVector pt = si.Pt();
  if (IsEnabled()) Warp(si);
  input->DisplaceTS(si);
  if (IsEnabled()) si.Pt() = pt;
  return 1;
}

long FractalWarpShader::Shade(trShadingInterface& si) {
  trShader* const input = InputShader();
  if (!input) return 1;
  const trVector pt = si.Pt();
  if (IsEnabled()) Warp(si);
  input->ShadeTS(si);
  if (IsEnabled()) si.Pt() = pt;
  return 1;
}

void FractalWarpShader::Warp(trShadingInterface& si) const {
  if (scale_ <= kTiny || std::fabs(warpAmount_) <= kTiny) return;
  const double inverseScale = 1 / scale_;
  float mask = 1;
  if (!mask_.Evaluate(si, inverseScale, mask) || !(mask > kTiny)) return;

  Loop loop{mask, 0, -1};
  if (obeySmoothingFilter_) loop.footprint = (si.SmoothSize() - kTiny) * inverseScale;
  if (auto* const filter = LinkedShader(scaleFilter_)) {
    loop.modulator = std::pow(1e-6, 1.0 - Luminance(Tamed(filter->FColValueTS(si))));
    if (loop.modulator <= kTiny) return;
  }

  const tr2Vector offset = WarpOffset(si.Pt().x * inverseScale, si.Pt().z * inverseScale, loop);
  si.Pt().x += offset.x * scale_;
  si.Pt().z += offset.y * scale_;
}

tr2Vector FractalWarpShader::WarpOffset(double x0, double z0, const Loop& loop) const {
  // The finest octave: the last that rounding leaves any detail, and no finer than the footprint.
  double limit = std::fmin(29 - Log2(std::sqrt(x0 * x0 + z0 * z0)), 31.0);
  if (loop.footprint > 0) limit = std::fmin(limit, -Log2(loop.footprint * 0.55));
  if (!(limit > -1)) return {};
  const int top = static_cast<int>(std::ceil(limit));
  const double t = (1 - (top - limit)) / 3;
  const double fade[3] = {SmoothStep(t), SmoothStep(t + 1.0 / 3), SmoothStep(t + 2.0 / 3)};
  if (tablesDirty_.load(std::memory_order_acquire)) BuildTables();

  // From fine to coarse, each octave at the point that the finer ones have moved.
  double x = x0, z = z0, frequency = std::ldexp(1.0, top);
  for (int octave = top; octave >= 0; --octave, frequency *= 0.5) {
    double weight;
    if (loop.modulator < 0) {
      weight = Weight(octave, frequency, loop);
    } else {
      const double reach = frequency * 1.1 * loop.modulator - 0.1;
      if (reach <= 0) break;
      const double step = std::fmin(reach * frequency, 1.0) * warpStep_[octave];
      weight = StepWeight(step, frequency * 0.5 * warpAmount_ * loop.mask);
    }
    if (top - octave < 3) weight *= fade[top - octave];
    if (std::fabs(weight) <= 1e-12) continue;

    const trVector p(x * frequency, z * frequency, 0);
    const trVector forX = p + noiseOffset_[octave], forZ = p + noiseOffset_[octave + kSecondOffset];
    const double width = 2 * loop.footprint * frequency;
    const bool isFiltered = loop.footprint > kTiny && width > kTiny;
    const double filter[2] = {width, width};
    double noise[2];
    trLerpNoise3Pair(&forX.x, &forZ.x, isFiltered ? filter : nullptr, noise);
    x += weight * noise[0];
    z += weight * noise[1];
  }
  const double variation = Variation();
  return {(x - x0) / variation * warpAmount_ * loop.mask, (z - z0) / variation * warpAmount_ * loop.mask};
}

double FractalWarpShader::Weight(int octave, double frequency, const Loop& loop) const {
  if (loop.mask == 1.0) return warpWeight_[octave];
  return StepWeight(warpStep_[octave], frequency * 0.5 * warpAmount_ * loop.mask);
}

void FractalWarpShader::BuildTables() const {
  const std::lock_guard<std::mutex> lock(tablesMutex_);
  if (!tablesDirty_.load(std::memory_order_relaxed)) return;
  for (int k = 0; k < kMaxOctaves + kSecondOffset; ++k)
    noiseOffset_[k] = trNoff3(static_cast<int>(trSeedAfter(seed_, k)));
  const double ratio = roughness_ > 1e-12 ? std::pow(2.0, -1 / roughness_) : 0;
  for (int k = kMaxOctaves - 1; k >= 0; --k) {
    warpStep_[k] = std::pow(ratio, k) * Variation();
    warpWeight_[k] = StepWeight(warpStep_[k], std::ldexp(1.0, k) * 0.5 * warpAmount_);
  }
  tablesDirty_.store(false, std::memory_order_release);
}
