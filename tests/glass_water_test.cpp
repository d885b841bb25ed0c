// glass_shader, water_shader and lambert_shader: what they tell their hidden children, wind, waves that turn
// to roughness, and what lies beneath.
#include "tests/reflective_fixture.h"

namespace {

struct Owner : ::testing::Test {
  Graph graph;
  ReflectionRender render;
  void Set(trBase& node, const char* name, const trParamValue& value) {
    ASSERT_TRUE(node.SetParam(name, value, trWhoSystem)) << name;
  }
};
using Glass = Owner;
using Water = Owner;
using Lambert = Owner;

TEST_F(Glass, SetsUpItsReflectiveChild) {
  trShader& glass = graph.Shader("glass_shader");
  ReflectiveShader* const child = OwnedChild<ReflectiveShader>(glass, "reflective_shader");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->isThinWalled, 0);
  EXPECT_EQ(child->volumeMethod, 2);
  const trManRgb colour(0.1f, 0.2f, 0.3f);
  for (const char* name :
       {"transparency", "reflectivity", "reflection_tint", "decay_tint", "volume_1_colour"})
    Set(glass, name, colour);
  for (const char* name : {"reflectivity", "reflection_tint"})
    EXPECT_TRUE(ColourParam(*child, name) == colour) << name;
  EXPECT_TRUE(child->transparency == colour && child->decayTint == colour && child->volumeColour == colour);
  double value = 0;
  for (const char* name :
       {"highlight_intensity", "caustic_intensity", "specular_roughness", "index_of_refraction"}) {
    Set(glass, name, value += 0.25);
    EXPECT_EQ(DoubleParam(*child, name), value) << name;
  }
  for (const char* name : {"double-sided_surface", "decay_distance", "volume_1_density",
                           "volume_1_colour_is_volumetric", "volume_method_in_path_tracer"})
    Set(glass, name, 1);
  EXPECT_TRUE(child->isThinWalled && child->isColourVolumetric);
  EXPECT_EQ(child->decayDistance + child->volumeDensity + child->volumeMethod, 3);
  EXPECT_EQ(DoubleParam(*child, "highlight_model"), 1);
  EXPECT_EQ(child->ThreadState(0).roughnessAddend, 0.005f);
  EXPECT_EQ(child->ThreadState(0).softnessAddend, 0);
}

TEST_F(Glass, HidesItsInputAndScalesItsRoughness) {
  trShader& glass = graph.Shader("glass_shader");
  auto& input = graph.Add<ProbeShader>("Input");
  auto& roughness = graph.Add<ProbeShader>("Roughness");
  graph.Link(glass, "input_node", input);
  graph.Link(glass, "specular_roughness_function", roughness);
  Set(glass, "specular_roughness", 0.5);
  render.deferred = true;
  render.Look(0.5);
  glass.ShadeTS(render.si);
  EXPECT_EQ(input.shaded, 0);
  const float luminance = 0.2125f * 0.25f + 0.7152f * 0.5f + 0.0724f * 0.75f;
  EXPECT_FLOAT_EQ(render.si.Bsdf().Lobe(1).roughness, 0.5f * luminance);
  // A volume's functions are those of the moment, and gone with their nodes.
  Set(glass, "volume_1_density", 2.0);
  graph.Link(glass, "volume_1_density_function", roughness);
  graph.Link(glass, "volume_1_colour_function", roughness);
  for (const bool isVolumetric : {false, true}) {
    Set(glass, "volume_1_colour_is_volumetric", isVolumetric);
    render.Look(0.5);
    glass.ShadeTS(render.si);
    const trMedium* const medium = render.si.Bsdf().Medium(render.si.Bsdf().Lobe(2));
    ASSERT_NE(medium, nullptr);
    EXPECT_FLOAT_EQ(static_cast<float>(medium->volumeDensity), 2 * luminance);
    EXPECT_EQ(medium->volumeColourFunction, isVolumetric ? &roughness : nullptr);
    EXPECT_FLOAT_EQ(medium->volumeColour.g, isVolumetric ? 0.5f : 0.25f);
  }
  graph.project.DestroyChild("Roughness", true);
  render.Look(0.5);
  glass.ShadeTS(render.si);
  EXPECT_EQ(render.si.Bsdf().Medium(render.si.Bsdf().Lobe(2))->volumeDensity, 2);
  Set(glass, "enable", 0);
  render.Look(0.5);
  glass.ShadeTS(render.si);
  EXPECT_EQ(input.shaded, 1);
}

