// The power fractal against an independent evaluation of its formulas, its couplings, and what it does to a
// sample.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "fractal/power_fractal_shader.h"
#include "host/noise/simd_level.h"

namespace {

using Setting = std::pair<const char*, double>;

void Set(trBase& node, const std::vector<Setting>& settings) {
  for (const auto& [name, value] : settings) ASSERT_TRUE(node.SetParam(name, value, trWhoUser)) << name;
}

// --- The formulas, plainly

/// One evaluation, octave by octave, with the C library's functions; `colour` chooses between the two loops.
class PlainFractal {
 public:
  PlainFractal(const FractalSettings& settings, trShadingInterface& state, bool colour)
      : s(settings), si(state), isColour(colour) {}

  double Evaluate(float maskRed) {
    if (std::fabs(isColour ? s.colourContrast : s.displacementAmplitude) > 1e-12) Loop(maskRed);
    if (!isColour) return s.displacementOffset + sum;
    double value = s.colourOffset + sum + 0.5;
    if (s.clampHighColour) value = std::min(value, 1.0);
    if (s.clampLowColour) value = std::max(value, 0.0);
    return value;
  }

 private:
  const FractalSettings& s;
  trShadingInterface& si;
  const bool isColour;
  double sum = 0;

  static double Recip(double x) { return std::fabs(x) > 1e-12 ? 1 / x : x < 0 ? -1e12 : 1e12; }
  static double Step(double t) { return t <= 0 ? 0 : t >= 1 ? 1 : t * t * (3 - 2 * t); }
  bool Exact() const { return isColour ? s.betterColourContinuity : s.betterDisplacementContinuity; }
  double E(double x) const { return Exact() ? std::exp(x) : trFastExp()(x); }

  double Noise(int octave, long first, const trVector& q, double w) const {
    if (s.fourDNoise) {
      trNoiseInst4 noise;
      noise.Init(true, static_cast<int>(s.seed + first + octave));
      return noise.Noise4(q, w);
    }
    trNoiseInst3 noise;
    noise.Init(true, static_cast<int>(s.seed + first + octave));
    return noise.Noise3(q);
  }

  static double Soft(double x, double r) {
    double t = std::fabs(x) / r * 0.75;
    if (t < 1) t = 0.5 * t * t + 0.5;
    return r * 4 / 3 * t;
  }
  static double LogAbs(double x, double r) {
    if (r <= 1e-12) return std::fabs(x);
    const double a = x / r, b = -x / r;
    return r * (a > b ? std::log(std::exp(b - a) + 1) + a : std::log(std::exp(a - b) + 1) + b);
  }

  double Kernel(long k, int octave, long first, const trVector& q, double w, double footprint) const {
    const double tiny = 9.999999974752427e-07;
    const double gully = std::max(s.gullySmoothing * 0.1875, tiny),
                 ridge = std::max(s.ridgeSmoothing * 0.1875, tiny);
    const long flavour = k % 100;
    if (flavour >= 5 && flavour <= 8) {
      const trVector p = q + trNoff3(static_cast<int>(s.seed + first + octave));
      if (flavour <= 6 && k % 1000 >= 100) {
        double v;
        trDEV_SmoothVoronoi3(v, &p.x, footprint, 1 / footprint);
        return (flavour == 5 ? 1 : -1) * (0.52 - LogAbs(v, 1.4 * footprint));
      }
      double value;
      trVector nearest, second;
      trVoronoi3(value, nearest, second, &p.x);
      if (flavour <= 6) return (flavour == 5 ? 1 : -1) * (0.52 - nearest.Length());
      return (flavour == 7 ? 1 : -1) * ((second.Length() - nearest.Length()) * 0.5 - 0.1);
    }
    const double n = Noise(octave, first, q, w);
    if (flavour < 1 || flavour > 4) return n;
    const bool billow =
        flavour == 1 || (flavour == 3 && octave % 2 == 1) || (flavour == 4 && octave % 2 == 0);
    double r = billow ? gully : ridge;
    if (k != 1 && k != 2) {
      const double wide = footprint + 8 * footprint * footprint;
      r = std::sqrt(static_cast<float>(r * r + wide * wide));
    }
    const double fold = k >= 1000 ? LogAbs(n, r) - 0.25 * r - 0.15 : Soft(n, r) - 0.15;
    return (billow ? 2 : -2) * fold;
  }

