// Laws of the host's noises: the same bits on every instruction set, scale, smoothness, no grid, exact
// Voronoi.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <vector>

#include "core/noise.h"
#include "core/noise_pair.h"
#include "core/voronoi_batch.h"
#include "host/noise/lattice.h"
#include "host/noise/simd_level.h"

namespace {

constexpr double kEarthRadius = 6.4e6;

struct RandomPoints {
  std::mt19937_64 random{42};
  double Unit() { return std::uniform_real_distribution<double>(-1.0, 1.0)(random); }
  trVector Next(double range, const trVector& centre = {}) {
    const double x = Unit(), y = Unit(), z = Unit();
    return centre + trVector(x, y, z) * range;
  }
};

double Noise3(const trVector& p, int seed) {
  trNoiseInst3 noise;
  noise.Init(true, seed);
  return noise.Noise3(p);
}
double Noise4(const trVector& p, double w, int seed) {
  trNoiseInst4 noise;
  noise.Init(true, seed);
  return noise.Noise4(p, w);
}

struct Batch {
  std::vector<double> x, y, z, w;
  void Add(const trVector& p, double time) {
    x.push_back(p.x), y.push_back(p.y), z.push_back(p.z), w.push_back(time);
  }
  trNoiseBatch Of(std::uint32_t seed, std::uint32_t step, size_t count) const {
    return {x.data(), y.data(), z.data(), w.data(), seed, step, static_cast<int>(count)};
  }
};

Batch DifficultPoints() {
  Batch batch;
  RandomPoints points;
  for (const double range : {0.01, 1.0, 1000.0, kEarthRadius, 0x1p31, 0x1p40})
    for (int i = 0; i < 40; ++i) batch.Add(points.Next(range), points.Unit() * range);
  const double special[] = {0.0,
                            -0.0,
                            1.0,
                            -1.0,
                            0x1p31,
                            -0x1p51,
                            1e300,
                            std::numeric_limits<double>::infinity(),
                            std::numeric_limits<double>::quiet_NaN()};
  for (const double a : special)
    for (const double b : special) batch.Add({a, b, 0.25}, a);
  return batch;
}

class SimdLevels : public testing::Test {
 protected:
  void TearDown() override { SetNoiseSimdLevel(""); }
};

TEST_F(SimdLevels, SameBitsEverywhereAndAlwaysFinite) {
  const Batch points = DifficultPoints();
  const size_t count = points.x.size();
  std::vector<double> expected[2], out(count);
  for (size_t i = 0; i < count; ++i) {
    const trVector p(points.x[i], points.y[i], points.z[i]);
    const int seed = static_cast<int>(77 + i);
    expected[0].push_back(Noise3(p, seed));
    expected[1].push_back(Noise4(p, points.w[i], seed));
    ASSERT_TRUE(std::isfinite(expected[0].back()) && std::isfinite(expected[1].back())) << i;
  }
  ASSERT_FALSE(SetNoiseSimdLevel("none such"));
  for (const std::string& level : NoiseSimdLevels()) {
    ASSERT_TRUE(SetNoiseSimdLevel(level));
    // Whole vectors, every remainder, and single lookups.
    for (const size_t n : {count, size_t{1}, size_t{2}, size_t{7}, size_t{13}, size_t{16}}) {
      std::fill(out.begin(), out.end(), -9.0);
      trNoise3Batch(points.Of(77, 1, n), out.data());
      EXPECT_TRUE(std::equal(out.begin(), out.begin() + n, expected[0].begin())) << level << " 3D of " << n;
      trNoise4Batch(points.Of(77, 1, n), out.data());
      EXPECT_TRUE(std::equal(out.begin(), out.begin() + n, expected[1].begin())) << level << " 4D of " << n;
      EXPECT_TRUE(n == count || out[n] == -9.0) << "wrote past the batch";
    }
    trNoise3Batch(points.Of(77, 0, count), out.data());
    EXPECT_EQ(out[5], Noise3({points.x[5], points.y[5], points.z[5]}, 77)) << level;
  }
}

TEST_F(SimdLevels, PairsAreTheSingleLookups) {
  const Batch points = DifficultPoints();
  const double widths[][2] = {{0, 0},     {1e-7, 0.3}, {0.05, 1e-3}, {0.6, 0.6},
                              {1.3, 0.9}, {1.99, 1.7}, {-0.4, 0.2},  {2.5, 0.1}};
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    for (size_t i = 0; i + 1 < points.x.size(); ++i) {
      const double a[3] = {points.x[i], points.y[i], points.z[i]},
                   b[3] = {points.y[i + 1], points.z[i + 1], points.x[i + 1]};
      double out[2];
      trLerpNoise3Pair(a, b, nullptr, out);
      ASSERT_TRUE(out[0] == trLerpNoise3(a) && out[1] == trLerpNoise3(b)) << level << " at " << i;
      for (const auto& width : widths) {
        trLerpNoise3Pair(a, b, width, out);
        ASSERT_EQ(out[0], trLerpNoise3_SmoothXY(a, width)) << level << " at " << i << ", " << width[0];
        ASSERT_EQ(out[1], trLerpNoise3_SmoothXY(b, width)) << level << " at " << i << ", " << width[0];
      }
    }
  }
}

