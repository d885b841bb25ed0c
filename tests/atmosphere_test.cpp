// The planet atmosphere: media against numeric integration, sample planning, light, couplings, and the
// integrator.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "atmosphere/atmosphere_medium.h"
#include "atmosphere/media_lanes.h"
#include "atmosphere/planet_atmosphere.h"
#include "host/node/node_data.h"
#include "host/noise/simd_level.h"
#include "tests/fake_sky.h"

namespace {

constexpr double kRadius = 6378000;

struct Setting {
  const char* name;
  trParamValue value;
};

class Atmosphere : public testing::Test {
 protected:
  ~Atmosphere() override { integrator_.FreeRayData(); }
  void Set(const char* name, const trParamValue& value, trBase* who = trWhoUser) {
    EXPECT_TRUE(node_.SetParam(name, value, who)) << name;
  }
  double Number(const char* name) {
    double value = NAN;
    EXPECT_TRUE(node_.GetParam(name, value)) << name;
    return value;
  }
  trManRgb Colour(const char* name) {
    trManRgb value;
    EXPECT_TRUE(node_.GetParam(name, value)) << name;
    return value;
  }
  void ExpectColour(const char* name, double r, double g, double b) {
    const trManRgb c = Colour(name);
    EXPECT_NEAR(c.r, r, 2e-4 * std::fabs(r)) << name;
    EXPECT_NEAR(c.g, g, 2e-4 * std::fabs(g)) << name;
    EXPECT_NEAR(c.b, b, 2e-4 * std::fabs(b)) << name;
  }
  /// White media without preferred direction under a white sun and sky.
  void MakeWhite() {
    Set("improved_glow_model", 1);
    Set("haze_glow_amount", 0.0);
    Set("haze_horizon_colour", trManRgb(1, 1, 1));
    Set("bluesky_horizon_colour", trManRgb(1, 1, 1));
    Set("bluesky_glow_power", 1.0);
  }
  trAtomicIntegrator::Result Run() { return integrator_.Integrate(render_.state, {&node_}); }

  PlanetAtmosphere node_;
  FakeRender render_;
  trAtomicIntegrator integrator_;
};

// --- The media against numeric integration of the same medium

struct RayCase {
  const char* name;
  trVector origin, end;
};
const double kTangent = kRadius + 15000;
const RayCase kRays[] = {
    {"vertical from the ground", {0, kRadius, 0}, {0, kRadius + 1e5, 0}},
    {"down from space", {0, kRadius + 4e5, 0}, {0, kRadius, 0}},
    {"horizontal at the ground", {0, kRadius, 0}, {1e6, kRadius, 0}},
    {"horizontal, cut at 20 km", {0, kRadius + 500, 0}, {2e4, kRadius + 500, 0}},
    {"limb", {-4e6, kTangent, 0}, {4e6, kTangent, 0}},
    {"slanting down to the ground", {-3e5, kRadius + 1.5e5, 0}, {0, kRadius, 0}},
};

/// Simpson's rule over the part of the ray below the ceiling, of both media.
void OpticalDepths(const RayCase& ray, double ceiling, double& haze, double& bluesky) {
  haze = bluesky = 0;
  const int n = 400000;
  const double length = (ray.end - ray.origin).Length();
  for (int i = 0; i <= n; ++i) {
    const double height = (ray.origin + (ray.end - ray.origin) * (double(i) / n)).Length() - kRadius;
    if (height > ceiling) continue;
    const double weight = (i == 0 || i == n ? 1 : i % 2 ? 4 : 2) * length / (3.0 * n);
    haze += weight * 1e-5 * 1.0 * std::exp(-height / 1200);
    bluesky += weight * 1e-5 * 2.5 * std::exp(-height / 8000);
  }
}

TEST_F(Atmosphere, TransmittanceIsThatOfTheMedium) {
  Set("number_of_samples", 64);
  const double tint[3] = {0.2158, 0.4535, 1};
  for (const RayCase& ray : kRays) {
    double haze, bluesky;
    OpticalDepths(ray, 56000, haze, bluesky);
    double mean[3] = {};
    const int draws = 200;
    for (int seed = 0; seed < draws; ++seed) {
      render_.Aim(ray.origin, ray.end, 1, false, seed);
      const trAtomicIntegrator::Result result = Run();
      EXPECT_TRUE(result.Colour().IsBlack());
      for (int c = 0; c < 3; ++c) mean[c] += -std::log(result.transmittance[c]) / draws;
    }
    // Level stretches use an exponential that is right to 3 percent.
    for (int c = 0; c < 3; ++c) {
      const double depth = haze + bluesky * tint[c];
      if (depth > 6) continue;  // too few photons left to tell
      EXPECT_NEAR(mean[c], depth, 0.03 * depth) << ray.name << ", channel " << c;
    }
  }
}

TEST_F(Atmosphere, WhiteAirUnderWhiteLightScattersWhatItTakes) {
  MakeWhite();
  for (const RayCase& ray : kRays) {
    render_.Aim(ray.origin, ray.end);
    const trAtomicIntegrator::Result result = Run();
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(result.direct[c], 1 - result.transmittance[c], 2e-4) << ray.name;
      EXPECT_NEAR(result.enviro[c], 1 - result.transmittance[c], 2e-4)
          << ray.name << ": half of twice an even sky";
    }
  }
  // Ozone takes light and gives none.
  Set("ozone_factor", 1.0);
  render_.Aim(kRays[0].origin, kRays[0].end);
  const trAtomicIntegrator::Result result = Run();
  EXPECT_LT(result.direct.g, 0.999f * (1 - result.transmittance.g));
  EXPECT_GT(result.direct.g, 0);
}