  void Loop(float maskRed) {
    const double fs = s.featureScale, rough = isColour ? s.colourRoughness : s.displacementRoughness;
    const double W = std::max({std::fabs(s.leadInScale), 2 * std::fabs(fs), 1.9999999949504854e-06});
    const trVector inv(Recip(s.noiseStretch.x), Recip(s.noiseStretch.y), Recip(s.noiseStretch.z));
    double freq = Recip(W), wl = W;
    trVector p = si.Pt() * inv * freq, q = p;
    double w = 0;
    if (s.fourDNoise)
      w = std::sqrt(std::min({std::fabs(inv.x), std::fabs(inv.y), std::fabs(inv.z)}) * freq) *
          (si.Frame() - s.referenceFrameNumber) * s.fourDNoiseSpeed;
    const bool warped = s.leadInWarpEffect != 0 && s.leadInWarpAmount != 0;
    if (warped) {
      trVector d;
      for (int axis = 0; axis < 3; ++axis) {
        trNoiseInst3 noise;
        noise.Init(true, static_cast<int>(s.seed + 65556 + 10 * axis));
        d[axis] = noise.Noise3(p) * s.leadInWarpAmount;
      }
      if (!s.allowVerticalWarp) d = d - Dot(d, si.Ng()) * si.Ng();
      q += d;
    }
    const bool folded = s.noiseFlavour >= 1 && s.noiseFlavour <= 4;
    if (folded) p *= 0.5;
    const double S = s.obeySmoothingFilter ? si.SmoothSize() : 0;
    const long k = s.noiseFlavour + (S > 1.9999999949504854e-06 ? 100 : 0) + (Exact() ? 1000 : 0);
    double filter = 0, cap = 1000;
    if (s.obeySmoothingFilter) {
      const double reach = s.noiseFlavour >= 5 ? 1 : isColour && folded ? 0.5 : 0.75;
      filter = S * (s.noiseFlavour >= 5 ? 0.5 : 0.4);
      cap = std::log(W * reach / S) / std::log(1.92);
    }
    const double L = std::min({29 - std::log2(q.Length()), 31.0, cap});
    const int n = static_cast<int>(std::min<double>(s.noiseOctaves - 1, std::ceil(L)));
    const double t = (1 - (n - L)) / 3;
    const double fade[3] = {Step(t), Step(t + 1.0 / 3), Step(t + 2.0 / 3)};

    // The octave's amplitudes, as the tables would hold them.
    double e0 = 1;
    if (s.variationMethod >= 1) {
      const auto high =
          static_cast<std::int64_t>(-0.5 * s.noiseVariation * 1512775.3951951822 + 1072632447.0);
      e0 = std::bit_cast<double>(high << 32);
    }
    double amp = (isColour ? s.colourContrast : s.displacementAmplitude) * e0;
    const double flat = amp, ampRatio = rough > 0 ? std::pow(1.92, -1 / rough) : 0;
    const double clump = std::sqrt(s.clumpingOfVariation + 1), nv = s.noiseVariation;
    const double buoyancy = s.variationMethod == 2 ? s.buoyancyFromVariation * 0.5 : 0;
    double variation = nv, vary = 0, anchor = 0, factor = 1;
    bool first = isColour;
    double y = si.DEV_CloudFeatureScalar() * fs * freq;
    // Beyond the range of doubles where the roughness is small.
    using Wide = long double;
    const Wide fall = s.colourRoughness > 0 ? std::pow(Wide(1.92), -1 / Wide(s.colourRoughness)) : 0;
    Wide tail = std::pow(Wide(y), Wide(-Recip(s.colourRoughness)));
    const trVector shift =
        isColour && s.distortByNormal ? (si.N() - si.Ng()) * s.distortionByNormal : trVector();
    const auto clampVary = [&](double v) { return std::min(std::max(v, -nv), nv); };

    for (int i = 0, remaining = n; i <= n; ++i, --remaining) {
      const double next = wl * 0.5208333333333334;
      double u = 1;
      if (isColour && s.dampLeadIn)
        u = std::max(std::min(y, 1.0) * 1.1 - 0.1, 0.0) * (1 - s.dampLeadInDryMix) + s.dampLeadInDryMix;
      if (u > 1e-12) {
        const double a = Kernel(k, i, 65536, q + shift, w, freq * filter);
        double c = 2 * a * variation;
        if (s.variationMethod == 0) c = std::min(c, 0.0);
        if (s.variationMethod == 2) c = Kernel(k, i, 65546, q + shift, w, freq * filter) * variation;
        double e, m = amp;
        if (isColour && s.variationMethod == -100) {
          e = factor;
        } else {
          if (clump != 1.0) {
            if (fs <= wl || first)
              anchor = vary = clampVary(vary);
            else
              vary = clampVary(anchor + (vary - anchor) * clump);
            first = false;
          }
          vary = vary * s.globalVarDamper + u * c;
          const double ratio = next / std::max(std::fabs(amp), 1e-12) * s.displacementSpikeLimit;
          const double limit = std::log(std::max(ratio, 9.999999974752427e-07));
          if (isColour || vary < limit) {
            e = E(vary);
          } else if (s.continueSpikeLimit) {
            vary = std::log(vary + 1 - limit) + limit;
            e = E(vary);
          } else {
            e = (vary - limit) * E(limit) + E(limit);
          }
        }
        if (isColour) {
          m = si.DEV_CloudFeatureScalar() < 1 ? static_cast<double>(std::min<Wide>(u, tail)) * flat : u * amp;
          m += si.DEV_FractalTailBoost();
        }
        double d = ((buoyancy + a) * e - buoyancy) * m;
        if (remaining < 3) d *= fade[remaining];
        sum += d;
        if (!isColour && s.adjustCoastline && s.displacementOffset + sum < s.coastlineAltitude) {
          const double below =
              (s.coastlineAltitude - (s.displacementOffset + sum)) / amp * s.coastlineSmoothing;
          vary -= below * below;
        }
        if (isColour && s.variationMethod == -100) {
          const double z = u * 0.7 / (m * si.DEV_FractalMultiplier());
          const double v = (s.colourOffset + sum + 0.5) * maskRed * si.DEV_FractalMultiplier();
          const double f = std::clamp(1 - ((si.DEV_FractalUpperThreshold() - v) * z + 0.5), 0.1, 2.0);
          factor = f * std::min(y, 1.0) + (1 - std::min(y, 1.0));
        }
      }
      wl = next;
      q *= 1.92, p *= 1.92;
      freq *= 1.92, y *= 1.92, tail *= fall;
      w *= std::sqrt(1.92);
      if (wl < fs) amp *= ampRatio, variation *= std::sqrt(Recip(clump));
      if (warped && s.lessWarpAtFeatureScale && wl < fs * 10) q += (p - q) * 0.1;
    }
  }
};

// --- Laws

/// Settings to combine with every flavour and method: the rest of the loop's branches.
const std::vector<std::vector<Setting>>& Variants() {
  static const std::vector<std::vector<Setting>> variants = {
      {},
      {{"obey_smoothing_filter", 0}, {"clumping_of_variation", 0.25}, {"global_var_damper", 0.9}},
      {{"better_displacement_continuity", 1},
       {"better_colour_continuity", 1},
       {"clumping_of_variation", 0.5}},
      {{"continue_spike_limit", 1}, {"displacement_amplitude", 300}, {"noise_variation", 2.5}},
      {{"displacement_amplitude", 50}, {"displacement_spike_limit", 0.2}, {"displacement_roughness", 0.8}},
      {{"adjust_coastline", 1},
       {"coastline_altitude", 0.3},
       {"coastline_smoothing", 2},
       {"displacement_offset", 0.2}},
      {{"lead-in_warp_effect", 1}, {"less_warp_at_feature_scale", 1}, {"noise_stretch_XYZ", 0}},
      {{"lead-in_warp_effect", 1}, {"lead-in_warp_amount", -0.3}, {"allow_vertical_warp", 1}},
      {{"four-d_noise", 1}, {"four-d_noise_speed", 3}, {"reference_frame_number", 7}},
      {{"damp_lead-in", 1}, {"damp_lead-in_dry_mix", 0}, {"clumping_of_variation", 0.25}},
      {{"distort_by_normal", 1},
       {"colour_roughness", 1.5},
       {"clamp_high_colour", 0},
       {"clamp_low_colour", 0}},
      {{"feature_scale", 100}, {"lead-in_scale", 900}, {"colour_roughness", 0.0011}},
      {{"feature_scale", 400}, {"lead-in_scale", 10}, {"noise_octaves", 7}, {"displacement_roughness", 0}},
      {{"noise_octaves", 0}},
      {{"displacement_amplitude", 0}, {"colour_contrast", 0}, {"displacement_offset", 12}},
  };
  return variants;
}

/// Calls `check` at points near and far, with and without footprints, shaded as by clouds and as by surfaces.
template <typename Check>
void ForEachSample(const Check& check) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(-1, 1);
  for (const double range : {30.0, 5e4, 6.4e6})
    for (const double footprint : {0.0, 1e-6, 0.003, 40.0, 9000.0}) {
      trShadingInterface si;
      si.SetSample(trVector(unit(random), unit(random), unit(random)) * range, {0, 1, 0});
      si.N() = Normalised(trVector(0.2, 1, unit(random)));
      si.SmoothSize() = footprint;
      si.SetFrame(31.5f);
      if (unit(random) > 0) {
        si.DEV_CloudFeatureScalar() = 0.4;
        si.DEV_FractalMultiplier() = 0.7;
        si.DEV_FractalTailBoost() = 0.01;
        si.DEV_FractalUpperThreshold() = 0.8;
      }
      check(si);
    }
}

