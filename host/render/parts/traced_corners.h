// The order of a triangle's corners, in scenes and to the ray tracer.
#pragma once

#include <utility>

#include "core/scene.h"

namespace ovhost {

/// A scene's triangle with its corners in the order that all parts have them: (b - a) x (c - a) is outward,
/// where scenes have (c - a) x (b - a).
inline trTri TracedCorners(trTri tri) {
  std::swap(tri.point[1], tri.point[2]);
  std::swap(tri.texVert[1], tri.texVert[2]);
  std::swap(tri.normal[1], tri.normal[2]);
  return tri;
}

}  // namespace ovhost
