// reflective_shader: geometry against independent optics, how energy is shared, which rays are traced, what
// is left for path tracers, insides, and what hostile settings do.
#include "core/reflection.h"
#include "tests/reflective_fixture.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

/// Reflectance of unpolarised light by the angles in air and medium.
double FresnelByAngles(double in, double out) {
  if (in == 0) return std::nan("");
  const double rs = std::sin(in - out) / std::sin(in + out), rp = std::tan(in - out) / std::tan(in + out);
  return 0.5 * (rs * rs + rp * rp);
}

class Reflective : public ::testing::Test {
 protected:
  void SetUp() override { shader.SetParam("specular_roughness", 0, trWhoSystem); }
  void MakeSolid(const trManRgb& transparency = {0.9f, 0.8f, 0.5f}) {
    shader.isThinWalled = 0;
    shader.transparency = transparency;
  }
  trRenderState::Outputs& Shade() {
    shader.ShadeTS(render.si);
    return render.state.ShadeOutputs();
  }
  Graph graph;
  ReflectiveShader& shader = dynamic_cast<ReflectiveShader&>(graph.Shader("reflective_shader"));
  ReflectionRender render;
};

TEST_F(Reflective, BendsLightBySnellAndSharesItByFresnel) {
  MakeSolid();
  shader.SetParam("reflectivity", trManRgb(1, 0.5f, 0.25f), trWhoSystem);
  shader.SetParam("reflection_tint", trManRgb(1, 1, 0.5f), trWhoSystem);
  for (double ior : {1.33, 1.5, 2.4})
    for (double angle : {0.2, 0.8, 1.4, kPi - 0.3}) {
      shader.SetParam("index_of_refraction", ior, trWhoSystem);
      render.Look(angle);
      const auto& outputs = Shade();
      const bool fromInside = angle > kPi / 2;
      const double in = fromInside ? kPi - angle : angle,
                   out = std::asin(std::sin(in) * (fromInside ? ior : 1 / ior));
      const double fresnel = fromInside ? FresnelByAngles(out, in) : FresnelByAngles(in, out);
      const double side = fromInside ? -1 : 1;
      ASSERT_EQ(render.rays.size(), 2u);
      const NotedRay &up = render.rays[0], &through = render.rays[1];
      ExpectNear(up.direction, {-std::sin(in), side * std::cos(in), 0}, 1e-9);
      ExpectNear(through.direction, {-std::sin(out), -side * std::cos(out), 0}, 1e-9);
      EXPECT_EQ(up.kind, fromInside ? NotedRay::kInside : NotedRay::kFull);
      EXPECT_EQ(through.kind, fromInside ? NotedRay::kFull : NotedRay::kInside);
      EXPECT_NEAR(up.origin.y - 1, side * 1e-6, 1e-9);
      EXPECT_NEAR(through.origin.y - 1, -side * 1e-6, 1e-9);
      const float rf[3] = {1, 0.5f, 0.25f}, tint[3] = {1, 1, 0.5f}, clear[3] = {0.9f, 0.8f, 0.5f};
      for (int k = 0; k < 3; ++k) {
        const double reflected = (fromInside ? clear[k] : rf[k] * tint[k]) * fresnel;
        const double passed = (1 - (fromInside ? 1 : rf[k]) * fresnel) * clear[k];
        EXPECT_NEAR(outputs.reflection[k], reflected, 1e-6) << ior << ' ' << angle;
        EXPECT_NEAR(outputs.transmission[k], passed, 1e-6) << ior << ' ' << angle;
        EXPECT_NEAR(render.si.Bsdf().Lobe(0).colour[k], 0.5 * (1 - rf[k] * fresnel) * (1 - clear[k]), 1e-6);
      }
    }
}

TEST_F(Reflective, ReflectsAllBeyondTheCriticalAngle) {
  MakeSolid();
  shader.SetParam("index_of_refraction", 1.5, trWhoSystem);
  render.Look(kPi - std::asin(1 / 1.5) - 0.01);
  const auto& outputs = Shade();
  ASSERT_EQ(render.rays.size(), 1u);
  EXPECT_LT(render.rays[0].direction.y, 0);
  EXPECT_EQ(outputs.reflection, trFCol(0.9f, 0.8f, 0.5f));
  // One depth before the last light gets out unbent.
  render.Look(kPi - std::asin(1 / 1.5) - 0.01);
  render.si.SetLightDepth(render.maxDepth - 1);
  Shade();
  ASSERT_EQ(render.rays.size(), 1u);
  ExpectNear(render.rays[0].direction, -Normalised(render.si.Eye() - render.si.P()), 1e-9);
}

