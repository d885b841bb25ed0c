// Rates of heightfields: generation, lookups and operators, beside the copy of a raster.
//
// Rates count points of the result by the wall's time; `per_tap` rates count the taps of a filter. The column
// CPU is of all threads together.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>

#include "core/heightfield.h"
#include "core/project.h"
#include "heightfield/filter_operators.h"
#include "host/base/log.h"
#include "host/base/session_context.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace {

/// A raster of hills.
class Hills : public trHeightfield {
 public:
  void Make(int size) {
    Init(0, 0, size, size);
    for (int y = 0; y < size; ++y)
      for (int x = 0; x < size; ++x)
        HfScanlineRaw(y)[x] =
            std::sin(x * 0.013f) * std::cos(y * 0.017f) * 100 + ((x * 7919 + y * 104729) % 97);
    HfSetScaleEnabled(1);
    HfSetScale(10, 10, 10);
    HfFindZRange();
    HfValidate();
  }
};

struct Scene {
  explicit Scene(int size) {
    if (!ovhost::FindClass("heightfield_crop")) ovhost::LoadPlugins();
    ovhost::AttachChild(&project, hills = new Hills, "Hills");
    hills->Make(size);
  }
  trHeightfield& Add(const char* className) {
    return Connect(dynamic_cast<trHeightfield*>(project.CreateChild(className)));
  }
  trHeightfield& Connect(trHeightfield* node) {
    if (!node->Parent()) ovhost::AttachChild(&project, node, "Operator");
    node->SetParam("input_node", "/Hills", trWhoSystem);
    return *node;
  }
  juProject project;
  Hills* hills = nullptr;
};

void Repeat(benchmark::State& state, trHeightfield& node, double tapsPerPoint = 1) {
  for (auto _ : state) {
    node.HfInvalidate();
    if (!node.HfOperateTS()) state.SkipWithError("the operator failed");
  }
  const double points = static_cast<double>(node.HfXPnts()) * node.HfYPnts() * state.iterations();
  state.counters["points"] = benchmark::Counter(points, benchmark::Counter::kIsRate);
  if (tapsPerPoint != 1)
    state.counters["per_tap"] = benchmark::Counter(points * tapsPerPoint, benchmark::Counter::kIsRate);
}

void CopyRaster(benchmark::State& state) {
  const auto size = static_cast<int>(state.range(0));
  Hills hills;
  hills.Make(size);
  for (auto _ : state) {
    trFloatMap copy;
    copy.Init(0, 0, size, size);
    std::memcpy(copy.pixels, hills.pixels, static_cast<std::size_t>(copy.MemoryBytes()));
    benchmark::DoNotOptimize(copy.pixels);
  }
  state.counters["points"] =
      benchmark::Counter(double(size) * size * state.iterations(), benchmark::Counter::kIsRate);
}

void FindRange(benchmark::State& state) {
  Hills hills;
  hills.Make(static_cast<int>(state.range(0)));
  for (auto _ : state) hills.HfFindZRange();
  state.counters["points"] = benchmark::Counter(double(state.range(0)) * state.range(0) * state.iterations(),
                                                benchmark::Counter::kIsRate);
}

void Generate(benchmark::State& state) {
  ovhost::SetNumThreads(static_cast<int>(state.range(1)));
  Scene scene(2);
  trHeightfield& node = scene.Add("heightfield_generate");
  const double size = static_cast<double>(state.range(0));
  node.SetParam("size_in_pixels", tr2Vector(size, size), trWhoSystem);
  node.SetParam("seed", 1, trWhoSystem);
  node.SetParam("auto_generate", 1, trWhoSystem);
  Repeat(state, node);
  ovhost::SetNumThreads(0);
}