TEST_F(Atmosphere, AnisotropicSkyLightIsSharedBetweenAboveAndBelow) {
  MakeWhite();
  Set("haze_glow_amount", 0.7);
  Set("bluesky_density", 0.0);
  Set("bluesky_density_colour", trManRgb(), trWhoSystem);
  render_.Aim(kRays[0].origin, kRays[0].end);
  const float even = Run().enviro.r;
  render_.below = trFCol();
  render_.Aim(kRays[0].origin, kRays[0].end);
  const float above = Run().enviro.r;
  const double anisotropy =
      1 - atmosphere::GlowPhase(-1, true, 1e-6f, 0.7f, 1, true);  // what isn't thrown back goes on downwards
  EXPECT_NEAR(above / even, (1 + anisotropy) / 2, 1e-4);
  EXPECT_NE(anisotropy, 0);
}

// --- Planning

struct PlanCase {
  long samples;
  bool adjust;
  int depth;
  bool wantsColour;
  double quality;
  double budget;  ///< for a shell crossed straight up from the ground, 56 km of the 72 km
};
const double kRatio = std::sqrt(56000.0 / 72000.0);
const PlanCase kPlans[] = {
    {16, false, 1, true, 1, 16},
    {16, true, 1, true, 1, 16 * kRatio},
    {16, true, 2, true, 1, std::pow(16 * kRatio, 1 / 1.5)},
    {16, false, 2, false, 1, std::pow(16, 1 / 1.5)},
    {16, false, 3, true, 0.4, std::pow(16, 1 / (1 + 0.8 * 2))},
    {16, false, 3, true, 0.5, std::pow(16, 1 / 1.75)},
    {16, false, 5, false, 0, std::pow(16, 1.0 / 5)},
    {0, true, 1, true, 1, 0},
};

