#include "objectio/micro_exporter.h"

#include <cmath>
#include <new>

#include "core/scene.h"
#include "objectio/lwo_writer.h"

MicroExporter::MicroExporter(const char* label, const char* pattern) {
  fileHint_.AddFileFilter(label, pattern);
  Param(filename_, "filename", "", &fileHint_)
      .About(
          "The file to write; its extension says the format, and a run of # stands for the frame's number.");
  Param(enable_, "enable", 1).About("Turn it off to render without writing the surface.");
}

trString MicroExporter::Path() const {
  trString path = filename_.FullPath();
  const std::size_t end = path.find_last_of('#');
  if (end == trString::npos) return path;
  std::size_t begin = end;
  while (begin > 0 && path[begin - 1] == '#') --begin;
  trString number = std::to_string(std::lround(GetCurrentFrame()));
  const std::size_t width = end - begin + 1;
  if (number.size() < width) number.insert(0, width - number.size(), '0');
  return path.replace(begin, width, number);
}

long MicroExporter::HandleMicroSurface(const trMicroSurface& surface) {
  if (!enable_) return 1;
  const trString path = Path();
  if (path.empty()) {
    trWarning("MicroExporter: There is no file name, so nothing is written.");
    return 1;
  }
  if (surface.triangles.empty()) {
    trError("MicroExporter: The frame has no diced surface to be written: " + path);
    return 0;
  }
  try {
    if (!Write(surface, path)) return 0;
  } catch (const std::bad_alloc&) {
    trError("MicroExporter: The surface takes more memory than there is: " + path);
    return 0;
  }
  trPrintMessage(path + ": written; " + std::to_string(surface.points.size()) + " points, " +
                 std::to_string(surface.triangles.size()) + " triangles");
  return 1;
}

long MicroExporter::Write(const trMicroSurface& surface, const trString& path) {
  trScene scene;
  const long group = scene.Init() ? scene.BeginGroup("micropolygons") : 0;
  if (!group) return 0;
  trScene& mesh = *scene.GetPGroup(group)->Subscene();
  for (const trFVector& point : surface.points) mesh.AddPoint({trVector(point) + surface.origin});
  for (const trFVector& normal : surface.normals) mesh.AddNormal({trVector(normal)});
  for (const auto& corners : surface.triangles) {
    trTri tri;
    for (int i = 0; i < 3; ++i) tri.point[i] = tri.normal[i] = static_cast<std::int32_t>(corners[i]) + 1;
    mesh.AddTri(tri);
  }
  scene.EndGroup();
  return scene.WriteObjectFile(nullptr, path.c_str(), nullptr);
}

long LWOMicroExporter::Write(const trMicroSurface& surface, const trString& path) {
  LwoMesh mesh;
  mesh.numPoints = static_cast<std::int64_t>(surface.points.size());
  mesh.numTriangles = static_cast<std::int64_t>(surface.triangles.size());
  mesh.point = [&surface](std::int64_t i) {
    return trVector(surface.points[static_cast<std::size_t>(i)]) + surface.origin;
  };
  mesh.triangle = [&surface](std::int64_t i) {
    const auto& corners = surface.triangles[static_cast<std::size_t>(i)];
    return std::array<std::int64_t, 3>{corners[0], corners[1], corners[2]};
  };
  return WriteLwo(mesh, path);
}
