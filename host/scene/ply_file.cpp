#include "host/scene/ply_file.h"

#include <bit>
#include <cstring>

#include "host/base/atomic_file.h"

namespace ovhost {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers are copied as they are");

template <typename T>
void Append(std::string& bytes, T value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void AppendTurned(std::string& bytes, const trVector& v) {
  Append(bytes, static_cast<float>(v.x));
  Append(bytes, static_cast<float>(v.y));
  Append(bytes, static_cast<float>(-v.z));
}

/// The format has one normal a point: the one that a triangle uses it with; none where a corner lacks it.
std::vector<std::int32_t> NormalOfPoints(const trScene& mesh) {
  std::vector<std::int32_t> normals(static_cast<std::size_t>(mesh.NumPts()), 0);
  for (long i = 1; i <= mesh.NumTris(); ++i) {
    const trTri& tri = *mesh.GetPTri(i);
    for (int corner = 0; corner < 3; ++corner) {
      if (tri.normal[corner] == 0) return {};
      std::int32_t& normal = normals[static_cast<std::size_t>(tri.point[corner]) - 1];
      if (normal == 0) normal = tri.normal[corner];
    }
  }
  return normals;
}

}  // namespace

std::string WritePly(const trScene& mesh, const std::string& path) {
  const std::vector<std::int32_t> normals = NormalOfPoints(mesh);
  std::string bytes = "ply\nformat binary_little_endian 1.0\ncomment metres, y up\nelement vertex " +
                      std::to_string(mesh.NumPts()) +
                      "\nproperty float x\nproperty float y\nproperty float z\n";
  if (!normals.empty()) bytes += "property float nx\nproperty float ny\nproperty float nz\n";
  bytes += "element face " + std::to_string(mesh.NumTris()) +
           "\nproperty list uchar int vertex_indices\nend_header\n";
  bytes.reserve(bytes.size() + static_cast<std::size_t>(mesh.NumPts()) * (normals.empty() ? 12 : 24) +
                static_cast<std::size_t>(mesh.NumTris()) * 13);
  for (long i = 1; i <= mesh.NumPts(); ++i) {
    AppendTurned(bytes, mesh.GetPPoint(i)->position);
    if (normals.empty()) continue;
    const trNormal* const normal = mesh.GetPNormal(normals[static_cast<std::size_t>(i) - 1]);
    AppendTurned(bytes, normal ? normal->direction : trVector(0, 1, 0));
  }
  for (long i = 1; i <= mesh.NumTris(); ++i) {
    bytes.push_back(3);
    for (const std::int32_t point : mesh.GetPTri(i)->point) Append(bytes, point - 1);
  }
  return WriteFileAtomically(path, bytes.data(), bytes.size());
}

}  // namespace ovhost