TEST_F(Atmosphere, SamplesLieWherePlanned) {
  for (const PlanCase& plan : kPlans) {
    Set("number_of_samples", plan.samples);
    Set("adjust_to_distance", plan.adjust);
    double meanCount = 0;
    const int draws = 400;
    for (int seed = 0; seed < draws; ++seed) {
      const trVector origin(0, kRadius, 0);
      render_.Aim(origin, {0, kRadius + 1e6, 0}, plan.depth, plan.wantsColour, seed);
      render_.state.CurrentRay().quality = plan.quality;
      trRandomStream draw = render_.si.Random();
      Run();
      // Draws, in order: rounding, two phases on colour rays, evenness, then the places in the first and last
      // stretch.
      const double f = std::floor(draw.Next() + plan.budget);
      if (plan.wantsColour) draw.Next(), draw.Next();
      const double even = draw.Next(), first = draw.Next(), last = draw.Next();
      const int n = static_cast<int>(f + 1.00001);
      ASSERT_EQ(integrator_.NumSamples(), n + 1) << plan.samples << " " << plan.depth;
      meanCount += f / draws;
      const double step = 56000 / (f + 1.00001);
      for (int k = 0; k <= n; ++k) {
        const double hi = k == n ? n : k + even, lo = k == 0 ? 0 : k + even - 1;
        const double a = k == 0 ? first : k == n ? last : 0.5;
        const double from = lo * lo / n * step, to = hi * hi / n * step;
        ASSERT_NEAR(integrator_.Sample(k).distance, from + (to - from) * a, 1e-3);
        const auto& data = *static_cast<const AtmosphereRayData*>(integrator_.Sample(k).rayData);
        EXPECT_NEAR(data.segments[k].length, to - from, 1e-3);
        EXPECT_NEAR(data.segments[k].lightSpot, ((a * hi + (1 - a) * lo) / n + 1.0 / n) * 2 * step, 1e-3);
        EXPECT_NEAR(data.segments[k].enviroSpot - data.segments[k].lightSpot, 30.0 / n * step, 1e-3);
      }
    }
    EXPECT_NEAR(meanCount, plan.budget, 0.06) << "a budget is met on average";
  }
}

TEST_F(Atmosphere, RaysThatMissCostNothing) {
  struct {
    trVector origin, end;
    int count;
  } const cases[] = {
      {{-1e7, kRadius + 60000, 0}, {1e7, kRadius + 60000, 0}, 0},
      {{0, kRadius + 2e5, 0}, {0, kRadius + 1e5, 0}, 0},
      {{0, kRadius + 1e5, 0}, {0, kRadius + 2e5, 0}, 0},
      {{0, kRadius, 0}, {0, kRadius, 0}, 0},
      {{0, kRadius, 0}, {0, kRadius + 1, 0}, 2},
  };
  Set("number_of_samples", 1);
  for (const auto& c : cases) {
    render_.Aim(c.origin, c.end);
    Run();
    EXPECT_GE(integrator_.NumSamples(), c.count);
    EXPECT_EQ(integrator_.NumSamples() == 0, c.count == 0) << c.origin.x << " " << c.origin.y;
  }
  // A ceiling at the floor gives an endless budget, which the cap holds; the whole stretch is covered all the
  // same.
  Set("ceiling", 5000.0, trWhoSystem);
  Set("floor", 5000.0);
  render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
  Run();
  EXPECT_EQ(integrator_.NumSamples(), 8096);
  EXPECT_GT(integrator_.Sample(8095).distance, 4900);
}

TEST_F(Atmosphere, SwitchesAndTheGround) {
  struct {
    const char* off;
    int depth;
    bool wantsColour, down;
    bool empty, opaque;
  } const cases[] = {
      {nullptr, 2, false, true, false, true},
      {nullptr, 1, false, true, false, false},
      {nullptr, 2, true, true, false, false},
      {nullptr, 2, false, false, false, false},
      {"enable_primary", 1, true, false, true, false},
      {"enable_primary", 2, true, false, false, false},
      {"enable_secondary", 2, true, false, true, false},
      {"enable_secondary", 2, false, true, true, false},
      {"enable", 1, true, false, true, false},
  };
  for (const auto& c : cases) {
    if (c.off) Set(c.off, 0);
    const trVector origin(0, kRadius + 1000, 0);
    render_.Aim(origin, c.down ? trVector(0, 0, 0) : trVector(0, kRadius + 1e5, 0), c.depth, c.wantsColour);
    const trAtomicIntegrator::Result result = Run();
    EXPECT_EQ(integrator_.NumSamples() == 0, c.empty) << (c.off ? c.off : "");
    EXPECT_EQ(integrator_.NumSamples() == 1 && result.transmittance.IsBlack(), c.opaque);
    if (c.off) Set(c.off, 1);
  }
}

// --- Light

TEST_F(Atmosphere, LightIsAskedEverySampleAndSkyEverySixteenth) {
  Set("number_of_samples", 64);
  Set("adjust_to_distance", 0);
  for (unsigned seed = 0; seed < 20; ++seed) {
    render_.sun.asked = render_.enviroAsked = 0;
    render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0}, 1, true, seed);
    Run();
    EXPECT_EQ(render_.sun.asked, integrator_.NumSamples());
    EXPECT_GE(render_.enviroAsked, 4);
    EXPECT_LE(render_.enviroAsked, 6);
  }
  render_.enviroAsked = 0;
  render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0}, 3);
  EXPECT_TRUE(Run().enviro.IsBlack()) << "no sky light from depth 3 on";
  render_.state.CurrentRay().limitsEnviro = false;
  EXPECT_FALSE(Run().enviro.IsBlack());
}

