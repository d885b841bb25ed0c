// The alpine fractals by what mountains have, and the elder power fractal by the one that followed it.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "core/noise_slope.h"
#include "fractal/alpine_fractal_shader.h"
#include "fractal/power_fractal_shader.h"
#include "host/noise/simd_level.h"
#include "tests/shading_fixture.h"

namespace {

using Setting = std::pair<const char*, double>;

template <typename Shader = AlpineFractalShaderV2>
class Mountains {
 public:
  explicit Mountains(const std::vector<Setting>& settings = {}) {
    shader_.SetParam("seed", 11, trWhoUser);
    for (const auto& [name, value] : settings) EXPECT_TRUE(shader_.SetParam(name, value, trWhoUser)) << name;
  }
  double At(const trVector& point, double footprint = 0, const trVector& up = {0, 1, 0}) {
    Sample sample(point, up);
    sample.si.SmoothSize() = footprint;
    shader_.DisplaceTS(sample.si);
    return Dot(sample.si.P() - point, up);
  }
  Shader& Node() { return shader_; }

 private:
  Shader shader_;
};

trVector Place(int i) { return {137.0 * i, 0, 911.0 * std::sin(i * 0.7)}; }

TEST(NoiseSlopes, AreTheNoisesOwn) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> range(-50, 50);
  double x[16], y[16], z[16], plain[16], value[16], dx[16], dy[16], dz[16];
  for (int i = 0; i < 16; ++i) x[i] = range(random), y[i] = range(random), z[i] = range(random);
  const trNoiseBatch batch = {x, y, z, nullptr, 7, 3, 16};
  std::vector<double> first;
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    trNoise3Batch(batch, plain);
    trNoise3SlopeBatch(batch, {value, dx, dy, dz});
    std::vector<double> all;
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(value[i], plain[i]) << level;
      all.insert(all.end(), {dx[i], dy[i], dz[i]});
    }
    if (first.empty()) first = all;
    EXPECT_EQ(all, first) << level;
  }
  SetNoiseSimdLevel("");
  const double h = 1e-5;
  for (int i = 0; i < 16; ++i) {
    trNoiseInst3 noise;
    noise.Init(true, 7 + 3 * i);
    const trVector p(x[i], y[i], z[i]);
    const auto slope = [&](const trVector& along) {
      return (noise.Noise3(p + along * h) - noise.Noise3(p - along * h)) / (2 * h);
    };
    EXPECT_NEAR(dx[i], slope({1, 0, 0}), 1e-7);
    EXPECT_NEAR(dy[i], slope({0, 1, 0}), 1e-7);
    EXPECT_NEAR(dz[i], slope({0, 0, 1}), 1e-7);
  }
}

TEST(Alpine, SameBitsOnEveryInstructionSet) {
  Mountains mountains;
  Mountains<AlpineFractalShader> elder;
  std::vector<double> first;
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    std::vector<double> heights;
    for (int i = 0; i < 40; ++i)
      for (const double footprint : {0.0, 3.0, 700.0})
        heights.insert(heights.end(), {mountains.At(Place(i), footprint), elder.At(Place(i), footprint)});
    if (first.empty()) first = heights;
    EXPECT_EQ(heights, first) << level;
  }
  SetNoiseSimdLevel("");
}

TEST(Alpine, HeightsFollowAmplitudeOffsetAndMask) {
  Mountains plain, tall({{"displacement_amplitude", 3000}, {"displacement_offset", 50}});
  double low = 1e9, high = -1e9;
  for (int i = 0; i < 4000; ++i) {
    const double height = plain.At(Place(i));
    low = std::min(low, height), high = std::max(high, height);
    EXPECT_NEAR(tall.At(Place(i)), 3 * height + 50, 1e-6);
  }
  // Summits are about as high as the amplitude says; valleys lie at about 0.
  EXPECT_GT(high, 700);
  EXPECT_LT(high, 2500);
  EXPECT_GT(low, -700);
  EXPECT_LT(low, 100);
}

TEST(Alpine, GulliesRunDownTheFlanks) {
  // Mountains without spurs tell which way down is; what spurs and rock add to them changes less that way.
  const Setting height = {"displacement_amplitude", 4000}, noLeadIn = {"lead-in_scale", 0};
  const auto ratio = [&](double bending) {
    const Setting bend = {"gully_bending", bending};
    Mountains bare({height, noLeadIn, {"smallest_scale", 8000}});
    Mountains full({height, noLeadIn, bend, {"smallest_scale", 400}});
    double down = 0, across = 0;
    for (int i = 0; i < 3000; ++i) {
      const trVector p = Place(i);
      const double h = 5;
      const auto change = [&](Mountains<>& m, const trVector& along) {
        return m.At(p + along * h) - m.At(p - along * h);
      };
      trVector fall(change(bare, {1, 0, 0}), 0, change(bare, {0, 0, 1}));
      if (fall.Length() < 8) continue;  // on flanks alone
      fall = Normalised(fall);
      const trVector side(-fall.z, 0, fall.x);
      const auto added = [&](const trVector& along) {
        const double d = change(full, along) - change(bare, along);
        return d * d;
      };
      down += added(fall), across += added(side);
    }
    return across / down;
  };
  const double straight = ratio(0), bent = ratio(1);
  EXPECT_NEAR(straight, 1, 0.35);
  EXPECT_GT(bent, 1.8 * straight);
}

