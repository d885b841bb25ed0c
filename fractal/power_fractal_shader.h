// The power fractal: fractal colour and fractal displacement in one node.
#pragma once

#include <memory>

#include "core/idioms.h"
#include "core/preview.h"
#include "fractal/noise_kernels.h"

class PowerFractalShaderV3Base;

/// "Random Seed" of the power fractals.
class PowerFractalShaderV3_RandomiseButton : public trRandomSeedGuiPushButton {
 public:
  using trRandomSeedGuiPushButton::trRandomSeedGuiPushButton;
};

/// The fractal takes no room in the preview. Main thread only.
class PowerFractalShader_PreviewHandler : public juPreviewHandler {
 public:
  explicit PowerFractalShader_PreviewHandler(PowerFractalShaderV3Base* shader) : shader_(shader) {}
  PowerFractalShaderV3Base* Shader() const { return shader_; }

 private:
  PowerFractalShaderV3Base* shader_;
};

/// All of the power fractal. A derived class says in its constructor which flavour of parameters it has and
/// calls DeclareParams.
class PowerFractalShaderV3Base : public trSurfaceShader {
 public:
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  trPreviewHandler* PreviewHandler() override { return preview_.get(); }
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return applyDisplacement_; }
  unsigned char HasShade() override { return applyHighColour_ || applyLowColour_; }

  /// What the evaluations run on. Thread-safe during a render.
  const FractalSettings& Settings() const { return settings_; }
  const FractalDerived& Derived() const { return derived_; }

 protected:
  PowerFractalShaderV3Base();
  /// Which parameters there are, and their defaults. A cloud's colour is a density. The elder form lacks what
  /// later versions added: softened folds, clumping, continuity switches, warping, animation and the filter's
  /// switch, all fixed at what they do in a project that doesn't name them.
  enum class Form { kLandscape, kCloud, kElder };
  void DeclareParams(Form form);

 private:
  struct Defaults;
  void DeclareScale(const Defaults& defaults);
  void DeclareStretch();
  void DeclareColour();
  void DeclareDensity();
  void DeclareDisplacement(const Defaults& defaults);
  void DeclareNoise(const Defaults& defaults);
  void DeclareWarping(const Defaults& defaults);
  void DeclareAnimation();
  void SetRanges();
  void SetMenus();

  /// The couplings of octaves and scales: they follow each other both ways.
  void FollowScales(long index, trBase* who);
  void UpdateEnabling();
  bool IsCloud() const { return form_ == Form::kCloud; }
  bool IsElder() const { return form_ == Form::kElder; }

  Form form_ = Form::kLandscape;
  FractalSettings settings_;
  FractalDerived derived_;

  unsigned char applyHighColour_, applyLowColour_;
  trManRgb highColour_, lowColour_;
  double coverageAdjust_ = 0;  ///< of clouds alone
  unsigned char applyDisplacement_;
  trDisplacementDirection displacementDirection_;
  trMask mask_;

  trDoubleHint featureHint_, leadInHint_, smallestHint_;
  trDoubleHint offsetHint_, roughnessHint_;
  trDoubleHint amplitudeHint_, coastlineSmoothingHint_;
  trDoubleHint variationHint_, buoyancyHint_;
  trDoubleHint distortionHint_, warpHint_;
  trIntHint flavourHint_, methodHint_, warpEffectHint_;
  PowerFractalShaderV3_RandomiseButton randomiseButton_{this};
  std::unique_ptr<PowerFractalShader_PreviewHandler> preview_;
};

/// `power_fractal_shader_v3`.
class PowerFractalShaderV3 : public PowerFractalShaderV3Base {
 public:
  PowerFractalShaderV3() { DeclareParams(Form::kLandscape); }
  long OnFirstCreate() override;
  long OnUserCreate() override;
};

/// `cloud_fractal_shader_v3`: the fractal as a density. Its colour is a grey around 0, which clouds read as
/// the distance above their surface.
class CloudFractalShaderV3 : public PowerFractalShaderV3Base {
 public:
  CloudFractalShaderV3() { DeclareParams(Form::kCloud); }
  long OnFirstCreate() override;
};

/// `power_fractal_shader_v2`: the elder form, for old projects.
class PowerFractalShaderV2 : public PowerFractalShaderV3Base {
 public:
  PowerFractalShaderV2() { DeclareParams(Form::kElder); }
};
