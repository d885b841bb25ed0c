// Clouds among everything else: a marched volume and the light of suns, sky and surfaces on it, behind it and
// below it; what it sees of its surroundings; what it prepares.
#include <cstring>

#include "core/voxel.h"
#include "tests/air_scene.h"
#include "tests/made_surface.h"

namespace {

/// The planet of the scene, and clouds at places that suns and eyes look through.
class CloudAir : public AirScene {
 protected:
  trVector Sun() {
    trVector sun;
    InWorld(1, [&](ovhost::World& world) { sun = world.Suns()[0]->Dir(); });
    return sun;
  }
  trBase& AddRock(const trVector& centre, double radius) {
    trBase* rock = ovhost::CreateNode("planet", project_.get(), "Rock");
    trBase* shader = rock->CreateChild("lambert_shader");
    Graph::Link(*rock, "surface_shader", *shader);
    EXPECT_TRUE(rock->SetParam("radius", radius, trWhoSystem) &&
                rock->SetParam("centre", centre, trWhoSystem));
    return *rock;
  }
  /// A narrow view.
  void LookAlong(const trVector& eye, const trVector& direction) {
    trView& view = settings_.view;
    view.eye = eye;
    view.forward = Normalised(direction);
    view.right = Normalised(Cross(trVector(0, 1, 0), view.forward));
    view.up = Cross(view.forward, view.right);
    view.tanHalfHorizontal = view.tanHalfVertical = 0.002;
    view.width = view.height = 4;
    settings_.edgePixels = 0.05 / view.tanHalfHorizontal;
  }
  /// Sums over the samples of the view.
  struct Seen {
    double beauty = 0, direct = 0, alpha = 0;
  };
  Seen See() {
    Seen seen;
    for (const auto& sample : Picture(2, 16)) {
      seen.beauty += sample.beauty.g;
      seen.direct += sample.direct.g;
      seen.alpha += sample.alpha;
    }
    return seen;
  }
  /// Means over draws of what use(state, draw) gives.
  template <typename Use>
  static trFCol MeanOver(ovhost::World& world, int draws, const Use& use) {
    trShadingInterface si;
    trRenderState state(world, si);
    trFCol mean;
    for (int i = 0; i < draws; ++i) {
      si.Random() = {static_cast<std::uint64_t>(i) + 1};
      mean += use(state, i) * (1.0f / static_cast<float>(draws));
    }
    return mean;
  }
};

TEST_F(CloudAir, ShadesGroundAndAirBehindIt) {
  const trVector sun = Sun(), ground(0, 1, 0);
  AddVolume(AnalyticCloud::Ball(ground + sun * 2000, 300, 0.002), false);
  const struct {
    const char* name;
    trVector point;
    double depth;
  } rows[] = {{"in the middle of its shadow", ground, 1.2},
              {"beside it", ground + trVector(0, 0, 700), 0},
              {"in the shaft of air", ground + sun * 900, 1.2},
              {"in the cloud", ground + sun * 2000, 0.6},
              {"above it", ground + sun * 2500, 0}};
  InWorld(1, [&](ovhost::World& world) {
    const trLightState& light = *world.Suns()[0];
    const float radiance = world.Suns()[0]->Radiance().g;
    for (const auto& row : rows) {
      const trFCol table = world.Air().ThroughTables(light, row.point);
      const trFCol left = MeanOver(world, 64, [&](trRenderState& state, int i) {
        const trVector point = row.point + trVector(0, 1e-3 * i, 0);
        return light.Intensity(state, point, {}) + world.Air().TowardsSurface(state, light, point);
      });
      const double expected = std::exp(-row.depth) * (1 + radiance);
      EXPECT_NEAR(left.g / table.g, expected, 0.01 * expected) << row.name;
    }
  });
}

TEST_F(CloudAir, ShaftsShowInTheAir) {
  // Across the shadow of a dense ball, and the same way without it.
  const trVector sun = Sun(), across = Normalised(Cross(sun, trVector(0, 1, 0)));
  const trVector from = sun * 1500 - across * 500 + trVector(0, 10, 0);
  const auto direct = [&] {
    trFCol light;
    InWorld(1, [&](ovhost::World& world) {
      light = MeanOver(world, 256, [&](trRenderState& state, int) {
        std::uint64_t samples = 0;
        return world.AirAlong(state, from, across, 1000, 1, true, samples).direct;
      });
    });
    return light;
  };
  const trFCol open = direct();
  AddVolume(AnalyticCloud::Ball(sun * 4000, 250, 0.1), false);
  const trFCol shaded = direct();
  // Half of the way lies in shadow, and samples crowd towards the viewer.
  EXPECT_NEAR(shaded.g / open.g, 0.5, 0.1);
}

TEST_F(CloudAir, SurfacesShadeIt) {
  const trVector sun = Sun(), centre(0, 800, -3000);
  auto* cloud = AnalyticCloud::Ball(centre, 200, 0.003);
  AddVolume(cloud, true);
  const auto light = [&] {
    trFCol sum;
    InWorld(1, [&](ovhost::World& world) {
      ovhost::PathCounters counters;
      ovhost::MatterPaths paths(world, counters);
      sum = MeanOver(world, 64, [&](trRenderState& state, int) {
        std::uint64_t samples = 0;
        const trVector from(0, 60, 0), along = Normalised(centre - from);
        const trFCol own =
            ovhost::MarchAir(state, {cloud}, {from, along, 1e5, 1, true, 1e-3}, samples).direct;
        trFCol left(1.0f);
        ovhost::Matter::Collision collision;
        const bool collides = paths.Collide(state, from, along, 1e5, left, collision);
        return own + (collides ? paths.Light(state, collision, along, left, 1) : trFCol());
      });
    });
    return sum.g;
  };
  EXPECT_GT(light(), 0.05);
  AddRock(centre + sun * 1500, 400);
  EXPECT_EQ(light(), 0);
}

TEST_F(CloudAir, StandsBeforeAndBehindMountains) {
  // The sun behind the eye.
  const trVector sun = Sun(), along = Normalised(trVector(-sun.x, 0, -sun.z)), eye(0, 200, 0);
  AddRock(eye + along * 2000, 500);
  LookAlong(eye, along);
  const Seen open = See();
  for (const bool follows : {false, true}) {
    path_.followsMatter = follows;
    AddVolume(AnalyticCloud::Ball(eye + along * 800, 200, 0.002), false);
    const Seen before = See();
    EXPECT_NEAR(before.direct / open.direct, std::exp(-0.8), follows ? 0.06 : 0.01) << follows;
    EXPECT_EQ(before.alpha, open.alpha);
    AddVolume(AnalyticCloud::Ball(eye + along * 4000, 200, 0.002), false);
    const Seen behind = See();
    EXPECT_NEAR(behind.direct / open.direct, 1, 1e-3) << follows;
    EXPECT_NEAR(behind.beauty / open.beauty, 1, 0.02) << follows;
  }
}

TEST_F(CloudAir, EyesMayBeInsideIt) {
  LookAlong({0, 500, 0}, {0, 0.3, -1});
  const double open = 1 - See().alpha / (16 * 16);
  for (const bool follows : {false, true}) {
    path_.followsMatter = follows;
    AddVolume(AnalyticCloud::Ball({0, 500, 0}, 300, 0.003), false);
    EXPECT_NEAR((1 - See().alpha / (16 * 16)) / open, std::exp(-0.9), follows ? 0.06 : 0.01) << follows;
  }
}

TEST_F(CloudAir, ShowsInMirrorsAndThroughGlass) {
  auto* mirror = new MadeShader;
  mirror->make = [](trShadingInterface& si) { si.Bsdf().AddLobe(Mirror(si, 3, 0)); };
  ovhost::AttachChild(planet_, mirror, "Mirror");
  Graph::Link(*planet_, "surface_shader", *mirror);
  trBase& window = AddRock({0, 60, -15}, 5);
  auto* clear = new MadeShader;
  clear->make = [](trShadingInterface& si) { AddClearBorder(si, trMedium()); };
  ovhost::AttachChild(&window, clear, "Clear");
  const trVector up = Normalised(trVector(0, 0.4, -1)), down(up.x, -up.y, up.z), eye(0, 60, 0);
  AddVolume(AnalyticCloud::Ball(trVector(0, -60, 0) + up * 2500, 300, 0.003)->WithAlbedo(trFCol(0.4f)),
            false);
  LookAlong(eye, down);
  trFCol expected;
  double distance = 0;
  InWorld(1, [&](ovhost::World& world) {
    ovhost::SurfaceHit hit;
    ASSERT_TRUE(world.Rays().Intersect({}, down, 0, 1e9, hit));
    distance = hit.distance;
    expected = MeanOver(world, 256, [&](trRenderState& state, int) {
      std::uint64_t samples = 0;
      const auto before = world.AirAlong(state, eye, down, distance, 1, true, samples);
      return before.Colour() +
             before.transmittance *
                 world.AirAlong(state, eye + down * distance, up, 1e9, 1, true, samples).Colour();
    });
  });
  EXPECT_NEAR(distance, 60 / up.y, 1);
  for (const bool follows : {false, true}) {
    path_.followsMatter = follows;
    EXPECT_NEAR(See().beauty / (256 * expected.g), 1, follows ? 0.1 : 0.02) << follows;
  }
  // Straight at the cloud, past nothing and past a clear ball.
  LookAlong(eye, up);
  path_.followsMatter = false;
  const Seen open = See();
  Graph::Link(window, "surface_shader", *clear);
  EXPECT_TRUE(window.SetParam("centre", eye + up * 15.0, trWhoSystem));
  EXPECT_NEAR(See().beauty / open.beauty, 1, 0.02);
}

TEST_F(CloudAir, OvercastSkiesAreDimAndWhite) {
  struct Skies {
    trFCol ground, marched;
  };
  const auto skies = [this] {
    Skies skies;
    InWorld(2, [&](ovhost::World& world) {
      trFCol below;
      skies.ground = MeanOver(world, 1, [&](trRenderState& state, int) {
        trFCol above, mean;
        for (int place = -1; place <= 1; ++place) {
          world.Air().SkyLight(state, {8000.0 * place, 5, 0}, true, above, below);
          mean += above * (1.0f / 3);
        }
        return mean;
      });
      // Twice the mean of what is seen of the upper half space, ray by ray.
      skies.marched = MeanOver(world, 1000, [&](trRenderState& state, int i) {
        const double z = (i + 0.5) / 1000, turn = 2.399963229728653 * i, level = std::sqrt(1 - z * z);
        std::uint64_t samples = 0;
        return world
                   .AirAlong(state, {0, 5, 0}, {level * std::cos(turn), z, level * std::sin(turn)}, 1e9, 2,
                             false, samples)
                   .Colour() *
               2;
      });
    });
    return skies;
  };
  const Skies open = skies();
  AddVolume(AnalyticCloud::Shell(1500, 2000, 1.5 / 500), false);
  const Skies overcast = skies();
  // Tables see their own light scattered once more; what is marched here, twice.
  for (int c = 0; c < 3; ++c)
    EXPECT_NEAR(overcast.ground[c] / open.ground[c], overcast.marched[c] / open.marched[c],
                0.13 * overcast.marched[c] / open.marched[c])
        << c;
  EXPECT_LT(overcast.ground.b, open.ground.b);
  EXPECT_LT(overcast.ground.b / overcast.ground.r, 0.9 * open.ground.b / open.ground.r);
}

TEST_F(CloudAir, LeavesTheSkyItsTables) {
  // Far away, and no denser than nothing: light stays as it was, at the cost of its own samples.
  std::uint64_t plain = 0, clouded = 0;
  const trFCol before = Mean(Picture(2, 8, &plain));
  AddVolume(AnalyticCloud::Ball({30000, 3000, 0}, 2000, 0), false);
  const trFCol after = Mean(Picture(2, 8, &clouded));
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(after[c] / before[c], 1, 0.005) << c;
  EXPECT_LT(clouded, 1.1 * plain);
}

TEST_F(CloudAir, BackgroundIsWhatBouncesSee) {
  AddVolume(AnalyticCloud::Ball({3000, 2500, 0}, 800, 0.002), false);
  InWorld(1, [&](ovhost::World& world) {
    trVoxelLightingSystem* lighting = world.VoxelLighting();
    ASSERT_TRUE(lighting);
    ovhost::PathSettings settings;
    settings.clampIndirect = 0;
    settings.rouletteStart = 64;
    ovhost::PathTracer bounces(world, settings);
    for (const bool isUp : {true, false}) {
      const trVector point(0, isUp ? 20 : 2000, 0);
      trFCol background;
      const trFCol bounced = MeanOver(world, 1500, [&](trRenderState& state, int i) {
        const double z = (i + 0.5) / 1500, turn = 2.399963229728653 * i, level = std::sqrt(1 - z * z);
        const trVector direction(level * std::cos(turn), isUp ? z : -z, level * std::sin(turn));
        background += lighting->BackgroundFunction(state, point, direction) * (1 / 1500.0f);
        return bounces.Gather(point - world.View().eye, direction, 0, ovhost::PixelSampler(7, i), 77 + i,
                              nullptr);
      });
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(background[c] / bounced[c], 1, 0.06) << isUp << c;
    }
  });
}

TEST_F(CloudAir, BackgroundHangsOnNobody) {
  AddVolume(AnalyticCloud::Ball({0, 1500, 0}, 500, 0.002), false);
  InWorld(1, [&](ovhost::World& world) {
    trShadingInterface one, other;
    trRenderState state(world, one), second(world, other);
    one.SetSample({1, 2, 3}, {0, 1, 0});
    one.Random() = {5, 9};
    state.CurrentRay().origin = {1, 1, 1};
    state.CurrentRay().depth = 7;
    state.CurrentRay().wantsColour = false;
    for (const trVector& direction : {trVector(0, 1, 0), trVector(0.6, -0.8, 0), trVector(0, 0.05, -1)}) {
      const trVector unit = Normalised(direction), point(100, 1300, 0);
      const trFCol first = world.VoxelLighting()->BackgroundFunction(state, point, unit);
      EXPECT_GT(first.b, 0);
      EXPECT_EQ(first, world.VoxelLighting()->BackgroundFunction(second, point, unit));
      EXPECT_EQ(first, world.VoxelLighting()->BackgroundFunction(state, point, unit));
    }
    EXPECT_TRUE(one.Random().key == 5 && one.Random().drawn == 9);
    EXPECT_TRUE(state.CurrentRay().origin == trVector(1, 1, 1) && state.CurrentRay().depth == 7 &&
                !state.CurrentRay().wantsColour);
    EXPECT_EQ(one.P(), trVector(1, 2, 3));
    EXPECT_EQ(trVoxelLightingSystem::sIsDuringLookup(), 0);
  });
}

/// Wants work done before the first pixel.
class Preparing : public trSurfaceShader {
 public:
  static constexpr int kTasks = 200;
  long StartRender(trRenderingInterface& rendering) override {
    steps = rendering.CloudSteps();
    for (int i = 0; i < kTasks; ++i)
      rendering.AddTaskToPrepass([this, i](trRenderState& state) { return onTask(state, i); });
    return 1;
  }
  std::function<bool(trRenderState&, int)> onTask;
  trCloudSteps steps = trCloudSteps::kTrueLengths;
};

TEST_F(CloudAir, ThreadsPrepareWhatShadersWant) {
  auto* shader = new Preparing;
  ovhost::AttachChild(planet_, shader, "Preparing");
  settings_.cloudSteps = trCloudSteps::kAsLayersTell;
  for (const int threads : {1, 4}) {
    std::vector<trFCol> found(Preparing::kTasks);
    std::vector<trRenderState*> used(ovhost::NumThreadSlots() + 64);
    std::atomic<int> numShared{0};
    shader->onTask = [&](trRenderState& state, int i) {
      // Light is there to be asked for; a state is one thread's.
      trRenderState*& own = used[state.Shading().Thread()];
      if (own && own != &state) ++numShared;
      own = &state;
      found[i] = state.VoxelLightingSystem()->BackgroundFunction(state, {1.0 * i, 900, 0}, {0, -1, 0});
      return true;
    };
    InWorld(threads, [&](ovhost::World&) {
      for (const trFCol& light : found) EXPECT_GT(light.g, 0);
    });
    EXPECT_EQ(numShared, 0);
    EXPECT_EQ(shader->steps, trCloudSteps::kAsLayersTell);
  }
  // A task that was stopped ends the preparation, and so does the flag.
  for (const bool byFlag : {false, true}) {
    std::atomic<bool> stop{false};
    std::atomic<int> numRun{0};
    shader->onTask = [&](trRenderState&, int) {
      ++numRun;
      if (byFlag) stop = true;
      return byFlag;
    };
    ovhost::WithThreads(1, [&] {
      ovhost::World world(*project_, settings_, stop);
      EXPECT_FALSE(world.Build());
    });
    EXPECT_EQ(numRun, 1);
  }
}

}  // namespace
