// The parameters of fake stones, in the project file's order.
#include "core/seed.h"
#include "fractal/fake_stones_shader.h"

FakeStonesShader::FakeStonesShader() {
  SetRange(pancakeHint_, this, {.max = 2});
  Seed(seed_).About("Chooses among patterns of stones. Change it for other stones of the same kind.");
  Param(surfaceShader_, "surface_shader", "")
      .About("A shader that displaces and colours the stones themselves; it comes in from their edges.");
  DeclareDensity();
  GuiTab("Shape", "shape_tab");
  Param(stoneTallness_, "stone_tallness", 0.5)
      .About(
          "Height of stones against their width. 0.5 is a half-buried ball, more stands up, less lies flat.");
  Param(pancakeEffect_, "pancake_effect", 1.0, &pancakeHint_)
      .About("Pushes stones out sideways, so that they get flat tops and steep sides. 0 leaves cones.");
  Gui(trGuiHiddenOpen);
  Param(separateGeometry_, "separate_geometry", 0)
      .About("Kept for old projects: on, no stones are made here.");
  Gui(trGuiHiddenClose);
  Param(onlyDisplaceUpwards_, "only_displace_upwards", 0)
      .About("Raises stones along the vertical instead of the normal of the ground that they lie on.");
  DeclareColour();
  GuiTab("Functions", "functions_tab");
  Param(scaleFunction_, "scale_function", "")
      .About(
          "A shader whose brightness multiplies the stones' size, and that of the patches, at each point.");
  Param(tallnessFunction_, "tallness_function", "")
      .About("A shader whose brightness multiplies the stones' height at each point.");
  DeclareMask();
  UpdateDerived();
}

void FakeStonesShader::DeclareDensity() {
  GuiTab("Scale / Density", "size_tab");
  Param(stoneScale_, "stone_scale", 1.0)
      .About("Size of the cells that stones lie in, and so of the largest stones, metres.");
  Param(stoneDensity_, "stone_density", 0.1).About("Share of cells with a stone, 0 to 1.");
  Param(varyDensity_, "vary_density", 1).About("Makes stones lie denser in some places than in others.");
  Gui(trGuiIndentOpen);
  Param(densityVariation_, "density_variation", 1.0)
      .About("How much the density varies from place to place. 0 spreads stones evenly.");
  Seed(densitySeed_, "density_seed").About("Chooses where stones lie dense and where they are few.");
  Param(densityVariationScale_, "density_variation_scale", 10.0)
      .About("Size of the patches of dense stones, metres.");
  Gui(trGuiIndentClose);
  AddGuiAction({"vary_density"}, {"density_variation", "density_seed", "density_variation_scale"}, 2);
}

void FakeStonesShader::DeclareColour() {
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1)
      .ColourOnly()
      .About("Colours the stones. Off, they have the colour of the ground, or of the surface shader alone.");
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(1.0f))
      .Alias("diffuse_color")
      .ColourOnly()
      .About("Colour of the stones before it varies.");
  Param(colourVariation_, "colour_variation", 1)
      .Alias("color_variation")
      .ColourOnly()
      .About("Gives each stone a colour of its own.");
  Gui(trGuiIndentOpen);
  Param(colourVariations_[0], "variation_in_red", 0.5)
      .ColourOnly()
      .About("How much red varies from stone to stone: at 0.5, from none to twice as much.");
  Param(colourVariations_[1], "variation_in_green", 0.5)
      .ColourOnly()
      .About("How much green varies from stone to stone: at 0.5, from none to twice as much.");
  Param(colourVariations_[2], "variation_in_blue", 0.5)
      .ColourOnly()
      .About("How much blue varies from stone to stone: at 0.5, from none to twice as much.");
  Gui(trGuiIndentClose);
  AddGuiAction({"colour_variation"}, {"variation_in_red", "variation_in_green", "variation_in_blue"}, 2);
}

void FakeStonesShader::DeclareMask() {
  Param(useMask_, "blend_by_shader", 0)
      .Display("Mask by shader")
      .About("Lets the mask shader tell where stones lie. On without a mask shader, there are none.");
  Gui(trGuiRowOpen);
  Gui(trGuiRowClose);
  Param(maskShader_, "blending_shader", "")
      .Display("Mask shader")
      .About("The shader whose brightness is the mask: white for stones, black for none.");
  Gui(trGuiIndentOpen);
  Param(fitMask_, "fit_blendshader_to_this", 0)
      .Display("Fit mask to this")
      .About("Evaluates the mask in cells instead of metres, so that it scales along with the stones.");
  Gui(trGuiGapSmall);
  Param(invertMask_, "invert_blendshader", 0)
      .Display("Invert mask")
      .About("Takes the mask the other way round: black for stones, white for none.");
  Param(maskAsDensity_, "blend_as_stone_density", 0)
      .Display("Mask as stone density")
      .About("The mask thins stones out, one by one, instead of flattening those at its edges.");
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