class PowerFractal : public testing::Test {
 protected:
  void SetUp() override {
    Set(fractal, {{"seed", 4711}, {"ridge_smoothing", 0.1}, {"gully_smoothing", 0.2}});
  }
  void TearDown() override { SetNoiseSimdLevel(""); }
  double Value(trShadingInterface& si, bool colour) const {
    return colour ? EvaluateFractalColour(fractal.Settings(), fractal.Derived(), si, 0.8f)
                  : EvaluateFractalDisplacement(fractal.Settings(), fractal.Derived(), si);
  }
  PowerFractalShaderV3 fractal;
};

TEST_F(PowerFractal, EvaluatesItsFormulas) {
  for (const long flavour : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9})
    for (const long method : {0, 1, 2, -100})
      for (size_t variant = 0; variant < Variants().size(); ++variant) {
        PowerFractalShaderV3 node;
        Set(node, {{"seed", 4711}, {"ridge_smoothing", 0.1}, {"gully_smoothing", 0.2}});
        Set(node, {{"noise_flavour", flavour}, {"variation_method", method}});
        for (const auto& [name, value] : Variants()[variant]) {
          if (std::string(name) == "noise_stretch_XYZ")
            ASSERT_TRUE(node.SetParam(name, trVector(1, 4, 0.5), trWhoUser));
          else
            Set(node, {{name, value}});
        }
        ForEachSample([&](trShadingInterface& si) {
          for (const bool colour : {false, true}) {
            const double got = colour ? EvaluateFractalColour(node.Settings(), node.Derived(), si, 0.8f)
                                      : EvaluateFractalDisplacement(node.Settings(), node.Derived(), si);
            const double expected = PlainFractal(node.Settings(), si, colour).Evaluate(0.8f);
            ASSERT_NEAR(got, expected, 2e-7 * std::max(1.0, std::fabs(expected)))
                << "flavour " << flavour << " method " << method << " variant " << variant << " colour "
                << colour << " footprint " << si.SmoothSize() << " at " << si.Pt().x;
          }
        });
      }
}