TEST_F(SimdLevels, SameVoronoiEverywhere) {
  const Batch points = DifficultPoints();
  std::vector<double> expected;
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    std::vector<double> values;
    for (size_t i = 0; i < points.x.size(); ++i) {
      const double p[3] = {points.x[i], points.y[i], points.z[i]};
      trVector nearest, second;
      double value, smooth;
      trVoronoi3(value, nearest, second, p);
      trDEV_SmoothVoronoi3(smooth, p, 0.3, 1.0 / 0.3);
      for (const double v : {value, nearest.x, nearest.z, second.y, second.z, smooth}) {
        ASSERT_TRUE(std::isfinite(v));
        values.push_back(v);
      }
    }
    if (expected.empty()) expected = values;
    EXPECT_EQ(values, expected) << level;
  }
}

TEST(Noise, ScaleIsThatOfClassicGradientNoise) {
  const std::pair<const char*, std::function<double(const trVector&)>> noises[] = {
      {"3D", [](const trVector& p) { return Noise3(p, 5); }},
      {"4D", [](const trVector& p) { return Noise4(p, p.x * 0.37 + 3.0, 5); }},
      {"fixed", [](const trVector& p) { return trNoise3(p); }},
      {"lattice", [](const trVector& p) { return trLerpNoise3(&p.x); }}};
  for (const trVector& centre : {trVector(), trVector(0, kEarthRadius, 0)})
    for (const auto& [name, noise] : noises) {
      RandomPoints points;
      constexpr int kCount = 100000;
      double sum = 0, magnitude = 0, extreme = 0;
      for (int i = 0; i < kCount; ++i) {
        const double n = noise(points.Next(500.0, centre));
        sum += n;
        magnitude += std::fabs(n);
        extreme = std::max(extreme, std::fabs(n));
      }
      EXPECT_NEAR(sum / kCount, 0.0, 0.005) << name;
      EXPECT_GT(magnitude / kCount, 0.15) << name;
      EXPECT_LT(magnitude / kCount, 0.25) << name;
      EXPECT_GT(extreme, 0.75) << name;
      EXPECT_LT(extreme, 1.2) << name;
    }
}

/// Largest change of the `order`th derivative within a step of `h` along lines; small only where it is
/// continuous.
double LargestJump(const std::function<double(const trVector&)>& f, int order, double h,
                   const trVector& start) {
  const trVector step = trVector(0.9, 0.35, 0.26) * h;
  std::vector<double> values;
  for (int i = 0; i < 20000; ++i) values.push_back(f(start + step * i));
  for (int k = 0; k <= order; ++k) {
    for (size_t i = 0; i + 1 < values.size(); ++i) values[i] = values[i + 1] - values[i];
    values.pop_back();
  }
  double jump = 0;
  for (const double v : values) jump = std::max(jump, std::fabs(v));
  return jump / std::pow(h, order);
}

TEST(Noise, Smoothness) {
  struct Row {
    const char* name;
    int order;
    std::function<double(const trVector&)> f;
  };
  const double filter[2] = {0.6, 0.3};
  const Row rows[] = {
      {"gradient 3D", 2, [](const trVector& p) { return Noise3(p, 9); }},
      {"gradient 4D", 2, [](const trVector& p) { return Noise4(p, p.y * 2.0, 9); }},
      {"lattice", 2, [](const trVector& p) { return trLerpNoise3(&p.x); }},
      {"filtered lattice", 2, [&](const trVector& p) { return trLerpNoise3_SmoothXY(&p.x, filter); }},
      {"sharp", 1, [](const trVector& p) { return trOldSharpNoise3(p); }},
      {"smooth Voronoi", 1, [](const trVector& p) {
         double v;
         trDEV_SmoothVoronoi3(v, &p.x, 0.4, 2.5);
         return v;
       }}};
  for (const Row& row : rows) {
    const double coarse = LargestJump(row.f, row.order, 2e-3, {-3.1, 0.2, 7.7});
    const double fine = LargestJump(row.f, row.order, 5e-4, {-3.1, 0.2, 7.7});
    EXPECT_LT(fine, 0.4 * coarse) << row.name << ": the jump doesn't go away with the step";
  }
}

