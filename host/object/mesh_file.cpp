#include "host/object/mesh_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

#include "host/base/child_process.h"
#include "host/base/memory.h"

namespace ovhost {
namespace {

/// What any file may take, in seconds of work, and the slowest that an honest one is read, in bytes a second.
constexpr double kPatience = 20, kSlowestReader = 2e6;
/// What libraries take by themselves, and the most that an honest file becomes, in bytes for one of its own.
constexpr double kLibraries = 1 << 30, kMostTimesLarger = 200;

template <typename T>
bool ReceiveTable(ChildProcess& child, std::int64_t count, std::vector<T>& table) {
  table.resize(static_cast<std::size_t>(count));
  return child.Receive(table.data(), table.size() * sizeof(T));
}

bool IsHonest(const MeshAnswer& answer, std::uint64_t freeMemory) {
  double bytes = 0;
  const std::pair<std::int64_t, std::size_t> tables[] = {{answer.points, sizeof(MeshPoint)},
                                                         {answer.texVerts, sizeof(MeshPoint)},
                                                         {answer.normals, sizeof(MeshPoint)},
                                                         {answer.triangles, sizeof(MeshTriangle)},
                                                         {answer.materials, sizeof(MeshMaterial)}};
  for (const auto& [count, size] : tables) {
    if (count < 0 || count > 0x7fffffff) return false;
    bytes += static_cast<double>(count) * static_cast<double>(size);
  }
  return bytes <= static_cast<double>(freeMemory);
}

/// Texts end, and numbers are finite.
void Tame(MeshMaterial& material) {
  material.name[sizeof material.name - 1] = 0;
  for (auto& image : material.image) image[sizeof image - 1] = 0;
  const auto tame = [](float& value, float otherwise) {
    if (!std::isfinite(value)) value = otherwise;
  };
  for (float& c : material.colour) tame(c, 0.5f);
  for (float& c : material.luminosity) tame(c, 0);
  for (float* const value :
       {&material.opacity, &material.roughness, &material.metalness, &material.indexOfRefraction})
    tame(*value, -1);
}

}  // namespace

std::string ReadMeshFile(const std::string& path, const MeshReadOptions& options, ForeignMesh& mesh) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
  if (!S_ISREG(status.st_mode)) return "it isn't a file";
  MeshRequest request;
  if (path.size() >= sizeof request.path) return "the path is too long";
  std::memcpy(request.magic, kMeshMagic, sizeof request.magic);
  std::memcpy(request.path, path.data(), path.size());
  const auto size = static_cast<double>(status.st_size);
  const double seconds = kPatience + size / kSlowestReader;
  const std::uint64_t freeMemory = FreeMemory();
  request.freeMemory = static_cast<std::uint64_t>(
      std::min(static_cast<double>(freeMemory), kLibraries + kMostTimesLarger * size));
  request.scale = options.scale;
  request.weld = options.weld;
  request.up = options.up;
  request.seconds = static_cast<std::int32_t>(seconds);

  ChildProcess child("ovmesh_reader");
  if (const std::string problem = child.Start(); !problem.empty()) return problem;
  child.SetPatience(2 * seconds);
  MeshAnswer answer;
  const auto ended = [&child] {
    return child.WasTooSlow() ? std::string("its reader came to no end")
                              : std::string("the file is damaged in a way that its reader doesn't survive");
  };
  if (!child.Send(&request, sizeof request) || !child.Receive(&answer, sizeof answer) ||
      std::memcmp(answer.magic, kMeshMagic, sizeof answer.magic) != 0)
    return ended();
  if (!answer.isDone) {
    answer.problem[sizeof answer.problem - 1] = 0;
    return answer.problem[0] ? answer.problem : "it can't be read";
  }
  if (!IsHonest(answer, freeMemory)) return "it takes more memory than there is";
  if (!ReceiveTable(child, answer.points, mesh.points) ||
      !ReceiveTable(child, answer.texVerts, mesh.texVerts) ||
      !ReceiveTable(child, answer.normals, mesh.normals) ||
      !ReceiveTable(child, answer.triangles, mesh.triangles) ||
      !ReceiveTable(child, answer.materials, mesh.materials))
    return ended();
  for (MeshMaterial& material : mesh.materials) Tame(material);
  mesh.metresPerUnit = answer.metresPerUnit;
  mesh.up = answer.up;
  mesh.leftOut = answer.leftOut;
  return {};
}

}  // namespace ovhost
