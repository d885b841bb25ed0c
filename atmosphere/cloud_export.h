// A bake of a cloud layer that a host drives.
#pragma once

#include "core/voxel.h"

class CloudLayerV2;

/// Gives each of the host's threads a worker with a render state of its own.
class CloudLayerV2_VoxelServer final : public trVoxelServer {
 public:
  /// Cells are those of `buffer`.
  CloudLayerV2_VoxelServer(CloudLayerV2& cloud, const trVoxelBuffer& buffer)
      : cloud_(cloud), buffer_(buffer) {}
  trVoxelServerThread* NewThread(trRenderServices& services) override;

 private:
  CloudLayerV2& cloud_;
  const trVoxelBuffer& buffer_;
};
