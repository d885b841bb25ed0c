// Voxel caches: interpolation, and filling from many threads at once. For the files that instantiate them.
//
// A table holds a pointer to each brick that was touched. In a cache of one sample a cell, a brick has a bit
// for each cell that is filled and an array of values that is made with the first value other than 0; bits
// are set after values are written, so that readers need no lock. In one of several samples a brick holds
// sums under locks. Bricks live as long as the cache's contents.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <new>
#include <type_traits>

#include "core/voxel.h"

namespace ovhost::voxel {

inline constexpr int kBrickBits = 3, kBrickEdge = 1 << kBrickBits, kBrickCells = 1 << 3 * kBrickBits;

/// Seed of a cell's sample: a hash, so that neither the order of cells nor of threads shows (SplitMix64's
/// mixer, Steele, Lea and Flood 2014).
inline unsigned SampleSeed(std::int64_t cell, int sample) {
  trRandomStream stream{static_cast<std::uint64_t>(cell) * 0x9e3779b97f4a7c15ull,
                        static_cast<std::uint32_t>(sample)};
  return static_cast<unsigned>(stream.Next() * 4294967296.0);
}

inline int CellInBrick(int x, int y, int z) {
  constexpr int mask = kBrickEdge - 1;
  return (z & mask) << 2 * kBrickBits | (y & mask) << kBrickBits | (x & mask);
}

/// Half floats with an exponent that suits densities: 1e-6 to 1000, less is 0. Never subnormal, since threads
/// may treat those as 0 or not.
inline constexpr float kHalfScale = 64.0f;

inline std::uint16_t ToHalf(float value) {
  const std::uint32_t sign = std::signbit(value) ? 0x8000u : 0u;
  const float magnitude = std::min(std::fabs(value) * kHalfScale, 65504.0f);
  if (!(magnitude >= 0x1p-14f)) return 0;
  const std::uint32_t bits = std::bit_cast<std::uint32_t>(magnitude) - (112u << 23);
  return static_cast<std::uint16_t>(sign | (bits + 0xfffu + (bits >> 13 & 1u)) >> 13);
}

/// Four at a time: shifting puts a half's exponent and fraction into a float's, 112 too low.
using FourFloats = float __attribute__((vector_size(16)));
using FourWords = std::uint32_t __attribute__((vector_size(16)));
inline FourFloats FromHalves(std::uint64_t word) {
  const FourWords half = {
      static_cast<std::uint32_t>(word) & 0xffffu, static_cast<std::uint32_t>(word >> 16) & 0xffffu,
      static_cast<std::uint32_t>(word >> 32) & 0xffffu, static_cast<std::uint32_t>(word >> 48)};
  const FourWords bits = (half & 0x7fffu) << 13 | (half & 0x8000u) << 16;
  return std::bit_cast<FourFloats>(bits) * (0x1p112f / kHalfScale);
}

/// How a brick of one sample a cell keeps its values: four channels as half floats in a word, others as
/// floats.
template <int kChannels>
struct PackedValues {
  std::atomic<float> value[kBrickCells * kChannels] = {};
  void Store(int cell, const float* channels) {
    for (int c = 0; c < kChannels; ++c)
      value[cell * kChannels + c].store(channels[c], std::memory_order_relaxed);
  }
  void Add(int cell, float weight, float* sum) const {
    for (int c = 0; c < kChannels; ++c)
      sum[c] += weight * value[cell * kChannels + c].load(std::memory_order_relaxed);
  }
};

template <>
struct PackedValues<4> {
  std::atomic<std::uint64_t> value[kBrickCells] = {};
  void Store(int cell, const float* channels) {
    std::uint64_t word = 0;
    for (int c = 0; c < 4; ++c) word |= std::uint64_t(ToHalf(channels[c])) << 16 * c;
    value[cell].store(word, std::memory_order_relaxed);
  }
  void Add(int cell, float weight, float* sum) const {
    const FourFloats values = FromHalves(value[cell].load(std::memory_order_relaxed)) * weight;
    for (int c = 0; c < 4; ++c) sum[c] += values[c];
  }
};

inline bool IsNumber(const trVector& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

inline int Clamped(double x, int size) { return static_cast<int>(std::clamp(x, 0.0, size - 1.0)); }

}  // namespace ovhost::voxel

/// The mean is what readers see; the sums, guarded by the cell's lock, are what refining goes on from.
template <typename T>
struct trVoxelCache<T>::Cell {
  std::atomic<int> count{0};
  std::atomic<float> mean[kChannels] = {};
  double sum[kChannels] = {};
};

template <typename T>
struct trVoxelCache<T>::Brick {
  using Values = ovhost::voxel::PackedValues<kChannels>;
  std::atomic<std::uint64_t> filled[ovhost::voxel::kBrickCells / 64] = {};
  std::atomic<Values*> values{nullptr};
  std::unique_ptr<Cell[]> cells;  ///< in a cache of several samples a cell

