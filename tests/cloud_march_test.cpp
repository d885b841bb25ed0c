// The march of cloud layers against geometry, closed forms and plain evaluation of its own.
#include <random>

#include "atmosphere/cloud_span.h"
#include "tests/cloud_fixture.h"

namespace {

using CloudMarch = CloudTest<CloudLayerV2>;
using CloudMarchV3 = CloudTest<CloudLayerV3>;

const trVector kCentre(0, -6378000, 0);
constexpr double kPlanet = 6378000;

TEST(CloudSpanTest, HoldsWhatLiesInShellAndSphere) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> unit(-1, 1);
  CloudShell shell;
  shell.centre = kCentre;
  shell.baseRadius = kPlanet + 1000;
  shell.topRadius = kPlanet + 3000;
  shell.localCentre = {0, 2000, 0};
  shell.localRadius = 20000;
  const auto isInside = [&](const trVector& p) {
    const double r = (p - shell.centre).Length();
    return r >= shell.baseRadius && r < shell.topRadius &&
           (!shell.isLocal || (p - shell.localCentre).Length() < shell.localRadius);
  };
  int found = 0, withGap = 0;
  for (int i = 0; i < 4000; ++i) {
    shell.isLocal = i % 2;
    const double reach = i % 3 ? 40000 : 400000;
    const trVector from(unit(random) * reach, unit(random) * 6000 + 1000, unit(random) * reach),
        to(unit(random) * reach, unit(random) * 6000 + 1000, unit(random) * reach);
    CloudSpan span;
    const bool isFound = FindCloudSpan(shell, from, to, span);
    found += isFound;
    withGap += isFound && span.gap > 0;
    const double length = (to - from).Length();
    constexpr int kPoints = 500;
    for (int k = 0; k < kPoints; ++k) {
      const double at = length * (k + 0.5) / kPoints;
      const trVector p = from + (to - from) * (at / length);
      const double along = at - span.entryDistance;
      const bool inside = isInside(p);
      const bool isCovered = isFound && along > -1e-3 && along < span.length + 1e-3;
      ASSERT_TRUE(isCovered || !inside) << i << " " << k;
      const bool isDeep = isFound && span.gap == 0 && along > 1e-3 && along < span.length - 1e-3;
      ASSERT_TRUE(inside || !isDeep) << i << " " << k;
    }
    if (isFound && span.gap > 0) {
      // What isn't gap is as long as what is inside, to the spacing of the points.
      int inside = 0;
      for (int k = 0; k < kPoints; ++k) inside += isInside(from + (to - from) * ((k + 0.5) / kPoints));
      ASSERT_NEAR(span.length - span.gap, inside * length / kPoints, 2.1 * length / kPoints) << i;
    }
  }
  EXPECT_GT(found, 1000);
  EXPECT_GT(withGap, 50);
}

/// Positions and transmissions as the text of the method has them, by a plain loop.
struct PlainStep {
  trVector position;
  double transmission;
};

std::vector<PlainStep> PlainMarch(const trVector& entry, const trVector& exit, double depth, int samples,
                                  bool hasTrueLengths,
                                  const std::function<double(const trVector&)>& opacity) {
  std::vector<PlainStep> steps;
  const double length = (exit - entry).Length();
  const int n = static_cast<int>(std::sqrt(length / depth) * (samples - 1) + 1);
  for (int i = 0; i < n; ++i) {
    const double u = (i + 0.5) / n;
    const trVector p = entry + (exit - entry) * (u * u);
    const double weight = length / n * (hasTrueLengths ? 2 * u : 1);
    steps.push_back({p, std::exp(-weight * opacity(p))});
  }
  return steps;
}

