// Points that lie near each other made one.
#pragma once

#include <cmath>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/object/codec/mesh_protocol.h"

/// For each point the one that stands for it: the first within `distance` of it that stands for itself.
inline std::vector<std::int32_t> WeldedPoints(const std::vector<ovhost::MeshPoint>& points, double distance) {
  // Points are looked for in cells as wide as the distance; cells of one hash are told apart by distance.
  const auto cellOf = [distance](float v) { return static_cast<std::int64_t>(std::floor(v / distance)); };
  const auto key = [](std::int64_t x, std::int64_t y, std::int64_t z) {
    return static_cast<std::uint64_t>(x) * 73856093u ^ static_cast<std::uint64_t>(y) * 19349663u ^
           static_cast<std::uint64_t>(z) * 83492791u;
  };
  std::unordered_map<std::uint64_t, std::int32_t> first;  // of a chain of points by cell
  std::vector<std::int32_t> next(points.size(), -1), standsFor(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const ovhost::MeshPoint& p = points[i];
    const std::int64_t x = cellOf(p.x), y = cellOf(p.y), z = cellOf(p.z);
    std::int32_t found = -1;
    for (int cell = 0; cell < 27; ++cell) {
      const auto at = first.find(key(x + cell % 3 - 1, y + cell / 3 % 3 - 1, z + cell / 9 - 1));
      for (std::int32_t j = at == first.end() ? -1 : at->second; j >= 0;
           j = next[static_cast<std::size_t>(j)]) {
        const ovhost::MeshPoint& q = points[static_cast<std::size_t>(j)];
        const double dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
        if (dx * dx + dy * dy + dz * dz <= distance * distance && (found < 0 || j < found)) found = j;
      }
    }
    standsFor[i] = found < 0 ? static_cast<std::int32_t>(i) : found;
    if (found >= 0) continue;
    const auto [entry, isNew] = first.try_emplace(key(x, y, z), static_cast<std::int32_t>(i));
    if (isNew) continue;
    next[i] = entry->second;
    entry->second = static_cast<std::int32_t>(i);
  }
  return standsFor;
}
