// Indirect light at vertices of diced surfaces, worked out once for all samples near them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "core/api.h"
#include "core/colour.h"
#include "core/vector.h"

namespace ovhost {

/// Light that a point of a surface receives from everything but suns, for normals near one normal.
struct CachedLight {
  trFCol even;      ///< mean over the hemisphere, by cosine: what a white surface sends back
  trFCol along[3];  ///< the same from all directions times the direction, by x, y and z

  /// For another normal of the same point: half way between light that comes from all round, which doesn't
  /// care, and light from where most of it comes from. Exact for an even dome of light above the horizon.
  trFCol For(const trVector& normal) const {
    trFCol light = even * 0.5f;
    for (int i = 0; i < 3; ++i) light += along[i] * static_cast<float>(0.5 * normal[i]);
    for (int c = 0; c < 3; ++c) light[c] = light[c] > 0.1f * even[c] ? light[c] : 0.1f * even[c];
    return light;
  }
};

/// A table that all threads share, in which new entries take the place of old ones. What a key stands for
/// never depends on who asks first, so pictures don't depend on what was found here and what had to be worked
/// out again. Thread-safe and free of locks: who meets an entry that is being written goes on without it.
class OV_API LightCache {
 public:
  /// Of 2^bits entries, 64 bytes each; at least 3 bits.
  explicit LightCache(int bits);
  ~LightCache();

  static constexpr std::uint64_t kEntryBytes = 64;
  std::uint64_t Bytes() const { return (mask_ + 1) * kEntryBytes; }

  /// The light of `key`, which isn't 0, from compute() where it isn't here, or not any more.
  template <typename Compute>
  CachedLight Find(std::uint64_t key, const Compute& compute) {
    CachedLight light;
    if (!Read(key, light)) {
      light = compute();
      Write(key, light);
    }
    return light;
  }

 private:
  using Words = std::array<std::uint64_t, sizeof(CachedLight) / sizeof(std::uint64_t)>;
  struct alignas(kEntryBytes) Entry;

  bool Read(std::uint64_t key, CachedLight& light) const;
  void Write(std::uint64_t key, const CachedLight& light);
  /// The first of the entries that may have a key.
  std::uint64_t GroupOf(std::uint64_t key) const;

  std::unique_ptr<Entry[]> entries_;
  int shift_;
  std::uint64_t mask_;
};

}  // namespace ovhost
