// The standard engine: as bright as the path engine, the same for any number of threads, with bounded work.
#include <fstream>
#include <sstream>
#include <thread>

#include "host/project/camera.h"
#include "host/project/project_file.h"
#include "host/render/engine/standard.h"
#include "host/render/frame/world.h"
#include "host/session/render_frame.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::Engine;

/// Projects rendered by both engines.
class StandardEngine : public testing::Test {
 protected:
  StandardEngine() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
    ovhost::RegisterHostClasses();
    path_.clampIndirect = 0;
  }

  /// Balls about the origin in an evenly lit room, a sun, and the eye at z = 4.
  void MakeChamber() {
    project_ = std::make_unique<juProject>();
    Set(*ovhost::CreateNode("enviro_light", project_.get(), "Sky"), "strength_on_surfaces", 1.0);
    trBase& sun = *ovhost::CreateNode("sunlight", project_.get(), "Sun");
    Set(sun, "heading", 40.0);
    Set(sun, "elevation", 50.0);
    Set(sun, "strength", 1.0);
    trBase& room = AddBall("Room", "default_shader", 60);
    Set(room, "diffuse_colour", trRgbLinear709(0.0f));
    Set(room, "reflectivity", trRgbLinear709(0.0f));
    Set(room, "luminosity", trRgbLinear709(0.5f));
    view_.eye = {0, 0, 4};
    view_.forward = {0, 0, -1};
    view_.tanHalfHorizontal = view_.tanHalfVertical = 0.24;
    view_.width = view_.height = 12;
  }
  /// Returns the ball's shader.
  trBase& AddBall(const char* name, const char* shaderClass, double radius, const trVector& centre = {}) {
    trBase* ball = ovhost::CreateNode("planet", project_.get(), name);
    ball->OnCreate();
    trBase* shader = ball->CreateChild(shaderClass);
    Graph::Link(*ball, "surface_shader", *shader);
    Set(*ball, "radius", radius);
    Set(*ball, "centre", centre);
    return *shader;
  }
  template <typename T>
  static void Set(trBase& node, const char* param, const T& value) {
    ASSERT_TRUE(node.SetParam(param, value, trWhoSystem)) << param;
  }

  /// All samples of the picture.
  std::vector<ovhost::CameraSample> Trace(Engine engine, int samples) {
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    settings.view = view_;
    settings.edgePixels = std::max(1.0, edge_ / view_.PixelAngularSize());
    settings.compensatesEnergy = compensatesEnergy_;
    ovhost::World world(*project_, settings, stop);
    EXPECT_TRUE(world.Build());
    ovhost::LightCache cache(14);
    std::unique_ptr<ovhost::PixelEngine> tracer;
    if (engine == Engine::kPath)
      tracer = std::make_unique<ovhost::PathTracer>(world, path_);
    else
      tracer =
          std::make_unique<ovhost::StandardTracer>(world, path_, ovhost::IndirectSettings(), trace_, cache);
    std::vector<ovhost::CameraSample> result;
    ovhost::CameraSample some[ovhost::kSamplesTogether];
    constexpr int n = ovhost::kSamplesTogether;
    for (int y = 0; y < view_.height; ++y)
      for (int x = 0; x < view_.width; ++x)
        for (int i = 0; i < samples; i += n) {
          tracer->SamplePixel(x, y, i, std::min(i + n, samples), some);
          result.insert(result.end(), some, some + std::min(n, samples - i));
        }
    counters_ = tracer->Counters();
    return result;
  }
  /// Mean of what isn't sky, green; and that layers and picture agree.
  static double MeanOfSurfaces(const std::vector<ovhost::CameraSample>& samples) {
    double sum = 0;
    int count = 0;
    for (const auto& sample : samples) {
      EXPECT_FLOAT_EQ(sample.beauty.g, sample.light.Sum().g);
      if (sample.nodeId == 0) continue;
      sum += sample.beauty.g;
      ++count;
    }
    return sum / std::max(count, 1);
  }

  std::unique_ptr<juProject> project_;
  trView view_;
  ovhost::PathSettings path_;
  ovhost::TraceSettings trace_;
  double edge_ = 0.01;
  bool compensatesEnergy_ = false;
  ovhost::PathCounters counters_;
};