TEST_F(CloudMarch, PositionsDensitiesAndTransmissions) {
  MakeEven();
  Set("edge_sharpness", 2.0);
  // A cloud's surface that waves, and a limit to its density.
  const auto coverage = [](const trVector& p) { return 0.4 * std::sin(p.x / 300) + 0.0002 * (p.y - 1200); };
  density_.colour = [&](const trVector& p) { return trFCol(static_cast<float>(coverage(p))); };
  const auto opacity = [&](const trVector& p) {
    const double d = coverage(p);
    return d < 0 ? 0 : 0.001 * std::min(1.0, 2 * d);
  };
  for (const trCloudSteps mode : {trCloudSteps::kAsLayersTell, trCloudSteps::kTrueLengths}) {
    Prepare(mode);
    const trVector from(0, 500, 0), to(5000, 2500, 0);
    render_.Aim(from, to);
    const trAtomicIntegrator::Result result = Run();
    // The planet is round: the ends of the way are where the spheres are.
    const auto meet = [&](double height) {
      double low = 0, high = 1;
      for (int i = 0; i < 100; ++i) {
        const double middle = (low + high) / 2;
        ((from + (to - from) * middle - kCentre).Length() < kPlanet + height ? low : high) = middle;
      }
      return from + (to - from) * low;
    };
    const std::vector<PlainStep> plain =
        PlainMarch(meet(1000), meet(2000), 1000, 32, mode == trCloudSteps::kTrueLengths, opacity);
    double left = 1;
    int at = 0;
    for (const PlainStep& step : plain) {
      if (step.transmission == 1) continue;
      ASSERT_LT(at, integrator_.NumSamples());
      const trAtmosSample& sample = integrator_.Sample(at++);
      ExpectNear(sample.position, step.position, 1e-4, "position");
      EXPECT_NEAR(sample.opacityDirect.g, 1 - step.transmission, 2e-6);
      left *= step.transmission;
    }
    EXPECT_EQ(at, integrator_.NumSamples());
    EXPECT_GT(at, 10);
    EXPECT_NEAR(result.transmittance.r, left, 1e-5);
  }
}

TEST_F(CloudMarch, HomogeneousLayersFollowBeerAndLambert) {
  MakeEven();
  struct {
    const char* name;
    trVector from, to;
  } const rays[] = {
      {"up", {0, 0, 0}, {0, 5000, 0}},           {"down", {0, 5000, 0}, {0, 0, 0}},
      {"slanting", {0, 0, 0}, {3000, 3000, 0}},  {"from inside", {0, 1300, 0}, {100, 5000, 0}},
      {"to inside", {0, 5000, 0}, {0, 1300, 0}}, {"through the hollow", {-2e5, -300, 0}, {2e5, -300, 0}}};
  for (const trCloudSteps mode : {trCloudSteps::kAsLayersTell, trCloudSteps::kTrueLengths}) {
    Prepare(mode);
    for (const auto& ray : rays) {
      double length = 0;
      constexpr int kPoints = 400000;
      for (int i = 0; i < kPoints; ++i) {
        const double r =
            (ray.from + (ray.to - ray.from) * ((i + 0.5) / kPoints) - kCentre).Length() - kPlanet;
        if (r >= 1000 && r < 2000) length += (ray.to - ray.from).Length() / kPoints;
      }
      render_.Aim(ray.from, ray.to);
      const double expected = std::exp(-0.001 * length);
      EXPECT_NEAR(Run().transmittance.g, expected < 1e-4 ? 0 : expected, 2e-3 * expected + 1e-3) << ray.name;
    }
  }
}

TEST_F(CloudMarch, TrueLengthsConvergeToTheIntegral) {
  MakeEven();
  Set("taper_top_and_base", 1);
  Set("cloud_density", 0.0025);
  Set("number_of_samples", 2000);
  // Seen from above: density 1 - (2 |sqrt(h) - 1/2|)^2 doubled and taken 1 from, where positive.
  double depth = 0;
  constexpr int kPoints = 100000;
  for (int i = 0; i < kPoints; ++i) {
    const double h = (i + 0.5) / kPoints, k = 2 * std::fabs(std::sqrt(h) - 0.5);
    depth += 2.5 / kPoints * std::clamp(2 * (1 - k * k) - 1, 0.0, 1.0);
  }
  const auto fromAbove = [&](trCloudSteps mode) {
    Prepare(mode);
    render_.Aim({0, 5000, 0}, {0, 0, 0});
    return Run().transmittance.g;
  };
  EXPECT_NEAR(fromAbove(trCloudSteps::kTrueLengths), std::exp(-depth), 1e-3);
  // Steps that all weigh alike count the sparse end of the march for too little.
  EXPECT_GT(std::fabs(fromAbove(trCloudSteps::kAsLayersTell) - std::exp(-depth)), 0.05);
  // Jitter leaves the mean where it is.
  Set("number_of_samples", 8);
  Set("sample_jitter", 1.0);
  Prepare();
  double sum = 0;
  for (unsigned i = 0; i < 4000; ++i) {
    render_.Aim({0, 5000, 0}, {0, 0, 0}, 1, true, i + 1);
    sum += std::log(Run().transmittance.g) / 4000;
  }
  EXPECT_NEAR(-sum, depth, 0.01 * depth);
}