TEST_F(PowerFractal, SameBitsOnEveryInstructionSet) {
  for (const auto& variant : Variants())
    for (const long flavour : {0, 2, 3, 5})
      for (const long method : {0, 1, 2, -100}) {
        for (const auto& [name, value] : variant)
          if (std::string(name) != "noise_stretch_XYZ") Set(fractal, {{name, value}});
        Set(fractal, {{"noise_flavour", flavour}, {"variation_method", method}});
        std::vector<double> expected;
        for (const std::string& level : NoiseSimdLevels()) {
          SetNoiseSimdLevel(level);
          std::vector<double> values;
          ForEachSample([&](trShadingInterface& si) {
            values.push_back(Value(si, false));
            values.push_back(Value(si, true));
          });
          if (expected.empty()) expected = values;
          ASSERT_EQ(values, expected) << level;
        }
      }
}

TEST_F(PowerFractal, OutOfRangeSettingsNeverGiveInfinityOrNaN) {
  const char* const names[] = {"feature_scale",
                               "lead-in_scale",
                               "smallest_scale",
                               "noise_octaves",
                               "colour_contrast",
                               "colour_offset",
                               "colour_roughness",
                               "displacement_amplitude",
                               "displacement_roughness",
                               "displacement_spike_limit",
                               "coastline_altitude",
                               "coastline_smoothing",
                               "noise_flavour",
                               "ridge_smoothing",
                               "noise_variation",
                               "buoyancy_from_variation",
                               "clumping_of_variation",
                               "distortion_by_normal",
                               "lead-in_warp_amount",
                               "four-d_noise_speed",
                               "global_var_damper",
                               "damp_lead-in_dry_mix",
                               "seed",
                               "reference_frame_number"};
  for (const char* name : names)
    for (const double value : {0.0, -1.0, -0.6, 1e-300, 1e18, -1e18, 1e100, -1e250}) {
      PowerFractalShaderV3 node;
      Set(node, {{"four-d_noise", 1},
                 {"lead-in_warp_effect", 1},
                 {"distort_by_normal", 1},
                 {"damp_lead-in", 1},
                 {"clamp_high_colour", 0},
                 {"clamp_low_colour", 0}});
      node.SetParam(name, value, trWhoUser);
      ForEachSample([&](trShadingInterface& si) {
        node.Displace(si);
        node.Shade(si);
        ASSERT_TRUE(std::isfinite(si.P().x + si.P().y + si.P().z)) << name << " = " << value;
        ASSERT_TRUE(std::isfinite(si.Cutil().g)) << name << " = " << value;
      });
    }
}