TEST(LightCache, NewEntriesTakeThePlaceOfOldOnesWhoeverAsks) {
  const auto lightOf = [](std::uint64_t key) {
    ovhost::CachedLight light;
    light.even = trFCol(static_cast<float>(key), 1, 2);
    for (int i = 0; i < 3; ++i) light.along[i] = trFCol(static_cast<float>(key) + static_cast<float>(i));
    return light;
  };
  ovhost::LightCache cache(6);
  std::atomic<int> wrong{0}, computed{0};
  const auto ask = [&](std::uint64_t first, std::uint64_t last) {
    for (std::uint64_t key = first; key < last; ++key) {
      const ovhost::CachedLight light = cache.Find(2 * key + 1, [&] {
        ++computed;
        return lightOf(2 * key + 1);
      });
      wrong += light.even.r != static_cast<float>(2 * key + 1) || light.along[2].b != light.even.r + 2;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (std::uint64_t round = 0; round < 200; ++round) ask(round, round + 100);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  // What was asked for last is there, however much came before it.
  ask(100000, 100008);
  computed = 0;
  ask(100000, 100008);
  EXPECT_LE(computed, 2);
}

TEST_F(StandardEngine, TerrainIsAsBrightAsByPaths) {
  project_ = ovhost::NewDefaultProject();
  view_ = dynamic_cast<trCameraNode&>(*project_->NodeByPath("Camera")).View(48, 32);
  const double byPaths = MeanOfSurfaces(Trace(Engine::kPath, 64));
  ASSERT_GT(byPaths, 0.01);
  // Few samples do: indirect light has no noise of its own.
  EXPECT_NEAR(MeanOfSurfaces(Trace(Engine::kStandard, 16)) / byPaths, 1, 0.01);
}

TEST_F(StandardEngine, MaterialsAreAsBrightAsByPaths) {
  const struct {
    const char* shader;
    const char* param;
    double value, tolerance;
  } cases[] = {
      {"lambert_shader", "enable", 1, 0.01},
      {"reflective_shader", "specular_roughness", 0, 0.02},
      {"reflective_shader", "specular_roughness", 0.2, 0.03},
      {"reflective_shader", "index_of_refraction", 8, 0.03},
      {"default_shader", "metalness", 0, 0.03},
      {"default_shader", "metalness", 1, 0.03},
      {"default_shader", "specular_roughness", 0.6, 0.02},
      {"glass_shader", "index_of_refraction", 1.5, 0.03},
      {"glass_shader", "double-sided_surface", 1, 0.03},
      {"glass_shader", "specular_roughness", 0.2, 0.06},
  };
  for (const auto& test : cases) {
    MakeChamber();
    Set(AddBall("Ball", test.shader, 1), test.param, test.value);
    const double byPaths = MeanOfSurfaces(Trace(Engine::kPath, 128));
    ASSERT_GT(byPaths, 0.05) << test.shader;
    EXPECT_NEAR(MeanOfSurfaces(Trace(Engine::kStandard, 32)) / byPaths, 1, test.tolerance)
        << test.shader << " " << test.param << " " << test.value;
  }
}

TEST_F(StandardEngine, RoughWhiteSurfacesVanishInEvenLight) {
  // Whatever share is metal, and whichever engine looks. The room sends half of what is white under a sun.
  compensatesEnergy_ = true;
  path_.maxBounces = 2;
  for (const int model : {1, 3})
    for (const double metalness : {0.0, 0.5, 1.0})
      for (const double roughness : {0.3, 0.9}) {
        MakeChamber();
        trBase& ball = AddBall("Ball", "default_shader", 1);
        Set(ball, "diffuse_colour", trRgbLinear709(1.0f));
        Set(ball, "reflectivity", trRgbLinear709(1.0f));
        Set(ball, "metalness", metalness);
        Set(ball, "specular_roughness", roughness);
        Set(ball, "specular_roughness_model", model);
        for (const Engine engine : {Engine::kPath, Engine::kStandard})
          EXPECT_NEAR(MeanOfSurfaces(Trace(engine, 64)) / 0.5, 1, 0.01)
              << model << ' ' << metalness << ' ' << roughness << ' ' << static_cast<int>(engine);
      }
}

TEST_F(StandardEngine, DeepVolumesAreAsBrightAsByPathsThatScatterAtTheBorder) {
  for (const double colour : {0.3, 0.9})
    for (const int method : {0, 1}) {
      MakeChamber();
      trBase& glass = AddBall("Ball", "glass_shader", 1);
      Set(glass, "decay_distance", 2.0);
      Set(glass, "volume_1_density", 16.0);
      Set(glass, "volume_1_colour", trRgbLinear709(static_cast<float>(colour)));
      Set(glass, "volume_method_in_path_tracer", method);
      const double byPaths = MeanOfSurfaces(Trace(Engine::kPath, 128));
      ASSERT_GT(byPaths, 0.05);
      EXPECT_NEAR(MeanOfSurfaces(Trace(Engine::kStandard, 32)) / byPaths, 1, 0.12) << colour << " " << method;
    }
}

TEST_F(StandardEngine, WhatLiesInsideOfClearThingsIsAsBrightAsByPaths) {
  MakeChamber();
  Set(AddBall("Stone", "lambert_shader", 0.9), "diffuse_colour", trRgbLinear709(0.6f));
  Set(AddBall("Ice", "glass_shader", 1), "decay_distance", 1e6);
  const double byPaths = MeanOfSurfaces(Trace(Engine::kPath, 256));
  ASSERT_GT(byPaths, 0.05);
  EXPECT_NEAR(MeanOfSurfaces(Trace(Engine::kStandard, 64)) / byPaths, 1, 0.05);
}

TEST_F(StandardEngine, SameBytesForAnyNumberOfThreads) {
  MakeChamber();
  trBase& soft = AddBall("Soft", "reflective_shader", 0.5, {-0.5, 0, 0});
  Set(soft, "reflection_softness", 0.3);
  Set(AddBall("Glass", "glass_shader", 0.4, {0.5, 0, 0.5}), "volume_1_density", 1.0);
  AddBall("Water", "water_shader", 100, {0, -100.5, 0});
  AddBall("Metal", "default_shader", 0.3, {0, 0.6, 0});
  trBase& render = *ovhost::CreateNode("render", project_.get(), "Render");
  Set(render, "image_width", 70);
  Set(render, "image_height", 40);
  Set(render, "samples", 3);
  Set(render, "engine", 0);
  trBase& camera = *ovhost::CreateNode("camera", project_.get(), "Camera");
  Set(camera, "position", trVector(0, 0, 4));
  Set(camera, "rotation", trVector(0, 180, 0));
  std::string first;
  for (const int threads : {1, 2, 7}) {
    ovhost::RenderSettings settings;
    settings.output = TempFile("standard.exr");
    settings.threads = threads;
    settings.layers = {"all"};
    ovhost::RenderControl control;
    ASSERT_EQ(ovhost::RenderFrame(*project_, settings, control), ovhost::RenderOutcome::kDone);
    std::stringstream bytes;
    bytes << std::ifstream(settings.output, std::ios::binary).rdbuf();
    if (first.empty()) first = bytes.str();
    ASSERT_GT(first.size(), 10000u);
    EXPECT_TRUE(bytes.str() == first) << threads << " threads";
  }
}

TEST_F(StandardEngine, DepthBoundsTheWorkBetweenMirrors) {
  MakeChamber();
  // From inside a mirror there is always another mirror to see.
  trBase& mirror = AddBall("Mirror", "reflective_shader", 10);
  Set(mirror, "index_of_refraction", 10.0);
  Set(mirror, "specular_roughness", 0.0);
  trace_.leastImportance = 0;
  for (const int depth : {1, 3, 9}) {
    trace_.maxDepth = depth;
    const size_t samples = Trace(Engine::kStandard, 1).size();
    EXPECT_LE(counters_.bounceRays, samples * (depth - 1)) << depth;
    // From depth 3 on weak rays are broad, and a broad lobe's draw may lead into the mirror.
    EXPECT_GE(counters_.bounceRays, samples * (std::min(depth, 3) - 1)) << depth;
  }
  // Glass sends two rays on: those that count little are left to chance.
  MakeChamber();
  AddBall("Glass", "glass_shader", 1);
  trace_ = ovhost::TraceSettings();
  trace_.maxDepth = 33;
  const size_t samples = Trace(Engine::kStandard, 1).size();
  EXPECT_LT(counters_.bounceRays, samples * 40);
}

TEST_F(StandardEngine, NonsenseStaysOutOfThePicture) {
  edge_ = 0.1;
  const struct {
    const char* shader;
    std::vector<const char*> params;
  } cases[] = {
      {"reflective_shader",
       {"index_of_refraction", "specular_roughness", "specular_tweak", "reflection_softness"}},
      {"glass_shader", {"index_of_refraction", "decay_distance", "volume_1_density", "highlight_intensity"}},
      {"water_shader", {"min_highlight_spread", "master_reflectivity", "transparency"}}};
  for (const auto& test : cases)
    for (const char* param : test.params)
      for (const double value : {0.0, -1.0, 1e9, -1e300}) {
        MakeChamber();
        view_.width = view_.height = 5;
        Set(AddBall("Ball", test.shader, 1), param, value);
        for (const auto& sample : Trace(Engine::kStandard, 2)) {
          const trFCol& c = sample.beauty;
          ASSERT_TRUE(std::isfinite(c.r + c.g + c.b) && c.g >= 0)
              << test.shader << " " << param << " " << value;
          ASSERT_TRUE(std::isfinite(sample.alpha)) << test.shader << " " << param << " " << value;
        }
      }
}

}  // namespace