  ~Brick() { delete values.load(std::memory_order_relaxed); }
  bool IsFilled(int cell) const {
    return filled[cell >> 6].load(std::memory_order_acquire) >> (cell & 63) & 1;
  }
  void MarkFilled(int cell) {
    filled[cell >> 6].fetch_or(std::uint64_t(1) << (cell & 63), std::memory_order_release);
  }
};

/// The cells and weights of one interpolation, by axis.
template <typename T>
struct trVoxelCache<T>::Taps {
  int count = 0;  ///< along an axis
  int cell[3][3];
  double weight[3][3];
};

template <typename T>
trVoxelCache<T>::trVoxelCache() : locks_(std::make_unique<std::mutex[]>(kLocks)) {}

template <typename T>
trVoxelCache<T>::~trVoxelCache() {
  Cleanup();
}

template <typename T>
typename trVoxelCache<T>::Brick& trVoxelCache<T>::EmptyBrick() {
  static Brick& empty = []() -> Brick& {
    static Brick brick;
    for (auto& word : brick.filled) word.store(~std::uint64_t(0));
    return brick;
  }();
  return empty;
}

template <typename T>
bool trVoxelCache<T>::InitVoxelBuffer(const trVoxelProjector* projector, int nx, int ny, int nz,
                                      int resolution, const trString& name) {
  using namespace ovhost::voxel;
  Cleanup();
  name_ = name;
  resolution_ = std::max(resolution, 1);
  if (!SetDimensions(projector, nx, ny, nz)) return false;
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  std::int64_t bricks = 1;
  for (int axis = 0; axis < 3; ++axis) {
    numBricks_[axis] = (size[axis] - 1) / kBrickEdge + 1;
    bricks *= numBricks_[axis];
  }
  bricks_.reset(new (std::nothrow) std::atomic<Brick*>[static_cast<size_t>(bricks)]());
  if (!bricks_) SetDimensions(nullptr, 0, 0, 0);
  bytes_ = bricks_ ? static_cast<std::uint64_t>(bricks) * sizeof(Brick*) : 0;
  return bricks_ != nullptr;
}

template <typename T>
void trVoxelCache<T>::Cleanup() {
  const std::int64_t bricks = bricks_ ? std::int64_t(numBricks_[0]) * numBricks_[1] * numBricks_[2] : 0;
  for (std::int64_t i = 0; i < bricks; ++i) {
    Brick* brick = bricks_[i].load(std::memory_order_relaxed);
    if (brick != &EmptyBrick()) delete brick;
  }
  bricks_.reset();
  bytes_ = 0;
  SetDimensions(nullptr, 0, 0, 0);
}

template <typename T>
std::int64_t trVoxelCache<T>::BrickOf(const int cell[3]) const {
  using ovhost::voxel::kBrickBits;
  return (std::int64_t(cell[2] >> kBrickBits) * numBricks_[1] + (cell[1] >> kBrickBits)) * numBricks_[0] +
         (cell[0] >> kBrickBits);
}

template <typename T>
typename trVoxelCache<T>::Brick* trVoxelCache<T>::BrickFor(std::int64_t index) {
  Brick* brick = bricks_[index].load(std::memory_order_acquire);
  if (brick) return brick;
  std::unique_ptr<Brick> made(new (std::nothrow) Brick);
  if (!made) return nullptr;
  std::uint64_t bytes = sizeof(Brick);
  if (resolution_ > 1) {
    made->cells.reset(new (std::nothrow) Cell[ovhost::voxel::kBrickCells]);
    if (!made->cells) return nullptr;
    bytes += sizeof(Cell) * ovhost::voxel::kBrickCells;
  }
  if (!bricks_[index].compare_exchange_strong(brick, made.get(), std::memory_order_acq_rel)) return brick;
  bytes_.fetch_add(bytes, std::memory_order_relaxed);
  return made.release();
}

template <typename T>
bool trVoxelCache<T>::LinearTaps(const trVector& voxel, int level, Taps& taps) const {
  using namespace ovhost::voxel;
  if (!bricks_ || !IsNumber(voxel)) return false;
  const int stride = std::clamp(level, 1, 1 << 20);
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  taps.count = 2;
  for (int axis = 0; axis < 3; ++axis) {
    if (stride == 1) {
      // Beyond the grid both are the cell at its end.
      const double c = std::clamp(voxel[axis] - 0.5, -1.0, double(size[axis]));
      const int low = static_cast<int>(c + 1.0) - 1;
      taps.weight[axis][1] = c - low;
      taps.weight[axis][0] = 1.0 - taps.weight[axis][1];
      taps.cell[axis][0] = std::clamp(low, 0, size[axis] - 1);
      taps.cell[axis][1] = std::min(low + 1, size[axis] - 1);
      continue;
    }
    // A coarse cell is stood for by the fine one at its middle.
    const double c = voxel[axis] / stride - 0.5, low = std::floor(c);
    taps.weight[axis][1] = c - low;
    taps.weight[axis][0] = 1.0 - taps.weight[axis][1];
    for (int i = 0; i < 2; ++i) taps.cell[axis][i] = Clamped((low + i) * stride + stride / 2, size[axis]);
  }
  return true;
}

template <typename T>
bool trVoxelCache<T>::SmoothTaps(const trVector& voxel, Taps& taps) const {
  using namespace ovhost::voxel;
  if (!bricks_ || !IsNumber(voxel)) return false;
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  taps.count = 3;
  for (int axis = 0; axis < 3; ++axis) {
    const double middle = std::floor(voxel[axis]), t = voxel[axis] - middle - 0.5;
    taps.weight[axis][0] = 0.5 * (0.5 - t) * (0.5 - t);
    taps.weight[axis][1] = 0.75 - t * t;
    taps.weight[axis][2] = 0.5 * (0.5 + t) * (0.5 + t);
    for (int i = 0; i < 3; ++i) taps.cell[axis][i] = Clamped(middle + i - 1, size[axis]);
  }
  return true;
}

template <typename T>
bool trVoxelCache<T>::Gather(const Taps& taps, T& out, int samples) const {
  using namespace ovhost::voxel;
  float sum[kChannels] = {};
  std::int64_t at = -1;
  const Brick* brick = nullptr;
  const typename Brick::Values* values = nullptr;
  for (int z = 0; z < taps.count; ++z)
    for (int y = 0; y < taps.count; ++y) {
      const int row = taps.cell[2][z] >> kBrickBits, column = taps.cell[1][y] >> kBrickBits;
      const std::int64_t first = (std::int64_t(row) * numBricks_[1] + column) * numBricks_[0];
      const int inRow = CellInBrick(0, taps.cell[1][y], taps.cell[2][z]);
      for (int x = 0; x < taps.count; ++x) {
        const std::int64_t wanted = first + (taps.cell[0][x] >> kBrickBits);
        if (wanted != at) {
          at = wanted;
          brick = bricks_[wanted].load(std::memory_order_acquire);
          if (!brick) return false;
        }
        const int inBrick = inRow | (taps.cell[0][x] & (kBrickEdge - 1));
        const float weight = static_cast<float>(taps.weight[0][x] * taps.weight[1][y] * taps.weight[2][z]);
        if (brick->cells) {
          const Cell& cell = brick->cells[inBrick];
          if (cell.count.load(std::memory_order_acquire) < samples) return false;
          for (int c = 0; c < kChannels; ++c) sum[c] += weight * cell.mean[c].load(std::memory_order_relaxed);
          continue;
        }
        if (!brick->IsFilled(inBrick)) return false;
        values = brick->values.load(std::memory_order_acquire);
        if (values) values->Add(inBrick, weight, sum);
      }
    }
  std::copy(sum, sum + kChannels, reinterpret_cast<float*>(&out));
  return true;
}

template <typename T>
bool trVoxelCache<T>::RefineCell(Brick& brick, const int index[3], Fill fill, void* owner,
                                 trRenderState& state, int samples) {
  using namespace ovhost::voxel;
  Cell& cell = brick.cells[CellInBrick(index[0], index[1], index[2])];
  if (cell.count.load(std::memory_order_acquire) >= samples) return true;
  const std::int64_t number = (std::int64_t(index[2]) * SizeY() + index[1]) * SizeX() + index[0];
  std::mutex& lock = locks_[number % kLocks];
  double sum[kChannels];
  int count;
  {
    const std::lock_guard<std::mutex> hold(lock);
    count = cell.count.load(std::memory_order_relaxed);
    std::copy(cell.sum, cell.sum + kChannels, sum);
  }
  trVector world;
  MapVoxelToWorld({index[0] + 0.5, index[1] + 0.5, index[2] + 0.5}, world);
  // No lock is held while sampling, which may trace rays: two threads may do the same cell, with the same
  // result.
  for (; count < samples; ++count) {
    T value{};
    if (!fill(owner, state, *this, world, SampleSeed(number, count), value)) return false;
    const float* channels = reinterpret_cast<const float*>(&value);
    for (int c = 0; c < kChannels; ++c)
      if (std::isfinite(channels[c])) sum[c] += channels[c];
  }
  const std::lock_guard<std::mutex> hold(lock);
  if (cell.count.load(std::memory_order_relaxed) >= count) return true;
  std::copy(sum, sum + kChannels, cell.sum);
  for (int c = 0; c < kChannels; ++c)
    cell.mean[c].store(static_cast<float>(sum[c] / count), std::memory_order_relaxed);
  cell.count.store(count, std::memory_order_release);
  return true;
}

template <typename T>
bool trVoxelCache<T>::FillCell(const int index[3], Fill fill, void* owner, trRenderState& state,
                               int samples) {
  using namespace ovhost::voxel;
  Brick* brick = BrickFor(BrickOf(index));
  if (!brick) return false;
  if (brick->cells) return RefineCell(*brick, index, fill, owner, state, samples);
  const int inBrick = CellInBrick(index[0], index[1], index[2]);
  if (brick->IsFilled(inBrick)) return true;
  trVector world;
  MapVoxelToWorld({index[0] + 0.5, index[1] + 0.5, index[2] + 0.5}, world);
  T value{};
  const std::int64_t number = (std::int64_t(index[2]) * SizeY() + index[1]) * SizeX() + index[0];
  // Two threads may do the same cell, with the same result.
  if (!fill(owner, state, *this, world, static_cast<unsigned>(number), value)) return false;
  float* channels = reinterpret_cast<float*>(&value);
  bool isZero = true;
  for (int c = 0; c < kChannels; ++c) {
    if (!std::isfinite(channels[c])) channels[c] = 0;
    isZero = isZero && channels[c] == 0;
  }
  if (!isZero) {
    auto* values = brick->values.load(std::memory_order_acquire);
    if (!values) {
      std::unique_ptr<typename Brick::Values> made(new (std::nothrow) typename Brick::Values);
      if (!made) return false;
      if (brick->values.compare_exchange_strong(values, made.get(), std::memory_order_acq_rel)) {
        bytes_.fetch_add(sizeof(typename Brick::Values), std::memory_order_relaxed);
        values = made.release();
      }
    }
    values->Store(inBrick, channels);
  }
  brick->MarkFilled(inBrick);
  return true;
}

template <typename T>
bool trVoxelCache<T>::FillTaps(const Taps& taps, Fill fill, void* owner, trRenderState& state, int samples) {
  for (int z = 0; z < taps.count; ++z)
    for (int y = 0; y < taps.count; ++y)
      for (int x = 0; x < taps.count; ++x) {
        const int index[3] = {taps.cell[0][x], taps.cell[1][y], taps.cell[2][z]};
        if (!FillCell(index, fill, owner, state, samples)) return false;
      }
  return true;
}

template <typename T>
bool trVoxelCache<T>::FillBlock(int x0, int y0, int z0, int x1, int y1, int z1, Fill fill, void* owner,
                                trRenderState& state, IsEmptyRange isEmpty) {
  using namespace ovhost::voxel;
  if (!bricks_) return false;
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  const int first[3] = {std::max(x0, 0), std::max(y0, 0), std::max(z0, 0)};
  const int last[3] = {std::min(x1, size[0]), std::min(y1, size[1]), std::min(z1, size[2])};
  int brick[3];
  for (brick[2] = first[2] & -kBrickEdge; brick[2] < last[2]; brick[2] += kBrickEdge)
    for (brick[1] = first[1] & -kBrickEdge; brick[1] < last[1]; brick[1] += kBrickEdge)
      for (brick[0] = first[0] & -kBrickEdge; brick[0] < last[0]; brick[0] += kBrickEdge) {
        int from[3], to[3];
        bool isWhole = resolution_ == 1;
        for (int axis = 0; axis < 3; ++axis) {
          const int end = std::min(brick[axis] + kBrickEdge, size[axis]);
          from[axis] = std::max(brick[axis], first[axis]);
          to[axis] = std::min(end, last[axis]);
          isWhole = isWhole && from[axis] == brick[axis] && to[axis] == end;
        }
        std::atomic<Brick*>& slot = bricks_[BrickOf(brick)];
        if (slot.load(std::memory_order_acquire) == &EmptyBrick()) continue;
        if (isEmpty && isWhole && !slot.load(std::memory_order_acquire) &&
            isEmpty(owner, state, *this, from, to)) {
          Brick* none = nullptr;
          if (slot.compare_exchange_strong(none, &EmptyBrick(), std::memory_order_acq_rel)) continue;
        }
        int index[3];
        for (index[2] = from[2]; index[2] < to[2]; ++index[2])
          for (index[1] = from[1]; index[1] < to[1]; ++index[1])
            for (index[0] = from[0]; index[0] < to[0]; ++index[0])
              if (!FillCell(index, fill, owner, state, 1)) return false;
      }
  return true;
}

template <typename T>
bool trVoxelCache<T>::CellValue(int x, int y, int z, T& out) const {
  Taps taps;
  taps.count = 1;
  const int cell[3] = {x, y, z}, size[3] = {SizeX(), SizeY(), SizeZ()};
  for (int axis = 0; axis < 3; ++axis) {
    if (!bricks_ || cell[axis] < 0 || cell[axis] >= size[axis]) return false;
    taps.cell[axis][0] = cell[axis];
    taps.weight[axis][0] = 1;
  }
  return Gather(taps, out, 1);
}

template <typename T>
bool trVoxelCache<T>::CanUseFinalLookupLinear(const trVector& voxel, T& out, int level) const {
  Taps taps;
  return LinearTaps(voxel, level, taps) && Gather(taps, out, 1);
}

template <typename T>
bool trVoxelCache<T>::CanUseFinalLookupSmooth(const trVector& voxel, T& out) const {
  Taps taps;
  return SmoothTaps(voxel, taps) && Gather(taps, out, 1);
}

template <typename T>
bool trVoxelCache<T>::LookupLinear(T& out, const trVector& voxel, int level, Fill fill, void* owner,
                                   trRenderState& state, int samples) {
  out = T();
  Taps taps;
  samples = std::clamp(samples, 1, resolution_);
  if (!LinearTaps(voxel, level, taps)) return false;
  return Gather(taps, out, samples) ||
         (FillTaps(taps, fill, owner, state, samples) && Gather(taps, out, samples));
}

template <typename T>
bool trVoxelCache<T>::LookupSmooth(T& out, const trVector& voxel, Fill fill, void* owner,
                                   trRenderState& state, int samples) {
  out = T();
  Taps taps;
  samples = std::clamp(samples, 1, resolution_);
  if (!SmoothTaps(voxel, taps)) return false;
  return Gather(taps, out, samples) ||
         (FillTaps(taps, fill, owner, state, samples) && Gather(taps, out, samples));
}