/// Mean size of the second differences over 20 m, on high or on low ground.
double Roughness(Mountains<>& mountains, bool isHigh) {
  Mountains bare({{"smallest_scale", 8000}});
  double sum = 0;
  int count = 0;
  for (int i = 0; i < 4000; ++i) {
    const trVector p = Place(i), d(20, 0, 0);
    if (isHigh != (bare.At(p) > 300) || (!isHigh && bare.At(p) > 60)) continue;
    sum += std::fabs(mountains.At(p + d) + mountains.At(p - d) - 2 * mountains.At(p));
    ++count;
  }
  EXPECT_GT(count, 100);
  return sum / count;
}

TEST(Alpine, ValleysFillAndErosionCalmsFlanks) {
  Mountains filled({{"valley_smoothness", 1}}), rough({{"valley_smoothness", 0}});
  EXPECT_LT(Roughness(filled, false), 0.5 * Roughness(rough, false));
  EXPECT_LT(Roughness(filled, false), 0.5 * Roughness(filled, true));
  Mountains calm({{"erosion", 1}}), wild({{"erosion", 0}});
  EXPECT_LT(Roughness(calm, true), 0.9 * Roughness(wild, true));
}

TEST(Alpine, FootprintsLeaveWhatIsLarger) {
  Mountains mountains;
  double fine = 0, coarse = 0, difference = 0;
  for (int i = 0; i < 2000; ++i) {
    const trVector p = Place(i), d(60, 0, 0);
    const double sharp = mountains.At(p), soft = mountains.At(p, 200);
    fine += std::fabs(mountains.At(p + d) - sharp);
    coarse += std::fabs(mountains.At(p + d, 200) - soft);
    difference += std::fabs(sharp - soft);
  }
  EXPECT_LT(coarse, 0.75 * fine);
  EXPECT_LT(difference / 2000, 120) << "the mountains stay";
  // Past the largest wavelength there is nothing left to see.
  EXPECT_NEAR(mountains.At({}, 1e6), mountains.At({5000, 0, 100}, 1e6), 1e-9);
}

TEST(Alpine, BearsNonsense) {
  constexpr double kHuge = 1e300;
  for (const char* name : {"feature_scale", "lead-in_scale", "smallest_scale", "displacement_amplitude",
                           "displacement_roughness", "ridge_sharpness", "valley_width", "valley_smoothness",
                           "erosion", "gully_bending", "lead-in_variation"})
    for (const double value : {0.0, -1.0, 1e-300, kHuge, -kHuge}) {
      Mountains mountains({{name, value}});
      for (const trVector& p : {trVector(), trVector(1e7, -3, 5), trVector(kHuge, 1, 1)})
        EXPECT_TRUE(std::isfinite(mountains.At(p))) << name << " " << value;
    }
}

TEST(PowerFractalV2, IsTheLaterOneWithoutItsOptions) {
  PowerFractalShaderV2 elder;
  PowerFractalShaderV3 later;
  long index;
  for (const char* added : {"ridge_smoothing", "gully_smoothing", "clumping_of_variation", "four-d_noise",
                            "better_displacement_continuity", "continue_spike_limit", "lead-in_warp_effect"})
    EXPECT_FALSE(elder.FindParam(index, added)) << added;
  for (long i = 0; i < elder.NumParams(); ++i)
    EXPECT_TRUE(later.FindParam(index, elder.ParamName(i))) << elder.ParamName(i);
  for (const double flavour : {0, 2, 3, 5}) {
    for (trBase* node : {static_cast<trBase*>(&elder), static_cast<trBase*>(&later)})
      for (const auto& [name, value] : std::vector<Setting>{
               {"seed", 5}, {"noise_flavour", flavour}, {"displacement_amplitude", 30}, {"feature_scale", 7}})
        ASSERT_TRUE(node->SetParam(name, value, trWhoUser));
    for (int i = 0; i < 20; ++i) {
      Sample a(Place(i)), b(Place(i));
      elder.DisplaceTS(a.si), later.DisplaceTS(b.si);
      elder.ShadeTS(a.si), later.ShadeTS(b.si);
      EXPECT_EQ(a.si.P(), b.si.P());
      EXPECT_EQ(a.si.Cutil().r, b.si.Cutil().r);
    }
  }
}

}  // namespace