TEST_F(Reflective, ThinWallsLetLightStraightThrough) {
  shader.transparency = trManRgb(0.5f, 0.5f, 0.5f);
  shader.SetParam("index_of_refraction", 1.5, trWhoSystem);
  for (double angle : {0.7, kPi - 0.7}) {
    render.Look(angle);
    const auto& outputs = Shade();
    const double fresnel = FresnelByAngles(0.7, std::asin(std::sin(0.7) / 1.5));
    ASSERT_EQ(render.rays.size(), 2u);
    ExpectNear(render.rays[1].direction, -Normalised(render.si.Eye() - render.si.P()), 1e-9);
    EXPECT_EQ(render.rays[1].kind, NotedRay::kFull);
    EXPECT_NEAR(outputs.reflection.g, fresnel, 1e-6);
    EXPECT_NEAR(outputs.transmission.g, 0.5 * (1 - fresnel), 1e-6);
  }
}

TEST_F(Reflective, BlackSurfacesAskForNothing) {
  shader.SetParam("reflectivity", trManRgb(), trWhoSystem);
  render.suns.resize(1);
  render.Look(0.5);
  Shade();
  EXPECT_EQ(render.suns[0].asked, 0);
  EXPECT_TRUE(render.rays.empty());
  EXPECT_EQ(render.si.Bsdf().Lobe(0).colour, trFCol(0.5f));
}

TEST_F(Reflective, HighlightsFollowTheirModel) {
  render.suns.resize(1);
  render.suns[0].direction = Normalised({-0.3, 1, 0.2});
  render.suns[0].colour = trFCol(2, 1, 0.5f);
  shader.SetParam("specular_roughness", 0.3, trWhoSystem);
  shader.SetParam("caustic_intensity", 0.25, trWhoSystem);
  for (const auto& [spread, gain] : {std::pair{0.0, 1.0}, {0.004, 0.7}, {0.5, 0.25}})
    for (int model = 0; model < 5; ++model) {
      shader.SetParam("highlight_model", model, trWhoSystem);
      render.Look(0.5);
      render.state.CurrentRay().spread = spread;
      shader.ThreadState(0).baseSpecular = trFCol(0.1f);
      const trFCol got = Shade().highlight;
      const trVector n(0, 1, 0), l = render.suns[0].direction, v(std::sin(0.5), std::cos(0.5), 0);
      const trFCol s(static_cast<float>(0.1f * gain)), c(static_cast<float>(gain)), ior(1.33f);
      const double a = std::max(0.3, spread), f = 0.33 / 2.33;
      const trFCol rough(static_cast<float>(a)), neutral(2.0f);
      const trFCol expected = model == 0   ? trBlinnModified(s, c, ior, n, l, v, rough)
                              : model == 1 ? trSpecularBeckmannOV2(s, c, ior, n, l, v, rough, neutral)
                              : model == 2 ? trSpecularBeckmannOV45(s, c, ior, n, l, v, a, 2, a * a, f)
                              : model == 3 ? trSpecularGGX(s, c, ior, n, l, v, a, 2, a * a, f)
                                           : trFCol();
      for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(got[k], expected[k] * (s[k] + c[k]) * Dot(l, n) * render.suns[0].colour[k], 2e-5)
            << model << ' ' << spread;
    }
}

TEST_F(Reflective, TerminatorSoftensHighlights) {
  render.suns.resize(1);
  render.suns[0].direction = Normalised({-1, 1, 0});
  shader.SetParam("specular_roughness", 0.5, trWhoSystem);
  render.Look(0.5);
  const float plain = Shade().highlight.r;
  render.Look(0.5);
  const trVector reference = Normalised({0.2, 1, 0});
  render.state.TerminatorInfo() = {true, 0.3f, reference};
  const float soft = Shade().highlight.r;
  const double u = 0.95 * Dot(reference, render.suns[0].direction) + 0.05;
  const double e = (3.1415927 - (0.5 + kPi / 4)) * 6, w = 1 - std::pow(1 - u, e), d = std::sqrt(0.5);
  EXPECT_NEAR(soft / plain, (d - (1 - w) * 0.3f) / d, 1e-5);
}

