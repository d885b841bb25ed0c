// Light followed through volumes' matter, against closed forms and what must be conserved.
#include "host/render/engine/matter_paths.h"

#include <cstring>

#include "tests/air_scene.h"

namespace {

using ovhost::Matter;

constexpr double kTop = 1100, kBase = 100;

/// A mean and its standard error.
class Estimate {
 public:
  void Add(double x) {
    ++n_;
    sum_ += x;
    squares_ += x * x;
  }
  double Mean() const { return sum_ / n_; }
  double Error() const { return std::sqrt(std::fmax(squares_ / n_ - Mean() * Mean(), 0) / n_); }

 private:
  double n_ = 0, sum_ = 0, squares_ = 0;
};

TEST(Matter, DrawsWhatBeersLawSays) {
  const trVector planet(0, -AnalyticCloud::kPlanet, 0);
  const std::unique_ptr<AnalyticCloud> ball(AnalyticCloud::Ball({0, 600, 0}, 500, 0.004)->Tapered()),
      shell(AnalyticCloud::Shell(kBase, kTop, 0.002)),
      tapered(AnalyticCloud::Shell(kBase, kTop, 2e-4)->Tapered());
  const struct {
    const char* name;
    std::vector<trAtmosShader*> volumes;
    trVector from, to;
  } rows[] = {{"through a ball", {ball.get()}, {-900, 500, 0}, {900, 700, 100}},
              {"out of a ball", {ball.get()}, {10, 550, 0}, {900, 800, 100}},
              {"up through a shell", {shell.get()}, {0, 0, 0}, {400, 2000, 0}},
              {"within a shell", {shell.get()}, {0, 600, 0}, {700, 650, 200}},
              {"twice through a shell", {tapered.get()}, {-40000, 600, 0}, {40000, 600, 0}},
              {"ball and shell", {ball.get(), shell.get()}, {-100, 0, 0}, {100, 1200, 50}}};
  trShadingInterface si;
  trNoRenderServices services;
  trRenderState state(services, si);
  for (const auto& row : rows) {
    const Matter matter(row.volumes);
    double depth = 0;
    for (trAtmosShader* volume : row.volumes)
      depth += static_cast<AnalyticCloud*>(volume)->OpticalDepth(row.from, row.to);
    ASSERT_GT(depth, 0.2) << row.name;
    const Matter::Way way{row.from, Normalised(row.to - row.from), (row.to - row.from).Length()};
    Estimate passed, tracked, place;
    for (int i = 0; i < 20000; ++i) {
      si.Random() = {static_cast<std::uint64_t>(i)};
      trFCol throughput(1.0f);
      Matter::Collision collision;
      const bool collides = matter.Collide(state, way, throughput, collision);
      EXPECT_NEAR(throughput.g, 1, 1e-5) << "grey matter is drawn exactly";
      passed.Add(!collides);
      if (collides) place.Add(collision.distance);
      tracked.Add(matter.Transmittance(state, way).g);
    }
    EXPECT_NEAR(passed.Mean(), std::exp(-depth), 4 * passed.Error() + 1e-4) << row.name;
    EXPECT_NEAR(tracked.Mean(), std::exp(-depth), 4 * tracked.Error() + 1e-4) << row.name;
    // Where collisions lie, on average, by the same law.
    double expected = 0, left = 1;
    constexpr int kParts = 4000;
    for (int i = 0; i < kParts; ++i) {
      const double at = way.length * (i + 0.5) / kParts;
      double extinction = 0;
      for (trAtmosShader* volume : row.volumes)
        extinction += static_cast<AnalyticCloud*>(volume)->ExtinctionAt(way.origin + way.direction * at);
      const double taken = left * -std::expm1(-extinction * way.length / kParts);
      expected += taken * at;
      left -= taken;
    }
    EXPECT_NEAR(place.Mean(), expected / (1 - left), 4 * place.Error() + 1e-3 * way.length) << row.name;
  }
}

/// A ball whose colours are taken differently.
class ColouredBall : public trAtmosShader {
 public:
  trVolumeShape Shape() const override { return {{}, 0, 100, false, false}; }
  bool HasMatter() const override { return true; }
  double GreatestExtinction() const override { return 0.03; }
  trVolumeMatter MatterAt(trRenderState&, const trVector& p) override {
    return {p.Length() < 100 ? trFCol(0.03f, 0.01f, 0.0f) : trFCol(), trFCol(1.0f)};
  }
};

TEST(Matter, ColoursShareDraws) {
  ColouredBall ball;
  const Matter matter({&ball});
  trShadingInterface si;
  trNoRenderServices services;
  trRenderState state(services, si);
  Estimate passed[3], taken[3];
  for (int i = 0; i < 40000; ++i) {
    si.Random() = {static_cast<std::uint64_t>(i)};
    trFCol throughput(1.0f);
    Matter::Collision collision;
    const bool collides = matter.Collide(state, {{-200, 0, 0}, {1, 0, 0}, 400}, throughput, collision);
    ASSERT_NEAR(throughput.r + throughput.g + throughput.b, 3, 1e-3) << "weights stay bounded";
    for (int c = 0; c < 3; ++c) {
      passed[c].Add(collides ? 0 : throughput[c]);
      taken[c].Add(collides ? throughput[c] : 0);
    }
  }
  const double depths[] = {6, 2, 0};
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(passed[c].Mean(), std::exp(-depths[c]), 4 * passed[c].Error() + 1e-4) << c;
    EXPECT_NEAR(taken[c].Mean(), -std::expm1(-depths[c]), 4 * taken[c].Error() + 1e-4) << c;
  }
}