TEST_F(Water, SetsUpItsChildren) {
  trShader& water = graph.Shader("water_shader");
  ReflectiveShader* const child = OwnedChild<ReflectiveShader>(water, "reflective_shader");
  trShader* const waves = OwnedChild(water, "power_fractal_shader_v3", 0);
  trShader* const wind = OwnedChild(water, "power_fractal_shader_v3", 1);
  ASSERT_TRUE(child && waves && wind);
  Set(water, "roughness", 0.03);
  Set(water, "wave_scale", 20.0);
  Set(water, "smallest_scale", 0.0001);
  Set(water, "wind_patch_size", 0.5);
  Set(water, "seed", 1000);
  Set(water, "master_reflectivity", 0.5);
  Set(water, "transparency", 0.25);
  Set(water, "min_highlight_spread", -2.0);
  Set(water, "highlight_intensity", 0.7);
  const struct {
    trBase* node;
    const char* name;
    double value;
  } cases[] = {{waves, "noise_flavour", 2},
               {waves, "seed", 1000},
               {waves, "feature_scale", 20},
               {waves, "lead-in_scale", 20},
               {waves, "smallest_scale", 0.01},
               {waves, "displacement_amplitude", 0.6},
               {wind, "seed", 1557},
               {wind, "feature_scale", 0.5},
               {wind, "lead-in_scale", 5},
               {wind, "lead-in_warp_effect", 1},
               {wind, "smallest_scale", 0.001},
               {wind, "clamp_high_colour", 0},
               {wind, "clamp_low_colour", 0},
               {child, "highlight_model", 1},
               {child, "highlight_intensity", 0.7},
               {child, "caustic_intensity", 0.5},
               {child, "index_of_refraction", 1.33},
               {child, "specular_roughness", 1}};
  for (const auto& c : cases) EXPECT_NEAR(DoubleParam(*c.node, c.name), c.value, 1e-12) << c.name;
  EXPECT_TRUE(ColourParam(*child, "reflection_tint") == trManRgb(0.5f, 0.5f, 0.5f));
  EXPECT_TRUE(child->transparency == trManRgb(0.25f, 0.25f, 0.25f));
  EXPECT_EQ(child->isThinWalled, 0);
  EXPECT_EQ(child->volumeMethod, 1);
  EXPECT_TRUE(child->decayTint == trManRgb(0.75f, 1, 0.5f));
  const ReflectiveThreadState& record = child->ThreadState(0);
  EXPECT_EQ(record.roughnessAddend, 0.01f);
  EXPECT_EQ(record.softnessAddend, 0);
  EXPECT_EQ(record.smallScale, 0.0001);
  EXPECT_DOUBLE_EQ(record.inverseSmallScale, 1e4);
}

/// The wind factor at the render's point, from the fractal's own value.
double Wind(trShader& water, ReflectionRender& render, double effect, double sharpness) {
  if (effect == 0 || sharpness == 0) return 1;
  const double n = OwnedChild(water, "power_fractal_shader_v3", 1)->FloatValueTS(render.si);
  const double b = 2 / (1 + std::exp(-(n - 0.5) * sharpness));
  return effect > 1 && b < 1 ? std::pow(b, effect) : 1 + (b - 1) * effect;
}

TEST_F(Water, WindLowersTheWaves) {
  trShader& water = graph.Shader("water_shader");
  Set(water, "seed", 3);
  trShader* const waves = OwnedChild(water, "power_fractal_shader_v3", 0);
  int calm = 0, rough = 0;
  for (double effect : {0.0, 0.5, 1.0, 2.0})
    for (double sharpness : {0.0, 5.0, 40.0})
      for (double x : {10.0, 130.0, 400.0, 777.0}) {
        Set(water, "wind_patch_effect", effect);
        Set(water, "wind_patch_sharpness", sharpness);
        const trVector p(x, 0, -x * 0.3);
        render.Look(0.3, p);
        waves->DisplaceTS(render.si);
        const trVector full = render.si.P();
        const double wind = Wind(water, render, effect, sharpness);
        calm += wind < 0.99;
        rough += wind > 1.01;
        render.Look(0.3, p);
        water.DisplaceTS(render.si);
        ExpectNear(render.si.P(), full * wind + p * (1 - wind), 1e-6);
      }
  EXPECT_GT(calm, 3);
  EXPECT_GT(rough, 3);
}

TEST_F(Water, WavesTurnToRoughnessWithDistance) {
  trShader& water = graph.Shader("water_shader");
  ReflectiveShader* const child = OwnedChild<ReflectiveShader>(water, "reflective_shader");
  auto& input = graph.Add<ProbeShader>("Input");
  graph.Link(water, "input_node", input);
  Set(water, "roughness", 0.05);
  Set(water, "horizon_shift", 0.8);
  render.deferred = true;
  for (double angle : {0.1, 1.4, 1.57}) {
    render.Look(angle);
    const trVector toEye(std::sin(angle), std::cos(angle), 0);
    render.si.RootEye() = render.si.P() + toEye * 5000.0;
    trRenderState::Ray& ray = render.state.CurrentRay();
    ray.pixelAngularSize = 0.002;
    ray.pixelFactor = 0.5;
    ray.flags[2] = 7;
    const double wind = Wind(water, render, 1, 5);
    water.ShadeTS(render.si);
    const double c = std::fabs(std::cos(angle)) + 0.1, k = std::exp(-5.0 / c * 0.5 / 10);
    EXPECT_NEAR(child->ThreadState(0).roughnessScale, (1 - k) * wind * 0.05, 1e-6) << angle;
    EXPECT_NEAR(render.si.Bsdf().Lobe(1).roughness, (1 - k) * wind * 0.05 + 0.01, 1e-6) << angle;
    EXPECT_EQ(child->ThreadState(0).normalBlendRate, 0.5);
    EXPECT_EQ(ray.flags[2], 7);
  }
  EXPECT_EQ(input.shaded, 3);
}

TEST_F(Lambert, KeepsOrReplacesTheColour) {
  trShader& lambert = graph.Shader("lambert_shader");
  auto& input = graph.Add<ProbeShader>("Input");
  graph.Link(lambert, "input_node", input);
  Set(lambert, "translucent", 1);
  Set(lambert, "translucency_amount", 0.5);
  Set(lambert, "translucency_tint", trManRgb(1, 0.5f, 0));
  for (const bool keeps : {false, true}) {
    Set(lambert, "use_existing_colour", keeps);
    render.Look(0);
    lambert.ShadeTS(render.si);
    const trFCol colour = keeps ? trFCol(0.25f, 0.5f, 0.75f) : trFCol(1.0f);
    ASSERT_EQ(render.si.Bsdf().NumLobes(), 2);
    EXPECT_EQ(render.si.Bsdf().Lobe(0).colour, colour);
    EXPECT_EQ(render.si.Bsdf().Lobe(1).colour, colour * trFCol(0.5f, 0.25f, 0));
  }
}

}  // namespace
