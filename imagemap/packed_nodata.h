// Pixels without data, as runs: they lie in long strips, of which a list is far smaller than a mask.
#pragma once

#include <cstdint>
#include <vector>

#include "core/string.h"

/// A set of pixel indices (x + y width), packed as ascending runs that don't touch.
class GeogPackedNODATA {
 public:
  struct Range {
    std::uint64_t first, last;  ///< both included
    bool operator==(const Range& other) const { return first == other.first && last == other.last; }
  };

  void Clear();
  /// Indices come in ascending order.
  void Add(std::uint64_t index);
  void Merge(const GeogPackedNODATA& other);
  /// The next pixel of a walk through all; false after the last one.
  bool Next(std::uint64_t& index);
  std::int64_t Count() const { return count_; }
  const std::vector<Range>& Ranges() const { return ranges_; }
  /// The set in words, for whoever looks for faults.
  trString Dump() const;

 private:
  std::vector<Range> ranges_;
  bool isIterating_ = false;
  std::uint64_t currentFirst_ = 0, currentLast_ = 0;
  std::int64_t run_ = 0, step_ = 0, count_ = 0;
};