TEST_F(CloudMarch, LocalSphereFallsOffAndShadersRestBeyond) {
  MakeEven();
  Set("local_sphere", 1);
  Set("local_sphere_radius", 5000.0);
  Set("number_of_samples", 64);
  Prepare();
  // On the axis, L = 1 - |height - 1500| / 5000, and c goes from 1 towards -1/2 as L falls.
  double depth = 0;
  for (int i = 0; i < 1000; ++i) {
    const double l = 1 - std::fabs(i + 0.5 - 500) / 5000;
    depth += 0.001 * std::clamp(-0.5 + l * 1.5, 0.0, 1.0);
  }
  EXPECT_NEAR(Upwards({0, 0, 0}).g, std::exp(-depth), 1e-3);
  density_.asked = 0;
  EXPECT_EQ(Upwards({6000, 0, 0}), trFCol(1.0f));
  render_.Aim({0, 100, 0}, {1e5, 900, 0});
  EXPECT_EQ(Run().transmittance, trFCol(1.0f));
  EXPECT_EQ(cloud_.MatterAt(render_.state, {0, 2100, 0}).extinction, trFCol());
  EXPECT_EQ(density_.asked, 0);
}

TEST_F(CloudMarch, MatterIsWhatTheMarchTakes) {
  MakeEven();
  Set("taper_top_and_base", 1);
  Set("edge_sharpness", 3.0);
  density_.colour = [](const trVector& p) { return trFCol(0.3f, 0.0f, static_cast<float>(p.x / 1000)); };
  Prepare();
  EXPECT_TRUE(cloud_.HasMatter());
  for (const trVector point : {trVector(0, 1200, 0), trVector(400, 1500, 70), trVector(-500, 1300, 0)}) {
    const trVolumeMatter matter = cloud_.MatterAt(render_.state, point);
    render_.Aim(point, point + trVector(0, 0.5, 0));
    const trFCol left = Run().transmittance;
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(-std::log(left[c]) / 0.5, matter.extinction[c], 2e-6);
    EXPECT_EQ(matter.albedo, trFCol(1.0f));
    EXPECT_LE(matter.extinction.MaxChannel(), cloud_.GreatestExtinction());
  }
}

TEST_F(CloudMarch, ShadowsOfItselfAndSwitches) {
  MakeEven();
  Set("sun_glow_amount", 0.0);
  Set("improved_lighting_model", 1);
  Set("light_propagation", 0.0);
  Set("fake_internal_scattering", 0.0);
  Set("enviro_light", 0.0);
  Set("number_of_samples", 400);
  Prepare();
  // Single scattering towards straight below, the sun above: sigma exp(-sigma depth) at every height.
  render_.Aim({0, 0, 0}, {0, 5000, 0});
  EXPECT_NEAR(Run().direct.g, 0.25 * std::exp(-1.0) * 1.0, 5e-3);
  struct {
    const char* name;
    int depth;
  } const switches[] = {{"enable_primary", 1}, {"enable_secondary", 2}, {"enable", 1}, {"enable", 2}};
  for (const auto& s : switches) {
    Set(s.name, 0);
    render_.Aim({0, 0, 0}, {0, 5000, 0}, s.depth);
    EXPECT_EQ(Run().transmittance, trFCol(1.0f)) << s.name;
    EXPECT_EQ(integrator_.NumSamples(), 0) << s.name;
    Set(s.name, 1);
  }
  // A flat cloud is one step; light falls through it as through a thick one.
  Set("rendering_method", 0);
  render_.Aim({0, 0, 0}, {0, 5000, 0});
  Run();
  EXPECT_EQ(integrator_.NumSamples(), 1);
}

