// Rates of the planet atmosphere on one thread, with one sun and no shadow rays: samples planned, sorted,
// evaluated and composited a second. The yardstick row is a textbook loop over the same rays: two
// exponentials of the library a sample.
#include <benchmark/benchmark.h>

#include <cmath>

#include "atmosphere/planet_atmosphere.h"
#include "tests/fake_sky.h"

namespace {

constexpr double kRadius = 6378000;

struct Case {
  const char* name;
  trVector direction;
  bool wantsColour;
};
const Case kCases[] = {{"horizontal", {1, 0, 0}, true},
                       {"upwards_30_degrees", {0.866, 0.5, 0}, true},
                       {"zenith", {0, 1, 0}, true},
                       {"horizontal_transmission", {1, 0, 0}, false}};

const trVector kEye(0, kRadius + 1000, 0);

void Samples(benchmark::State& bench, const Case& c) {
  PlanetAtmosphere atmosphere;
  atmosphere.OnFirstCreate();
  FakeRender render;
  render.sun.keepsRay = false;
  trAtomicIntegrator integrator;
  const std::vector<trAtmosShader*> volumes = {&atmosphere};
  const trVector direction = Normalised(c.direction);
  std::int64_t samples = 0;
  unsigned seed = 0;
  for (auto _ : bench) {
    render.Aim(kEye, kEye + direction * 1e6, 1, c.wantsColour, ++seed);
    benchmark::DoNotOptimize(integrator.Integrate(render.state, volumes));
    samples += integrator.NumSamples();
  }
  integrator.FreeRayData();
  bench.counters["samples/s"] = benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kIsRate);
  bench.counters["samples/ray"] =
      benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kAvgIterations);
}

void Yardstick(benchmark::State& bench) {
  const trVector direction = Normalised({0.866, 0.5, 0});
  std::int64_t samples = 0;
  for (auto _ : bench) {
    double transmittance[3] = {1, 1, 1}, light[3] = {};
    for (int k = 0; k < 16; ++k, ++samples) {
      const double height = (kEye + direction * (k + 0.5) * 7000.0).Length() - kRadius;
      const double density = 2.5e-5 * std::exp(-height / 8000.0) + 1e-5 * std::exp(-height / 1200.0);
      const double tint[3] = {0.2158, 0.4535, 1.0};
      for (int channel = 0; channel < 3; ++channel) {
        const double through = std::exp(-density * tint[channel] * 7000.0);
        light[channel] += transmittance[channel] * (1 - through);
        transmittance[channel] *= through;
      }
    }
    benchmark::DoNotOptimize(light);
  }
  bench.counters["samples/s"] = benchmark::Counter(static_cast<double>(samples), benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
  for (const Case& c : kCases)
    benchmark::RegisterBenchmark(c.name, [&c](benchmark::State& bench) { Samples(bench, c); });
  benchmark::RegisterBenchmark("yardstick", Yardstick);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
