// Meshes as LWO2 files: big-endian chunks, one layer, one surface.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "core/object_writer.h"
#include "core/vector.h"

/// A mesh to write; points and triangles are asked for in order, counted from 0. The front of a triangle
/// a, b, c is the side that (c - a) x (b - a) points to, as in scenes.
struct LwoMesh {
  std::int64_t numPoints = 0, numTriangles = 0;
  std::function<trVector(std::int64_t point)> point;
  std::function<std::array<std::int64_t, 3>(std::int64_t triangle)> triangle;
};

/// Writes the file; 0 with an error where it can't.
long WriteLwo(const LwoMesh& mesh, const trString& path);

/// `object_writer_lwo`: the first geometry group of a scene.
class ObjectWriterLWO : public trObjectWriter {
 public:
  long WriteObject(trScene& scene, trBase* node, const trString& path) override;
};
