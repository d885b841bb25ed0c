// Normals of displaced ground by finite differences, and the small surface shaders.
#include "tests/shading_fixture.h"

namespace {

constexpr double kEarthRadius = 6.4e6;

TEST(ComputeTerrain, NormalsOfPlanesRampsAndBallsAreTrue) {
  const auto ramp = [](double a, double b) {
    return [a, b](trShadingInterface& si) { si.P().y += a * si.P().x + b * si.P().z; };
  };
  const auto ball = [](trShadingInterface& si) { si.P() = Normalised(si.P()) * kEarthRadius; };
  const trVector slanted = Normalised({1, 2, 3});
  const struct {
    const char* what;
    trVector point, normal, expected;
    double tolerance;
    std::function<void(trShadingInterface&)> ground;
  } rows[] = {
      {"nothing moves", {5, 6, 7}, slanted, slanted, 1e-12, [](trShadingInterface&) {}},
      {"lifted plane", {5, 6, 7}, {0, 1, 0}, {0, 1, 0}, 1e-12, [](trShadingInterface& si) { si.P().y += 9; }},
      {"ramp", {5, 6, 7}, {0, 1, 0}, Normalised({-0.5, 1, 0.25}), 1e-12, ramp(0.5, -0.25)},
      {"steep ramp far out", {kEarthRadius, 0, 7}, {0, 1, 0}, Normalised({-3, 1, 0}), 1e-7, ramp(3, 0)},
      {"ball", slanted * kEarthRadius, slanted, slanted, 1e-7, ball},
  };
  for (const char* className : {"compute_normal", "compute_terrain"})
    for (const int smooth : {0, 1})
      for (const auto& row : rows) {
        Graph graph;
        trShader& shader = graph.Shader(className);
        auto& ground = graph.Add<ProbeShader>("Ground");
        ground.onDisplace = row.ground;
        Graph::Link(shader, "input_node", ground);
        shader.SetParam("smooth_surface", smooth, trWhoUser);
        Sample sample(row.point, row.normal);
        EXPECT_TRUE(shader.DisplaceTS(sample.si));
        ExpectNear(sample.si.N(), row.expected, row.tolerance, row.what);
        EXPECT_EQ(sample.si.Nt(), sample.si.N());
        ExpectNear(sample.si.Ng(), row.normal, 1e-12, "the input leaves Ng");
        EXPECT_EQ(ground.displaced, smooth ? 3 : 4);
        // All rows are so flat over the patch that the mean of three points lies on the surface.
        Sample direct(row.point, row.normal);
        row.ground(direct.si);
        ExpectNear(sample.si.P(), direct.si.P(), 0.02, row.what);
        const bool movesTexture = trString(className) == "compute_terrain";
        ExpectNear(sample.si.Pt(), movesTexture ? direct.si.P() : row.point, 0.02, row.what);
        ExpectNear(sample.si.Pg(), row.point, 1e-9, row.what);
      }
}

TEST(ComputeTerrain, EdgeCases) {
  Graph graph;
  trShader& shader = graph.Shader("compute_terrain");
  Sample alone({1, 2, 3}, {0, 0.5, 0});
  shader.DisplaceTS(alone.si);
  EXPECT_EQ(alone.si.N(), trVector(0, 0.5, 0)) << "inert without an input";

  auto& ground = graph.Add<ProbeShader>("Ground");
  ground.onDisplace = [](trShadingInterface& si) { si.P().y = si.P().x * si.P().x; };
  Graph::Link(shader, "input_node", ground);
  Sample along({1, 2, 3}, {0, 0, 1});
  shader.DisplaceTS(along.si);
  EXPECT_EQ(along.si.N(), trVector()) << "no tangent plane";

  shader.SetParam("gradient_patch_size", -4, trWhoUser);
  Sample tiny({1, 0, 0});
  shader.DisplaceTS(tiny.si);
  ExpectNear(tiny.si.N(), Normalised({-2, 1, 0}), 1e-3, "a patch of a millimetre");

  shader.SetParam("enable", 0, trWhoUser);
  Sample disabled({3, 0, 0});
  shader.DisplaceTS(disabled.si);
  EXPECT_EQ(disabled.si.P().y, 9);
  EXPECT_EQ(disabled.si.N(), trVector(0, 1, 0));
  EXPECT_EQ(disabled.si.Pt(), trVector(3, 0, 0));
}

TEST(SurfaceShaders, TexturePointFollowsThePosition) {
  Graph graph;
  trShader& shader = graph.Shader("tex_coords_from_XYZ");
  auto& ground = graph.Add<ProbeShader>("Ground");
  ground.onDisplace = [](trShadingInterface& si) { si.P().y += 9; };
  Graph::Link(shader, "input_node", ground);
  for (const int enable : {0, 1}) {
    shader.SetParam("enable", enable, trWhoUser);
    Sample sample({1, 2, 3});
    shader.DisplaceTS(sample.si);
    EXPECT_EQ(sample.si.P().y, 11);
    EXPECT_EQ(sample.si.Pt().y, enable ? 11 : 2);
  }
}

TEST(SurfaceShaders, VisualisersShowVectorsAsColours) {
  const struct {
    const char* className;
    trVector normal, point;
    std::vector<std::pair<const char*, int>> settings;
    trFCol colour;
  } rows[] = {
      {"visualise_normal", {0, 2, 0}, {}, {}, {0.5f, 1, 0.5f}},
      {"visualise_normal", {0, 0, 1}, {}, {}, {0.5f, 0.5f, 0}},
      {"visualise_normal", {0, 0, 1}, {}, {{"flip_Z", 0}}, {0.5f, 0.5f, 1}},
      {"visualise_normal", {0, 0, 0}, {}, {{"luminous", 0}}, {0.5f, 0.5f, 0.5f}},
      {"visualise_tex_coords", {0, 1, 0}, {1.25, -0.25, 3}, {}, {0.25f, 0.75f, 0}},
      {"visualise_tex_coords",
       {0, 1, 0},
       {1.25, -0.25, 3},
       {{"repeat", 0}, {"diffuse", 1}},
       {1.25f, -0.25f, 3}},
  };
  for (const auto& row : rows) {
    Graph graph;
    trShader& shader = graph.Shader(row.className);
    for (const auto& [name, value] : row.settings) shader.SetParam(name, value, trWhoUser);
    Sample sample(row.point, row.normal);
    shader.ShadeTS(sample.si);
    EXPECT_EQ(sample.si.Cutil(), row.colour) << row.className;
    long diffuse = 0, luminous = 0;
    shader.GetParam("diffuse", diffuse);
    shader.GetParam("luminous", luminous);
    EXPECT_EQ(shader.HasShade() != 0, diffuse || luminous);
    EXPECT_EQ(sample.si.Bsdf().Emission(), luminous ? row.colour : trFCol());
    EXPECT_EQ(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection), diffuse ? row.colour : trFCol());
  }
}

