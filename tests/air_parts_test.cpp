// Air by part: light that is modulated by place and volumes without symmetry, beside the tables of what is
// symmetric.
#include <cstdlib>
#include <cstring>
#include <new>

#include "tests/air_scene.h"

namespace {

/// What this thread asked of the heap by operator new while it was told to count.
thread_local bool isCounting = false;
thread_local long allocations = 0;

void* AllocateOrNot(size_t size) noexcept {
  if (isCounting) ++allocations;
  return std::malloc(size ? size : 1);
}

void* Allocate(size_t size) {
  if (void* memory = AllocateOrNot(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return AllocateOrNot(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return AllocateOrNot(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }

namespace {

/// Takes of the sun's light in the air what a function of the ground's point says. Thread-safe where that is.
class TakenShade : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    si.Cutil() = trFCol(taken(si.P()));
    return 1;
  }
  std::function<float(const trVector&)> taken = [](const trVector&) { return 0.0f; };
};

/// Dark fog in a level layer over the origin, thicker towards the east.
class Slab : public trAtmosShader {
 public:
  static constexpr double kBase = 100, kTop = 1100;
  static double Extinction(double east) { return 2e-4 * (1 + east / 4000); }

  long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) override {
    const trRenderState::Ray& ray = state.CurrentRay();
    const trVector way = ray.end - ray.origin;
    if (std::fabs(way.y) < 1e-9) return 1;
    double t0 = (kBase - ray.origin.y) / way.y, t1 = (kTop - ray.origin.y) / way.y;
    if (t0 > t1) std::swap(t0, t1);
    t0 = std::clamp(t0, 0.0, 1.0);
    t1 = std::clamp(t1, 0.0, 1.0);
    if (!(t1 > t0)) return 1;
    if (!rayData) rayData = new double;
    constexpr int kSteps = 32;
    *static_cast<double*>(rayData) = (t1 - t0) * way.Length() / kSteps;
    for (int i = 0; i < kSteps; ++i)
      if (trAtmosSample* sample =
              integrator.AddSample(this, ray.origin + way * (t0 + (t1 - t0) * (i + state.Random()) / kSteps)))
        sample->rayData = rayData;
    return 1;
  }
  long EvaluateRaySample(trRenderState&, trAtmosSample& sample) override {
    const double depth = Extinction(sample.position.x) * *static_cast<double*>(sample.rayData);
    sample.opacityDirect = sample.opacityEnviro = trFCol(static_cast<float>(-std::expm1(-depth)));
    return 1;
  }
  void FreeIntegrationData(trAtomicIntegrator&, void* rayData) override {
    delete static_cast<double*>(rayData);
  }
};

/// Light that is modulated by place, and fog.
class AirParts : public AirScene {
 protected:
  TakenShade& AddShade(std::function<float(const trVector&)> taken) {
    auto* shade = new TakenShade;
    shade->taken = std::move(taken);
    ovhost::AttachChild(planet_, shade, "Shade");
    Graph::Link(*atmosphere_, "shadow_function", *shade);
    return *shade;
  }
  void AddSlab(bool isAlone) { AddVolume(new Slab, isAlone); }
};

TEST_F(AirParts, AModulatorThatTakesNothingChangesNothing) {
  std::uint64_t plainSamples = 0, modulatedSamples = 0;
  const trFCol plain = Mean(Picture(2, 8, &plainSamples));
  AddShade([](const trVector&) { return 0.0f; });
  const trFCol modulated = Mean(Picture(2, 8, &modulatedSamples));
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(modulated[c] / plain[c], 1, 0.003) << c;
  EXPECT_LT(modulatedSamples, 1.02 * plainSamples) << "bounces have their sky from tables";
}

/// The sky in directions over a point: means from tables and what modulates them, and from marches of all.
struct Skies {
  trFCol tables, marched;
  trFCol above;  ///< twice the mean from the upper half space, by SkyLight
};

Skies SkiesOver(ovhost::World& world, const trVector& from) {
  trShadingInterface si;
  trRenderState state(world, si);
  Skies skies;
  constexpr int kRays = 4000;
  for (int i = 0; i < kRays; ++i) {
    const double z = (i + 0.5) / kRays, turn = 2.399963229728653 * i, level = std::sqrt(1 - z * z);
    const trVector direction(level * std::cos(turn), z, level * std::sin(turn));
    const trVector origin = from + trVector(1e-3 * i, 0, 0);
    trFCol sky;
    EXPECT_TRUE(world.Air().OpenSky(state, origin, direction, ovhost::FrameAir::Sight::kBounce, sky));
    skies.tables += sky * (1.0f / kRays);
    std::uint64_t samples = 0;
    si.Random() = {static_cast<std::uint64_t>(i) + 1};
    const auto air = world.AirAlong(state, origin, direction, 1e9, 2, false, samples);
    skies.marched += air.Colour() * (1.0f / kRays);
  }
  trFCol below;
  world.Air().SkyLight(state, from, true, skies.above, below);
  return skies;
}

TEST_F(AirParts, ModulatedSkiesAreWhatMarchesSee) {
  TakenShade& shade = AddShade({});
  const struct {
    const char* name;
    std::function<float(const trVector&)> taken;
  } rows[] = {{"nothing", [](const trVector&) { return 0.0f; }},
              {"six tenths", [](const trVector&) { return 0.6f; }},
              {"all", [](const trVector&) { return 1.0f; }},
              {"more to the east", [](const trVector& p) {
                 return std::clamp(0.5f + static_cast<float>(p.x) / 40000, 0.0f, 1.0f);
               }}};
  Skies plain;
  for (size_t row = 0; row < std::size(rows); ++row) {
    shade.taken = rows[row].taken;
    InWorld(2, [&](ovhost::World& world) {
      const Skies skies = SkiesOver(world, {0, 5, 0});
      if (row == 0) plain = skies;
      for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(skies.tables[c] / plain.marched[c], skies.marched[c] / plain.marched[c], 0.04)
            << rows[row].name << ' ' << c;
        // Sky light follows what is seen of the sky.
        EXPECT_NEAR(skies.above[c] / plain.above[c], skies.marched[c] / plain.marched[c], 0.06)
            << rows[row].name << ' ' << c;
      }
    });
  }
}

/// What comes through the slab along a unit direction from the ground at `east`, in closed form.
double ThroughSlab(double east, const trVector& direction) {
  const double from = Slab::kBase / direction.y, to = Slab::kTop / direction.y;
  const double middle = east + direction.x * 0.5 * (from + to);
  return std::exp(-Slab::Extinction(middle) * (to - from));
}

TEST_F(AirParts, AVolumeWithoutSymmetryShadesTheGround) {
  for (const bool isAlone : {true, false}) {
    std::vector<trFCol> tables;
    const double places[] = {-800, 0, 900};
    if (!isAlone) Graph::Link(*planet_, "atmosphere_shader", *atmosphere_);
    InWorld(1, [&](ovhost::World& world) {
      for (const double east : places)
        tables.push_back(isAlone ? trFCol(1.0f) : world.Air().ThroughTables(*world.Suns()[0], {east, 0, 0}));
    });
    AddSlab(isAlone);
    InWorld(1, [&](ovhost::World& world) {
      trShadingInterface si;
      trRenderState state(world, si);
      for (size_t place = 0; place < 3; ++place) {
        trFCol mean;
        constexpr int kDraws = 64;
        for (int i = 0; i < kDraws; ++i)
          mean += world.Air().TowardsSurface(state, *world.Suns()[0], {places[place] + 1e-3 * i, 0, 0}) *
                  (1.0f / kDraws);
        const double expected = ThroughSlab(places[place], world.Suns()[0]->Dir());
        for (int c = 0; c < 3; ++c)
          EXPECT_NEAR(mean[c], expected * tables[place][c], 0.003 * expected) << isAlone << place;
      }
    });
  }
  // And so in the picture: the eye is below the fog, over level ground.
  settings_.view.forward = {0, -1, 0};
  settings_.view.up = {0, 0, 1};
  settings_.view.tanHalfHorizontal = settings_.view.tanHalfVertical = 0.01;
  settings_.view.width = settings_.view.height = 4;
  const auto direct = [this] {
    double sum = 0;
    for (const auto& sample : Picture(1, 4)) sum += sample.direct.g;
    return sum;
  };
  const double shaded = direct();
  trVector sun;
  InWorld(1, [&](ovhost::World& world) { sun = world.Suns()[0]->Dir(); });
  EXPECT_TRUE(atmosphere_->SetParam("input_node", "", trWhoSystem));
  EXPECT_NEAR(shaded / direct(), ThroughSlab(0, sun), 0.01);
}

TEST_F(AirParts, AVolumeWithoutSymmetryDimsTheSky) {
  Skies plain, dimmed;
  AddShade([](const trVector&) { return 0.0f; });
  InWorld(2, [&](ovhost::World& world) { plain = SkiesOver(world, {0, 5, 0}); });
  AddSlab(false);
  InWorld(2, [&](ovhost::World& world) { dimmed = SkiesOver(world, {0, 5, 0}); });
  for (int c = 0; c < 3; ++c) {
    EXPECT_LT(dimmed.marched[c], 0.9f * plain.marched[c]);
    EXPECT_NEAR(dimmed.tables[c] / plain.marched[c], dimmed.marched[c] / plain.marched[c], 0.06) << c;
    EXPECT_NEAR(dimmed.above[c] / plain.above[c], dimmed.marched[c] / plain.marched[c], 0.08) << c;
  }
}

TEST_F(AirParts, SameLightForAnyNumberOfThreads) {
  AddShade([](const trVector& p) { return 0.5f + 0.5f * static_cast<float>(std::sin(p.x * 1e-3)); });
  AddSlab(false);
  settings_.view.width = 12;
  settings_.view.height = 8;
  const auto first = Picture(1, 4);
  for (const int threads : {2, 7}) {
    const auto other = Picture(threads, 4);
    for (size_t i = 0; i < first.size(); ++i)
      ASSERT_EQ(std::memcmp(&first[i].beauty, &other[i].beauty, sizeof(trFCol)), 0) << threads << ' ' << i;
  }
}

TEST_F(AirParts, RenderThreadsAskNothingOfTheHeap) {
  // Air by part, fog that is marched, and glass. Counted is operator new on the rendering thread over a
  // second pass of both engines: the first one makes their scratch.
  AddShade([](const trVector& p) { return p.x > 0 ? 0.7f : 0.0f; });
  AddSlab(false);
  trBase* ball = ovhost::CreateNode("planet", project_.get(), "Ball");
  trBase* glass = ball->CreateChild("glass_shader");
  Graph::Link(*ball, "surface_shader", *glass);
  EXPECT_TRUE(ball->SetParam("radius", 20.0, trWhoSystem) &&
              ball->SetParam("centre", trVector(0, 60, -80), trWhoSystem));
  settings_.view.width = 12;
  settings_.view.height = 8;
  InWorld(1, [&](ovhost::World& world) {
    ovhost::LightCache cache(14);
    ovhost::PathTracer path(world, ovhost::PathSettings());
    ovhost::StandardTracer standard(world, ovhost::PathSettings(), ovhost::IndirectSettings(),
                                    ovhost::TraceSettings(), cache);
    for (ovhost::PixelEngine* engine :
         {static_cast<ovhost::PixelEngine*>(&path), static_cast<ovhost::PixelEngine*>(&standard)}) {
      ovhost::CameraSample some[ovhost::kSamplesTogether];
      for (const bool counts : {false, true}) {
        allocations = 0;
        isCounting = counts;
        for (int i = 0; i < settings_.view.width * settings_.view.height; ++i)
          engine->SamplePixel(i % settings_.view.width, i / settings_.view.width, counts ? 4 : 0,
                              counts ? 8 : 4, some);
        isCounting = false;
      }
      EXPECT_EQ(allocations, 0) << (engine == &path ? "path" : "standard");
    }
  });
}

}  // namespace
