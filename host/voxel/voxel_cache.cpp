// Voxel caches: interpolation, and filling from many threads at once.
#include <algorithm>
#include <cmath>
#include <new>
#include <type_traits>

#include "core/voxel.h"

namespace {

/// Seed of a cell's sample: a hash, so that neither the order of cells nor of threads shows (SplitMix64's
/// mixer, Steele, Lea and Flood 2014).
unsigned SampleSeed(std::int64_t cell, int sample) {
  trRandomStream stream{static_cast<std::uint64_t>(cell) * 0x9e3779b97f4a7c15ull,
                        static_cast<std::uint32_t>(sample)};
  return static_cast<unsigned>(stream.Next() * 4294967296.0);
}

bool IsNumber(const trVector& v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

int Clamped(double x, int size) { return static_cast<int>(std::clamp(x, 0.0, size - 1.0)); }

}  // namespace

template <typename T>
trVoxelCache<T>::trVoxelCache() : locks_(std::make_unique<std::mutex[]>(kLocks)) {}

template <typename T>
trVoxelCache<T>::~trVoxelCache() = default;

template <typename T>
bool trVoxelCache<T>::InitVoxelBuffer(const trVoxelProjector* projector, int nx, int ny, int nz,
                                      int resolution, const trString& name) {
  Cleanup();
  name_ = name;
  resolution_ = std::max(resolution, 1);
  if (!SetDimensions(projector, nx, ny, nz)) return false;
  cells_.reset(new (std::nothrow) Cell[NumCells()]);
  if (!cells_) SetDimensions(nullptr, 0, 0, 0);
  return cells_ != nullptr;
}

template <typename T>
void trVoxelCache<T>::Cleanup() {
  cells_.reset();
  SetDimensions(nullptr, 0, 0, 0);
}

template <typename T>
bool trVoxelCache<T>::LinearTaps(const trVector& voxel, int level, Taps& taps) const {
  if (!cells_ || !IsNumber(voxel)) return false;
  const int stride = std::clamp(level, 1, 1 << 20);
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  int cell[3][2];
  double weight[3][2];
  for (int axis = 0; axis < 3; ++axis) {
    // A coarse cell is stood for by the fine one at its middle.
    const double c = voxel[axis] / stride - 0.5, low = std::floor(c);
    weight[axis][1] = c - low;
    weight[axis][0] = 1.0 - weight[axis][1];
    for (int i = 0; i < 2; ++i) cell[axis][i] = Clamped((low + i) * stride + stride / 2, size[axis]);
  }
  taps.count = 0;
  for (int i = 0; i < 8; ++i) {
    const int x = i & 1, y = (i >> 1) & 1, z = i >> 2;
    taps.cell[taps.count] = (std::int64_t(cell[2][z]) * size[1] + cell[1][y]) * size[0] + cell[0][x];
    taps.weight[taps.count++] = static_cast<float>(weight[0][x] * weight[1][y] * weight[2][z]);
  }
  return true;
}

template <typename T>
bool trVoxelCache<T>::SmoothTaps(const trVector& voxel, Taps& taps) const {
  if (!cells_ || !IsNumber(voxel)) return false;
  const int size[3] = {SizeX(), SizeY(), SizeZ()};
  int cell[3][3];
  double weight[3][3];
  for (int axis = 0; axis < 3; ++axis) {
    const double middle = std::floor(voxel[axis]), t = voxel[axis] - middle - 0.5;
    weight[axis][0] = 0.5 * (0.5 - t) * (0.5 - t);
    weight[axis][1] = 0.75 - t * t;
    weight[axis][2] = 0.5 * (0.5 + t) * (0.5 + t);
    for (int i = 0; i < 3; ++i) cell[axis][i] = Clamped(middle + i - 1, size[axis]);
  }
  taps.count = 0;
  for (int z = 0; z < 3; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 3; ++x) {
        taps.cell[taps.count] = (std::int64_t(cell[2][z]) * size[1] + cell[1][y]) * size[0] + cell[0][x];
        taps.weight[taps.count++] = static_cast<float>(weight[0][x] * weight[1][y] * weight[2][z]);
      }
  return true;
}

template <typename T>
bool trVoxelCache<T>::Gather(const Taps& taps, T& out, int samples) const {
  float sum[kChannels] = {};
  for (int i = 0; i < taps.count; ++i) {
    const Cell& cell = cells_[taps.cell[i]];
    if (cell.count.load(std::memory_order_acquire) < samples) return false;
    for (int c = 0; c < kChannels; ++c)
      sum[c] += taps.weight[i] * cell.mean[c].load(std::memory_order_relaxed);
  }
  std::copy(sum, sum + kChannels, reinterpret_cast<float*>(&out));
  return true;
}

template <typename T>
bool trVoxelCache<T>::FillCell(std::int64_t index, Fill fill, void* owner, trRenderState& state,
                               int samples) {
  Cell& cell = cells_[index];
  if (cell.count.load(std::memory_order_acquire) >= samples) return true;
  std::mutex& lock = locks_[index % kLocks];
  double sum[kChannels];
  int count;
  {
    const std::lock_guard<std::mutex> hold(lock);
    count = cell.count.load(std::memory_order_relaxed);
    std::copy(cell.sum, cell.sum + kChannels, sum);
  }
  const std::int64_t x = index % SizeX(), y = index / SizeX() % SizeY(), z = index / SizeX() / SizeY();
  trVector world;
  MapVoxelToWorld({x + 0.5, y + 0.5, z + 0.5}, world);
  // No lock is held while sampling, which may trace rays: two threads may do the same cell, with the same
  // result.
  for (; count < samples; ++count) {
    T value{};
    if (!fill(owner, state, *this, world, SampleSeed(index, count), value)) return false;
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
bool trVoxelCache<T>::FillTaps(const Taps& taps, Fill fill, void* owner, trRenderState& state, int samples) {
  for (int i = 0; i < taps.count; ++i)
    if (!FillCell(taps.cell[i], fill, owner, state, samples)) return false;
  return true;
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

static_assert(std::is_standard_layout_v<trFCol> && sizeof(trFCol) == 3 * sizeof(float));
static_assert(std::is_standard_layout_v<trF4Col> && sizeof(trF4Col) == 4 * sizeof(float));
template class trVoxelCache<trFCol>;
template class trVoxelCache<trF4Col>;