TEST(PhaseTable, DirectionsFollowThePhaseFunction) {
  for (const double g : {0.0, 0.5, 0.9, -0.6}) {
    const std::unique_ptr<AnalyticCloud> cloud(AnalyticCloud::Ball({}, 1, 1)->WithG(g));
    const ovhost::PhaseTable table(*cloud);
    // The distribution of cosines of Henyey and Greenstein in closed form.
    for (double draw = 0.005; draw < 1; draw += 0.01) {
      const double s = (1 - g * g) / (1 - g + 2 * g * (1 - draw));
      const double expected = g == 0 ? 1 - 2 * draw : (1 + g * g - s * s) / (2 * g);
      EXPECT_NEAR(table.SampleCosine(draw), expected, 2e-4) << g << ' ' << draw;
      EXPECT_NEAR(table.Value(expected) / cloud->PhaseFunction(expected), 1, 1e-3) << g << ' ' << draw;
    }
    const trVector along = Normalised(trVector(0.3, -0.8, 0.5));
    trVector mean;
    for (int i = 0; i < 10000; ++i)
      mean += table.Sample(along, {(i + 0.5) / 10000, std::fmod(i * 0.618034, 1.0)}) * 1e-4;
    for (int a = 0; a < 3; ++a) EXPECT_NEAR(mean[a], along[a] * g, 2e-3) << g;
  }
}

/// A level shell of cloud over black ground in clear air, under one sun.
class MatterSlab : public AirScene {
 protected:
  MatterSlab() {
    for (trBase* node : ovhost::AllNodes(project_.get())) {
      if (node->ClassName() == "lambert_shader") node->SetParam("diffuse_colour", trManRgb(), trWhoSystem);
      if (node->ClassName() == "enviro_light") node->SetParam("enable", 0, trWhoSystem);
    }
    settings_.view.eye = {0, 20, 0};
  }
  void SetSun(double elevation) {
    for (trBase* node : ovhost::AllNodes(project_.get()))
      if (node->ClassName() == "sunlight") node->SetParam("elevation", elevation, trWhoSystem);
  }
  /// Light of the slab along a ray.
  static trFCol Radiance(ovhost::MatterPaths& paths, trRenderState& state, const trVector& from,
                         const trVector& direction, int mostScatterings) {
    trFCol throughput(1.0f);
    Matter::Collision collision;
    if (!paths.Collide(state, from, direction, 1e5, throughput, collision)) return {};
    return paths.Light(state, collision, direction, throughput, mostScatterings);
  }
};

TEST_F(MatterSlab, ScattersOnceAsInClosedForm) {
  constexpr double kDepth = 0.8, kAlbedo = 0.7, kG = 0.4;
  AddVolume(
      AnalyticCloud::Shell(kBase, kTop, kDepth / (kTop - kBase))->WithAlbedo(trFCol(kAlbedo))->WithG(kG),
      true);
  SetSun(40);
  InWorld(1, [&](ovhost::World& world) {
    trShadingInterface si;
    trRenderState state(world, si);
    ovhost::PathCounters counters;
    ovhost::MatterPaths paths(world, counters);
    const trVector sun = world.Suns()[0]->Dir();
    const double mu0 = sun.y, intensity = world.Suns()[0]->Radiance().g;
    for (const trVector& towards :
         {trVector(0.3, -0.9, 0.1), trVector(-0.8, -0.5, 0.3), trVector(0.2, 0.7, 0.4)}) {
      const trVector direction = Normalised(towards);
      const double mu = std::fabs(direction.y);
      const trVector from = direction.y < 0 ? trVector(0, 1500, 0) : trVector(0, 50, 0);
      const double d = 1 + kG * kG - 2 * kG * Dot(direction, sun), phase = (1 - kG * kG) / (d * std::sqrt(d));
      // Chandrasekhar, Radiative Transfer (1950), single scattering, reflected and transmitted.
      const double geometry = direction.y < 0
                                  ? mu0 / (mu + mu0) * -std::expm1(-kDepth * (1 / mu + 1 / mu0))
                                  : mu0 / (mu - mu0) * (std::exp(-kDepth / mu) - std::exp(-kDepth / mu0));
      const double expected = kAlbedo * phase * 0.25 * intensity * geometry;
      Estimate once;
      for (int i = 0; i < 20000; ++i) {
        si.Random() = {static_cast<std::uint64_t>(i)};
        once.Add(Radiance(paths, state, from, direction, 1).g);
      }
      EXPECT_NEAR(once.Mean(), expected, 4 * once.Error() + 0.002 * expected) << direction.y;
    }
  });
}

