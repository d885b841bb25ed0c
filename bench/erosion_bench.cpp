// Rates of erosion by drops: steps of drops a second by the wall's time, on one thread and on two, beside a
// plain loop over the same steps.
//
// `steps/cpu_s` are steps in a second of one processor's time, which tells more where others use the machine.
// `to_plain` is the rate over that of the plain loop on a raster of the same size, `to_one` that over the
// same mode on one thread; each needs the bench that it compares with to run before it, in the same process.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <map>
#include <tuple>

#include "core/heightfield.h"
#include "core/project.h"
#include "host/base/log.h"
#include "host/base/session_context.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "tests/erosion_reference.h"

namespace {

constexpr int kDrops = 1 << 19;  // for all sizes

/// Ridges of many sizes, as steep as mountains.
reference::Raster Mountains(int size) {
  reference::Raster raster{size, size, std::vector<float>(static_cast<std::size_t>(size) * size)};
  double wavelength = size / 5.0;
  for (int octave = 0; wavelength > 4; ++octave, wavelength /= 2) {
    const double turn = octave * 1.1, frequency = 6.283 / wavelength;
    const double alongX = std::cos(turn) * frequency, alongY = std::sin(turn) * frequency;
    const double height = 0.2 * wavelength * std::pow(1.1, octave);
    for (int y = 0; y < size; ++y)
      for (int x = 0; x < size; ++x) {
        const double bend = 0.3 * std::sin(0.7 * frequency * (x + y));
        raster.z[static_cast<std::size_t>(y) * size + x] +=
            static_cast<float>(height * std::fabs(std::sin(alongX * x + alongY * y + bend) *
                                                  std::cos(alongY * x - alongX * y + 2 * bend)));
      }
  }
  return raster;
}

/// What new nodes are set to, for kDrops drops.
reference::Settings NewNode(int size) {
  reference::Settings settings;
  settings.nearestCentre = true;
  settings.deposition = settings.depositionRate = 1;
  settings.duration = double(kDrops) / (double(size) * size);
  return settings;
}

/// How many steps the drops of generator 0 take together; those of others take as many within a percent.
double Steps() {
  static const double steps = [] {
    std::mt19937 twister(0);
    double sum = 0;
    for (int i = 0; i < kDrops; ++i) {
      twister.discard(2);
      const int count = static_cast<int>(std::exp((twister() / 4294967295.0 - 0.75) * 10.0) * 100);
      twister.discard(4ull * count);
      sum += count;
    }
    return sum;
  }();
  return steps;
}

enum Mode : long { kPlain, kRepeatable, kMultiThread };

/// Time since it was made.
struct Clock {
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count();
  }
  /// Of all threads together.
  double CpuSeconds() const { return double(std::clock() - cpu) / CLOCKS_PER_SEC; }

  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  std::clock_t cpu = std::clock();
};

/// Sets the counters of a run that has just ended.
void Count(benchmark::State& state, Mode mode, const Clock& clock) {
  const double seconds = clock.Seconds(), cpuSeconds = clock.CpuSeconds();
  static std::map<std::tuple<long, Mode, long>, double> rates;
  const long size = state.range(0), threads = mode == kPlain ? 1 : state.range(1);
  const double rate = Steps() / seconds;
  rates[{size, mode, threads}] = rate;
  state.SetIterationTime(seconds);
  state.counters["steps/s"] = rate;
  state.counters["steps/cpu_s"] = Steps() / cpuSeconds;
  const auto compare = [&](const char* name, Mode with) {
    const auto found = rates.find({size, with, 1});
    if (found != rates.end()) state.counters[name] = rate / found->second;
  };
  if (mode != kPlain) compare("to_plain", kPlain);
  if (threads > 1) compare("to_one", mode);
}

void PlainWalk(benchmark::State& state) {
  const auto size = static_cast<int>(state.range(0));
  for (auto _ : state) {
    reference::Raster raster = Mountains(size);
    const Clock clock;
    reference::ErodeV3(raster, NewNode(size));
    Count(state, kPlain, clock);
    benchmark::DoNotOptimize(raster.z.data());
  }
}

class Source : public trHeightfield {
 public:
  explicit Source(const reference::Raster& raster) {
    Init(0, 0, raster.w, raster.h);
    std::copy(raster.z.begin(), raster.z.end(), HfScanlineRaw(0));
    HfFindZRange();
    HfValidate();
  }
};

void Erode(benchmark::State& state, Mode mode) {
  const auto size = static_cast<int>(state.range(0));
  if (!ovhost::FindClass("heightfield_erode_v3")) ovhost::LoadPlugins();
  ovhost::SetNumThreads(static_cast<int>(state.range(1)));
  juProject project;
  ovhost::AttachChild(&project, new Source(Mountains(size)), "Source");
  auto* node = dynamic_cast<trHeightfield*>(project.CreateChild("heightfield_erode_v3"));
  node->SetParam("input_node", "/Source", trWhoSystem);
  node->SetParam("multi-thread", mode == kMultiThread, trWhoSystem);
  node->SetParam("duration", NewNode(size).duration, trWhoSystem);
  node->SetParam("auto_calculate", 1, trWhoSystem);
  for (auto _ : state) {
    node->HfInvalidate();
    const Clock clock;
    if (!node->HfOperateTS()) state.SkipWithError("the erosion failed");
    Count(state, mode, clock);
  }
  ovhost::SetNumThreads(0);
}

void Sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgName("size")->Arg(1024)->Arg(4096)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
}
void SizesAndThreads(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"size", "threads"})
      ->ArgsProduct({{1024, 4096}, {1, 2}})
      ->Iterations(1)
      ->UseManualTime()
      ->Unit(benchmark::kSecond);
}

}  // namespace

BENCHMARK(PlainWalk)->Apply(Sizes);
BENCHMARK_CAPTURE(Erode, repeatable, kRepeatable)->Apply(SizesAndThreads);
BENCHMARK_CAPTURE(Erode, multi_thread, kMultiThread)->Apply(SizesAndThreads);
BENCHMARK_MAIN();
