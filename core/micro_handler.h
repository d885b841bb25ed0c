// Nodes that get the diced surface of a frame.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "core/node.h"

/// Micropolygons as a mesh in world space, metres. Points are there once, with the normals of the displaced
/// surface; the front of a triangle a, b, c is the side that (c - a) x (b - a) points to.
struct trMicroSurface {
  trVector origin;  ///< that points are relative to
  std::vector<trFVector> points, normals;
  std::vector<std::array<std::uint32_t, 3>> triangles;
};

/// Base of micro handlers. A render node's `micro_exporter` leads to one.
class OV_API trMicroHandler : public trBase {
 public:
  /// Called once for each frame whose surfaces were made, before its first pixel. 0 with an error ends the
  /// render. One thread at a time.
  virtual long HandleMicroSurface(const trMicroSurface& surface) = 0;
};
