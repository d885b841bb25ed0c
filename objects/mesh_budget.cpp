// What a generator refuses to make.
#include "objects/mesh_budget.h"

#include <cmath>
#include <cstdio>

#include "core/memory.h"

bool FitsMeshBudget(const trBase& node, double count, const char* what, std::uint64_t bytes,
                    double trianglesEach) {
  // Tables of scenes have 32-bit indices; no table has more than three entries a triangle.
  constexpr double kMostTriangles = 2147483647.0 / 3;
  const auto budget = static_cast<double>(trMemoryLeft());
  if (count * static_cast<double>(bytes) <= budget && count * trianglesEach <= kMostTriangles) return true;
  const trScopedErrorsWarningsContext context(&node);
  constexpr double kLargestTold = 1e18;
  const double told = std::fmin(count, kLargestTold);
  char text[200];
  std::snprintf(text, sizeof text,
                "%s%.0f %s would take %.0f MB; the budget is %.0f MB, and %.0f triangles at most.",
                told < count ? "More than " : "", told, what, told * static_cast<double>(bytes) / 1e6,
                budget / 1e6, kMostTriangles);
  trError(text);
  return false;
}
