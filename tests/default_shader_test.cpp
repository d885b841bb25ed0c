// default_shader: the order and guards of its steps, keying, metal, what its hidden children are told, and
// the life of its image samplers.
#include "tests/reflective_fixture.h"

namespace {

class Default : public ::testing::Test {
 protected:
  Graph graph;
  trShader& shader = graph.Shader("default_shader");
  ReflectiveShader* reflective = OwnedChild<ReflectiveShader>(shader, "reflective_shader");
  ReflectionRender render;

  ProbeShader& Feed(const char* param, const trFCol& colour) {
    auto& probe = graph.Add<ProbeShader>(param);
    probe.colour = colour;
    graph.Link(shader, param, probe);
    return probe;
  }
  void Set(const char* name, const trParamValue& value) {
    ASSERT_TRUE(shader.SetParam(name, value, trWhoSystem)) << name;
  }
  trBsdf& Shade(double angle = 0.6) {
    render.Look(angle);
    shader.ShadeTS(render.si);
    return render.si.Bsdf();
  }
};

TEST_F(Default, NewNodesDifferFromOldOnes) {
  const struct {
    const char* name;
    double fresh, old;
  } cases[] = {{"specular_roughness_model", 3, 1},
               {"remap_specular_roughness_image", 1, 0},
               {"convert_specular_roughness_image_to_linear", 0, 1},
               {"convert_displacement_image_to_linear", 0, 1}};
  trShader* const old = dynamic_cast<trShader*>(trCreateObject("default_shader", &shader, 0));
  ASSERT_NE(old, nullptr);
  for (const auto& c : cases) {
    EXPECT_EQ(DoubleParam(shader, c.name), c.fresh) << c.name;
    EXPECT_EQ(DoubleParam(*old, c.name), c.old) << c.name;
  }
  // A project that names no image has the modern settings.
  EXPECT_EQ(old->SetParamFromString("specular_roughness_image", "", trWhoSystem), 1);
  EXPECT_EQ(old->SetParamFromString("displacement_image", "", trWhoSystem), 1);
  for (int i : {1, 2, 3}) EXPECT_EQ(DoubleParam(*old, cases[i].name), cases[i].fresh) << cases[i].name;
  EXPECT_EQ(old->SetParamFromString("remap_specular_roughness_image", "0", trWhoSystem), 1);
  EXPECT_EQ(DoubleParam(*old, "remap_specular_roughness_image"), 0);
  EXPECT_EQ(old->SetParamFromString("use_ocio", "1", trWhoSystem), 1);
  trDestroyObject(old);
}

TEST_F(Default, TellsItsReflectiveChild) {
  ASSERT_NE(reflective, nullptr);
  Set("reflectivity", trManRgb(0.1f, 0.2f, 0.3f));
  Set("reflection_tint", trManRgb(0.5f, 0.6f, 0.7f));
  Set("index_of_refraction", 1.7);
  Set("specular_roughness", 0.35);
  Set("specular_roughness_model", 2);
  EXPECT_TRUE(ColourParam(*reflective, "reflectivity") == trManRgb(0.1f, 0.2f, 0.3f));
  EXPECT_TRUE(ColourParam(*reflective, "reflection_tint") == trManRgb(0.5f, 0.6f, 0.7f));
  const struct {
    const char* name;
    double value;
  } cases[] = {{"index_of_refraction", 1.7}, {"specular_roughness", 0.35}, {"highlight_model", 2},
               {"highlight_intensity", 1},   {"caustic_intensity", 1},     {"specular_tweak", 0.5},
               {"ray_traced_reflections", 0}};
  for (const auto& c : cases) EXPECT_EQ(DoubleParam(*reflective, c.name), c.value) << c.name;
  for (unsigned i = 0; i < reflective->NumThreadStates(); ++i) {
    EXPECT_EQ(reflective->ThreadState(i).roughnessAddend, 0.005f);
    EXPECT_EQ(reflective->ThreadState(i).softnessAddend, 0);
  }
}

TEST_F(Default, Displaces) {
  const trVector ng(0, 1, 0), n = Normalised({0.6, 0.8, 0.3});
  const trVector vertical = ng * Dot(ng, n), lateral = n - vertical;
  const trVector directions[] = {ng, n, vertical, lateral, Normalised(lateral), n};
  Set("displacement_multiplier", 0.5);
  Set("displacement_offset", 0.25);
  const auto displaced = [&] {
    render.Look(0);
    render.si.Ng() = ng;
    render.si.N() = n;
    shader.DisplaceTS(render.si);
    return render.si.P() - trVector(5, 1, -2);
  };
  for (int i = 0; i < 6; ++i) {
    Set("displacement_direction", i);
    ExpectNear(displaced(), directions[i] * 0.25, 1e-12);
  }
  auto& function = Feed("displacement_function", trFCol(2.0f));
  Set("displacement_direction", 1);
  ExpectNear(displaced(), n * (0.25 + 0.5 * Luminance(trFCol(2.0f))), 1e-7);
  function.shaded = 0;
  Set("displacement_multiplier", 0.0);
  ExpectNear(displaced(), n * 0.25, 1e-12);
  EXPECT_EQ(function.shaded, 0);
}

TEST_F(Default, TransparentPointsCostNothing) {
  auto& opacity = Feed("opacity_function", trFCol());
  auto& colour = Feed("colour_function", trFCol(1.0f));
  auto& roughness = Feed("specular_roughness_function", trFCol(1.0f));
  Shade();
  EXPECT_EQ(opacity.shaded, 1);
  EXPECT_EQ(colour.shaded + roughness.shaded, 0);
  EXPECT_TRUE(render.si.Oo_surf().IsBlack());
  Set("opacity", trManRgb());
  Shade();
  EXPECT_EQ(opacity.shaded, 1);
  opacity.colour = trFCol(0.5f, 0, 1);
  Set("opacity", trManRgb(0.5f, 1, 1));
  Shade();
  EXPECT_EQ(render.si.Oo_surf(), trFCol(0.25f, 0, 1));
  EXPECT_EQ(colour.shaded, 1);
}

TEST_F(Default, KeysByColour) {
  auto& colour = Feed("colour_function", trFCol(0.5f, 0.25f, 0));
  Set("alpha_from_colour", 1);
  Set("alpha_key", trManRgb(0.25f, 0.25f, 0));
  Set("diffuse_colour", trManRgb());  // the key is compared with the texture alone
  const struct {
    double tolerance;
    bool isOut;
  } cases[] = {{0.25, true}, {0.2499, false}, {0.1f, false}, {1, true}};
  for (const auto& c : cases) {
    Set("key_tolerance", c.tolerance);
    EXPECT_EQ(Shade().NumLobes() == 1, c.isOut) << c.tolerance;  // the layer beneath is left as it was
    EXPECT_EQ(render.si.Oo_surf().IsBlack(), c.isOut) << c.tolerance;
  }
  // A difference of a tenth equals a tolerance of a tenth.
  colour.colour = trFCol(0.1f, 0, 0);
  Set("alpha_key", trManRgb());
  Set("key_tolerance", 0.1);
  Shade();
  EXPECT_TRUE(render.si.Oo_surf().IsBlack());
  // Without keying black is black, whatever the function.
  Set("alpha_from_colour", 0);
  colour.shaded = 0;
  Shade();
  EXPECT_EQ(colour.shaded, 0);
}

TEST_F(Default, MovesMetalFromDiffuseToSpecular) {
  render.deferred = true;
  Set("diffuse_colour", trManRgb(0.8f, 0.4f, 0.2f));
  Set("translucency", trManRgb(0.5f, 0.5f, 0.5f));
  Set("luminosity", trManRgb(0.1f, 0, 0));
  Set("reflectivity", trManRgb());
  auto& metalness = Feed("metalness_function", trFCol(0.25f, 0.5f, 3.0f));
  const trBsdf* bsdf = &Shade();
  EXPECT_EQ(metalness.shaded, 0);
  // No metal and no reflectivity: two lobes, in place of what was there.
  ASSERT_EQ(bsdf->NumLobes(), 2);
  EXPECT_EQ(bsdf->Lobe(0).kind, trLobe::kDiffuseReflection);
  EXPECT_EQ(bsdf->Lobe(0).colour, trFCol(0.8f, 0.4f, 0.2f));
  EXPECT_EQ(bsdf->Lobe(1).kind, trLobe::kDiffuseTransmission);
  EXPECT_EQ(bsdf->Lobe(1).colour, trFCol(0.4f, 0.2f, 0.1f));
  EXPECT_EQ(bsdf->Emission(), trFCol(0.1f, 0, 0));

  Set("metalness", 0.5);
  bsdf = &Shade();
  ASSERT_EQ(bsdf->NumLobes(), 4);
  const trFCol m(0.125f, 0.25f, 1.0f), base(0.8f, 0.4f, 0.2f);
  const trLobe& specular = bsdf->Lobe(2);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(specular.base[k], base[k] * m[k], 1e-7);
    EXPECT_NEAR(bsdf->Lobe(0).colour[k], base[k] * (1 - m[k]), 1e-7);
  }
  EXPECT_EQ(bsdf->Lobe(1).colour, bsdf->Lobe(0).colour * trFCol(0.5f));
}

