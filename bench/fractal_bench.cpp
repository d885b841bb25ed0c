// Rates of the power fractal, points a second on one thread, one point a call, 16 octaves, and of the fractal
// warp, on every instruction set of the machine; the scalar rows are the yardstick.
#include <benchmark/benchmark.h>

#include <string>
#include <utility>
#include <vector>

#include "core/project.h"
#include "fractal/fractal_warp_shader.h"
#include "fractal/power_fractal_shader.h"
#include "host/node/node_data.h"
#include "host/noise/simd_level.h"

namespace {

using Setting = std::pair<const char*, double>;

struct Case {
  const char* name;
  bool colour;
  std::vector<Setting> settings;
  double footprint = 0.0;  ///< metres
};

const std::vector<Case>& Cases() {
  static const std::vector<Case> cases = {
      {"unclamped", false, {{"variation_method", 1}}},
      {"modulator", false, {{"variation_method", 2}}},
      {"unclamped_clumped", false, {{"variation_method", 1}, {"clumping_of_variation", 0.25}}},
      {"new_node", false, {{"clumping_of_variation", 0.25}, {"better_displacement_continuity", 1}}},
      {"ridges", false, {{"variation_method", 1}, {"noise_flavour", 2}, {"ridge_smoothing", 0.1}}},
      {"ridges_continuous",
       false,
       {{"variation_method", 1},
        {"noise_flavour", 2},
        {"ridge_smoothing", 0.1},
        {"better_displacement_continuity", 1}}},
      {"coastline", false, {{"variation_method", 1}, {"adjust_coastline", 1}}},
      {"warped", false, {{"variation_method", 1}, {"lead-in_warp_effect", 1}}},
      {"4d", false, {{"variation_method", 1}, {"four-d_noise", 1}}},
      {"filtered", false, {{"variation_method", 1}}, 0.02},
      {"filtered_ridges", false, {{"variation_method", 1}, {"noise_flavour", 2}}, 0.02},
      {"voronoi", false, {{"variation_method", 1}, {"noise_flavour", 5}}},
      {"filtered_voronoi", false, {{"variation_method", 1}, {"noise_flavour", 5}}, 0.02},
      {"colour_unclamped", true, {{"variation_method", 1}}},
      {"colour_modulator", true, {{"variation_method", 2}}},
  };
  return cases;
}

void Fractal(benchmark::State& state, const std::string& level, const Case& what) {
  SetNoiseSimdLevel(level);
  PowerFractalShaderV3 fractal;
  fractal.SetParam("seed", 1234, trWhoUser);
  fractal.SetParam("noise_octaves", 16, trWhoUser);
  for (const auto& [name, value] : what.settings) fractal.SetParam(name, value, trWhoUser);
  trShadingInterface si;
  si.SetSample({100.3, 20.7, -50.1}, {0, 1, 0});
  si.SmoothSize() = what.footprint;
  for (auto _ : state) {
    si.Pt() += trVector(1.37, 0.73, -0.9);
    benchmark::DoNotOptimize(what.colour
                                 ? EvaluateFractalColour(fractal.Settings(), fractal.Derived(), si, 1.0f)
                                 : EvaluateFractalDisplacement(fractal.Settings(), fractal.Derived(), si));
  }
  state.SetItemsProcessed(state.iterations());
  SetNoiseSimdLevel("");
}

/// Keeps the warped point from being optimised away.
class Warped : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    benchmark::DoNotOptimize(si.Pt());
    return 1;
  }
};

void Warp(benchmark::State& state, const std::string& level, double footprint) {
  SetNoiseSimdLevel(level);
  juProject project;
  auto* const warp = new FractalWarpShader;
  ovhost::AttachChild(&project, warp, "Warp");
  ovhost::AttachChild(&project, new Warped, "Warped");
  warp->SetParam("input_node", "/Warped", trWhoUser);
  trShadingInterface si;
  si.SetSample({100.3, 20.7, -50.1}, {0, 1, 0});
  si.SmoothSize() = footprint;
  for (auto _ : state) {
    si.Pt() += trVector(1.37, 0.73, -0.9);
    warp->Displace(si);
  }
  state.SetItemsProcessed(state.iterations());
  SetNoiseSimdLevel("");
}

}  // namespace

int main(int argc, char** argv) {
  for (const std::string& level : NoiseSimdLevels())
    for (const auto& [name, footprint] : {std::pair("warp/", 0.0), {"filtered_warp/", 0.02}})
      benchmark::RegisterBenchmark((name + level).c_str(),
                                   [level, footprint](benchmark::State& s) { Warp(s, level, footprint); });
  for (const std::string& level : NoiseSimdLevels())
    for (const Case& what : Cases())
      benchmark::RegisterBenchmark((std::string(what.name) + "/" + level).c_str(),
                                   [&what, level](benchmark::State& s) { Fractal(s, level, what); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
