// Meshes as LWO2 files.
#include "objectio/lwo_writer.h"

#include <bit>
#include <cstring>
#include <new>
#include <vector>

#include "core/scene.h"
#include "objectio/object_output.h"

namespace {

/// Indices from here on take four bytes, the first of them 0xff, which leaves 24 bits. The last of those is
/// no index: some readers keep it for "none".
constexpr std::int64_t kFirstLongIndex = 0xff00;
constexpr std::int64_t kIndices = (1 << 24) - 1;
constexpr float kGrey = 0.78431f;  // 200 of 255
/// Names are padded to even sizes; this one with its terminator is.
constexpr char kSurfaceName[] = "Default";
static_assert(sizeof kSurfaceName % 2 == 0);

/// The file in memory.
class LwoBuffer {
 public:
  explicit LwoBuffer(const LwoMesh& mesh) {
    bytes_.reserve(static_cast<std::size_t>(
        (3 * mesh.numPoints + mesh.numTriangles + 4 * (mesh.numTriangles + 16)) * 4));
  }

  void Text(const char* text, std::size_t size) { bytes_.insert(bytes_.end(), text, text + size); }
  void Zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
  void Short(std::uint32_t v) {
    const char bytes[] = {static_cast<char>(v >> 8), static_cast<char>(v)};
    Text(bytes, sizeof bytes);
  }
  void Word(std::uint32_t v) {
    Short(v >> 16);
    Short(v & 0xffff);
  }
  void Float(float v) { Word(std::bit_cast<std::uint32_t>(v)); }
  void Index(std::int64_t index) {
    if (index < kFirstLongIndex)
      Short(static_cast<std::uint32_t>(index));
    else
      Word(0xff000000u | static_cast<std::uint32_t>(index));
  }

  /// Opens a chunk; its size follows with Close.
  std::size_t Open(const char* name) {
    Text(name, 4);
    Word(0);
    return bytes_.size();
  }
  void Close(std::size_t begin) {
    const std::size_t size = bytes_.size() - begin;
    for (std::size_t i = 0; i < 4; ++i) bytes_[begin - 1 - i] = static_cast<unsigned char>(size >> (8 * i));
  }

  const std::vector<unsigned char>& Bytes() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

void FillGeometry(LwoBuffer& out, const LwoMesh& mesh) {
  const std::size_t points = out.Open("PNTS");
  for (std::int64_t i = 0; i < mesh.numPoints; ++i) {
    const trVector p = mesh.point(i);
    for (const double v : {p.x, p.y, p.z}) out.Float(static_cast<float>(v));
  }
  out.Close(points);

  const std::size_t polygons = out.Open("POLS");
  out.Text("FACE", 4);
  for (std::int64_t i = 0; i < mesh.numTriangles; ++i) {
    const auto corners = mesh.triangle(i);
    out.Short(3);
    // The front of a polygon is where its corners go round clockwise, y up and z away from the viewer.
    for (const int corner : {2, 1, 0}) out.Index(corners[corner]);
  }
  out.Close(polygons);

  const std::size_t tags = out.Open("PTAG");
  out.Text("SURF", 4);
  for (std::int64_t i = 0; i < mesh.numTriangles; ++i) {
    out.Index(i);
    out.Short(0);
  }
  out.Close(tags);
}

void FillSurface(LwoBuffer& out) {
  const std::size_t surface = out.Open("SURF");
  out.Text(kSurfaceName, sizeof kSurfaceName);
  out.Zeros(2);  // no source surface
  out.Text("COLR", 4);
  out.Short(14);
  for (int i = 0; i < 3; ++i) out.Float(kGrey);
  out.Short(0);
  out.Text("DIFF", 4);
  out.Short(6);
  out.Float(1);
  out.Short(0);
  out.Close(surface);
}

void Fill(LwoBuffer& out, const LwoMesh& mesh) {
  const std::size_t form = out.Open("FORM");
  out.Text("LWO2", 4);
  const std::size_t tags = out.Open("TAGS");
  out.Text(kSurfaceName, sizeof kSurfaceName);
  out.Close(tags);
  const std::size_t layer = out.Open("LAYR");
  out.Zeros(18);
  out.Close(layer);
  FillGeometry(out, mesh);
  FillSurface(out);
  out.Close(form);
}

}  // namespace

long WriteLwo(const LwoMesh& mesh, const trString& path) {
  if (mesh.numPoints > kIndices || mesh.numTriangles > kIndices) {
    trError("ObjectWriterLWO: The format holds " + std::to_string(kIndices) +
            " points and as many triangles; the mesh has " + std::to_string(mesh.numPoints) + " and " +
            std::to_string(mesh.numTriangles) + ".");
    return 0;
  }
  try {
    LwoBuffer buffer(mesh);
    Fill(buffer, mesh);
    return PutObjectFile("ObjectWriterLWO", "ObjectWriterLWO: Unable to open file: " + path, path,
                         buffer.Bytes().data(), buffer.Bytes().size());
  } catch (const std::bad_alloc&) {
    trError("ObjectWriterLWO: Unable to allocate temporary buffer");
    return 0;
  }
}

long ObjectWriterLWO::WriteObject(trScene& scene, trBase*, const trString& path) {
  const trScene* const group = FirstGroup(scene, "ObjectWriterLWO");
  if (!group) return 0;
  const trScene& object = *group;
  LwoMesh mesh;
  mesh.numPoints = object.NumPts();
  mesh.numTriangles = object.NumTris();
  mesh.point = [&object](std::int64_t i) { return object.GetPPoint(i + 1)->position; };
  mesh.triangle = [&object](std::int64_t i) {
    const trTri& tri = *object.GetPTri(i + 1);
    return std::array<std::int64_t, 3>{tri.point[0] - 1L, tri.point[1] - 1L, tri.point[2] - 1L};
  };
  return WriteLwo(mesh, path);
}