TEST_F(Atmosphere, SurfaceShadowsOnlyWhereEnabled) {
  for (const bool enabled : {false, true})
    for (const bool traced : {false, true}) {
      Set("enable_ray_traced_shadows", enabled);
      render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
      render_.state.CurrentRay().tracesShadows = traced;
      render_.state.CurrentRay().quality = 0.9;
      Run();
      EXPECT_EQ(render_.sun.rayWhenAsked.tracesShadows, enabled && traced);
      EXPECT_LT(render_.sun.rayWhenAsked.quality, 0.9);
      EXPECT_EQ(render_.state.CurrentRay().tracesShadows, traced);
      EXPECT_EQ(render_.state.CurrentRay().quality, 0.9);
    }
}

class Shading : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    EXPECT_NEAR(si.P().Length(), kRadius, 1e-3);
    EXPECT_GE(si.Eye().Length(), kRadius);
    si.P() = {1, 2, 3};
    si.Cutil() = trFCol(0.25f);
    if (throws) throw std::runtime_error("shader");
    return 1;
  }
  bool throws = false;
};

TEST_F(Atmosphere, ShadowFunctionDimsAndLeavesNoTrace) {
  MakeWhite();
  Shading shade;
  ovhost::AttachChild(&node_, &shade, "shade");
  const trVolumeShape shape = node_.Shape();
  EXPECT_TRUE(shape.isSymmetric && !shape.hasModulatedLight);
  EXPECT_EQ(shape.innerRadius, kRadius - 16000);
  EXPECT_EQ(shape.outerRadius, kRadius + 56000);

  Set("shadow_function", "shade");
  EXPECT_TRUE(node_.Shape().isSymmetric && node_.Shape().hasModulatedLight);
  for (const bool throws : {false, true}) {
    shade.throws = throws;
    render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
    render_.state.CurrentRay().quality = 0.8;
    render_.si.P() = {4, 5, 6};
    render_.si.Cutil() = trFCol(0.5f);
    if (throws) {
      EXPECT_THROW(Run(), std::runtime_error);
    } else {
      const trAtomicIntegrator::Result result = Run();
      EXPECT_NEAR(result.direct.r, (1 - 0.25f * 1.0001f) * (1 - result.transmittance.r), 1e-4);
    }
    EXPECT_EQ(render_.si.P(), trVector(4, 5, 6));
    EXPECT_EQ(render_.si.Cutil(), trFCol(0.5f));
    EXPECT_EQ(render_.state.CurrentRay().quality, 0.8);
  }
  shade.throws = false;
  render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
  render_.state.CurrentRay().modulatesLight = false;
  const trAtomicIntegrator::Result unmodulated = Run();
  EXPECT_NEAR(unmodulated.direct.r, 1 - unmodulated.transmittance.r, 1e-4);
  render_.sun.shadows = false;
  render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
  const trAtomicIntegrator::Result result = Run();
  EXPECT_NEAR(result.direct.r, 1 - result.transmittance.r, 1e-4);
}

TEST_F(Atmosphere, ProgressiveSkyLightComesFromTheCache) {
  struct EvenSky : trVoxelLightingSystem {
    trFCol BackgroundFunction(trRenderState&, const trVector&, const trVector&) override {
      return trFCol(0.5f);
    }
  } sky;
  MakeWhite();
  render_.lighting = &sky;
  render_.progressive = true;
  render_.si.SetRenderContext(trRenderContext::kProgressive);
  trRenderingInterface rendering(render_.state, 1, nullptr, trRenderContext::kProgressive);
  ASSERT_TRUE(node_.PrepareAtmosphere(rendering));
  for (const bool during : {false, true}) {
    trVoxelLightingSystem::sIsDuringLookup() = during;
    render_.Aim({0, kRadius, 0}, {0, kRadius + 1e5, 0});
    const trAtomicIntegrator::Result result = Run();
    // A sky of radiance 0.5 all round gives half of what one of radiance 1 does: 4 * 0.5 * 0.5.
    EXPECT_NEAR(result.enviro.g, 1 - result.transmittance.g, 1e-4);
  }
  trVoxelLightingSystem::sIsDuringLookup() = 0;
  EXPECT_EQ(render_.enviroAsked, 0);
}

