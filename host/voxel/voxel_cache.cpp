// The caches that the contract offers.
#include "host/voxel/voxel_cache-inl.h"

static_assert(std::is_standard_layout_v<trFCol> && sizeof(trFCol) == 3 * sizeof(float));
static_assert(std::is_standard_layout_v<trF4Col> && sizeof(trF4Col) == 4 * sizeof(float));
template class trVoxelCache<trFCol>;
template class trVoxelCache<trF4Col>;

template <typename T>
bool trAnisoVoxelCache<T>::InitVoxelBuffer(const trVoxelProjector* projector, int nx, int ny, int nz,
                                           int resolution, const trString& name) {
  static const char* const kNames[6] = {".x+", ".x-", ".y+", ".y-", ".z+", ".z-"};
  for (int i = 0; i < 6; ++i)
    if (!caches_[i].InitVoxelBuffer(projector, nx, ny, nz, resolution, name + trString(kNames[i]))) {
      Cleanup();
      return false;
    }
  return true;
}

template <typename T>
void trAnisoVoxelCache<T>::Cleanup() {
  for (trVoxelCache<T>& cache : caches_) cache.Cleanup();
}

template class trAnisoVoxelCache<trFCol>;
