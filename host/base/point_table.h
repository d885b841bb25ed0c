// Points, each once.
#pragma once

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "core/vector.h"

namespace ovhost {

/// Entries by their bits, in a table of open addresses. Throws std::bad_alloc.
class PointTable {
 public:
  const std::vector<trFVector>& Points() const { return points_; }
  std::vector<trFVector> TakePoints() { return std::move(points_); }

  /// Its number, from 0.
  std::int32_t Enter(trFVector p) {
    // Both zeros are one.
    p.x += 0.0f;
    p.y += 0.0f;
    p.z += 0.0f;
    if (2 * (points_.size() + 1) > slots_.size()) Grow();
    const std::size_t slot = Find(p);
    if (slots_[slot] < 0) {
      slots_[slot] = static_cast<std::int32_t>(points_.size());
      points_.push_back(p);
    }
    return slots_[slot];
  }

 private:
  static std::uint64_t Hash(const trFVector& p) {
    std::uint32_t words[3];
    std::memcpy(words, &p, sizeof words);
    std::uint64_t h = words[0] * 0x9e3779b97f4a7c15ull;
    h = (h ^ (h >> 29) ^ words[1]) * 0xbf58476d1ce4e5b9ull;
    h = (h ^ (h >> 32) ^ words[2]) * 0x94d049bb133111ebull;
    return h ^ (h >> 31);
  }
  std::size_t Find(const trFVector& p) const {
    std::size_t slot = Hash(p) & (slots_.size() - 1);
    while (slots_[slot] >= 0 &&
           std::memcmp(&points_[static_cast<std::size_t>(slots_[slot])], &p, sizeof p) != 0)
      slot = (slot + 1) & (slots_.size() - 1);
    return slot;
  }
  void Grow() {
    slots_.assign(slots_.empty() ? 1 << 12 : 4 * slots_.size(), -1);
    for (std::size_t i = 0; i < points_.size(); ++i) slots_[Find(points_[i])] = static_cast<std::int32_t>(i);
  }

  std::vector<trFVector> points_;
  std::vector<std::int32_t> slots_;
};

}  // namespace ovhost