TEST_F(Atmosphere, NothingBreaksAtExtremes) {
  const double values[] = {0, -1, 1e-300, -1e300, 1e300, 1e5};
  for (long index = 0; index < node_.NumParams(); ++index) {
    const trParamType type = node_.ParamType(index);
    if (type != trParamType::kDouble && type != trParamType::kColour) continue;
    for (double value : values) {
      PlanetAtmosphere node;
      node.OnFirstCreate();
      if (type == trParamType::kDouble)
        node.SetParam(index, value, trWhoUser);
      else
        node.SetParam(index,
                      trManRgb(static_cast<float>(value * 1e-263), static_cast<float>(value * 1e-262), -1),
                      trWhoUser);
      for (const RayCase& ray : kRays)
        for (const bool wantsColour : {false, true}) {
          trAtomicIntegrator integrator;
          render_.Aim(ray.origin, ray.end, 2, wantsColour);
          const trAtomicIntegrator::Result result = integrator.Integrate(render_.state, {&node});
          for (int c = 0; c < 3; ++c) {
            EXPECT_TRUE(std::isfinite(result.Colour()[c])) << node.ParamName(index) << " " << value;
            EXPECT_GE(result.transmittance[c], 0) << node.ParamName(index) << " " << value;
            EXPECT_LE(result.transmittance[c], 1) << node.ParamName(index) << " " << value;
          }
        }
    }
  }
}

// --- Formulas

TEST(AtmosphereMedium, PhaseFunctions) {
  struct {
    double cosine;
    bool glow;
    double radius, amount, power;
    bool improved;
    double expected;
  } const cases[] = {
      {0.5, true, 0.01, 0, 0.75, false, 0.5},
      {0.5, false, 0.01, 0, 0.75, false, 0.5},
      {std::cos(1.0), true, 0.01, 1.5, 1, false, (1 - std::exp(-1.5 / 384)) * 384 + 0.5},
      {std::cos(1.0), false, 0.01, 1.5, 1, false, 1 - std::exp(-1.0 / 256) + 0.5},
      {1.0, true, 0.01, 1, 1, false, (1 - std::exp(-1 / 0.004363323 / 256)) * 256 + 0.5},
      {std::cos(1.0), true, 0.01, 0, 1, true, 1},
      {std::cos(1.01), true, 0.01, 1, 1, true, 100 * (1 - std::exp(-0.01))},
      {std::cos(1.01), true, 0.01, 0.5, 1, true, (100 * (1 - std::exp(-0.01)) - 1) * 0.5 + 1},
      {std::cos(3.01), true, 0.01, 2, 1, true, std::pow(100 * (1 - std::exp(-1 / 300.0)), 2)},
      {1.0, true, 0.01, 2, 1, true, (100 - 1) * 2 + 1},
      {std::cos(3.0), false, 0.01, 1, 1, true, 1 - std::exp(-0.5)},
  };
  for (const auto& c : cases)
    EXPECT_NEAR(atmosphere::GlowPhase(c.cosine, c.glow, c.radius, c.amount, c.power, c.improved) / c.expected,
                1, 1e-4)
        << c.amount << " " << c.improved << " " << c.cosine;

  double mean = 0;
  for (int i = 0; i < 1000; ++i) mean += atmosphere::RayleighPhase(-1 + (i + 0.5) / 500) / 1000;
  EXPECT_NEAR(mean, 1, 1e-5);

  const float inf = std::numeric_limits<float>::infinity();
  for (float cosine : {-1.0000001f, -1.0f, 0.0f, 1.0f, 1.0000001f})
    for (float radius : {0.0f, -1.0f, 1e30f})
      for (float amount : {0.0f, -2.0f, 1e-40f, 0.5f, 3.0f, 1e38f, inf})
        for (float power : {0.0f, -3.0f, 0.75f, 40.0f, inf})
          for (const bool flag : {false, true}) {
            EXPECT_TRUE(std::isfinite(atmosphere::GlowPhase(cosine, flag, radius, amount, power, true)));
            EXPECT_TRUE(std::isfinite(atmosphere::GlowPhase(cosine, flag, radius, amount, power, false)));
          }
}