TEST_F(Reflective, LightsShineThrough) {
  MakeSolid(trManRgb(1, 1, 1));
  render.suns.resize(1);
  render.suns[0].direction = Normalised({-0.3, -1, 0.0});
  shader.SetParam("specular_roughness", 0.1, trWhoSystem);
  render.Look(0.3);
  EXPECT_GT(Shade().highlight.r, 0);
  EXPECT_EQ(render.suns[0].asked, 1);
  // Light that already left an object that casts no shadow isn't gathered again.
  render.Look(0.3);
  render.si.SetLightDepth(2);
  render.state.CurrentRay().groupCastsShadows = false;
  EXPECT_TRUE(Shade().highlight.IsBlack());
}

TEST_F(Reflective, ExhaustedDepthKeepsHighlightsAlone) {
  MakeSolid();
  render.suns.resize(1);
  shader.SetParam("specular_roughness", 0.4, trWhoSystem);
  render.Look(0.2);
  render.state.CurrentRay().depth = render.maxDepth;
  const auto& outputs = Shade();
  EXPECT_GT(outputs.highlight.r, 0);
  EXPECT_TRUE(render.rays.empty());
  EXPECT_EQ(render.si.Bsdf().NumLobes(), 1);
  EXPECT_EQ(render.si.Bsdf().Lobe(0).colour, trFCol(0.5f));
}

TEST_F(Reflective, SoftReflectionsKeepTheirRaysAboveTheSurface) {
  shader.SetParam("reflection_softness", 0.9, trWhoSystem);
  shader.SetParam("number_of_samples", 16, trWhoSystem);
  render.Look(1.45);
  const float fresnel = Shade().reflection.r;
  ASSERT_EQ(render.rays.size(), 16u);
  EXPECT_NEAR(fresnel, FresnelByAngles(1.45, std::asin(std::sin(1.45) / 1.33)), 1e-5);
  EXPECT_EQ(render.si.Random().drawn, 16u * 6u);
  const auto first = render.rays;
  for (const NotedRay& ray : first) EXPECT_GT(ray.direction.y, 0);
  // The first ray by its draws: z, y and x in this order.
  trRandomStream stream{17, 0};
  trVector offset;
  for (int i : {2, 1, 0}) offset[i] = (stream.Next() - 0.5) * 2 * 0.9;
  trVector expected = trVector(-std::sin(1.45), std::cos(1.45), 0) + offset;
  expected.y = std::fabs(expected.y);
  ExpectNear(first[0].direction, Normalised(expected), 1e-9);

  // The same rays at the next point, others after a change; one where there is nothing to spread.
  render.Look(1.45, {100, 1, 3});
  Shade();
  EXPECT_EQ(render.rays[7].direction, first[7].direction);
  EXPECT_EQ(render.si.Random().drawn, 0u);
  shader.SetParam("number_of_samples", 3, trWhoSystem);
  render.Look(1.45);
  Shade();
  EXPECT_EQ(render.rays.size(), 3u);
  EXPECT_EQ(render.si.Random().drawn, 18u);
  shader.SetParam("number_of_samples", 1, trWhoSystem);
  render.Look(1.45);
  Shade();
  EXPECT_EQ(render.rays.size(), 1u);
  shader.SetParam("number_of_samples", 16, trWhoSystem);
  render.Look(1.45);
  render.si.SetLightDepth(2);
  Shade();
  EXPECT_EQ(render.rays.size(), 1u);
}

TEST_F(Reflective, QuickRaysLeaveLightAsLobes) {
  MakeSolid();
  shader.SetParam("ray_traced_reflections", 0, trWhoSystem);
  render.Look(0.6);
  render.answer = trFCol(0.25f);
  EXPECT_TRUE(Shade().Sum().IsBlack());
  ASSERT_EQ(render.rays.size(), 2u);
  EXPECT_EQ(render.rays[1].kind, NotedRay::kQuick);
  const trFCol light = render.si.Bsdf().ColourOf(trLobe::kLight);
  const double fresnel = FresnelByAngles(0.6, std::asin(std::sin(0.6) / 1.33));
  EXPECT_NEAR(light.r, 0.25 * (fresnel + (1 - fresnel) * 0.9), 1e-6);
}

