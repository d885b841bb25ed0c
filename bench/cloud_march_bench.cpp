// Rates of a cloud layer on one thread, over a fractal of 13 octaves: densities that a march asks of the
// shaders a second, the fractal alone beside them, cells baked into voxels, and lookups of cells that are
// baked.
#include <benchmark/benchmark.h>

#include "atmosphere/cloud_layer_v3.h"
#include "core/project.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "tests/fake_sky.h"

namespace {

/// A layer from 1000 to 3000 m, local to 10 km.
struct CloudScene {
  CloudScene() : cloud(*new CloudLayerV3) {
    if (!ovhost::FindClass("power_fractal_shader_v3")) ovhost::LoadPlugins();
    ovhost::AttachChild(&project, &cloud, "Cloud");
    cloud.OnCreate();
    fractal = dynamic_cast<trShader*>(project.CreateChild("power_fractal_shader_v3"));
    fractal->SetName("Density");
    const struct {
      const char* name;
      trParamValue value;
    } settings[] = {{"seed", 7},
                    {"feature_scale", 500.0},
                    {"lead-in_scale", 20000.0},
                    {"smallest_scale", 10.0},
                    {"noise_octaves", 13},
                    {"obey_smoothing_filter", 0},
                    {"apply_displacement", 0},
                    {"low_colour", trManRgb(-1, -1, -1)},
                    {"apply_low_colour", 1},
                    {"apply_high_colour", 1}};
    for (const auto& setting : settings) fractal->SetParam(setting.name, setting.value, trWhoSystem);
    Set("density_shader", "Density");
    Set("cloud_altitude", 2000.0);
    Set("cloud_depth", 2000.0);
    Set("cloud_density", 0.0001);
    Set("local_sphere_radius", 10000.0);
    Set("number_of_samples", 100);
    Set("enviro_light", 0.0);
    render.sun.keepsRay = false;
    Set("use_voxels_for_shadows", 0);
    Prepare();
  }
  void Set(const char* name, const trParamValue& value) { cloud.SetParam(name, value, trWhoSystem); }
  void Prepare() {
    trRenderingInterface rendering(render.state, 1, nullptr, trRenderContext::kFinal);
    cloud.PrepareAtmosphere(rendering);
  }

  juProject project;
  CloudLayerV3& cloud;
  trShader* fractal;
  FakeRender render;
};

void Rate(benchmark::State& bench, const char* name, std::int64_t count) {
  bench.counters[name] = benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsRate);
}

/// Rays towards a light, without voxels: every step asks the shaders.
void MarchedDensities(benchmark::State& bench) {
  CloudScene scene;
  scene.Set("number_of_samples", 1000);
  scene.Prepare();
  scene.render.sun.direction = Normalised({0.1, 1, 0.05});
  std::int64_t rays = 0;
  for (auto _ : bench) {
    const trVector from(static_cast<double>(rays % 97) * 60 - 3000, 1000.5,
                        static_cast<double>(rays % 89) * 60 - 2700);
    scene.render.Aim(from, from, 1, false, static_cast<unsigned>(++rays));
    benchmark::DoNotOptimize(
        scene.cloud.TransmittanceTowards(scene.render.state, scene.render.sun, from, {}));
  }
  // A thousand steps at full quality are a hundred for such a ray (the power 2/3), near enough.
  Rate(bench, "densities/s", rays * 100);
}

void PointDensities(benchmark::State& bench) {
  CloudScene scene;
  std::int64_t count = 0;
  for (auto _ : bench) {
    const trVector point(static_cast<double>(count % 997) * 6 - 3000, 1500 + static_cast<double>(count % 701),
                         static_cast<double>(count % 887) * 6 - 2700);
    ++count;
    benchmark::DoNotOptimize(scene.cloud.MatterAt(scene.render.state, point));
  }
  Rate(bench, "densities/s", count);
}

void FractalAlone(benchmark::State& bench) {
  CloudScene scene;
  std::int64_t count = 0;
  trShadingInterface& si = scene.render.si;
  si.SetWants(trShadingInterface::kCd);
  for (auto _ : bench) {
    const trVector point(static_cast<double>(count % 997) * 6 - 3000, 1500 + static_cast<double>(count % 701),
                         static_cast<double>(count % 887) * 6 - 2700);
    ++count;
    si.SetSample(point, {0, 1, 0});
    scene.fractal->ShadeTS(si);
    benchmark::DoNotOptimize(si.Cutil());
  }
  Rate(bench, "points/s", count);
}

/// Blocks of a cache, filled cell by cell.
void BakedCells(benchmark::State& bench) {
  CloudScene scene;
  scene.Prepare();
  std::int64_t blocks = 0;
  constexpr int kBlock = 24;
  for (auto _ : bench) {
    const int x = 100 + static_cast<int>(blocks % 8) * kBlock,
              z = 100 + static_cast<int>(blocks / 8 % 8) * kBlock;
    benchmark::DoNotOptimize(scene.cloud.BakeBlock(scene.render.state, x, 12, z));
    if (++blocks % 64 == 0) {
      bench.PauseTiming();
      scene.Prepare();
      bench.ResumeTiming();
    }
  }
  Rate(bench, "cells/s", blocks * kBlock * kBlock * kBlock);
}

BENCHMARK(FractalAlone);
BENCHMARK(PointDensities);
BENCHMARK(MarchedDensities);
BENCHMARK(BakedCells);

}  // namespace

BENCHMARK_MAIN();
