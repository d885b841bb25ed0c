// The one-node cloud: what its kinds are made of, and how they drift.
#include "atmosphere/easy_cloud.h"

#include <cmath>

#include "core/idioms.h"

namespace EasyCloud {
namespace {

constexpr double kDegree = 0.017453292519943295;

/// The fractals of a kind of cloud: what of them isn't the cloud fractal's own. Variations of 0 and of 1 give
/// the ends of the range.
struct Kind {
  double calm, wild;  ///< noise_variation of the wisps
  double microContrast, microRoughness, microScale;
  double wispsContrast, wispsRoughness, wispsMean;
  trVector stretch;  ///< of wisps
};

constexpr double Between(double low, double high, double share) { return low + (high - low) * share; }

const Kind& KindOf(long type) {
  static const Kind kKinds[] = {
      {0.6, 1.4, 0.9, 2.2, 8.0, 0.35, 2.5, 0.7, {1, 1, 1}},      // cumulus
      {0.3, 1.0, 0.8, 2.0, 5.0, 0.45, 2.2, 0.6, {1, 0.8, 1}},    // altocumulus castellanus
      {0.2, 0.8, 0.7, 1.8, 6.0, 0.40, 2.0, 0.65, {1.4, 0.7, 1}}  // stratocumulus
  };
  return kKinds[std::clamp(type, long{kCumulus}, long{kStratocumulus}) - 1];
}

/// The depth fractal's coverage_adjust at which about that share of the sky has cloud at some height. The
/// fractal's values, without the offset, are spread like 1.25 exp(0.62 z) for a normal z, or by the feedback
/// method like 0.29 + 0.42 z; z is taken from the logistic curve that comes nearest to it. A cloud that
/// stands anywhere counts, so less than its height at the base will do.
double AdjustFor(double coverage, bool isFeedback) {
  const double share = std::clamp(coverage, 0.005, 0.995);
  const double z = std::log((1 - share) / share) / 1.702;
  return isFeedback ? -0.38 - 0.42 * z : 0.2 - 1.25 * std::exp(0.62 * z);
}

}  // namespace

CloudLayout CloudShader::Layout() {
  CloudLayout layout = DefaultLayout();
  layout.hideCentreAltitude = true;
  layout.hideSeed = false;
  layout.hideCoverageControls = true;
  layout.hideDensityLink = true;
  layout.baseAltitudeIsPrimary = true;
  layout.mergedTweaksTab = true;
  layout.makesDensityFractal = false;
  return layout;
}

CloudShader::CloudShader() : CloudLayerV3(Layout()) {
  SetMenu(typeHint_, this,
          {{"Cumulus", kCumulus},
           {"Altocumulus Castellanus", kAltocumulusCastellanus},
           {"Stratocumulus", kStratocumulus}});
  SetMenu(modelHint_, this, {{"OV 3.9.04", kFirst}, {"OV 3.9.07", kSecond}});
  SetMenu(evolutionHint_, this,
          {{"Move all textures upwards", kAllUpwards},
           {"Move all textures downwards", kAllDownwards},
           {"Move height texture upwards", kHeightUpwards},
           {"Move height texture downwards", kHeightDownwards}});
  SetRange(shareHint_, this, {.min = 0.0, .max = 1.0});
  SetRange(smallestHint_, this, {.min = 0.0, .max = 1000.0, .focusPower = 4.0});
  SetRange(driftHint_, this, {.max = 100.0});
  SetRange(headingHint_, this, {.max = 360.0});
  SetRange(evolutionSpeedHint_, this, {.max = 100.0});
}

CloudShader::~CloudShader() {
  trDestroyObject(depthFractal_);
  trDestroyObject(wispsFractal_);
  trDestroyObject(microFractal_);
}

void CloudShader::DeclareMainParams() {
  OpenTab("Main", "basic_tab");
  Param(easy_.type, "easycloud_type", kCumulus, &typeHint_)
      .Display("Cloud type")
      .About("Kind of cloud: heaped cumulus, turreted altocumulus, or flat banks of stratocumulus.");
  Param(easy_.model, "easycloud_model", kSecond, &modelHint_)
      .Display("Model")
      .About("Version of the shapes. The first keeps older projects' look; the second has growth.");
  Param(easy_.coverage, "easycloud_coverage", 0.5, &shareHint_)
      .Display("Coverage")
      .About("Share of the sky that has clouds, 0 to 1.");
  Param(easy_.variation, "easycloud_variation", 0.5, &shareHint_)
      .Display("Variation")
      .About("How much wisps differ from place to place, 0 to 1.");
  Param(easy_.growth, "easycloud_growth", 0.5, &shareHint_)
      .Display("Growth")
      .About(
          "How far clouds have grown, 0 to 1. Counts for the second model's altocumulus and stratocumulus.");
  Param(easy_.smallestScale, "smallest_scale", 0.1, &smallestHint_)
      .About("Size of the finest forms, metres. Lower it where the camera comes close.");
  Param(easy_.addMicroWisps, "add_micro_wisps", 0)
      .About("Gives the edges fine wisps. Off, a linked density shader stands for them.");
  Param(easy_.enableMask, "easycloud_enable_mask", 0)
      .Display("Mask by shader (BETA)")
      .About("Lets a shader say where there are clouds. Linking or cutting the mask switches it.");
  Param(easy_.maskShader, "easycloud_mask_shader", "")
      .Display("Mask shader (BETA)")
      .About("Its brightness is how much cloud there is: 0 none, 1 all.");
  AddGuiAction({"easycloud_enable_mask"}, {"easycloud_mask_shader"}, 3);
  CloudLayerV3::DeclareMainParams();
}

void CloudShader::DeclareExtraParams() {
  for (const char* own : {"depth_modulator", "final_density_modulator"})
    SetAbout(this, own, "Without effect in this class, which has a fractal of its own for it.");
  OpenTab("Anim", "anim_tab");
  Param(easy_.enableDrift, "enable_drift", 0).About("Moves the clouds with the wind.");
  Param(easy_.driftSpeed, "drift_speed", 50.0, &driftHint_)
      .Display("Drift speed (m/s)")
      .About("Speed of the wind.");
  Param(easy_.driftHeading, "drift_heading", 90.0, &headingHint_)
      .Display("Drift heading (degrees)")
      .About("Compass direction that the clouds drift to, clockwise from north: 90 is east.");
  Param(easy_.enableEvolution, "enable_evolution", 0).About("Lets clouds change their shape in time.");
  Param(easy_.evolutionSpeed, "easycloud_evolution_speed", 10.0, &evolutionSpeedHint_)
      .Display("Evolution speed (m/s)")
      .About("How fast their textures move up or down.");
  Param(easy_.evolutionMethod, "easycloud_evolution_method", kHeightUpwards, &evolutionHint_)
      .Display("Evolution method")
      .About("What moves for that: the texture of the heights alone, or all of them, up or down.");
  Param(easy_.framesPerSecond, "frames_per_second", 24.0)
      .About("Frames that make a second of drift and evolution.");
  Param(easy_.referenceFrameNumber, "reference_frame_number", 0).About("Frame at which nothing has moved.");
  Param(easy_.timeWarp, "time_warp", 0)
      .Display("Time warp (control frame number using Animation Panel)")
      .About("Takes the frame number below in place of the rendered one, for time that is keyed.");
  Param(easy_.warpedFrameNumber, "warped_frame_number", 0.0)
      .About("That frame number. Key it to slow time down or turn it back.");
  SetParamGuiEnabled("warped_frame_number", false);
}

long CloudShader::OnCreate() {
  const long result = CloudLayerV3::OnCreate();
  depthFractal_ = trCreateObject("cloud_fractal_shader_v3", this, 0);
  wispsFractal_ = trCreateObject("cloud_fractal_shader_v3", this, 0);
  microFractal_ = trCreateObject("cloud_fractal_shader_v3", this, 0);
  if (!depthFractal_ || !wispsFractal_ || !microFractal_) return 0;
  depthFractal_->SetName("Depth fractal 01");
  wispsFractal_->SetName("Final wisps fractal 01");
  microFractal_->SetName("Micro wisps fractal 01");
  hooks_ = this;
  isReady_ = true;
  ApplyFixedProfile();
  return result;
}

long CloudShader::OnFirstCreate() {
  CloudLayerV3::OnFirstCreate();
  SetParam("cloud_base_altitude", 3000.0, trWhoSystem);
  SetParam("cloud_depth", 1000.0, trWhoSystem);
  SetParam("edge_sharpness", 5.0, trWhoSystem);
  SetParam("cloud_density", 0.1, trWhoSystem);
  SetParam("quality", 0.5, trWhoSystem);
  SetParam("add_micro_wisps", 1, trWhoSystem);
  SetParam("quality", settings_.quality, trWhoUserIndirect);
  return 1;
}

void CloudShader::ApplyFixedProfile() {
  for (const char* name :
       {"local_sphere_falloff", "local_sphere_value_at_radius", "base_wispiness", "base_softness"}) {
    double value = 0;
    if (GetParam(name, value) && value != 0) SetParam(name, 0.0, trWhoSystem);
  }
  SetParam("taper_top_and_base", 1, trWhoSystem);
  SetParam("quality", settings_.quality, trWhoUserIndirect);
  UpdateDerived();
}

void CloudShader::OnParamChanged(long index, trBase* who) {
  CloudLayerV3::OnParamChanged(index, who);
  if (isReady_)
    trSwitchFollowsLink(this, index, who, easy_.maskShader, easy_.enableMask, "easycloud_enable_mask");
}

void CloudShader::UpdateDerived() {
  if (isReady_) ApplyModel();
  CloudLayerV3::UpdateDerived();
}

void CloudShader::ApplyModel() {
  SetParamGuiEnabled("easycloud_variation", easy_.model >= kSecond);
  SetParamGuiEnabled("easycloud_growth", HasGrowth());
  const SetUp wanted{settings_.seed,  easy_.type,   easy_.model,        easy_.coverage,
                     easy_.variation, easy_.growth, easy_.smallestScale};
  if (setUp_ != wanted) {
    setUp_ = wanted;
    SetUpDepth();
    SetUpWisps(*wispsFractal_, false);
    SetUpWisps(*microFractal_, true);
  }
  densityOverride_ = easy_.addMicroWisps ? static_cast<trShader*>(microFractal_) : nullptr;
  linkOverride_[static_cast<int>(CloudLink::kDepthModulator)] = static_cast<trShader*>(depthFractal_);
  linkOverride_[static_cast<int>(CloudLink::kFinalDensity)] = static_cast<trShader*>(wispsFractal_);
}

void CloudShader::SetUpDepth() {
  trBase& fractal = *depthFractal_;
  trMersenneTwister draws(static_cast<unsigned long>(settings_.seed));
  fractal.SetParam("seed", static_cast<long>(draws.genrand() & 0xff), this);
  fractal.SetParam("smallest_scale", easy_.smallestScale, this);
  fractal.SetParam("noise_flavour", 1, this);
  const double coverage = AdjustFor(easy_.coverage, HasGrowth());
  if (!HasGrowth()) {
    fractal.SetParam("contrast", 0.5, this);
    fractal.SetParam("roughness", 1.5, this);
    fractal.SetParam("gully_smoothing", 0.01, this);
    fractal.SetParam("noise_variation", 1.0, this);
    fractal.SetParam("variation_method", 2, this);
    fractal.SetParam("global_var_damper", 1.0, this);
    fractal.SetParam("lead-in_warp_effect", 1, this);
    fractal.SetParam("coverage_adjust", coverage, this);
    return;
  }
  fractal.SetParam("contrast", 0.65, this);
  fractal.SetParam("roughness", 1.4, this);
  fractal.SetParam("gully_smoothing", 0.1, this);
  fractal.SetParam("noise_variation", 0.5, this);
  fractal.SetParam("variation_method", -100, this);
  fractal.SetParam("clumping_of_variation", 0.0, this);
  fractal.SetParam("global_var_damper", 0.9, this);
  fractal.SetParam("lead-in_warp_effect", 0, this);
  fractal.SetParam("coverage_adjust", coverage + 0.5 * (easy_.growth - 0.5), this);
}

void CloudShader::SetUpWisps(trBase& fractal, bool isMicro) {
  const Kind& kind = KindOf(easy_.type);
  fractal.SetParam("seed", settings_.seed + (isMicro ? 10 : 0), this);
  fractal.SetParam("smallest_scale", easy_.smallestScale, this);
  fractal.SetParam("contrast", isMicro ? kind.microContrast : kind.wispsContrast, this);
  fractal.SetParam("roughness", isMicro ? kind.microRoughness : kind.wispsRoughness, this);
  fractal.SetParam("coverage_adjust", isMicro ? 1.0 : kind.wispsMean, this);
  fractal.SetParam("noise_stretch_XYZ", kind.stretch, this);
  fractal.SetParam("noise_flavour", 0, this);
  fractal.SetParam("noise_variation", Between(kind.calm, kind.wild, easy_.variation), this);
  fractal.SetParam("variation_method", 1, this);
  fractal.SetParam("clumping_of_variation", 0.25, this);
  fractal.SetParam("lead-in_warp_effect", 0, this);
}

// --- At a point

double CloudShader::TimeAt(double frame) const {
  const double at = easy_.timeWarp ? easy_.warpedFrameNumber : frame;
  return GuardedDivide(at - static_cast<double>(easy_.referenceFrameNumber), easy_.framesPerSecond);
}

void CloudShader::MoveTextures(trShadingInterface& si, const CloudPoint& point, bool isHeight) const {
  if (!easy_.enableDrift && !easy_.enableEvolution) return;
  const double time = TimeAt(si.Frame());
  trVector moved;
  if (easy_.enableDrift) {
    const double heading = easy_.driftHeading * kDegree;
    moved += trVector(std::sin(heading), 0, std::cos(heading)) * (easy_.driftSpeed * time);
  }
  const bool isHeightAlone = easy_.evolutionMethod >= kHeightUpwards;
  if (easy_.enableEvolution && (isHeight || !isHeightAlone)) {
    const bool isUp = easy_.evolutionMethod == kAllUpwards || easy_.evolutionMethod == kHeightUpwards;
    moved += point.up * ((isUp ? 1 : -1) * easy_.evolutionSpeed * time);
  }
  si.P() -= moved;
  si.Pt() -= moved;
}

float CloudShader::Envelope(trShadingInterface& si, const CloudPoint&) {
  trShader* const mask = easy_.enableMask ? LinkedShader(easy_.maskShader) : nullptr;
  return mask ? Luminance(Tamed(mask->FColValueTS(si))) : 1.0f;
}

void CloudShader::BeforeDensity(trShadingInterface& si, const CloudPoint& point) {
  // The micro fractal is to show features of a share of the cloud's height, whatever its feature scale.
  si.DEV_CloudFeatureScalar() = settings_.depth * 0.5 * KindOf(easy_.type).microScale * 2.5e-5;
  MoveTextures(si, point, false);
}

void CloudShader::BeforeDepthModulator(trShadingInterface& si, const CloudPoint& point) {
  si.DEV_CloudFeatureScalar() = 1.0;
  MoveTextures(si, point, true);
}

void CloudShader::AfterDepthModulator(trShadingInterface&, const CloudPoint& point, trFCol& modulator) {
  // Towards the top of a dense cloud the height varies less: its sides are steep.
  const double height =
      std::clamp((point.centreDistance - derived_.baseRadius) * derived_.invDepth, 0.0, 1.0);
  const double depth = height * settings_.density * settings_.edgeSharpness * settings_.depth;
  const auto share = static_cast<float>(std::fmin(1.0, std::fabs(depth) > 1e-6 ? 100.0 / depth : 1e8));
  modulator = (modulator - trFCol(1.0f)) * share + trFCol(1.0f);
}

void CloudShader::BeforeFinalModulator(trShadingInterface& si, const CloudPoint& point) {
  MoveTextures(si, point, false);
}

}  // namespace EasyCloud