TEST_F(Reflective, PathTracersGetTwoLobes) {
  MakeSolid();
  render.deferred = true;
  shader.decayDistance = 4;
  shader.decayTint = trManRgb(0.5f, 1, 1);
  shader.volumeDensity = 2;
  shader.volumeMethod = 1;
  shader.SetParam("specular_roughness", 0.2, trWhoSystem);
  shader.ThreadState(0).softnessAddend = 0.05f;
  shader.ThreadState(0).roughnessAddend = 0.1f;
  shader.ThreadState(0).normalBlendRate = 0;
  for (double angle : {0.6, kPi - 0.6}) {
    render.Look(angle);
    EXPECT_TRUE(Shade().Sum().IsBlack());
    const bool inside = angle > 1;
    const double fresnel = inside ? FresnelByAngles(std::asin(std::sin(0.6) * 1.33), 0.6)
                                  : FresnelByAngles(0.6, std::asin(std::sin(0.6) / 1.33));
    const trBsdf& bsdf = render.si.Bsdf();
    ASSERT_EQ(bsdf.NumLobes(), 3);
    const trLobe &up = bsdf.Lobe(1), &through = bsdf.Lobe(2);
    EXPECT_EQ(up.kind, trLobe::kSpecularReflection);
    EXPECT_EQ(through.kind, trLobe::kSpecularTransmission);
    EXPECT_EQ(up.model, 3);
    EXPECT_EQ(through.model, -1);
    EXPECT_FLOAT_EQ(up.roughness, 0.25f);
    EXPECT_FLOAT_EQ(up.roughness2, 0.09f);
    EXPECT_FLOAT_EQ(up.invTweak, 2);
    EXPECT_FLOAT_EQ(up.index, static_cast<float>(inside ? 1 / 1.33 : 1.33));
    EXPECT_FLOAT_EQ(up.outerIndex, 1.33f);
    ExpectNear(up.normal, {0, inside ? -1.0 : 1.0, 0}, 1e-12);
    EXPECT_NEAR(through.colour.r, 0.9 * (1 - fresnel), 1e-6);
    EXPECT_EQ(through.base, trFCol(0.9f, 0.8f, 0.5f));
    EXPECT_EQ(through.thin, 0);
    // The medium lies beyond the surface, or before it where that is seen from inside.
    const trMedium* medium = bsdf.Medium(inside ? up : through);
    EXPECT_EQ(bsdf.Medium(inside ? through : up), nullptr);
    ASSERT_NE(medium, nullptr);
    EXPECT_EQ(medium->decayDistance, 4);
    EXPECT_EQ(medium->volumeDensity, 2);
    EXPECT_EQ(medium->method, 1);
    EXPECT_EQ(medium->point, render.si.P());
    // Rough GGX loses what facets pass to each other.
    const double kappa = 1.4 * 0.09, f = 0.33 / 2.33, edge = inside ? 0.9 : 1.0;
    EXPECT_NEAR(up.colour.r, edge * fresnel * (1 + kappa * edge * f) / (1 + kappa), 1e-6);
  }
}

TEST_F(Reflective, InsidesAbsorbAndScatter) {
  MakeSolid(trManRgb(1, 1, 1));
  shader.decayDistance = 6;
  shader.decayTint = trManRgb(0.5f, 0.25f, 1);
  shader.volumeColour = trManRgb(1, 0.5f, 0.25f);
  render.Look(0.6);
  const double passed = 1 - FresnelByAngles(0.6, std::asin(std::sin(0.6) / 1.33));
  const trFCol absorbed = Shade().transmission;
  const double extinction[3] = {2 / 6.0, 4 / 6.0, 1 / 6.0};
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(absorbed[k], passed * std::exp(-2 * extinction[k] * 3), 1e-6);

  // Four steps of a march, each with what it takes out times the share that is scattered.
  shader.volumeDensity = 3;
  render.suns.resize(1);
  render.suns[0].direction = {0, -1, 0};  // from below, where no highlight hides it
  render.suns[0].colour = trFCol(2.0f);
  render.answer = trFCol();
  shader.SetParam("specular_highlights", 0, trWhoSystem);
  render.insideLength = 1.5;
  render.Look(0.6);
  const trFCol scattered = Shade().transmission;
  EXPECT_EQ(render.suns[0].asked, 4);
  const double density = 3 / 6.0;
  for (int k = 0; k < 3; ++k) {
    const double e = extinction[k] + density;
    const double sum = (1 - std::exp(-e * 1.5)) * density / e * 2;
    EXPECT_NEAR(scattered[k], passed * sum * shader.volumeColour.ToRender()[k], 1e-5);
  }
  // No absorption at all; and none that could be told.
  shader.decayDistance = -1;
  render.answer = trFCol(1.0f);
  render.Look(0.6);
  EXPECT_NEAR(Shade().transmission.r, passed, 1e-6);
  shader.decayDistance = 0;
  render.Look(0.6);
  EXPECT_EQ(Shade().transmission.r, 0);
  EXPECT_EQ(render.rays.size(), 1u);
}

