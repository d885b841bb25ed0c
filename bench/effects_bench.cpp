// Rates of the displacement effects, points a second on one thread, one point a call, at their defaults as
// new nodes have them, with what they need linked to be at work.
#include <benchmark/benchmark.h>

#include <utility>
#include <vector>

#include "core/project.h"
#include "core/render_state.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace {

/// The least that a linked shader can do.
class Still : public trSurfaceShader {
 public:
  long Displace(trShadingInterface&) override { return 1; }
};

struct Case {
  const char *name, *className;
  std::vector<std::pair<const char*, double>> settings;
  std::vector<const char*> links = {};
  bool shades = false;
};

const Case kCases[] = {
    {"crater", "crater_shader", {{"diameter", 4000}, {"rim_skirt", 2000}}},
    {"crater_with_rim_shader", "crater_shader", {{"diameter", 4000}, {"rim_skirt", 2000}}, {"rim_shader"}},
    {"strata_8_octaves", "strata_and_outcrops_shader_v2", {}},
    {"twist_and_shear", "twist_and_shear_shader", {}},
    {"redirect", "redirect_shader", {}, {"X_shader", "Y_shader", "Z_shader"}},
    {"magnet", "magnet_shader", {}},
    {"smoothing_filter", "smoothing_filter_shader", {}, {"input_node"}},
    {"stones", "fake_stones_shader", {}},
    {"stones_dense", "fake_stones_shader", {{"stone_density", 1}}},
    {"stones_shaded", "fake_stones_shader", {{"stone_density", 1}}, {}, true},
};

void Effect(benchmark::State& state, const Case& what) {
  juProject project;
  auto* const shader = dynamic_cast<trShader*>(project.CreateChild(what.className));
  ovhost::AttachChild(&project, new Still, "Still");
  for (const auto& [name, value] : what.settings) shader->SetParam(name, value, trWhoUser);
  for (const char* link : what.links) shader->SetParam(link, "/Still", trWhoUser);
  trNoRenderServices services;
  trShadingInterface si;
  trRenderState renderState(services, si);
  trVector point(100.3, 20.7, -50.1);
  for (auto _ : state) {
    point += trVector(0.37, 0.13, -0.29);
    if (point.x > 1500) point.x -= 3000, point.z += 2300;
    si.SetSample(point, {0, 1, 0});
    benchmark::DoNotOptimize(what.shades ? shader->ShadeTS(si) : shader->DisplaceTS(si));
  }
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
  ovhost::LoadPlugins();
  for (const Case& what : kCases)
    benchmark::RegisterBenchmark(what.name, [&what](benchmark::State& s) { Effect(s, what); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
