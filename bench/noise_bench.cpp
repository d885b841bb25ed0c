// Rates of the host's noises, lookups a second on one thread. Gradient noise runs on every instruction set of
// the machine; the scalar rows are the yardstick that doesn't drift with the vectors.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "core/noise.h"
#include "host/noise/simd_level.h"

namespace {

constexpr int kPoints = 4096;

struct Points {
  std::vector<double> x, y, z, w;
  Points() {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> range(-5000.0, 5000.0);
    for (std::vector<double>* axis : {&x, &y, &z, &w})
      for (int i = 0; i < kPoints; ++i) axis->push_back(range(random));
  }
};

const Points& SomePoints() {
  static const Points points;
  return points;
}

/// `count` lookups a call; a seed step of 1 is the octaves of one point.
void Gradient(benchmark::State& state, const std::string& level, int dimensions, std::uint32_t seedStep,
              int count) {
  SetNoiseSimdLevel(level);
  const Points& p = SomePoints();
  std::vector<double> out(kPoints);
  const trNoiseBatch batch = {p.x.data(), p.y.data(), p.z.data(), p.w.data(), 7, seedStep, count};
  for (auto _ : state) {
    if (dimensions == 3)
      trNoise3Batch(batch, out.data());
    else
      trNoise4Batch(batch, out.data());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * count);
  SetNoiseSimdLevel("");
}

template <typename Lookup>
void Single(benchmark::State& state, Lookup lookup) {
  const Points& p = SomePoints();
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(lookup(trVector(p.x[i], p.y[i], p.z[i])));
    i = (i + 1) % kPoints;
  }
  state.SetItemsProcessed(state.iterations());
}

double Voronoi(const trVector& p) {
  double value;
  trVector nearest, second;
  trVoronoi3(value, nearest, second, &p.x);
  return nearest.x + second.x;
}
double SmoothVoronoi(const trVector& p) {
  double distance;
  trDEV_SmoothVoronoi3(distance, &p.x, 0.1, 10.0);
  return distance;
}
double SmoothLerp(const trVector& p) {
  const double filter[2] = {0.5, 0.5};
  return trLerpNoise3_SmoothXY(&p.x, filter);
}

}  // namespace

int main(int argc, char** argv) {
  for (const std::string& level : NoiseSimdLevels()) {
    for (const int dimensions : {3, 4}) {
      const std::string name = "noise" + std::to_string(dimensions);
      const auto add = [&](const char* what, std::uint32_t seedStep, int count) {
        benchmark::RegisterBenchmark((name + "/" + what + "/" + level).c_str(), [=](benchmark::State& s) {
          Gradient(s, level, dimensions, seedStep, count);
        });
      };
      add("array", 0, kPoints);
      add("16_octaves", 1, 16);
      add("single", 0, 1);
    }
  }
  const auto single = [](const char* name, double (*lookup)(const trVector&)) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& s) { Single(s, lookup); });
  };
  single("voronoi3", Voronoi);
  single("smooth_voronoi3", SmoothVoronoi);
  single("lerp_noise3", [](const trVector& p) { return trLerpNoise3(&p.x); });
  single("lerp_noise3_smooth_xy", SmoothLerp);
  single("old_sharp_noise3", [](const trVector& p) { return trOldSharpNoise3(p); });
  single("fast_exp", [](const trVector& p) { return trFastExp()(p.x * 0.01); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
