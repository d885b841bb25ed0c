// What the program and its reader and writer of VDB files say to each other over pipes.
//
// The child is told what to do by a VdbRequest on its standard input, answers with a VdbAnswer on its
// standard output, and grids travel as bricks: to the child after the request of a file to write, from it
// after the answer.
#pragma once

#include <cstdint>

namespace ovhost {

inline constexpr char kVdbMagic[8] = {'o', 'v', 'v', 'd', 'b', ' ', '1', 0};
inline constexpr int kVdbBrickEdge = 8, kVdbBrickCells = 512;
/// Of the box of bricks round a grid.
inline constexpr std::int64_t kMostVdbBricks = std::int64_t(1) << 24;

struct VdbRequest {
  char magic[8] = {};
  char path[4096] = {};
  char grid[256] = {};
  char creator[64] = {};
  std::uint64_t freeMemory = 0;  ///< bytes
  std::int32_t isWrite = 0, isHalf = 0;
  double toWorld[16] = {};  ///< rows, of voxel centres; of a file to write
  std::int64_t bricks = 0;  ///< that follow
};

struct VdbAnswer {
  char magic[8] = {};
  std::int32_t isDone = 0;
  char problem[1020] = {};
  double toWorld[16] = {};
  float background = 0;
  std::int32_t isHalf = 0;
  std::int64_t bricks = 0;                  ///< that follow
  std::int64_t activeCells = 0, bytes = 0;  ///< of the file
};

/// A block of voxels; its values, x fastest, follow where it has them.
struct VdbBrick {
  std::int32_t brick[3] = {};  ///< its first voxel, in bricks
  float value = 0;             ///< of all its voxels, where it has no others
  std::int32_t hasValues = 0;
};

}  // namespace ovhost
