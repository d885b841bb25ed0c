// Image lookups: smooth, of an 8192 x 8192 image of bytes, along a surface and at random.
#include <benchmark/benchmark.h>

#include "core/image.h"

namespace {

constexpr int kSize = 8192;

const trImage& Image() {
  static trImage image;
  if (image.width == 0) {
    image.Init(0, 0, kSize, kSize, 4, static_cast<int>(trChannelType::kByte), 0);
    for (std::int64_t i = 0; i < image.MemoryBytes(); ++i)
      image.pixels[i] = static_cast<unsigned char>(i * 7);
  }
  return image;
}

/// Lookups a step apart along a line, as neighbouring samples of a surface ask for them.
void SmoothAlongASurface(benchmark::State& state) {
  const trImage& image = Image();
  double x = 0, y = 0;
  trFCol sum;
  for (auto _ : state) {
    x += 0.73;
    if (x >= kSize) x -= kSize, y += 0.9;
    if (y >= kSize) y -= kSize;
    sum += image.FColLookupSmooth(x, y, true, true);
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SmoothAlongASurface);

void SmoothAtRandom(benchmark::State& state) {
  const trImage& image = Image();
  std::uint64_t z = 1;
  trFCol sum;
  for (auto _ : state) {
    z = z * 6364136223846793005ull + 1442695040888963407ull;
    sum += image.FColLookupSmooth((z >> 40) * (kSize * 0x1p-24), (z >> 16 & 0xffffff) * (kSize * 0x1p-24),
                                  true, true);
  }
  benchmark::DoNotOptimize(sum);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SmoothAtRandom);

}  // namespace

BENCHMARK_MAIN();