class CloudFlavour : public PowerFractalShaderV3Base {
 public:
  CloudFlavour() { DeclareParams(Form::kCloud); }
};

TEST_F(PowerFractal, OctavesAndSmallestScaleFollowEachOther) {
  // The defaults belong together: writing them again changes nothing.
  PowerFractalShaderV3 landscape;
  CloudFlavour cloud;
  for (auto [node, octaves, scale] :
       {std::tuple<PowerFractalShaderV3Base*, long, double>(&landscape, 19, 0.01), {&cloud, 13, 10.0}}) {
    Set(*node, {{"smallest_scale", scale}});
    EXPECT_EQ(node->Settings().noiseOctaves, octaves);
    Set(*node, {{"noise_octaves", octaves}});
    EXPECT_EQ(node->Settings().smallestScale, scale);
  }
  const FractalSettings& s = fractal.Settings();
  for (long octaves = 0; octaves <= 45; ++octaves) {
    Set(fractal, {{"noise_octaves", octaves}});
    const long clamped = std::min(octaves, 40L);
    EXPECT_EQ(s.noiseOctaves, clamped);
    EXPECT_NEAR(s.smallestScale * std::pow(1.92, clamped), 2 * 1000.0, 1e-6);
    // Values that were stored come back in the order of the file.
    const double scale = s.smallestScale;
    PowerFractalShaderV3 loaded;
    Set(loaded, {{"smallest_scale", scale}});
    if (clamped <= 32) {
      EXPECT_EQ(loaded.Settings().noiseOctaves, clamped) << "the two directions disagree";
    }
    Set(loaded, {{"noise_octaves", clamped}});
    EXPECT_EQ(loaded.Settings().smallestScale, scale);
    EXPECT_EQ(loaded.Settings().noiseOctaves, clamped);
  }
  Set(fractal, {{"noise_octaves", -3}});
  EXPECT_EQ(s.noiseOctaves, 0);
  Set(fractal, {{"smallest_scale", 1.0}, {"lead-in_scale", 1.0}, {"feature_scale", 1e5}});
  EXPECT_EQ(s.noiseOctaves, std::lround(std::log(4e5) / std::log(1.92)))
      << "twice the feature scale leads in";
}