constexpr int kMiddle = 4;

/// Density between two heights, scale heights, in the middle of a block; a level stretch is lit at `low`.
double DensityBetween(double low, double high) {
  atmosphere::MediaBlock block = {7, {}, {}};
  std::fill_n(block.boundary, 5, low);
  std::fill_n(block.boundary + 5, 8, high);
  std::fill_n(block.lit, kMiddle + 4, low);
  double density[atmosphere::kMediaBlock + atmosphere::kLaneRoom];
  atmosphere::MeanDensities(block, {1, 1, 1e-3}, density);
  return density[kMiddle];
}

double Opacity(double depth) {
  double depths[3 + atmosphere::kLaneRoom] = {0.5, 2, depth};
  atmosphere::TakeOpacities(depths, 3);
  return depths[2];
}

TEST(AtmosphereMedium, ExponentialsAndOzone) {
  std::vector<double> expected;
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    std::vector<double> values;
    const auto note = [&values](double value) { return values.push_back(value), value; };
    for (double x = -19.9; x < 19.9; x += 0.0371)
      EXPECT_NEAR(note(DensityBetween(-x, -x)) / std::exp(x), 1, 0.045) << x;
    EXPECT_EQ(DensityBetween(-20.1, -20.1), 482087424.0);
    EXPECT_EQ(DensityBetween(20.1, 20.1), 0);
    // What lies above the higher one counts for nothing.
    for (double x = -13; x < 13; x += 0.0371)
      EXPECT_NEAR(note(DensityBetween(-x, 1e4)) * (1e4 + x) / std::exp(x), 1, 2e-8) << x;
    EXPECT_EQ(DensityBetween(14, 1e4), 0);
    EXPECT_EQ(DensityBetween(-700, 300), 1000.0000025247573);
    EXPECT_EQ(Opacity(-1), 0);
    // Near 0 it leans to t, by the share (1 - t)^2.
    for (double t = 1e-7; t < 30; t *= 1.3) {
      const double exact = -std::expm1(-t), share = t < 1 ? (1 - t) * (1 - t) : 0;
      EXPECT_NEAR(note(Opacity(t)), t * share + exact * (1 - share), 3e-8 * std::min(t, 1.0) + 1e-15) << t;
    }
    if (expected.empty()) expected = values;
    EXPECT_EQ(values, expected) << level;
  }
  SetNoiseSimdLevel("");
  for (double height = 0; height < 80000; height += 97) {
    const double x = (height - 12000) / 8000;
    const double expected =
        height <= 12000 || height >= 63411
            ? 0
            : std::min((std::sin((height - 21000) / 9000) * 0.5 + 0.5) * 8, x * x * x * 8);
    EXPECT_NEAR(atmosphere::OzoneProfile(height), expected, 1e-9) << height;
  }
}

// --- Parameters

TEST_F(Atmosphere, DensityAndDecayMoveTogether) {
  Set("bluesky_density", 5.0);
  EXPECT_DOUBLE_EQ(Number("redsky_decay"), 5);
  EXPECT_DOUBLE_EQ(Number("bluesky_additive"), 1.5);
  ExpectColour("bluesky_horizon_colour", 0.2, 0.25, 0.3);
  ExpectColour("bluesky_additive_colour", 0.1438666731, 0.3779166639, 1);
  Set("redsky_decay", 2.5);
  EXPECT_DOUBLE_EQ(Number("bluesky_density"), 2.5);
  ExpectColour("bluesky_horizon_colour", 0.4, 0.5, 0.6);  // the same added light over half the density
  Set("redsky_decay", -3.0);
  EXPECT_DOUBLE_EQ(Number("redsky_decay"), 0.001);
  EXPECT_DOUBLE_EQ(Number("bluesky_density"), 0.001);
}