TEST(Noise, NoDirectionAndNoPlaneIsSpecial) {
  RandomPoints points;
  std::vector<double> difference;
  for (const trVector& axis : {trVector(1, 0, 0), trVector(0, 1, 0), trVector(0, 0, 1), trVector(1, 1, 0),
                               trVector(1, 0, -1), trVector(1, 1, 1), trVector(-1, 2, 3)}) {
    double sum = 0;
    for (int i = 0; i < 40000; ++i) {
      const trVector p = points.Next(300.0);
      const double change = Noise3(p + Normalised(axis) * 0.35, 3) - Noise3(p, 3);
      sum += change * change;
    }
    difference.push_back(sum);
  }
  const auto [low, high] = std::minmax_element(difference.begin(), difference.end());
  EXPECT_LT(*high / *low, 1.12);
  // On the planes and at the corners of the world's own integer grid the noise is as strong as anywhere.
  double everywhere = 0, plane = 0, corners = 0, atOrigin = 0;
  for (int i = 0; i < 40000; ++i) {
    const trVector p = points.Next(300.0);
    everywhere += std::pow(Noise3(p, 3), 2);
    plane += std::pow(Noise3({p.x, std::floor(p.y), p.z}, 3), 2);
    corners += std::pow(Noise3({std::floor(p.x), std::floor(p.y), std::floor(p.z)}, 3), 2);
    atOrigin += std::pow(Noise3({}, i), 2);
  }
  for (const double part : {plane, corners, atOrigin}) EXPECT_NEAR(part / everywhere, 1.0, 0.06);
}

TEST(Noise, SeedsAndDistantCellsAreUnrelated) {
  const auto correlation = [](const std::function<double(const trVector&)>& a,
                              const std::function<double(const trVector&)>& b) {
    RandomPoints points;
    double ab = 0, aa = 0, bb = 0;
    for (int i = 0; i < 4000; ++i) {
      const trVector p = points.Next(1e4);
      const double x = a(p), y = b(p);
      ab += x * y, aa += x * x, bb += y * y;
    }
    return ab / std::sqrt(aa * bb);
  };
  const auto base = [](const trVector& p) { return Noise3(p, 65536); };
  for (const int seed : {65537, 65546, 65537 + 65536, -65536, 0})
    EXPECT_NEAR(correlation(base, [=](const trVector& p) { return Noise3(p, seed); }), 0.0, 0.08) << seed;
  // Along the lattice's own axes, where a table or a short hash would repeat.
  for (int bits = 4; bits <= 31; ++bits)
    for (const auto& row : ovnoise::kRotation3) {
      const trVector shift = trVector(row[0], row[1], row[2]) * std::ldexp(1.0, bits);
      EXPECT_NEAR(correlation(base, [=](const trVector& p) { return Noise3(p + shift, 65536); }), 0.0, 0.08)
          << bits;
    }
  EXPECT_FALSE(trNoff3(1) == trNoff3(2));
  for (int seed = -50; seed < 50; ++seed)
    for (int axis = 0; axis < 3; ++axis) EXPECT_LE(std::fabs(trNoff3(seed)[axis]), 1000.0);
}

struct Cellular {
  explicit Cellular(const trVector& p) { trVoronoi3(value, toNearest, toSecond, &p.x); }
  double value;
  trVector toNearest, toSecond;
};

TEST_F(SimdLevels, VoronoiBatchesAreTheSingleForms) {
  Batch points = DifficultPoints();
  const auto count = points.x.size();
  for (std::vector<double>* axis : {&points.x, &points.y, &points.z}) axis->resize((count + 7) / 8 * 8);
  std::vector<double> nearest(points.x.size()), second = nearest, alone = nearest, smooth = nearest, size;
  for (size_t i = 0; i < points.x.size(); ++i)
    size.push_back(i % 5 == 0 ? 1e-12 : 0.01 * static_cast<double>(i % 300));
  const trVoronoiBatch batch = {points.x.data(), points.y.data(), points.z.data(), static_cast<int>(count)};
  for (const std::string& level : NoiseSimdLevels()) {
    SetNoiseSimdLevel(level);
    trVoronoi3Batch(batch, nearest.data(), second.data());
    trVoronoi3Batch(batch, alone.data(), nullptr);
    trDEV_SmoothVoronoi3Batch(batch, size.data(), smooth.data());
    for (size_t i = 0; i < count; ++i) {
      const trVector p(points.x[i], points.y[i], points.z[i]);
      const Cellular single(p);
      ASSERT_EQ(nearest[i], single.toNearest.Length()) << level << " at " << i;
      ASSERT_EQ(second[i], single.toSecond.Length()) << level << " at " << i;
      ASSERT_EQ(alone[i], nearest[i]) << level << " at " << i;
      double v;
      trDEV_SmoothVoronoi3(v, &p.x, size[i], 1.0 / size[i]);
      ASSERT_EQ(smooth[i], v) << level << " at " << i;
    }
  }
}

