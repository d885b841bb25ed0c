// The parameters of fake stones, in the project file's order.
#include "core/seed.h"
#include "fractal/fake_stones_shader.h"

FakeStonesShader::FakeStonesShader() {
  SetRange(pancakeHint_, this, {.max = 2});
  Seed(seed_);
  Param(surfaceShader_, "surface_shader", "");
  DeclareDensity();
  GuiTab("Shape", "shape_tab");
  Param(stoneTallness_, "stone_tallness", 0.5);
  Param(pancakeEffect_, "pancake_effect", 1.0, &pancakeHint_);
  Gui(trGuiHiddenOpen);
  Param(separateGeometry_, "separate_geometry", 0);
  Gui(trGuiHiddenClose);
  Param(onlyDisplaceUpwards_, "only_displace_upwards", 0);
  DeclareColour();
  GuiTab("Functions", "functions_tab");
  Param(scaleFunction_, "scale_function", "");
  Param(tallnessFunction_, "tallness_function", "");
  DeclareMask();
  UpdateDerived();
}

void FakeStonesShader::DeclareDensity() {
  GuiTab("Scale / Density", "size_tab");
  Param(stoneScale_, "stone_scale", 1.0);
  Param(stoneDensity_, "stone_density", 0.1);
  Param(varyDensity_, "vary_density", 1);
  Gui(trGuiIndentOpen);
  Param(densityVariation_, "density_variation", 1.0);
  Seed(densitySeed_, "density_seed");
  Param(densityVariationScale_, "density_variation_scale", 10.0);
  Gui(trGuiIndentClose);
  AddGuiAction({"vary_density"}, {"density_variation", "density_seed", "density_variation_scale"}, 2);
}

void FakeStonesShader::DeclareColour() {
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1).ColourOnly();
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(1.0f)).Alias("diffuse_color").ColourOnly();
  Param(colourVariation_, "colour_variation", 1).Alias("color_variation").ColourOnly();
  Gui(trGuiIndentOpen);
  Param(colourVariations_[0], "variation_in_red", 0.5).ColourOnly();
  Param(colourVariations_[1], "variation_in_green", 0.5).ColourOnly();
  Param(colourVariations_[2], "variation_in_blue", 0.5).ColourOnly();
  Gui(trGuiIndentClose);
  AddGuiAction({"colour_variation"}, {"variation_in_red", "variation_in_green", "variation_in_blue"}, 2);
}

void FakeStonesShader::DeclareMask() {
  Param(useMask_, "blend_by_shader", 0).Display("Mask by shader");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(maskShader_, "blending_shader", "").Display("Mask shader");
  Gui(trGuiIndentOpen);
  Param(fitMask_, "fit_blendshader_to_this", 0).Display("Fit mask to this");
  Gui(trGuiGapSmall);
  Param(invertMask_, "invert_blendshader", 0).Display("Invert mask");
  Param(maskAsDensity_, "blend_as_stone_density", 0).Display("Mask as stone density");
  Gui(trGuiIndentClose);
  AddGuiAction({"blend_by_shader"}, {"blending_shader"}, 3);
  AddGuiAction({"blend_by_shader"},
               {"fit_blendshader_to_this", "invert_blendshader", "blend_as_stone_density"}, 2);
}

void FakeStonesShader::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  trSwitchFollowsLink(this, index, who, maskShader_, useMask_, "blend_by_shader");
}

void FakeStonesShader::UpdateDerived() {
  trSurfaceShader::UpdateDerived();
  cellOffset_ = trNoff3(static_cast<int>(seed_));
  for (int i = 0; i < 3; ++i) densityOffset_[i] = trNoff3(static_cast<int>(trSeedAfter(densitySeed_, i - 1)));
}