TEST_F(Atmosphere, HorizonAndAdditiveAreOneDescription) {
  Set("bluesky_horizon_colour", trManRgb(0.1f, 0.2f, 0.6f));
  // density * density colour * horizon over 0.75, the largest channel moved to the amount.
  const double a[3] = {2.5 * 0.2158 * 0.1 / 0.75, 2.5 * 0.4535 * 0.2 / 0.75, 2.5 * 0.6 / 0.75};
  ExpectColour("bluesky_additive_colour", a[0] / a[2], a[1] / a[2], 1);
  EXPECT_NEAR(Number("bluesky_additive"), 0.75 * a[2], 1e-6);
  Set("bluesky_additive", Number("bluesky_additive") * 0.5);
  ExpectColour("bluesky_horizon_colour", 0.05, 0.1, 0.3);
  Set("bluesky_additive_colour", trManRgb(1, 1, 1));
  const double additive = Number("bluesky_additive") / 2.5;
  ExpectColour("bluesky_horizon_colour", additive / 0.2158, additive / 0.4535, additive);
}

TEST_F(Atmosphere, DensityColourAndItsDecay) {
  ExpectColour("redsky_decay_colour", std::exp(-0.2158), std::exp(-0.4535), std::exp(-1));
  Set("bluesky_density_colour", trManRgb(0.5f, 1, 2));
  ExpectColour("redsky_decay_colour", std::exp(-0.5), std::exp(-1), std::exp(-2));
  ExpectColour("bluesky_horizon_colour", 0.2, 0.25, 0.3);
  Set("redsky_decay_colour", trManRgb(0.5f, 0.25f, 0.125f));
  ExpectColour("bluesky_density_colour", std::log(2), std::log(4), std::log(8));
  ExpectColour("bluesky_horizon_colour", 0.2, 0.25, 0.3);
  const double a[3] = {std::log(2) * 0.2, std::log(4) * 0.25, std::log(8) * 0.3};
  ExpectColour("bluesky_additive_colour", a[0] / a[2], a[1] / a[2], 1);
  Set("redsky_decay_colour", trManRgb(0, -1, 1));
  EXPECT_TRUE(std::isfinite(Colour("bluesky_density_colour").r));
  EXPECT_TRUE(std::isfinite(Colour("bluesky_density_colour").g));
}

TEST_F(Atmosphere, HeightsMoveTogetherForTheSystemToo) {
  Set("bluesky_exp_height", 4000.0, trWhoSystem);
  EXPECT_DOUBLE_EQ(Number("ceiling"), 28000);
  Set("haze_exp_height", 5000.0);
  EXPECT_DOUBLE_EQ(Number("ceiling"), 35000);
  Set("ceiling_adjust", 8.0);
  EXPECT_DOUBLE_EQ(Number("ceiling"), 40000);
  Set("ceiling", 30000.0);
  EXPECT_DOUBLE_EQ(Number("ceiling_adjust"), 6);
  Set("ceiling", -5.0);
  EXPECT_DOUBLE_EQ(Number("ceiling_adjust"), 6);
  // A project's values come as they were stored.
  Set("bluesky_density", 4.0, trWhoSystem);
  Set("bluesky_density_colour", trManRgb(1, 1, 1), trWhoSystem);
  EXPECT_DOUBLE_EQ(Number("redsky_decay"), 2.5);
  ExpectColour("bluesky_additive_colour", 0.1438666731, 0.3779166639, 1);
}

TEST_F(Atmosphere, OldNames) {
  struct {
    const char *name, *value;
    bool taken;
  } const cases[] = {{"sample_jitter", "1", true},
                     {"sample_jitter", "0", false},
                     {"pre-apply_atmosphere", "0", true},
                     {"pre-apply_atmosphere", "1", false},
                     {"pre-apply_atmosphere_name", "", true},
                     {"post-apply_atmosphere_name", "x", false},
                     {"post-apply_atmosphere", "0", true},
                     {"exp_height", "900", true},
                     {"exp_height", "high", false},
                     {"center", "1 2 3", true},
                     {"haze_horizon_color", "1 0 0.5", true}};
  for (const auto& c : cases)
    EXPECT_EQ(node_.SetParamFromString(c.name, c.value, trWhoSystem) != 0, c.taken)
        << c.name << " " << c.value;
  EXPECT_DOUBLE_EQ(Number("haze_exp_height"), 900);
  EXPECT_DOUBLE_EQ(Number("bluesky_exp_height"), 900);
  ExpectColour("haze_horizon_colour", 1, 0, 0.5);
}

