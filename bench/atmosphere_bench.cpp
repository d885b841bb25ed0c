// Rates of the planet atmosphere on one thread, with one sun and no shadow rays: samples planned, sorted,
// evaluated and composited a second. The yardstick row is a textbook loop over the same rays: two
// exponentials of the library a sample. Then what engines ask of the air a point at a time: a sun's light
// through a volume, from its table and by the march that volumes without symmetry do, and the sky of bounces,
// plain and under a modulator that is all black.
#include <benchmark/benchmark.h>

#include <cmath>

#include "atmosphere/planet_atmosphere.h"
#include "host/base/parallel.h"
#include "host/node/node_data.h"
#include "host/render/air/frame_air.h"
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

/// A planet's air with its tables, under a black modulator where wanted.
struct TabulatedAir {
  explicit TabulatedAir(bool isModulated) {
    atmosphere.OnFirstCreate();
    ovhost::AttachChild(&atmosphere, &black, "black");
    if (isModulated) atmosphere.SetParam("shadow_function", "black", trWhoUser);
    render.sun.keepsRay = false;
    render.sun.direction = Normalised({0.8, 0.3, 0.2});
    air.SetVolumes({&atmosphere});
    const auto noGround = [](const trVector&, const trVector&, double&) { return trFCol(); };
    ovhost::WithThreads(1, [&] { air.BuildTables(render, kEye, true, noGround, {kEye}); });
  }
  PlanetAtmosphere atmosphere;
  trSurfaceShader black;
  FakeRender render;
  ovhost::FrameAir air;
};

enum class Question { kTable, kMarch, kSky };

void Ask(benchmark::State& bench, Question question, bool isModulated) {
  TabulatedAir tabulated(isModulated);
  FakeRender& render = tabulated.render;
  unsigned seed = 0;
  for (auto _ : bench) {
    const double x = (++seed % 1024) * 10.0;
    const trVector point = kEye + trVector(x, 0, 0.5 * x);
    render.Aim(point, point, 1, true, seed);
    if (question == Question::kTable)
      benchmark::DoNotOptimize(tabulated.air.Towards(render.state, render.sun, point, {}));
    if (question == Question::kMarch)
      benchmark::DoNotOptimize(
          tabulated.atmosphere.TransmittanceTowards(render.state, render.sun, point, {}));
    trFCol sky;
    if (question == Question::kSky &&
        !tabulated.air.OpenSky(render.state, point, Normalised({std::sin(0.1 * seed), 0.6, 0.5}),
                               ovhost::FrameAir::Sight::kBounce, sky))
      bench.SkipWithError("no table");
    benchmark::DoNotOptimize(sky);
  }
  bench.counters["queries/s"] =
      benchmark::Counter(static_cast<double>(bench.iterations()), benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
  for (const Case& c : kCases)
    benchmark::RegisterBenchmark(c.name, [&c](benchmark::State& bench) { Samples(bench, c); });
  benchmark::RegisterBenchmark("yardstick", Yardstick);
  const struct {
    const char* name;
    Question question;
    bool isModulated;
  } questions[] = {{"shadow_from_table", Question::kTable, false},
                   {"shadow_from_table_modulated", Question::kTable, true},
                   {"shadow_marched_modulated", Question::kMarch, true},
                   {"bounce_sky", Question::kSky, false},
                   {"bounce_sky_modulated", Question::kSky, true}};
  for (const auto& q : questions)
    benchmark::RegisterBenchmark(q.name,
                                 [q](benchmark::State& bench) { Ask(bench, q.question, q.isModulated); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
