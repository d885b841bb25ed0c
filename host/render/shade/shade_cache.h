// What diffuse surfaces look like, by pieces: worked out once for all samples that meet a piece.
#pragma once

#include <vector>

#include "core/colour.h"
#include "host/render/parts/surface_part.h"

namespace ovhost {

/// A direct-mapped cache of pieces' colours. They depend on the piece alone, so a picture doesn't depend on
/// what was found here and what forgotten. Per-thread state.
class OV_API ShadeCache {
 public:
  struct Entry {
    const SurfacePart* part = nullptr;
    std::uint32_t primitive = 0, number = 0;
    bool isShared = false;  ///< false where each sample must be shaded on its own
    trFCol emission, diffuse;
  };

  /// Of 2^bits entries.
  explicit ShadeCache(int bits) : entries_(size_t(1) << bits), shift_(64 - bits) {}

  /// The entry of a piece; `isNew` where it is to be filled.
  Entry& Find(const SurfacePiece& piece, bool& isNew) {
    const std::uint64_t key = static_cast<std::uint64_t>(piece.primitive) << 32 | piece.number;
    Entry& entry = entries_[key * 0x9e3779b97f4a7c15ull >> shift_];
    isNew = entry.part != piece.part || entry.primitive != piece.primitive || entry.number != piece.number;
    if (isNew) {
      entry.part = piece.part;
      entry.primitive = piece.primitive;
      entry.number = piece.number;
    }
    return entry;
  }

 private:
  std::vector<Entry> entries_;
  int shift_;
};

}  // namespace ovhost
