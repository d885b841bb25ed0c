#include "objectio/ovo_writer.h"

#include <limits>
#include <memory>
#include <new>
#include <vector>

#include "core/scene.h"
#include "core/xml.h"
#include "objectio/object_output.h"
#include "objectio/ovo_layout.h"

namespace {

constexpr unsigned char kPadding = '\n';  // text stays well-formed text
constexpr std::uint64_t kMostBytes = std::numeric_limits<std::uint32_t>::max();

constexpr std::uint64_t Padded(std::uint64_t size) { return (size + 3) / 4 * 4; }

/// A chunk with its head and padding; one that would be empty isn't there.
constexpr std::uint64_t ChunkBytes(std::uint64_t payload) { return payload ? 8 + Padded(payload) : 0; }

// --- Sizes of payloads, known before anything is written

std::uint64_t MaterialBytes(const trScene& scene) {
  std::uint64_t bytes = 0;
  for (long i = 1; i <= scene.NumMaterials(); ++i)
    bytes += 4 + Padded(scene.GetPMaterial(i)->name.size() + 5);
  return bytes;
}

std::uint64_t TriangleStride(const trScene& scene) {
  return (scene.NumPts() > 0 ? 12 : 0) + (scene.NumTexVerts() > 0 ? 12 : 0) +
         (scene.NumNormals() > 0 ? 12 : 0) + (scene.NumMaterials() > 0 ? 4 : 0);
}

std::uint64_t TriangleBytes(const trScene& scene) {
  const auto count = static_cast<std::uint64_t>(scene.NumTris());
  return count ? 4 + 2 * kOvoDescriptorPairs + count * TriangleStride(scene) : 0;
}

std::uint64_t SceneBytes(const trScene& scene) {
  std::uint64_t bytes =
      ChunkBytes(MaterialBytes(scene)) + ChunkBytes(12 * static_cast<std::uint64_t>(scene.NumPts())) +
      ChunkBytes(8 * static_cast<std::uint64_t>(scene.NumTexVerts())) +
      ChunkBytes(12 * static_cast<std::uint64_t>(scene.NumNormals())) + ChunkBytes(TriangleBytes(scene));
  for (long i = 1; i <= scene.NumGroups(); ++i)
    bytes += ChunkBytes(SceneBytes(*scene.GetPGroup(i)->Subscene()));
  return bytes;
}

// --- Bytes

/// Writes into a block that is large enough.
class Output {
 public:
  explicit Output(std::uint64_t size)
      : bytes_(std::make_unique_for_overwrite<unsigned char[]>(size)), at_(bytes_.get()) {}

  const unsigned char* Bytes() const { return bytes_.get(); }
  std::size_t Size() const { return static_cast<std::size_t>(at_ - bytes_.get()); }

  void Word(std::uint32_t word) {
    for (int i = 0; i < 4; ++i) at_[i] = static_cast<unsigned char>(word >> (8 * i));
    at_ += 4;
  }
  void Float(double value) { Word(std::bit_cast<std::uint32_t>(static_cast<float>(value))); }
  void Byte(unsigned char byte) { *at_++ = byte; }
  void Text(std::string_view text) { at_ = std::copy(text.begin(), text.end(), at_); }
  void Pad() {
    while (Size() % 4) Byte(kPadding);
  }
  void Head(std::string_view id, std::uint64_t size) {
    Text(id);
    Word(static_cast<std::uint32_t>(size));
  }
  void Swapped(const trVector& v) {
    Float(v.x);
    Float(v.z);
    Float(v.y);
  }