TEST_F(PowerFractal, NewAndLoadedNodesDiffer) {
  const auto value = [](trBase& node, const char* name) {
    double v = -1;
    EXPECT_TRUE(node.GetParam(name, v)) << name;
    return v;
  };
  PowerFractalShaderV3 node;
  for (const char* name : {"ridge_smoothing", "gully_smoothing", "clumping_of_variation"})
    EXPECT_EQ(value(node, name), 0);
  node.OnFirstCreate();
  EXPECT_EQ(value(node, "ridge_smoothing"), 0.1);
  EXPECT_EQ(value(node, "gully_smoothing"), 0.1);
  EXPECT_EQ(value(node, "clumping_of_variation"), 0.25);
  EXPECT_EQ(value(node, "better_displacement_continuity"), 0);
  node.OnUserCreate();
  EXPECT_EQ(value(node, "better_displacement_continuity"), 1);
  CloudFlavour cloud;
  Set(cloud, {{"coverage_adjust", 0.2}});
  EXPECT_EQ(cloud.Settings().colourOffset, 0.2 - 0.5);
}

TEST_F(PowerFractal, OldSpellingsAndEnabling) {
  for (const char* suffix : {"contrast", "offset", "roughness"}) {
    ASSERT_TRUE(fractal.SetParamFromString((trString("color_") + suffix).c_str(), "0.375", trWhoUser));
    double v = 0;
    fractal.GetParam((trString("colour_") + suffix).c_str(), v);
    EXPECT_EQ(v, 0.375);
  }
  for (const char* prefix : {"apply_high_", "apply_low_", "clamp_high_", "clamp_low_"})
    for (const char* text : {"1", "0"}) {
      ASSERT_TRUE(fractal.SetParamFromString((trString(prefix) + "color").c_str(), text, trWhoUser));
      long v = -1;
      fractal.GetParam((trString(prefix) + "colour").c_str(), v);
      EXPECT_EQ(v, text[0] - '0');
    }
  ASSERT_TRUE(fractal.SetParamFromString("high_color", "0.1 0.2 0.3", trWhoUser));
  trManRgb colour;
  fractal.GetParam("high_colour", colour);
  EXPECT_TRUE(colour == trManRgb(0.1f, 0.2f, 0.3f));

  const auto enabled = [&](const char* name) {
    long index = -1;
    fractal.FindParam(index, name);
    return fractal.IsParamGuiEnabled(index);
  };
  const bool ridges[] = {false, false, true, true, true, false, false};
  const bool gullies[] = {false, true, false, true, true, false, false};
  for (int flavour = 0; flavour < 7; ++flavour) {
    Set(fractal, {{"noise_flavour", flavour}, {"variation_method", flavour % 3}});
    EXPECT_EQ(enabled("ridge_smoothing"), ridges[flavour]) << flavour;
    EXPECT_EQ(enabled("gully_smoothing"), gullies[flavour]) << flavour;
    EXPECT_EQ(enabled("buoyancy_from_variation"), flavour % 3 == 2) << flavour;
  }
}