TEST_F(Default, ScalesReflectivityAndRoughness) {
  render.deferred = true;
  Set("specular_roughness", 0.5);
  Set("reflectivity", trManRgb(0.5f, 0.5f, 1));
  Feed("reflectivity_function", trFCol(0.5f, 1, 0.25f));
  Feed("specular_roughness_function", trFCol(0.4f));
  const trLobe& lobe = Shade().Lobe(2);
  EXPECT_EQ(lobe.edge, trFCol(0.25f, 0.5f, 0.25f));
  EXPECT_FLOAT_EQ(lobe.roughness, 0.5f * Luminance(trFCol(0.4f)));
  EXPECT_FLOAT_EQ(lobe.roughness2, std::pow(0.5f * Luminance(trFCol(0.4f)) + 0.005f, 2.0f));
  // Its own reflections are quick ones.
  render.deferred = false;
  Shade();
  ASSERT_EQ(render.rays.size(), 1u);
  EXPECT_EQ(render.rays[0].kind, NotedRay::kQuick);
}

TEST_F(Default, ComputesWhatIsAsked) {
  Feed("colour_function", trFCol(0.5f));
  auto& luminosity = Feed("luminosity_function", trFCol(0.5f));
  Set("luminosity", trManRgb(1, 1, 1));
  const struct {
    unsigned wants;
    bool isColoured, isShaded;
  } cases[] = {{trShadingInterface::kCd, true, false},
               {trShadingInterface::kOo, false, false},
               {trShadingInterface::kCe, false, true},
               {trShadingInterface::kCo, true, true}};
  for (const auto& c : cases) {
    luminosity.shaded = 0;
    render.Look(0.5);
    render.si.SetWants(c.wants);
    shader.ShadeTS(render.si);
    EXPECT_EQ(render.si.Cutil() == trFCol(0.25f), c.isColoured) << c.wants;
    EXPECT_EQ(luminosity.shaded == 1, c.isShaded) << c.wants;
  }
  Set("enable", 0);
  EXPECT_EQ(Shade().NumLobes(), 1);
}

