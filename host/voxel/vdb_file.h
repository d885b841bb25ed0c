// VDB files, read and written by a process of its own, so that a damaged file costs a message.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "core/api.h"
#include "host/voxel/sparse_grid.h"

namespace ovhost {

/// A grid of a file with its coarser levels, from memory where another user has it still. Null with the
/// reason in `problem`. Thread-safe.
OV_API std::shared_ptr<const PlacedGrid> ReadVdb(const std::string& path, const std::string& grid,
                                                 std::string& problem);

/// A fog volume to be written: a brick's 512 values, x fastest, which aren't all 0.
struct VdbBrickValues {
  int brick[3];
  float values[SparseGrid::kCells];
};
struct VdbWritten {
  std::int64_t activeCells = 0, bytes = 0;
};
/// Writes the file beside `path`, checks it and puts it in place. Empty, or why it isn't there. One thread at
/// a time a path.
OV_API std::string WriteVdb(const std::string& path, const std::string& grid,
                            const trMatrix4x4<double>& toWorld,
                            const std::vector<std::unique_ptr<VdbBrickValues>>& bricks, bool isHalf,
                            VdbWritten& written);

}  // namespace ovhost