TEST_F(PowerFractal, DisplacesAlongItsDirection) {
  const trVector up(0, 1, 0), n = Normalised(trVector(0.6, 1, 0.1));
  const double c = Dot(up, n);
  const trVector lateral = n - up * c;
  const trVector expected[] = {up, n, up * c, lateral, Normalised(lateral), n};
  for (int direction = 0; direction < 6; ++direction) {
    Set(fractal, {{"displacement_direction", direction}});
    trShadingInterface si;
    si.SetSample({3, 4, 5}, up);
    si.N() = n;
    const double height = Value(si, false);
    ASSERT_NE(height, 0.0);
    EXPECT_EQ(fractal.Displace(si), 1);
    EXPECT_LT((si.P() - (trVector(3, 4, 5) + expected[direction] * height)).Length(), 1e-12) << direction;
    EXPECT_TRUE(si.Pt() == trVector(3, 4, 5));
  }
  for (const char* off : {"apply_displacement", "enable"}) {
    Set(fractal, {{off, 0}});
    trShadingInterface si;
    si.SetSample({3, 4, 5}, up);
    EXPECT_EQ(fractal.Displace(si), 1);
    EXPECT_TRUE(si.P() == trVector(3, 4, 5)) << off;
    Set(fractal, {{off, 1}});
  }
}

TEST_F(PowerFractal, ShadesAndFailsOnlyForAMaskThatLeadsNowhere) {
  fractal.SetParam("high_colour", trManRgb(0.9f, 0.5f, 0.1f), trWhoUser);
  fractal.SetParam("low_colour", trManRgb(0.0f, 0.2f, 0.4f), trWhoUser);
  for (const int high : {0, 1})
    for (const int low : {0, 1}) {
      Set(fractal, {{"apply_high_colour", high}, {"apply_low_colour", low}});
      EXPECT_EQ(fractal.HasShade() != 0, high || low);
      trShadingInterface si;
      si.SetSample({30, 4, 5}, {0, 1, 0});
      si.Cutil() = trFCol(0.25f);
      si.SetShadingToLambert(trFCol(0.5f));
      si.DEV_FractalMultiplier() = 0.5;
      const auto t = static_cast<float>(Value(si, true));
      EXPECT_EQ(fractal.Shade(si), 1);
      const float weight = high * t + low * (1 - t);
      const float green = 0.5f * (high * t * 0.5f + low * (1 - t) * 0.2f);
      EXPECT_NEAR(si.Cutil().g, 0.25f * (1 - weight) + green, 1e-6f);
      EXPECT_NEAR(si.Bsdf().ColourOf(trLobe::kDiffuseReflection).g, 0.5f * (1 - weight) + green, 1e-6f);
    }
  Set(fractal, {{"blend_by_shader", 1}});
  trShadingInterface si;
  si.SetSample({30, 4, 5}, {0, 1, 0});
  EXPECT_EQ(fractal.Displace(si), 0);
  EXPECT_EQ(fractal.Shade(si), 0);
  EXPECT_TRUE(si.P() == trVector(30, 4, 5));
}

}  // namespace