TEST(Voronoi, FindsTheNearestTwoOfAllFeatures) {
  for (const trVector& centre : {trVector(), trVector(-kEarthRadius, 3, 0.25 * kEarthRadius)}) {
    const double tolerance = centre.Length() * 1e-15 + 1e-14;
    RandomPoints points;
    double f1 = 0, gap = 0;
    constexpr int kCount = 60000;
    for (int i = 0; i < kCount; ++i) {
      const trVector p = points.Next(40.0, centre);
      const Cellular here(p);
      const double d1 = here.toNearest.Length(), d2 = here.toSecond.Length();
      ASSERT_LE(d1, d2);
      ASSERT_LE(std::fabs(here.value), 0.5);
      f1 += d1, gap += d2 - d1;
      // Whatever feature a neighbour finds is our nearest, or no nearer than our second. Far seconds are the
      // hard case.
      for (int k = 0; k < (d2 > 1.0 ? 200 : i % 20 == 0 ? 20 : 0); ++k) {
        const trVector other = points.Next(2.5, p);
        const Cellular there(other);
        for (const trVector& feature : {other - there.toNearest, other - there.toSecond}) {
          const double d = (p - feature).Length();
          const bool isNearest = (feature - (p - here.toNearest)).Length() < 1e-6;
          ASSERT_GE(d, (isNearest ? d1 : d2) - tolerance);
        }
      }
    }
    // What the constants of the cellular flavours count on.
    EXPECT_NEAR(f1 / kCount, 0.52, 0.02);
    EXPECT_NEAR(gap / kCount, 0.2, 0.02);
  }
}

TEST(Voronoi, SmoothFormTendsToTheNearestDistance) {
  RandomPoints points;
  for (int i = 0; i < 2000; ++i) {
    const trVector p = points.Next(100.0);
    const double f1 = std::min(Cellular(p).toNearest.Length(), 1.0);
    const double zero = 0.0;
    for (const double size : {1e-300, 1e-6, 0.05, 0.5, 8.0}) {
      double v;
      trDEV_SmoothVoronoi3(v, &p.x, size, 1.0 / size);
      EXPECT_GE(v, f1 - 1e-12);
      EXPECT_LE(v, 1.0);
      EXPECT_TRUE(size > 1e-5 || std::fabs(v - f1) < 1e-5) << size;
    }
    double v;
    trDEV_SmoothVoronoi3(v, &p.x, zero, 1.0 / zero);
    EXPECT_NEAR(v, f1, 1e-8);
  }
}

TEST(LatticeNoise, FilteredFormIsTheBoxAverage) {
  RandomPoints points;
  constexpr int kGrid = 40;
  for (const double width : {1e-7, 0.1, 0.5, 1.0}) {
    for (int n = 0; n < 10; ++n) {
      const trVector p = points.Next(20.0);
      double sum = 0;
      for (int j = 0; j < kGrid; ++j)
        for (int i = 0; i < kGrid; ++i) {
          const trVector q =
              p + trVector((i + 0.5) / kGrid - 0.5, ((j + 0.5) / kGrid - 0.5) * 0.5, 0) * width;
          sum += trLerpNoise3(&q.x);
        }
      const double filter[2] = {width, 0.5 * width};
      EXPECT_NEAR(trLerpNoise3_SmoothXY(&p.x, filter), sum / (kGrid * kGrid), 2e-4) << width;
      const double wide[2] = {width, 2.0};
      EXPECT_EQ(trLerpNoise3_SmoothXY(&p.x, wide), 0.0);
    }
  }
}

TEST(CellNoise, IsConstantInACell) {
  RandomPoints points;
  double sum = 0;
  for (int i = 0; i < 5000; ++i) {
    const trVector p = points.Next(1000.0);
    const int cell[3] = {static_cast<int>(std::floor(p.x)), static_cast<int>(std::floor(p.y)),
                         static_cast<int>(std::floor(p.z))};
    EXPECT_EQ(trCellNoise3(p), trCellNoise3(cell));
    EXPECT_LE(std::fabs(trCellNoise3(cell)), 1.0);
    EXPECT_LE(std::fabs(trOldSharpNoise3(p)), 1.0);
    sum += trCellNoise3(cell);
  }
  EXPECT_NEAR(sum / 5000, 0.0, 0.05);
}

TEST(FastExp, StaysWithinItsErrorAndRange) {
  const trFastExp fastExp;
  for (double x = -700.0; x < 700.0; x += 0.00713) ASSERT_NEAR(fastExp(x) / std::exp(x), 1.0, 1e-8) << x;
  EXPECT_EQ(fastExp(0.0), 1.0);
  EXPECT_EQ(fastExp(-1e300), 0.0);
  for (const double x : {710.0, 1e300, std::numeric_limits<double>::infinity()})
    EXPECT_TRUE(std::isfinite(fastExp(x)));
}

}  // namespace