TEST_F(MatterSlab, ThinSlabsScatterOnce) {
  AddVolume(AnalyticCloud::Shell(kBase, kTop, 2e-6)->WithG(0.6), true);
  SetSun(60);
  InWorld(1, [&](ovhost::World& world) {
    trShadingInterface si;
    trRenderState state(world, si);
    ovhost::PathCounters counters;
    ovhost::MatterPaths paths(world, counters);
    const trVector direction = Normalised(trVector(0.4, -0.8, 0.2));
    Estimate once, all;
    for (int i = 0; i < 200000; ++i) {
      si.Random() = {static_cast<std::uint64_t>(i)};
      once.Add(Radiance(paths, state, {0, 1500, 0}, direction, 1).g);
      si.Random() = {static_cast<std::uint64_t>(i)};
      all.Add(Radiance(paths, state, {0, 1500, 0}, direction, 1000).g);
    }
    EXPECT_GT(once.Mean(), 0);
    EXPECT_NEAR(all.Mean() / once.Mean(), 1, 0.03);
  });
}

TEST_F(MatterSlab, WhiteSlabsKeepAllLight) {
  // What goes up, comes down and comes straight through is what the sun sends in.
  for (const double depth : {1.0, 12.0}) {
    AddVolume(AnalyticCloud::Shell(kBase, kTop, depth / (kTop - kBase))->WithG(0.75), true);
    SetSun(50);
    InWorld(1, [&](ovhost::World& world) {
      trShadingInterface si;
      trRenderState state(world, si);
      ovhost::PathCounters counters;
      ovhost::MatterPaths paths(world, counters);
      const double mu0 = world.Suns()[0]->Dir().y, intensity = world.Suns()[0]->Radiance().g;
      Estimate leaving;
      for (int i = 0; i < 12000; ++i) {
        // By the cosine, so that the mean radiance is the flux over pi.
        const double mu = std::sqrt((i + 0.5) / 12000), turn = 2.399963229728653 * i,
                     level = std::sqrt(1 - mu * mu);
        double both = 0;
        for (const double side : {-1.0, 1.0}) {
          si.Random() = {static_cast<std::uint64_t>(i * 2 + (side > 0))};
          const trVector direction(level * std::cos(turn), side * mu, level * std::sin(turn));
          both += Radiance(paths, state, {0, side < 0 ? 1101.0 : 99.0, 0}, direction,
                           ovhost::MatterPaths::kMostScatterings)
                      .g;
        }
        leaving.Add(both);
      }
      const double straight = intensity * mu0 * std::exp(-depth / mu0);
      EXPECT_NEAR((leaving.Mean() + straight) / (intensity * mu0), 1,
                  4 * leaving.Error() / (intensity * mu0) + 0.005)
          << depth;
      EXPECT_LT(leaving.Error(), 0.03 * leaving.Mean()) << "else it says nothing";
    });
  }
}

TEST_F(AirScene, FollowedLightIsTheVolumesOwnWhereItScattersOnce) {
  // Hardly anything is scattered twice in dark matter, so both ways of seeing it agree: before the sky,
  // before mountains that it hides, with air before and behind.
  AddVolume(AnalyticCloud::Ball({0, 300, -900}, 250, 0.004)->WithAlbedo(trFCol(0.1f))->WithG(0.3)->Tapered(),
            false);
  settings_.view.tanHalfHorizontal = settings_.view.tanHalfVertical = 0.5;
  settings_.view.width = settings_.view.height = 12;
  const auto own = Picture(2, 16);
  path_.followsMatter = true;
  const auto followed = Picture(2, 16);
  const trFCol a = Mean(own), b = Mean(followed);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(b[c] / a[c], 1, 0.02) << c;
  double ownAlpha = 0, followedAlpha = 0, ownDirect = 0, followedDirect = 0;
  for (size_t i = 0; i < own.size(); ++i) {
    ownAlpha += own[i].alpha;
    followedAlpha += followed[i].alpha;
    ownDirect += own[i].direct.g;
    followedDirect += followed[i].direct.g;
  }
  EXPECT_NEAR(followedAlpha / ownAlpha, 1, 0.02);
  EXPECT_NEAR(followedDirect / ownDirect, 1, 0.03) << "shadows on the ground, and what of it is hidden";
}

TEST_F(AirScene, FollowedLightIsTheSameForAnyNumberOfThreads) {
  AddVolume(AnalyticCloud::Ball({0, 200, -700}, 250, 0.02)->WithG(0.7), false);
  settings_.view.width = 12;
  settings_.view.height = 8;
  path_.followsMatter = true;
  const auto first = Picture(1, 4);
  for (const int threads : {2, 7}) {
    const auto other = Picture(threads, 4);
    for (size_t i = 0; i < first.size(); ++i)
      ASSERT_EQ(std::memcmp(&first[i].beauty, &other[i].beauty, sizeof(trFCol)), 0) << threads << ' ' << i;
  }
}

}  // namespace
