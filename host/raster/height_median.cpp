// Finds medians by counting: first the upper halves of all values, then the lower halves of those that have
// the median's upper half.
#include "host/raster/height_median.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "host/raster/workers.h"

namespace ovhost {
namespace {

constexpr int kHalves = 1 << 16;
using Counts = std::vector<std::int64_t>;

/// Floats as integers of the same order.
std::uint32_t KeyOf(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return bits >> 31 ? ~bits : bits | 0x80000000u;
}
float ValueOf(std::uint32_t key) { return std::bit_cast<float>(key >> 31 ? key & 0x7fffffffu : ~key); }

/// How often values have each half; `halfOf` gives it for a key, or a negative number for what doesn't count.
template <typename HalfOf>
Counts CountHalves(const HeightGrid& grid, int threads, const HalfOf& halfOf) {
  constexpr std::int64_t kBand = 64;
  const int workers = std::max(threads, 1);
  std::vector<Counts> parts(static_cast<std::size_t>(workers));
  RunPieces(workers, (grid.height + kBand - 1) / kBand, {}, [&](int worker, std::int64_t band) {
    Counts& counts = parts[static_cast<std::size_t>(worker)];
    counts.resize(kHalves);
    const float* const end = grid.Row(std::min((band + 1) * kBand, grid.height) - 1) + grid.width;
    for (const float* at = grid.Row(band * kBand); at < end; ++at) {
      if (!std::isfinite(*at)) continue;
      if (const int half = halfOf(KeyOf(*at)); half >= 0) ++counts[static_cast<std::size_t>(half)];
    }
    return true;
  });
  Counts all(kHalves);
  for (const Counts& part : parts)
    for (std::size_t i = 0; i < part.size(); ++i) all[i] += part[i];
  return all;
}

/// The half that holds the value of this rank, from 0 on; the rank becomes the one within it.
std::uint32_t FindHalf(const Counts& counts, std::int64_t& rank) {
  std::uint32_t half = 0;
  while (rank >= counts[half]) rank -= counts[half++];
  return half;
}

}  // namespace

double MedianHeight(const HeightGrid& grid, int threads) {
  const Counts upper =
      CountHalves(grid, threads, [](std::uint32_t key) { return static_cast<int>(key >> 16); });
  std::int64_t count = 0;
  for (const std::int64_t n : upper) count += n;
  if (count == 0) return 0;
  double sum = 0;
  Counts lower;
  std::uint32_t counted = kHalves;
  for (const std::int64_t middle : {(count - 1) / 2, count / 2}) {
    std::int64_t rank = middle;
    const std::uint32_t high = FindHalf(upper, rank);
    if (high != counted)
      lower = CountHalves(grid, threads, [high](std::uint32_t key) {
        return key >> 16 == high ? static_cast<int>(key & 0xffff) : -1;
      });
    counted = high;
    sum += ValueOf(high << 16 | FindHalf(lower, rank));
  }
  return sum / 2;
}

}  // namespace ovhost
