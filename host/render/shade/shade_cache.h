// What diffuse surfaces look like, by pieces of their micropolygon grids: worked out once for all samples
// that meet a piece.
#pragma once

#include <vector>

#include "host/render/trace/accel.h"

namespace ovhost {

/// A piece of a patch: a part of a micropolygon or a block of some. Its colours are those at its middle.
struct ShadePiece {
  const SurfacePart* part = nullptr;
  std::uint32_t patch = 0, number = 0;  ///< `number` tells the pieces of a patch apart, whatever their size
  double u = 0, v = 0;                  ///< its middle, within the patch
};

/// The piece under a camera ray's hit: as large as a pixel or so, seen from the eye. False where
/// micropolygons are so long that it isn't worth sharing. `pixelAngle` in radians.
OV_API bool PieceForCamera(const GridMesh& mesh, const SurfaceHit& hit, double pixelAngle, ShadePiece& piece);
/// The block of micropolygons under a bounce's hit, half the footprint's size to all of it. Returns the
/// length of its side, metres.
OV_API double PieceForBounce(const GridMesh& mesh, const SurfaceHit& hit, double footprint,
                             ShadePiece& piece);
/// The piece under the hit of a ray that mirrors or clear borders sent along `direction`: seen from there up
/// to twice the footprint long, a block of micropolygons or a part of one. Returns the mean length of its
/// sides, metres; 0 where micropolygons are so long that it isn't worth sharing.
OV_API double PieceForCone(const GridMesh& mesh, const SurfaceHit& hit, const trVector& direction,
                           double footprint, ShadePiece& piece);
/// A piece's middle, relative to the eye.
OV_API trVector MiddleOf(const GridMesh& mesh, const ShadePiece& piece);

/// A direct-mapped cache of pieces' colours. They depend on the piece alone, so a picture doesn't depend on
/// what was found here and what forgotten. Per-thread state.
class OV_API ShadeCache {
 public:
  struct Entry {
    const SurfacePart* part = nullptr;
    std::uint32_t patch = 0, number = 0;
    bool isShared = false;  ///< false where each sample must be shaded on its own
    trFCol emission, diffuse;
  };

  /// Of 2^bits entries.
  explicit ShadeCache(int bits) : entries_(size_t(1) << bits), shift_(64 - bits) {}

  /// The entry of a piece; `isNew` where it is to be filled.
  Entry& Find(const ShadePiece& piece, bool& isNew) {
    const std::uint64_t key = static_cast<std::uint64_t>(piece.patch) << 32 | piece.number;
    Entry& entry = entries_[key * 0x9e3779b97f4a7c15ull >> shift_];
    isNew = entry.part != piece.part || entry.patch != piece.patch || entry.number != piece.number;
    if (isNew) {
      entry.part = piece.part;
      entry.patch = piece.patch;
      entry.number = piece.number;
    }
    return entry;
  }

 private:
  std::vector<Entry> entries_;
  int shift_;
};

}  // namespace ovhost
