// What assemblies take.
#include "host/render/parts/assembly.h"

namespace ovhost {
namespace {

/// A triangle's share of the ray tracer's hierarchy, bytes.
constexpr std::uint64_t kBytesPerTriangle = 80;

}  // namespace

std::uint64_t Assembly::Bytes() const {
  std::uint64_t bytes = 0;
  ForEachSurface([&bytes](const SurfacePart& part) {
    bytes += part.Bytes() + part.Shape().numTriangles * kBytesPerTriangle;
  });
  for (const auto& population : populations)
    bytes += population->instances.size() * (sizeof(Instance) + kHierarchyBytesPerCopy);
  return bytes;
}

}  // namespace ovhost