TEST_F(Atmosphere, NewNodesResetAndSavedFlags) {
  const auto saved = [this](const char* name) {
    long index = -1;
    EXPECT_TRUE(node_.FindParam(index, name));
    return node_.ParamShouldBeSaved(index);
  };
  EXPECT_FALSE(saved("ozone_factor"));
  EXPECT_FALSE(saved("rayleigh_phase_function"));
  EXPECT_FALSE(saved("ray_traced_shadows_warning_1"));
  node_.OnFirstCreate();
  EXPECT_EQ(Number("enviro_light"), 1);
  EXPECT_EQ(Number("improved_glow_model"), 1);
  EXPECT_TRUE(saved("ozone_factor"));
  EXPECT_TRUE(saved("rayleigh_phase_function"));

  const std::vector<Setting> changes = {{"ambient", trManRgb(1, 1, 1)},
                                        {"fake_dark_power", 2.0},
                                        {"fake_dark_sharpness", 3.0},
                                        {"ozone_factor", 0.0},
                                        {"redsky_decay_colour", trManRgb(0.5f, 0.5f, 0.5f)}};
  for (const Setting& change : changes) Set(change.name, change.value);
  for (const trSheetItem& item : node_.Data().sheet)
    if (item.button) item.button->OnPressed();
  ExpectColour("ambient", 0, 0, 0);
  ExpectColour("bluesky_density_colour", 0.2158, 0.4535, 1);
  EXPECT_EQ(Number("fake_dark_power"), 0);
  EXPECT_EQ(Number("fake_dark_sharpness"), 10);
  EXPECT_EQ(Number("ozone_factor"), 0.5);
}

// --- The integrator

/// A volume of grey samples at given distances along x, each of half opacity.
class Sheets : public trAtmosShader {
 public:
  explicit Sheets(std::vector<double> at, float colour) : at_(std::move(at)), colour_(colour) {}
  long AddRaySamples(trRenderState&, trAtomicIntegrator& integrator, void*& rayData) override {
    if (!rayData) rayData = new int(0), ++alive;
    for (double x : at_) integrator.AddSample(this, {x, 0, 0})->rayData = rayData;
    return 1;
  }
  long EvaluateRaySample(trRenderState&, trAtmosSample& sample) override {
    throughputs.push_back(sample.throughput.r);
    sample.opacityDirect = sample.opacityEnviro = trFCol(0.5f);
    sample.colourDirect = trFCol(colour_);
    sample.colourEnviro = trFCol(std::numeric_limits<float>::quiet_NaN());
    return 1;
  }
  void FreeIntegrationData(trAtomicIntegrator&, void* rayData) override {
    if (rayData) --alive;
    delete static_cast<int*>(rayData);
  }
  int alive = 0;
  std::vector<float> throughputs;

 private:
  std::vector<double> at_;
  float colour_;
};

TEST(AtomicIntegrator, CompositesAllVolumesByDepth) {
  Sheets red({3, 1}, 1), blue({2}, 8);
  FakeRender render;
  trAtomicIntegrator integrator;
  render.Aim({0, 0, 0}, {10, 0, 0});
  for (const std::vector<trAtmosShader*>& volumes :
       {std::vector<trAtmosShader*>{&red, &blue}, {&blue, &red}}) {
    const trAtomicIntegrator::Result result = integrator.Integrate(render.state, volumes);
    EXPECT_EQ(result.direct.r, 1 + 0.5f * 8 + 0.25f);
    EXPECT_EQ(result.transmittance.g, 0.125f);
    EXPECT_TRUE(result.enviro.IsBlack()) << "what isn't a number is dropped";
  }
  EXPECT_EQ(red.throughputs, (std::vector<float>{1, 0.25f, 1, 0.25f}));
  EXPECT_EQ(red.alive, 1);
  integrator.FreeRayData();
  EXPECT_EQ(red.alive + blue.alive, 0);

  Sheets many(std::vector<double>(100, 1.0), 0);
  EXPECT_TRUE(integrator.Integrate(render.state, {&many}).transmittance.IsBlack());
  EXPECT_EQ(many.throughputs.size(), 14u) << "stops where nothing behind could show";
  integrator.FreeRayData();
}

}  // namespace