TEST(SurfaceShaders, LambertReflectsAndTransmits) {
  Graph graph;
  trShader& shader = graph.Shader("lambert_shader");
  auto& below = graph.Add<ProbeShader>("Below");
  Graph::Link(shader, "input_node", below);
  EXPECT_TRUE(shader.SetParamFromString("diffuse_color", "0.5 0.25 1", trWhoSystem));
  EXPECT_TRUE(shader.SetParamFromString("use_existing_color", "1", trWhoSystem));
  shader.SetParam("translucent", 1, trWhoUser);
  shader.SetParam("translucency_amount", 0.5, trWhoUser);
  const trFCol colours[] = {{0.5f, 0.25f, 1}, below.colour};
  for (const int existing : {1, 0}) {
    shader.SetParam("use_existing_colour", existing, trWhoUser);
    Sample sample({0, 0, 0});
    shader.ShadeTS(sample.si);
    EXPECT_EQ(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection), colours[existing]);
    EXPECT_EQ(sample.si.Bsdf().ColourOf(trLobe::kDiffuseTransmission), colours[existing] * 0.5f);
    EXPECT_TRUE(sample.si.Bsdf().Emission().IsBlack());
  }
  shader.SetParam("enable", 0, trWhoUser);
  Sample disabled({0, 0, 0});
  shader.ShadeTS(disabled.si);
  EXPECT_EQ(disabled.si.Cutil(), below.colour);
  EXPECT_EQ(disabled.si.Bsdf().NumLobes(), 0);
}

}  // namespace
