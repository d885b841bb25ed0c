// heightfield_generate.
#include "heightfield/heightfield_generate.h"

#include <algorithm>
#include <cmath>

#include "heightfield/operator.h"

namespace {

const char kText[] = "HeightfieldGenerate: Generating";

}  // namespace

long HeightfieldGenerate_RandomiseButton::OnPressed() {
  if (trBase* parent = Node()->Parent()) parent->PreChildStateChange(Node(), "OnClick " + label);
  return trRandomSeedGuiPushButton::OnPressed();
}

HeightfieldGenerate::HeightfieldGenerate() {
  Param(newHeightfield_, "new_heightfield", 1)
      .About("Makes a field of the size below. Off, it has the points and the extent of its input.");
  Gui(trGuiIndentOpen);
  Param(sizeInPixels_, "size_in_pixels", tr2Vector(1000, 1000))
      .Display("Number of points")
      .About("Points from west to east and from south to north. More shows finer ground and takes memory.");
  Param(sizeInMetres_, "size_in_metres", tr2Vector(10000, 10000))
      .About("Extent from west to east and from south to north, metres.");
  Gui(trGuiIndentClose);
  DeclareFractal();
  DeclareShader();
  GuiTab("", "");  // below the tabs
  Gui(trGuiRule);
  Param(autoFlag_, "auto_generate", 0)
      .Display("Generate at load time")
      .About(
          "Makes the heights when the project is loaded. Off, the field stays flat until the button is "
          "pressed.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(generateButton_, "generate_button");
  Gui(trGuiButtonRowClose);
  HfSetFollowsInputs(!newHeightfield_);
}

void HeightfieldGenerate::DeclareFractal() {
  SetRange(featureHint_, this, {.max = 1e6, .focusPower = 4.0});
  SetRange(variationHint_, this, {.max = 4.0});
  SetRange(buoyancyHint_, this, {.min = -1.0, .max = 1.0});
  SetMenu(methodHint_, this,
          {{"Clamped multifractal", kClampedMultifractal},
           {"Unclamped multifractal", kUnclampedMultifractal},
           {"Multi-scale modulator", kMultiScaleModulator}});

  Gui(trGuiRule);
  GuiTab("Fractal", "fractal_tab");
  Gui(trGuiBlockOpen);
  Param(featureScale_, "feature_scale", 2000.0, &featureHint_).About("Size of the largest forms, metres.");
  Param(featureSteepness_, "feature_steepness", 0.25)
      .About("Height of the forms as a share of their size: 0.1 is hills, 0.25 mountains.");
  Param(roughness_, "roughness", 0.875)
      .About("How slowly finer forms weaken: above 1 is jagged, below 1 smooth.");
  Gui(trGuiBlockClose);
  Seed(seed_);
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(randomiseButton_, "randomise_button");
  Gui(trGuiButtonRowClose);

  Gui(trGuiRule);
  GuiTab("Tweak fractal", "tweak_tab");
  Gui(trGuiBlockOpen);
  Param(variation_, "variation", 1.5, &variationHint_)
      .About("How much places differ: 0 is equally rough everywhere, more puts calm ground beside rugged.");
  Param(variationMethod_, "variation_method", kMultiScaleModulator, &methodHint_)
      .About("What makes a place rough: its height, as in multifractals, or a second noise, the modulator.");
  Param(buoyancy_, "buoyancy_from_variation", 0.5, &buoyancyHint_)
      .About("Lifts rough places over calm ones; below 0 sinks them. Counts with the multi-scale modulator.");
  Gui(trGuiBlockClose);
}

void HeightfieldGenerate::DeclareShader() {
  Gui(trGuiRule);
  GuiTab("Use shader", "shader_tab");
  Param(shader_, "shader", "")
      .About("Shader whose displacement becomes the heights, in place of the fractal.");
  Gui(trGuiRadioOpen);
  position_.Declare(this);
  Gui(trGuiRadioClose);
  AddGuiAction({"position_center", "position_lower_left"}, {"position_center", "position_lower_left"}, 1);
}

void HeightfieldGenerate::OnParamChanged(long index, trBase* who) {
  const bool isSize = IsParam(index, &sizeInPixels_) || IsParam(index, &sizeInMetres_);
  if (holdsSize_ && (isSize || (IsParam(index, &newHeightfield_) && !newHeightfield_))) {
    DropRaster();
    if (trIsUser(who)) SetParam("auto_generate", 0, this);
    HfInvalidate();
  }
  HfSetFollowsInputs(!newHeightfield_);
  trHeightfield::OnParamChanged(index, who, 0);
}

void HeightfieldGenerate::DropRaster() {
  Cleanup();
  isAllocated_ = holdsSize_ = false;
}

bool HeightfieldGenerate::MakeRaster() {
  if (isAllocated_) return true;
  if (!Init(0, 0, RoundedCount(sizeInPixels_.x), RoundedCount(sizeInPixels_.y))) return false;
  Fill(0);
  const double x = GuardedDivide(sizeInMetres_.x, static_cast<double>(HfXSize())),
               y = GuardedDivide(sizeInMetres_.y, static_cast<double>(HfYSize()));
  HfSetMinZ(0);
  HfSetMaxZ(0);
  HfSetScaleEnabled(1);
  HfSetScale(x, y, std::sqrt(std::fabs(x * y)));
  isAllocated_ = holdsSize_ = true;
  return true;
}

bool HeightfieldGenerate::PrepareInput(bool mayLack) {
  return newHeightfield_ || CostlyOperator::PrepareInput(mayLack);
}

long HeightfieldGenerate::HfOperate() {
  if (HfIsValid()) return 1;
  if (FeedsItself()) return 0;
  HfValidate();
  if (newHeightfield_ ? !MakeRaster() : !PrepareInput(false)) return 0;
  return autoFlag_ ? ComputeNow() : 1;
}

void HeightfieldGenerate::OnPress() { SetParam("auto_generate", 1, trWhoUserIndirect); }

long HeightfieldGenerate::ComputeNow() {
  if (FeedsItself()) return 0;
  const Guard guard(*this);
  HfInvalidate();
  if (newHeightfield_ && !MakeRaster()) return 0;
  if (!Compute()) return 0;
  HfValidate();
  return 1;
}

long HeightfieldGenerate::Compute() {
  trShader* shader = fractal_.get();
  if (!shader_.FileStringR().empty()) shader = NamedShader(*this, shader_);
  if (!shader) return 1;
  const trHeightfield* const input = HfInput();
  if (!newHeightfield_) {
    HfSetScaleEnabled(0);
    if (!HasPoints(input)) return MakeFlat(*this);
  }
  bool isDone = true;
  try {
    trPrintDebugMessage("Heightfield generate starting");
    unsigned long token = 0;
    ReportProgress(token, kText, 0.0f, -1.0f);
    if (!newHeightfield_) {
      if (!Init(0, 0, input->width, input->height)) return 0;
      Fill(0);
    }
    isDone = Sample(*shader, shader == fractal_.get());
    if (isDone) {
      trPrintDebugMessage("Heightfield generate ending");
      ReportProgress(token, kText, 1.0f, -1.0f);
    }
  } catch (...) {
    trPrintDebugMessage("Caught exception!");
  }
  if (!isDone) {
    DropRaster();
    SetParam("auto_generate", 0, this);
    return 0;
  }
  HfFindZRange();
  return 1;
}

bool HeightfieldGenerate::Sample(trShader& shader, bool isOwn) {
  if (isOwn) SetUpFractal(HfXScale(), HfYScale());
  ShaderSampling sampling(*this, HfXScale(), HfYScale(), HfZScale(), position_.Origin(*this));
  return isOwn ? sampling.InAnyOrder(shader, kText) : sampling.InOrder(shader, kText);
}

void HeightfieldGenerate::SetUpFractal(double xScale, double yScale) {
  const double height = featureSteepness_ * featureScale_;  // metres
  const struct {
    const char* name;
    trParamValue value;
  } settings[] = {
      {"seed", seed_},
      {"feature_scale", featureScale_},
      {"lead-in_scale", featureScale_},
      {"smallest_scale", std::min(xScale, yScale) * 0.25},
      {"displacement_amplitude", height},
      {"displacement_offset", height * 0.5},
      {"displacement_roughness", roughness_},
      // A share of the amplitude, which has the metres.
      {"displacement_spike_limit", featureSteepness_},
      {"continue_spike_limit", 1},
      {"noise_flavour", static_cast<long>(kPerlinMix1)},
      {"noise_variation", variation_},
      {"variation_method", variationMethod_},
      {"buoyancy_from_variation", buoyancy_},
  };
  for (const auto& setting : settings) fractal_->SetParam(setting.name, setting.value, this);
}
