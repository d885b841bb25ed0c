// What a cloud layer bakes and keeps: its density in voxels, light from around, and light scattered in it.
#pragma once

#include <memory>

#include "atmosphere/cloud_occupancy.h"
#include "core/voxel.h"

/// A layer's grids. The projectors outlive what lies over them.
struct CloudVoxels {
  trVoxelPlanetLimbProjector limbProjector;
  /// Density as a share of full extinction, per channel; and whether there is any.
  trVoxelCache<trF4Col> density;
  CloudOccupancy occupancy;
  /// What comes through of the main light to the layer's base, for points below it; one cell high.
  trVoxelCache<trFCol> sunlight;
  trVoxelCache<trFCol> lighting;
  trAnisoVoxelCache<trFCol> aniso;
  trVoxelScatterModelC scatter;
  bool hasScatter = false;

  trVoxelBoxProjector indirectProjector;
  trVoxelCache<trFCol> indirect;  ///< of progressive renders

  std::unique_ptr<trVoxelProjector> exportProjector;
  trVoxelBuffer exportBuffer;
};