 private:
  std::unique_ptr<unsigned char[]> bytes_;
  unsigned char* at_;
};

void WriteMaterials(Output& out, const trScene& scene) {
  if (scene.NumMaterials() == 0) return;
  out.Head("MATS", MaterialBytes(scene));
  for (long i = 1; i <= scene.NumMaterials(); ++i) {
    const trMaterial& material = *scene.GetPMaterial(i);
    out.Word(static_cast<std::uint32_t>(material.name.size() + 5));
    out.Word(static_cast<std::uint32_t>(material.id));
    out.Text(material.name);
    out.Byte(0);
    out.Pad();
  }
}

void WriteTriangles(Output& out, const trScene& scene) {
  if (scene.NumTris() == 0) return;
  const bool hasPoints = scene.NumPts() > 0, hasTexVerts = scene.NumTexVerts() > 0,
             hasNormals = scene.NumNormals() > 0, hasMaterials = scene.NumMaterials() > 0;
  out.Head("TRIS", TriangleBytes(scene));
  out.Word(static_cast<std::uint32_t>(scene.NumTris()));
  std::size_t pairs = 0;
  const auto describe = [&](bool isThere, char tag, unsigned char size) {
    if (!isThere) return;
    out.Byte(static_cast<unsigned char>(tag));
    out.Byte(size);
    ++pairs;
  };
  describe(hasPoints, 'P', 12);
  describe(hasTexVerts, 'U', 12);
  describe(hasNormals, 'N', 12);
  describe(hasMaterials, 'M', 4);
  for (; pairs < kOvoDescriptorPairs; ++pairs) {
    out.Byte(0);
    out.Byte(0);
  }
  const auto corners = [&out](bool isThere, const std::int32_t* indices) {
    for (int i = 0; isThere && i < 3; ++i) out.Word(static_cast<std::uint32_t>(indices[i]));
  };
  for (long i = 1; i <= scene.NumTris(); ++i) {
    const trTri& tri = *scene.GetPTri(i);
    corners(hasPoints, tri.point);
    corners(hasTexVerts, tri.texVert);
    corners(hasNormals, tri.normal);
    if (!hasMaterials) continue;
    const trMaterial* const material = scene.GetPMaterial(tri.material);
    out.Word(material ? static_cast<std::uint32_t>(material->id) : 1);
  }
}

void WriteScene(Output& out, const trScene& scene) {
  WriteMaterials(out, scene);
  if (scene.NumPts() > 0) out.Head("PNTS", 12 * static_cast<std::uint64_t>(scene.NumPts()));
  for (long i = 1; i <= scene.NumPts(); ++i) out.Swapped(scene.GetPPoint(i)->position);
  if (scene.NumTexVerts() > 0) out.Head("TUVS", 8 * static_cast<std::uint64_t>(scene.NumTexVerts()));
  for (long i = 1; i <= scene.NumTexVerts(); ++i) {
    out.Float(scene.GetPTexVert(i)->uvw.x);
    out.Float(scene.GetPTexVert(i)->uvw.y);
  }
  if (scene.NumNormals() > 0) out.Head("NRMS", 12 * static_cast<std::uint64_t>(scene.NumNormals()));
  for (long i = 1; i <= scene.NumNormals(); ++i) out.Swapped(scene.GetPNormal(i)->direction);
  WriteTriangles(out, scene);
  for (long i = 1; i <= scene.NumGroups(); ++i) {
    const trScene& group = *scene.GetPGroup(i)->Subscene();
    const std::uint64_t size = SceneBytes(group);
    if (!size) continue;
    out.Head("GGRP", size);
    WriteScene(out, group);
  }
}

void WriteText(Output& out, std::string_view id, const trString& text) {
  out.Head(id, text.size());
  out.Text(text);
  out.Pad();
}

trString ClipOf(const trBase& node) {
  std::vector<trBase*> children;
  for (long i = 0; i < node.NumChildren(); ++i) children.push_back(node.Child(i));
  trString text = trBaseXML::GetClip(children);
  text.insert(0, 1, '\n');
  text += '\n';
  return text;
}

}  // namespace

long ObjectWriterOVO::WriteObject(trScene& scene, trBase* node, const trString& path) {
  trString shader, clip;
  long index;
  const bool hasShader = node && node->FindParam(index, "surface_shader");
  try {
    if (hasShader) node->GetParam(index, shader);
    if (node) clip = ClipOf(*node);
    const std::uint64_t size = kOvoFirstChunk + (hasShader ? 8 + Padded(shader.size()) : 0) +
                               (node ? 8 + Padded(clip.size()) : 0) + SceneBytes(scene);
    if (size > kMostBytes) {
      trError("ObjectWriterOVO: The object takes " + std::to_string(size) + " bytes; the format holds " +
              std::to_string(kMostBytes) + ".");
      return 0;
    }
    Output out(size);
    out.Text(kOvoMagic);
    out.Text("DATA");
    out.Word(kOvoFirstChunk);
    out.Word('A');
    if (hasShader) WriteText(out, "SHAD", shader);
    if (node) WriteText(out, "NODE", clip);
    WriteScene(out, scene);
    return PutObjectFile("ObjectWriterOVO", "ObjectWriterOVO: Unable to open output file", path, out.Bytes(),
                         out.Size());
  } catch (const std::bad_alloc&) {
    trError("ObjectWriterOVO: Unable to allocate memory for the file: " + path);
    return 0;
  }
}
