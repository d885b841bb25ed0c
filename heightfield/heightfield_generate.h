// A new heightfield from a fractal of its own or from any shader.
#pragma once

#include <memory>

#include "fractal/power_fractal_shader.h"
#include "heightfield/costly_operator.h"
#include "heightfield/shader_sampling.h"

/// "Generate Now", which also has the project generate the field whenever it is loaded.
class HeightfieldGenerate_GenerateButton : public CostlyOperatorButton {
 public:
  using CostlyOperatorButton::CostlyOperatorButton;
};

/// "Random Seed"; the raster stays until the next generation.
class HeightfieldGenerate_RandomiseButton : public trRandomSeedGuiPushButton {
 public:
  using trRandomSeedGuiPushButton::trRandomSeedGuiPushButton;
  long OnPressed() override;
};

/// `heightfield_generate`. The raster is a new one of its own size, or one of its input's.
class HeightfieldGenerate : public CostlyOperator {
 public:
  HeightfieldGenerate();
  long HfOperate() override;
  void OnParamChanged(long index, trBase* who) override;

 protected:
  long Compute() override;
  void OnPress() override;
  bool PrepareInput(bool mayLack) override;
  long ComputeNow() override;

 private:
  void DeclareFractal();
  void DeclareShader();
  /// Allocates a flat raster of the wanted size with its scale, where there is none yet.
  bool MakeRaster();
  void DropRaster();
  void SetUpFractal(double xScale, double yScale);
  bool Sample(trShader& shader, bool isOwn);

  unsigned char newHeightfield_;
  tr2Vector sizeInPixels_, sizeInMetres_;
  double featureScale_, featureSteepness_, roughness_;
  long seed_;
  double variation_, buoyancy_;
  long variationMethod_;
  trShaderLink shader_;
  FieldPosition position_;

  /// Whether the raster of the wanted size is there, and whether it depends on the wanted size.
  bool isAllocated_ = false, holdsSize_ = false;
  const std::unique_ptr<PowerFractalShaderV3> fractal_ = std::make_unique<PowerFractalShaderV3>();

  trDoubleHint featureHint_, variationHint_, buoyancyHint_;
  trIntHint methodHint_;
  HeightfieldGenerate_RandomiseButton randomiseButton_{this};
  HeightfieldGenerate_GenerateButton generateButton_{this, "Generate Now"};
};
