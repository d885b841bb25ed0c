// What assemblies take.
#include "host/render/parts/assembly.h"

namespace ovhost {
namespace {

/// Shares of the ray tracer's hierarchies, bytes.
constexpr std::uint64_t kBytesPerTriangle = 80, kBytesPerInstance = 100;

}  // namespace

std::uint64_t Assembly::Bytes() const {
  std::uint64_t bytes = 0;
  ForEachSurface([&bytes](const SurfacePart& part) {
    bytes += part.Bytes() + part.Shape().numTriangles * kBytesPerTriangle;
  });
  for (const auto& population : populations)
    bytes += population->instances.size() * (sizeof(Instance) + kBytesPerInstance);
  return bytes;
}

}  // namespace ovhost
