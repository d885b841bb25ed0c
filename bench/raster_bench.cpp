// Rates of elevation files, points a second: GDAL's own read of a GeoTIFF beside ours of the same file (which
// turns it, finds what is missing, and measures its range), and the system's own format.
#include <benchmark/benchmark.h>
#include <gdal_priv.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/messages.h"
#include "host/raster/fill_missing.h"
#include "host/raster/heightfield_load.h"
#include "host/raster/raster_write.h"
#include "host/raster/relief.h"

namespace {

constexpr int kSize = 4096;
constexpr std::int64_t kPoints = std::int64_t{kSize} * kSize;

/// A terrain, and files of it that go with the program.
struct Terrain {
  std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("raster_bench_" + std::to_string(getpid()));
  std::vector<float> values;
  ovhost::HeightGrid grid;

  Terrain() {
    std::filesystem::create_directories(folder);
    values.resize(kPoints);
    // Octaves of waves that don't repeat on the raster, with a little noise: it packs like ground does.
    for (int y = 0; y < kSize; ++y)
      for (int x = 0; x < kSize; ++x) {
        double h = 0;
        for (int o = 0; o < 6; ++o) {
          const double f = 0.003 * std::exp2(o);
          h += std::sin(f * x + 1.7 * o) * std::sin(f * 1.13 * y + 0.6 * o) / std::exp2(o);
        }
        values[static_cast<size_t>(y) * kSize + static_cast<size_t>(x)] =
            static_cast<float>(400 * h) + static_cast<float>((x * 7919 + y * 104729) % 101) * 0.01f;
      }
    grid.width = grid.height = kSize;
    grid.values = values.data();
    grid.xScale = grid.yScale = 10;
    grid.lowest = -1000;
    grid.highest = 1000;
    std::string note;
    ovhost::WriteHeightfield(Path("deflate.tif"), grid, {32, trNumCoresToUse(), {}}, note);
    ovhost::WriteHeightfield(Path("own.ovh"), grid, {0, trNumCoresToUse(), {}}, note);
    WritePlainTiff();
  }
  ~Terrain() { std::filesystem::remove_all(folder); }
  std::string Path(const std::string& name) const { return (folder / name).string(); }

  /// Rows as they are, as most programs write them.
  void WritePlainTiff() const {
    GDALAllRegister();
    GDALDataset* file = GetGDALDriverManager()->GetDriverByName("GTiff")->Create(
        Path("plain.tif").c_str(), kSize, kSize, 1, GDT_Float32, nullptr);
    if (file &&
        file->GetRasterBand(1)->RasterIO(GF_Write, 0, 0, kSize, kSize, const_cast<float*>(values.data()),
                                         kSize, kSize, GDT_Float32, 0, 0, nullptr) != CE_None)
      std::abort();
    GDALClose(file);
  }
};

const Terrain& TheTerrain() {
  static const Terrain terrain;
  return terrain;
}

void Copy(benchmark::State& state) {
  std::vector<float> out(kPoints);
  for (auto _ : state) {
    std::memcpy(out.data(), TheTerrain().values.data(), kPoints * sizeof(float));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kPoints);
}

/// Into memory that is as new as a heightfield's.
void ReadWithGdal(benchmark::State& state, const char* name) {
  const std::string path = TheTerrain().Path(name);
  for (auto _ : state) {
    trFloatMap raster;
    raster.Init(0, 0, kSize, kSize);
    auto* file = static_cast<GDALDataset*>(GDALOpen(path.c_str(), GA_ReadOnly));
    if (!file || file->GetRasterBand(1)->RasterIO(GF_Read, 0, 0, kSize, kSize, raster.ScanlineRaw(0), kSize,
                                                  kSize, GDT_Float32, 0, 0, nullptr) != CE_None)
      state.SkipWithError("GDAL can't read it");
    GDALClose(file);
    benchmark::DoNotOptimize(raster.pixels);
  }
  state.SetItemsProcessed(state.iterations() * kPoints);
}

void Load(benchmark::State& state, const char* name) {
  trHeightfieldLoad node;
  node.SetParam("filename", TheTerrain().Path(name), trWhoSystem);
  for (auto _ : state) {
    node.Cleanup();
    node.HfInvalidate();
    if (!node.HfOperateTS()) state.SkipWithError("it can't be read");
  }
  state.SetItemsProcessed(state.iterations() * kPoints);
}

void Write(benchmark::State& state, const char* name, int bits) {
  std::string note;
  for (auto _ : state)
    if (!ovhost::WriteHeightfield(TheTerrain().Path(name), TheTerrain().grid, {bits, trNumCoresToUse(), {}},
                                  note)
             .empty())
      state.SkipWithError("it can't be written");
  state.SetItemsProcessed(state.iterations() * kPoints);
  state.counters["MB"] =
      static_cast<double>(std::filesystem::file_size(TheTerrain().Path(name))) / static_cast<double>(1 << 20);
}

void Hillshade(benchmark::State& state) {
  for (auto _ : state)
    ovhost::WriteHillshade(TheTerrain().Path("shade.png"), TheTerrain().grid, 1, trNumCoresToUse(), {});
  state.SetItemsProcessed(state.iterations() * kPoints);
}

void Measure(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ovhost::MeasureHeights(TheTerrain().grid, trNumCoresToUse()));
  state.SetItemsProcessed(state.iterations() * kPoints);
}

/// A tenth of the points missing, in discs.
void Fill(benchmark::State& state) {
  std::vector<float> holes = TheTerrain().values, work;
  for (int y = 0; y < kSize; ++y)
    for (int x = 0; x < kSize; ++x)
      if (std::hypot(x % 256 - 128, y % 256 - 128) < 45)
        holes[static_cast<size_t>(y) * kSize + static_cast<size_t>(x)] = std::nanf("");
  for (auto _ : state) {
    work = holes;
    ovhost::FillMissing(work.data(), kSize, kSize);
  }
  state.SetItemsProcessed(state.iterations() * kPoints);
}

BENCHMARK(Copy)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(ReadWithGdal, plain_tif, "plain.tif")
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Load, plain_tif, "plain.tif")
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(ReadWithGdal, deflate_tif, "deflate.tif")
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Load, deflate_tif, "deflate.tif")
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Load, ovh, "own.ovh")
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Write, tif, "out.tif", 32)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Write, tif_16_bits, "out16.tif", 16)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Write, png, "out.png", 16)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Write, ovh, "out.ovh", 0)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(Write, asc, "out.asc", 0)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK(Hillshade)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Measure)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Fill)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
