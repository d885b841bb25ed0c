// The planet: its ball and texture space agree wherever it is and however it is turned; its network; the old
// globe's height.
#include "core/noise.h"
#include "core/scene_maker.h"
#include "objects/planet_height.h"
#include "tests/shading_fixture.h"

namespace {

struct World {
  World() : planet(*graph.project.CreateChild("planet")), surface(graph.Add<ProbeShader>("Surface")) {
    Graph::Link(planet, "surface_shader", surface);
  }
  void Set(const char* name, const trParamValue& value) {
    ASSERT_TRUE(planet.SetParam(name, value, trWhoUser)) << name;
  }
  long Make(trScene& scene) { return dynamic_cast<trSceneMaker&>(planet).Make(scene, trSceneMaker::kRender); }
  Graph graph;
  trBase& planet;
  ProbeShader& surface;
};

TEST(Planet, BallAndTextureSpaceFollowTheTransform) {
  const trVector centre(3e6, -8e6, 5e5), rotation(25, 130, -70);
  const double radius = 2e6;
  const struct { int translate, rotate; } rows[] = {{1, 1}, {1, 0}, {0, 1}, {0, 0}};
  for (const auto& row : rows) {
    World world;
    world.Set("centre", centre);
    world.Set("rotation", rotation);
    world.Set("radius", radius);
    world.Set("translate_textures_with_planet", row.translate);
    world.Set("rotate_textures_with_planet", row.rotate);
    trScene scene;
    ASSERT_TRUE(world.Make(scene));
    scene.PrepForRender();
    const trMaterial& material = *scene.GetPMaterial(1);
    EXPECT_EQ(material.surfaceShader == &world.surface, !row.translate && !row.rotate);
    trVector seen;
    world.surface.onDisplace = [&](trShadingInterface& si) { seen = si.Pt(); };
    for (const trVector& local : {Normalised({1, 2, 3}), Normalised({-3, 0.1, 1}), trVector(0, 1, 0)}) {
      const trVector onBall = scene.GetTransform().Point(local);
      // Meshes are flat between their points: the ball shader makes up for that.
      Sample sample(centre + (onBall - centre) * 0.8);
      EXPECT_TRUE(material.GeometryDisplace(sample.state));
      ExpectNear(sample.si.P(), onBall, 1e-6);
      EXPECT_EQ(sample.si.Ptg(), sample.si.P());
      EXPECT_EQ(sample.si.Ph(), sample.si.P());
      ExpectNear(sample.si.Ng(), Normalised(onBall - centre), 1e-12);
      const trVector turnedBack = local * radius;
      const trVector expected = row.translate ? (row.rotate ? turnedBack : onBall - centre)
                                              : (row.rotate ? turnedBack + centre : onBall);
      ExpectNear(seen, expected, 1e-6);
    }
  }
}

TEST(Planet, MakesWhatItIsAskedFor) {
  const struct {
    const char* param;
    trParamValue value;
    long result, tris, atmospheres;
  } rows[] = {
      {"rotation", trVector(), 1, 192, 1},
      {"render_surface", 0, 1, 0, 1},
      {"render_atmosphere", 0, 1, 192, 0},
      {"atmosphere_shader", "", 1, 192, 0},
      {"atmosphere_shader", "/Sun", 1, 192, 0},
      {"surface_shader", "Nobody", 1, 192, 1},
      {"radius", 0.0, 0, 0, 0},
      {"radius", -1.0, 0, 0, 0},
      {"radius", 1e300, 0, 0, 0},
      {"displacement_tolerance", 0.5, 1, 192, 1},
  };
  for (const auto& row : rows) {
    World world;
    world.graph.Add<juProject>("Sun");  // a node that isn't a shader
    world.Set(row.param, row.value);
    trScene scene;
    EXPECT_EQ(world.Make(scene), row.result) << row.param;
    EXPECT_EQ(scene.NumTris(), row.tris) << row.param;
    EXPECT_EQ(scene.NumAtmospheres(), row.atmospheres) << row.param;
    EXPECT_EQ(scene.NumMaterials(), 1) << row.param;
    if (!row.result) continue;
    const trMaterial& material = *scene.GetPMaterial(1);
    EXPECT_EQ(material.surfaceShader, trString(row.param) == "surface_shader" ? nullptr : &world.surface);
    EXPECT_EQ(material.displacementTolerance,
              static_cast<float>(DoubleParam(world.planet, "displacement_tolerance")));
  }
}

TEST(Planet, NewOnesHaveANetworkAndOldSpellingsLoad) {
  Graph graph;
  trBase& planet = *graph.project.CreateChild("planet");
  const double radius = DoubleParam(planet, "radius");
  EXPECT_EQ(VectorParam(planet, "centre"), trVector(0, -radius, 0));
  ASSERT_EQ(planet.NumChildren(), 2);
  const trBase &fractal = *planet.Child(0), &atmosphere = *planet.Child(1);
  EXPECT_EQ(fractal.ClassName(), "power_fractal_shader_v3");
  const std::pair<const char*, double> settings[] = {
      {"feature_scale", radius / 2},    {"lead-in_scale", radius / 2}, {"noise_octaves", 16},
      {"displacement_amplitude", 5000}, {"noise_flavour", 3},          {"noise_variation", 1.5},
      {"continue_spike_limit", 1},      {"lead-in_warp_effect", 1}};
  for (const auto& [name, value] : settings) EXPECT_DOUBLE_EQ(DoubleParam(fractal, name), value) << name;
  EXPECT_EQ(atmosphere.Name(), "Atmosphere 01");
  EXPECT_EQ(DoubleParam(atmosphere, "radius"), radius);
  EXPECT_TRUE(planet.IsTrue("is_planet"));

  EXPECT_TRUE(planet.SetParamFromString("center", "1 2 3", trWhoSystem));
  EXPECT_TRUE(planet.SetParamFromString("rotate", "4 5 6", trWhoSystem));
  EXPECT_EQ(VectorParam(planet, "centre"), trVector(1, 2, 3));
  EXPECT_EQ(VectorParam(planet, "rotation"), trVector(4, 5, 6));

  auto& preview = dynamic_cast<juPreviewHandler&>(*planet.PreviewHandler());
  preview.MoveHandlePositionT({10, 0, 0});
  preview.MoveHandleRotationT({0, 350, 0});
  EXPECT_EQ(VectorParam(planet, "rotation"), trVector(4, 355, 6)) << "angles aren't wrapped";
  EXPECT_EQ(preview.BoundingBoxTForInteraction().Centre(), trVector(11, 2, 3));
  EXPECT_EQ(preview.BoundingBoxL().Size(), trVector(2 * radius, 2 * radius, 2 * radius));
}

TEST(Planet, TheFirstIsTheActiveObjectAndAtmospheresFollow) {
  Graph graph;
  trBase* first = graph.project.CreateChild("planet");
  trBase* second = graph.project.CreateChild("planet");
  EXPECT_EQ(graph.project.PActiveShadableObject(), first);
  trShader& upper = graph.Shader("planet_atmosphere");
  trShader& lower = graph.Shader("planet_atmosphere");
  Graph::Link(upper, "input_node", lower);
  Graph::Link(*second, "atmosphere_shader", upper);
  second->SetParam("centre", trVector(7, 8, 9), trWhoUser);
  second->SetParam("radius", 5000.0, trWhoUser);
  for (const trShader* shader : {&upper, &lower}) {
    EXPECT_EQ(VectorParam(*shader, "centre"), trVector(7, 8, 9));
    EXPECT_EQ(DoubleParam(*shader, "radius"), 5000);
  }
  Graph::Link(lower, "input_node", upper);  // feeds itself: the walk still ends
  second->SetParam("radius", 6000.0, trWhoUser);
  EXPECT_EQ(DoubleParam(lower, "radius"), 6000);

  graph.project.DestroyChild(first->Name(), false);
  EXPECT_EQ(graph.project.PActiveShadableObject(), nullptr);
}

/// One octave, from the formula of its definition.
double OneOctave(const trVector& point, const PlanetHeightParams& p) {
  const trVector at = point / p.continentScale;
  const auto sharp = [&](const trVector& q, long k) {
    return trOldSharpNoise3(q + trNoff3(static_cast<int>(p.seed + k)));
  };
  const double n = sharp(at + trVector(sharp(at, 2), sharp(at, 3), sharp(at, 4)) * p.warpAmount, 0);
  return std::min(std::exp(n * p.amplitudeVariation) * p.continentAmplitude, p.continentScale * p.slopeClip) *
         n;
}

TEST(PlanetHeight, FirstOctaveScalingAndLimits) {
  PlanetHeightParams params;
  params.seed = 77;
  double largest = 0, rippled = 0;
  for (int i = 0; i < 50; ++i) {
    const trVector point =
        Normalised({std::sin(i * 1.7), std::cos(i * 2.3), std::sin(i * 0.9 + 1)}) * 6.378e6;
    params.octaves = 1;
    EXPECT_NEAR(PlanetHeight(point, params).height, OneOctave(point, params), 1e-9);
    EXPECT_EQ(PlanetHeight(point, params).ocean, 0) << "no ripples in large octaves";
    params.octaves = 0;
    EXPECT_EQ(PlanetHeight(point, params).height, 0);

    // Heights have no other unit than the lengths given. Powers of two scale without rounding; the ripples'
    // limit is a length of its own.
    params.octaves = 12;
    const double height = PlanetHeight(point, params).height;
    largest = std::max(largest, std::fabs(height));
    PlanetHeightParams scaled = params;
    scaled.continentScale *= 4;
    scaled.continentAmplitude *= 4;
    scaled.mountainScale *= 4;
    // The coast's erosion is by height over size, which stays.
    EXPECT_DOUBLE_EQ(PlanetHeight(point * 4, scaled).height, 4 * height);

    params.octaves = 32;
    rippled = std::max(rippled, std::fabs(PlanetHeight(point, params).ocean));
    params.oceanLevel = 100;
    EXPECT_NEAR(PlanetHeight(point, params).ocean, 100, 2.0);
    params.oceanLevel = 0;
    PlanetHeightParams flat = params;
    flat.slopeClip = 0;
    EXPECT_EQ(PlanetHeight(point, flat).height, 0);
  }
  EXPECT_GT(largest, 100);
  EXPECT_GT(rippled, 0.1);
}

TEST(PlanetHeight, ErosionWorksBelowTheSeaOnly) {
  PlanetHeightParams bare, eroded;
  bare.seed = eroded.seed = 3;
  bare.octaves = eroded.octaves = 2;
  bare.coastlineErosion = 0;
  bare.warpAmount = eroded.warpAmount = 0;  // which would make the first octave depend on their number
  eroded.coastlineErosion = 1e5;
  int above = 0, below = 0;
  for (int i = 0; i < 60; ++i) {
    const trVector point = Normalised({std::sin(i * 1.1), std::cos(i * 3.1), std::sin(i * 0.7)}) * 6.378e6;
    PlanetHeightParams first = bare;
    first.octaves = 1;
    const double a = PlanetHeight(point, bare).height, b = PlanetHeight(point, eroded).height;
    if (PlanetHeight(point, first).height >= 0) {
      EXPECT_EQ(a, b);
      ++above;
    } else {
      below += a != b;
    }
  }
  EXPECT_GT(above, 5);
  EXPECT_GT(below, 5);
}

TEST(PlanetSurfaceShader, RisesToGroundOrSeaAndKeepsTheInputsColour) {
  Graph graph;
  trShader& shader = graph.Shader("planet_surface_shader");
  auto& below = graph.Add<ProbeShader>("Below");
  Graph::Link(shader, "input_node", below);
  shader.SetParam("displacement_octaves", 0, trWhoUser);
  for (const double level : {-50.0, 0.0, 120.0}) {
    shader.SetParam("ocean_level", level, trWhoUser);
    Sample sample({0, 6.4e6, 0});
    shader.DisplaceTS(sample.si);
    EXPECT_EQ(sample.si.P(), trVector(0, 6.4e6 + std::max(0.0, level), 0));
    shader.ShadeTS(sample.si);
    EXPECT_EQ(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection), below.colour);
  }
  for (const char* name :
       {"lowland", "rocky_lowland", "highland", "rocky_highland", "snow", "ambient_light", "ocean_decay"}) {
    EXPECT_TRUE(shader.SetParamFromString((trString(name) + "_color").c_str(), "0.125 0.25 0.5", trWhoSystem))
        << name;
    trManRgb colour;
    EXPECT_TRUE(shader.GetParam((trString(name) + "_colour").c_str(), colour)) << name;
    EXPECT_EQ(colour, trManRgb(0.125f, 0.25f, 0.5f)) << name;
  }
}

}  // namespace
