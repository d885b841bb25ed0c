// Rates of specular surfaces, points a second on one thread: no rays, one light, and as lobes for a path
// tracer.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "core/reflection.h"
#include "host/render/shade/microfacet.h"
#include "surface/reflective_shader.h"
#include "tests/fake_sky.h"

namespace {

struct Lit : FakeRender {
  bool deferred = false;
  bool IsDeferred() const override { return deferred; }
};

void Shade(benchmark::State& state, int model, bool deferred, bool lights) {
  ReflectiveShader shader;
  shader.SetParam("highlight_model", model, trWhoUser);
  shader.SetParam("specular_roughness", 0.3, trWhoUser);
  shader.SetParam("specular_highlights", lights, trWhoUser);
  Lit render;
  render.deferred = deferred;
  render.sun.direction = Normalised({0.3, 1, 0.2});
  trShadingInterface& si = render.si;
  si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kCs);
  double x = 0;
  for (auto _ : state) {
    x = x < 3 ? x + 1e-4 : 0;
    si.SetSample({x, 0, 0}, {0, 1, 0});
    si.Eye() = {-1, 2, 0};
    si.Bsdf().AddLambert(trFCol(0.5f));
    // At its last depth a surface traces nothing.
    render.state.CurrentRay().depth = deferred ? 1 : render.MaxRayDepth();
    shader.ShadeTS(si);
    benchmark::DoNotOptimize(render.state.ShadeOutputs());
  }
  state.SetItemsProcessed(state.iterations());
}

void Sample(benchmark::State& state, int model, double tweak) {
  const trVector v = Normalised({0.5, 0.2, 0.7});
  const ovhost::Microfacet facets(model, 0.3, tweak);
  trRandomStream random{1, 0};
  for (auto _ : state) {
    const double x = random.Next();
    const trVector h = facets.SampleHalf(v, {x, random.Next()});
    benchmark::DoNotOptimize(facets.PdfHalf(v.z, h.z, Dot(v, h)));
  }
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
  const std::array<const char*, 4> names = {"blinn", "beckmann_ov2", "beckmann_ov45", "ggx"};
  for (int model = 0; model < 4; ++model) {
    const std::string name = names[static_cast<size_t>(model)];
    benchmark::RegisterBenchmark(("one_light/" + name).c_str(),
                                 [model](benchmark::State& s) { Shade(s, model, false, true); });
    benchmark::RegisterBenchmark(("sample/" + name).c_str(),
                                 [model](benchmark::State& s) { Sample(s, model, 2); });
  }
  benchmark::RegisterBenchmark("sample/ggx_heavy_tails", [](benchmark::State& s) { Sample(s, 3, 1); });
  benchmark::RegisterBenchmark("lobes/ggx", [](benchmark::State& s) { Shade(s, 3, true, false); });
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