TEST_F(CloudMarch, StateComesBackAndAnswersDontHangOnOrder) {
  Set("sample_jitter", 1.0);
  density_.colour = [](const trVector& p) {
    return trFCol(static_cast<float>(std::sin(p.x / 70 + p.y / 90)));
  };
  Prepare();
  const auto look = [&](double x) {
    render_.Aim({x, 0, 0}, {x + 800, 4000, 0}, 1, true, 5);
    return Run();
  };
  const trFCol alone = look(100).Colour();
  look(3000);
  Upwards({50, 1600, 0});
  cloud_.MatterAt(render_.state, {5, 1700, 0});
  EXPECT_EQ(look(100).Colour(), alone);

  render_.Aim({0, 0, 0}, {800, 4000, 0});
  render_.si.SetSample({1, 2, 3}, {0, 0, 1});
  render_.si.DEV_CloudFeatureScalar() = 0.5;
  Set("base_wispiness", 1.0);
  Run();
  ExpectNear(render_.si.P(), {1, 2, 3}, 0);
  ExpectNear(render_.si.Ng(), {0, 0, 1}, 0);
  EXPECT_EQ(render_.si.DEV_CloudFeatureScalar(), 0.5);
  EXPECT_EQ(render_.state.CurrentRay().depth, 1);
  EXPECT_EQ(render_.state.CurrentRay().subdivision, 0);
  EXPECT_EQ(render_.state.CurrentRay().quality, 1.0);
}

template <typename Layer>
class CloudExtremes : public CloudTest<Layer> {};
using Layers = testing::Types<CloudLayerV2, CloudLayerV3>;
TYPED_TEST_SUITE(CloudExtremes, Layers);

TYPED_TEST(CloudExtremes, StayFinite) {
  for (const char* name : {"cloud_depth",
                           "radius",
                           "local_sphere_radius",
                           "local_sphere_falloff",
                           "edge_sharpness",
                           "cloud_density",
                           "coverage_gamma",
                           "coverage_adjust",
                           "sun_glow_amount",
                           "sun_glow_power",
                           "light_propagation",
                           "light_propagation_mix",
                           "fake_internal_scattering",
                           "sample_jitter",
                           "number_of_samples",
                           "cloud_altitude",
                           "base_softness",
                           "base_wispiness",
                           "millions_of_voxels",
                           "voxel_shadow_threshold",
                           "depth_modulator_centre"}) {
    double saved = 0;
    ASSERT_TRUE(this->cloud_.GetParam(name, saved)) << name;
    for (const double value : {0.0, -1.0, 1e300, -1e300}) {
      this->cloud_.SetParam(name, value, trWhoUser);
      this->cloud_.SetParam("voxel_buffer_resolution", trVector(8, 2, 8), trWhoSystem);
      this->cloud_.SetParam("use_2D_shadow_map", 1, trWhoUser);
      this->cloud_.SetParam("shadow_map_resolution", tr2Vector(4, 4), trWhoUser);
      this->Prepare();
      for (const int depth : {1, 2}) {
        this->render_.Aim({0, 0, 0}, {900, 4000, 100}, depth, depth == 1);
        const trAtomicIntegrator::Result result = this->Run();
        const trFCol colour = result.Colour();
        for (int c = 0; c < 3; ++c) {
          EXPECT_TRUE(std::isfinite(colour[c])) << name << " " << value;
          EXPECT_TRUE(result.transmittance[c] >= 0 && result.transmittance[c] <= 1) << name << " " << value;
        }
      }
      const trVolumeMatter matter = this->cloud_.MatterAt(this->render_.state, {0, 1700, 0});
      EXPECT_TRUE(std::isfinite(matter.extinction.g) && matter.extinction.g >= 0) << name << " " << value;
    }
    this->cloud_.SetParam(name, saved, trWhoSystem);
  }
}

TYPED_TEST(CloudExtremes, NetworksThatGiveNoNumbers) {
  for (const float bad : {NAN, INFINITY, -INFINITY, 1e38f}) {
    this->density_.colour = [bad](const trVector&) { return trFCol(bad); };
    this->Prepare();
    this->render_.Aim({0, 0, 0}, {900, 4000, 100});
    const trAtomicIntegrator::Result result = this->Run();
    EXPECT_TRUE(std::isfinite(result.Colour().g) && result.transmittance.g >= 0) << bad;
  }
}

}  // namespace