TEST_F(Reflective, RoughSurfacesLeanTheirNormals) {
  shader.SetParam("specular_roughness", 0.8, trWhoSystem);
  for (double rate : {0.5, 4.0}) {
    shader.ThreadState(0).normalBlendRate = rate;
    render.Look(1.2);
    Shade();
    const double k = 1 - std::exp(-0.8 * rate);
    const trVector v(std::sin(1.2), std::cos(1.2), 0), n(0, 1, 0);
    const trVector leaning = Normalised(n * (1 - k) + Normalised(v + n) * k);
    ExpectNear(render.rays.at(0).direction, leaning * (2 * Dot(v, leaning)) - v, 1e-6);
  }
}

TEST_F(Reflective, FunctionsMayMisbehave) {
  auto& function = graph.Add<ProbeShader>("F");
  const float inf = std::numeric_limits<float>::infinity();
  render.suns.resize(1);
  shader.SetParam("specular_roughness", 0.3, trWhoSystem);
  graph.Link(shader, "specular_roughness_function", function);
  for (const trFCol& c : {trFCol(inf), trFCol(-inf), trFCol(std::nanf("")), trFCol(-2), trFCol(1e30f)}) {
    function.colour = c;
    render.Look(0.4);
    Shade();
    EXPECT_TRUE(LeavesFinite(render.si)) << c.r;
  }
  // Linked to itself, to nothing, to a node that is no shader.
  for (const char* link : {"/Reflective shader 01", "nothing", "/"}) {
    shader.SetParam("specular_roughness_function", link, trWhoSystem);
    render.Look(0.4);
    Shade();
    EXPECT_TRUE(LeavesFinite(render.si)) << link;
  }
}

TEST_F(Reflective, ExtremesStayFinite) {
  render.suns.resize(1);
  for (const bool deferred : {false, true})
    for (const int thin : {0, 1})
      for (double ior : {0.0, 1.0, -1.0, 0.5, 1e300})
        for (double roughness : {0.0, 1e9, -1.0})
          for (const float colour : {0.0f, -3.0f, 1e38f})
            for (double angle : {0.0, 1.0, kPi / 2, 2.5}) {
              render.deferred = deferred;
              shader.isThinWalled = static_cast<unsigned char>(thin);
              shader.transparency = trManRgb(colour, 1, 0);
              shader.decayDistance = 1e-300;
              shader.SetParam("index_of_refraction", ior, trWhoSystem);
              shader.SetParam("specular_roughness", roughness, trWhoSystem);
              shader.SetParam("reflectivity", trManRgb(1, colour, 0), trWhoSystem);
              shader.SetParam("specular_tweak", roughness, trWhoSystem);
              shader.SetParam("reflection_softness", roughness * 1e290, trWhoSystem);
              render.Look(angle);
              Shade();
              EXPECT_TRUE(LeavesFinite(render.si))
                  << deferred << thin << ' ' << ior << ' ' << roughness << ' ' << colour << ' ' << angle;
              for (const NotedRay& ray : render.rays) EXPECT_TRUE(std::isfinite(ray.direction.Length()));
            }
}

TEST_F(Reflective, OldProjectsTransparencyIsSwallowed) {
  EXPECT_EQ(shader.SetParamFromString("transparency", "1 1 1", trWhoSystem), 1);
  EXPECT_TRUE(shader.transparency == trManRgb());
  EXPECT_EQ(shader.SetParamFromString("transparenzy", "1", trWhoSystem), 0);
}

}  // namespace