void Operate(benchmark::State& state, const char* className, const char* param, double value) {
  Scene scene(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Add(className);
  if (*param) node.SetParam(param, value, trWhoSystem);
  Repeat(state, node);
}

void Crop(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Add("heightfield_crop");
  const double last = static_cast<double>(state.range(0)) - 1;
  node.SetParam("bottom_left", tr2Vector(1, 1), trWhoSystem);
  node.SetParam("top_right", tr2Vector(last, last), trWhoSystem);
  Repeat(state, node);
}

void Resize(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Add("heightfield_resize");
  const double size = static_cast<double>(state.range(0)) * static_cast<double>(state.range(1)) / 100;
  node.SetParam("re-sample_pixels", 1, trWhoSystem);
  node.SetParam("size_in_pixels", tr2Vector(size, size), trWhoSystem);
  Repeat(state, node);
}

void Merge(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  auto* other = new Hills;
  ovhost::AttachChild(&scene.project, other, "Other");
  other->Make(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Add("heightfield_merge");
  node.SetParam("heightfield_A", "/Other", trWhoSystem);
  node.SetParam("merge_mode", state.range(1), trWhoSystem);
  Repeat(state, node);
}

void Smooth(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Add("heightfield_smooth");
  const double intervals = static_cast<double>(state.range(1));
  node.SetParam("smooth_radius", 10 * intervals, trWhoSystem);
  Repeat(state, node, (2 * intervals + 1) * (2 * intervals + 1));
}

void Median(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  trHeightfield& node = scene.Connect(new HeightfieldMedian);
  const double radius = static_cast<double>(state.range(1));
  node.SetParam("kernel_radius", radius, trWhoSystem);
  Repeat(state, node, (2 * radius + 1) * (2 * radius + 1));
}

template <double (trHeightfield::*kLookup)(const double&, const double&, double*) const>
void Lookup(benchmark::State& state) {
  Hills hills;
  hills.Make(1024);
  double sum = 0, gradient = 0;
  double* const wanted = state.range(0) ? &gradient : nullptr;
  for (auto _ : state)
    for (int i = 0; i < 10000; ++i) sum += (hills.*kLookup)(i * 0.097 + 3, (i & 1023) * 0.91, wanted);
  benchmark::DoNotOptimize(sum);
  state.counters["lookups"] = benchmark::Counter(1e4 * state.iterations(), benchmark::Counter::kIsRate);
}

}  // namespace

BENCHMARK(CopyRaster)->Arg(1024)->Arg(4096)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(FindRange)->Arg(4096)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Generate)->Args({1000, 1})->Args({1000, 2})->MeasureProcessCPUTime()->UseRealTime()->Unit(
    benchmark::kMillisecond);
BENCHMARK_CAPTURE(Operate, adjust, "heightfield_adjust_vertical", "height_multiplier", 1.5)
    ->Arg(4096)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Operate, clip, "heightfield_clip_vertical", "", 0)
    ->Arg(4096)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Operate, curve, "heightfield_curve_vertical", "glaciation", 0.5)
    ->Arg(4096)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Crop)->Arg(4096)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Resize)
    ->ArgNames({"size", "percent"})
    ->Args({4096, 50})
    ->Args({4096, 130})
    ->Args({2048, 200})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Merge)
    ->ArgNames({"size", "mode"})
    ->Args({4096, 1})
    ->Args({4096, 6})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Smooth)
    ->ArgNames({"size", "radius"})
    ->Args({1024, 0})
    ->Args({1024, 1})
    ->Args({1024, 10})
    ->Args({1024, 50})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Median)
    ->ArgNames({"size", "radius"})
    ->Args({1024, 2})
    ->Args({1024, 3})
    ->Args({256, 6})
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Lookup<&trHeightfield::HfZLookupLinear>)->Name("LookupLinear")->Arg(0)->Arg(1);
BENCHMARK(Lookup<&trHeightfield::HfZLookupCatmullRom>)->Name("LookupCatmullRom")->Arg(0)->Arg(1);
BENCHMARK(Lookup<&trHeightfield::HfZLookupCubic>)->Name("LookupCubic")->Arg(0)->Arg(1);
BENCHMARK(Lookup<&trHeightfield::HfZLookupSmooth>)->Name("LookupSmooth")->Arg(0)->Arg(1);
BENCHMARK_MAIN();