TEST_F(Default, FunctionsMayMisbehave) {
  render.suns.resize(1);
  Set("metalness", 0.5);
  Set("translucency", trManRgb(1, 1, 1));
  Set("luminosity", trManRgb(1, 1, 1));
  std::vector<ProbeShader*> probes;
  for (const char* name : {"colour_function", "translucency_function", "luminosity_function",
                           "opacity_function", "specular_roughness_function", "metalness_function",
                           "reflectivity_function", "displacement_function"})
    probes.push_back(&Feed(name, trFCol()));
  const float inf = std::numeric_limits<float>::infinity();
  for (const bool deferred : {false, true})
    for (float x : {inf, -inf, std::nanf(""), -1.0f, 1e38f}) {
      for (ProbeShader* probe : probes) probe->colour = trFCol(x, 1, -x);
      render.deferred = deferred;
      Shade();
      EXPECT_TRUE(LeavesFinite(render.si)) << x;
      shader.DisplaceTS(render.si);
      EXPECT_TRUE(std::isfinite(render.si.P().Length())) << x;
    }
  for (const char* link : {"/Default shader 01", "nothing", "/"}) {
    Set("colour_function", link);
    Shade();
    EXPECT_TRUE(LeavesFinite(render.si)) << link;
  }
}

TEST_F(Default, KeepsSamplersWhileImagesHaveNames) {
  if (!ovhost::FindClass("image_map_shader")) GTEST_SKIP() << "no image_map_shader";
  const struct {
    const char *file, *unpremultiply;
    int convert;
  } cases[] = {{"colour_image", "unpremultiply_colour", 1},
               {"metalness_image", "unpremultiply_metalness", 0},
               {"translucency_image", "unpremultiply_translucency", 1},
               {"luminosity_image", "unpremultiply_luminosity", 1},
               {"reflectivity_image", "unpremultiply_reflectivity", 1},
               {"specular_roughness_image", "unpremultiply_specular_roughness", 0},
               {"opacity_image", nullptr, 1},
               {"displacement_image", nullptr, 0}};
  for (const auto& c : cases) {
    Set("image_projection", 4);
    Set(c.file, "no_such_picture.png");
    trShader* const sampler = OwnedChild(shader, "image_map_shader");
    ASSERT_NE(sampler, nullptr) << c.file;
    EXPECT_EQ(DoubleParam(*sampler, "repeat_x") + DoubleParam(*sampler, "repeat_y"), 2);
    EXPECT_EQ(DoubleParam(*sampler, "projection_type"), 4);
    EXPECT_EQ(DoubleParam(*sampler, "convert_to_linear"), c.convert) << c.file;
    EXPECT_EQ(DoubleParam(*sampler, "unpremultiply"), 0);
    EXPECT_EQ(DoubleParam(*sampler, "alpha_as_colour"), 0);
    Set("image_projection", 0);
    EXPECT_EQ(DoubleParam(*sampler, "projection_type"), 0);
    if (c.unpremultiply) {
      Set(c.unpremultiply, 1);
      EXPECT_EQ(DoubleParam(*sampler, "unpremultiply"), 1);
      Set(c.unpremultiply, 0);
    }
    Shade();
    EXPECT_TRUE(LeavesFinite(render.si));
    Set(c.file, "");
    EXPECT_EQ(OwnedChild(shader, "image_map_shader"), nullptr) << c.file;
  }
  Set("opacity_image", "no_such_picture.png");
  Set("use_alpha_channel", 1);
  EXPECT_EQ(DoubleParam(*OwnedChild(shader, "image_map_shader"), "alpha_as_colour"), 1);
}

}  // namespace
