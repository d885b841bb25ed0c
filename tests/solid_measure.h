// What tests of meshes measure: volume, and whether a surface is closed.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <map>

#include "core/scene.h"

/// The fronts of triangles are where (c - a) x (b - a) points. Points in one place are one point.
struct SolidMeasure {
  double volume = 0, area = 0;  ///< volume by the divergence theorem: positive where fronts are outside
  bool isClosed = true;         ///< every edge is run once each way
  size_t points = 0, edges = 0;

  explicit SolidMeasure(const trScene& scene) {
    std::map<std::array<double, 3>, int> places;
    std::map<std::pair<int, int>, int> runs;
    for (long i = 1; i <= scene.NumTris(); ++i) {
      trVector p[3];
      EXPECT_EQ(scene.GetPointVecs(scene.GetPTri(i)->point, p, 3), 3);
      volume += Dot(p[0], Cross(p[2], p[1])) / 6;
      area += Cross(p[2] - p[0], p[1] - p[0]).Length() / 2;
      int place[3];
      for (int k = 0; k < 3; ++k)
        place[k] =
            places.try_emplace({p[k].x, p[k].y, p[k].z}, static_cast<int>(places.size())).first->second;
      for (int k = 0; k < 3; ++k) ++runs[{place[k], place[(k + 1) % 3]}];
    }
    for (const auto& [edge, count] : runs)
      isClosed &= count == 1 && runs.count({edge.second, edge.first}) == 1;
    points = places.size();
    edges = runs.size() / 2;
  }
};
