// The reader of other programs' meshes: a process of its own, which may die of a damaged file.
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <unistd.h>

#include <algorithm>
#include <assimp/Importer.hpp>
#include <cerrno>
#include <cstring>
#include <future>
#include <new>
#include <string>

#include "host/base/child_limits.h"
#include "host/base/point_table.h"
#include "host/image/reader_sandbox.h"
#include "host/object/codec/mesh_protocol.h"
#include "host/object/codec/weld.h"

namespace {

using ovhost::MeshAnswer;
using ovhost::MeshMaterial;
using ovhost::MeshPoint;
using ovhost::MeshRequest;
using ovhost::MeshTriangle;
using ovhost::MeshUp;
using ovhost::PointTable;

constexpr std::size_t kMostEntries = 0x7fffffff;

struct Failure {
  std::string text;
};

bool ReadAll(int file, void* data, std::size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = read(file, at, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

void WriteAll(int file, const void* data, std::size_t size) {
  const auto* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = write(file, at, size);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) _exit(1);
    at += put;
    size -= static_cast<std::size_t>(put);
  }
}

template <std::size_t kSize>
void CopyText(char (&to)[kSize], const char* from) {
  const std::size_t size = std::min(std::strlen(from), kSize - 1);
  std::memcpy(to, from, size);
  to[size] = 0;
}

// --- Space

/// How a file's space becomes the system's.
struct Space {
  double metresPerUnit = 1;
  MeshUp up = MeshUp::kY;

  /// The library gives right-handed axes; the system's third one points the other way.
  template <typename T>
  MeshPoint Turned(const aiVector3t<T>& v, double scale) const {
    const auto number = [scale](double value) { return static_cast<float>(value * scale); };
    if (up == MeshUp::kZ) return {number(v.x), number(v.z), number(v.y)};
    return {number(v.x), number(v.y), number(-v.z)};
  }
};

/// What the file says of its unit and axes, as far as the library hands it on.
Space SpaceOf(const aiScene& scene, const MeshRequest& request) {
  Space space;
  float centimetres = 0;
  if (double exact = 0; scene.mMetaData && scene.mMetaData->Get("UnitScaleFactor", exact))
    centimetres = static_cast<float>(exact);
  else if (scene.mMetaData)
    scene.mMetaData->Get("UnitScaleFactor", centimetres);
  if (centimetres > 0 && std::isfinite(centimetres)) space.metresPerUnit = 0.01 * centimetres;
  std::int32_t axis = 1;
  if (scene.mMetaData && scene.mMetaData->Get("UpAxis", axis) && axis == 2) space.up = MeshUp::kZ;
  if (request.scale > 0) space.metresPerUnit = request.scale;
  if (request.up != MeshUp::kFilesOwn) space.up = request.up;
  return space;
}

// --- Geometry

struct Tables {
  PointTable points, texVerts, normals;
  std::vector<MeshTriangle> triangles;
  std::int32_t leftOut = 0;
};

void AddMesh(const aiMesh& mesh, const aiMatrix4x4& toRoot, const Space& space, Tables& tables) {
  const aiMatrix3x3 directions = aiMatrix3x3(toRoot).Inverse().Transpose();
  const bool isMirrored = aiMatrix3x3(toRoot).Determinant() < 0;
  const std::size_t count = mesh.mNumVertices;
  std::vector<std::int32_t> points(count), texVerts(mesh.HasTextureCoords(0) ? count : 0),
      normals(mesh.HasNormals() ? count : 0);
  // Each table on a thread of its own, where it takes that long.
  const auto launch = count < 20000 ? std::launch::deferred : std::launch::async;
  std::future<void> texVertsEntered = std::async(launch, [&] {
    for (std::size_t i = 0; i < texVerts.size(); ++i) {
      const aiVector3D& uv = mesh.mTextureCoords[0][i];
      texVerts[i] = tables.texVerts.Enter({uv.x, uv.y, uv.z});
    }
  });
  std::future<void> normalsEntered = std::async(launch, [&] {
    for (std::size_t i = 0; i < normals.size(); ++i) {
      aiVector3D normal = directions * mesh.mNormals[i];
      normals[i] = tables.normals.Enter(space.Turned(normal.NormalizeSafe(), 1));
    }
  });
  for (std::size_t i = 0; i < count; ++i)
    points[i] = tables.points.Enter(space.Turned(toRoot * mesh.mVertices[i], space.metresPerUnit));
  texVertsEntered.get();
  normalsEntered.get();
  if (tables.triangles.size() + mesh.mNumFaces > kMostEntries ||
      tables.points.Points().size() > kMostEntries / 2)
    throw std::bad_alloc();
  for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
    const aiFace& face = mesh.mFaces[f];
    if (face.mNumIndices != 3) {
      ++tables.leftOut;
      continue;
    }
    MeshTriangle triangle;
    triangle.material = static_cast<std::int32_t>(mesh.mMaterialIndex);
    for (int corner = 0; corner < 3; ++corner) {
      const unsigned index = face.mIndices[isMirrored ? 2 - corner : corner];
      if (index >= count) throw Failure{"its triangles have corners that it doesn't hold"};
      triangle.point[corner] = points[index];
      triangle.texVert[corner] = texVerts.empty() ? -1 : texVerts[index];
      triangle.normal[corner] = normals.empty() ? -1 : normals[index];
    }
    tables.triangles.push_back(triangle);
  }
}

/// All nodes without recursion: a file may nest them as deep as it likes.
void AddNodes(const aiScene& scene, const Space& space, Tables& tables) {
  std::vector<std::pair<const aiNode*, aiMatrix4x4>> open{{scene.mRootNode, aiMatrix4x4()}};
  while (!open.empty()) {
    const auto [node, parent] = open.back();
    open.pop_back();
    if (!node) continue;
    const aiMatrix4x4 toRoot = parent * node->mTransformation;
    for (unsigned i = 0; i < node->mNumMeshes; ++i)
      if (node->mMeshes[i] < scene.mNumMeshes)
        AddMesh(*scene.mMeshes[node->mMeshes[i]], toRoot, space, tables);
    for (unsigned i = node->mNumChildren; i-- > 0;) open.emplace_back(node->mChildren[i], toRoot);
  }
}

/// Points that nobody uses any more are gone, and triangles that became lines.
std::vector<MeshPoint> Weld(Tables& tables, double distance) {
  const std::vector<MeshPoint>& points = tables.points.Points();
  const std::vector<std::int32_t> standsFor = WeldedPoints(points, distance);
  std::vector<std::int32_t> number(points.size(), -1);
  std::vector<MeshPoint> kept;
  for (std::size_t i = 0; i < points.size(); ++i)
    if (standsFor[i] == static_cast<std::int32_t>(i)) {
      number[i] = static_cast<std::int32_t>(kept.size());
      kept.push_back(points[i]);
    }
  for (MeshTriangle& triangle : tables.triangles)
    for (std::int32_t& point : triangle.point)
      point = number[static_cast<std::size_t>(standsFor[static_cast<std::size_t>(point)])];
  std::erase_if(tables.triangles, [](const MeshTriangle& t) {
    return t.point[0] == t.point[1] || t.point[1] == t.point[2] || t.point[2] == t.point[0];
  });
  return kept;
}

// --- Materials

MeshMaterial MaterialOf(const aiMaterial& from) {
  MeshMaterial material;
  aiString text;
  if (from.Get(AI_MATKEY_NAME, text) == aiReturn_SUCCESS) CopyText(material.name, text.C_Str());
  aiColor4D colour;
  if (from.Get(AI_MATKEY_BASE_COLOR, colour) == aiReturn_SUCCESS ||
      from.Get(AI_MATKEY_COLOR_DIFFUSE, colour) == aiReturn_SUCCESS) {
    const float rgb[] = {colour.r, colour.g, colour.b};
    std::copy(rgb, rgb + 3, material.colour);
  }
  aiColor3D glow;
  if (from.Get(AI_MATKEY_COLOR_EMISSIVE, glow) == aiReturn_SUCCESS) {
    const float rgb[] = {glow.r, glow.g, glow.b};
    std::copy(rgb, rgb + 3, material.luminosity);
  }
  from.Get(AI_MATKEY_OPACITY, material.opacity);
  from.Get(AI_MATKEY_REFRACTI, material.indexOfRefraction);
  from.Get(AI_MATKEY_METALLIC_FACTOR, material.metalness);
  if (from.Get(AI_MATKEY_ROUGHNESS_FACTOR, material.roughness) != aiReturn_SUCCESS) {
    // Of a Phong exponent: the Beckmann roughness of as wide a highlight (Walter et al. 2007).
    float exponent = 0;
    if (from.Get(AI_MATKEY_SHININESS, exponent) == aiReturn_SUCCESS && exponent > 0)
      material.roughness = std::sqrt(2.0f / (exponent + 2.0f));
  }
  const auto image = [&](MeshMaterial::Image which, std::initializer_list<aiTextureType> types) {
    for (const aiTextureType type : types)
      if (from.GetTexture(type, 0, &text) == aiReturn_SUCCESS)
        return CopyText(material.image[which], text.C_Str());
  };
  image(MeshMaterial::kColour, {aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE});
  image(MeshMaterial::kOpacity, {aiTextureType_OPACITY});
  image(MeshMaterial::kRoughness, {aiTextureType_DIFFUSE_ROUGHNESS});
  image(MeshMaterial::kMetalness, {aiTextureType_METALNESS});
  image(MeshMaterial::kLuminosity, {aiTextureType_EMISSION_COLOR, aiTextureType_EMISSIVE});
  image(MeshMaterial::kDisplacement, {aiTextureType_DISPLACEMENT});
  return material;
}

// ---------------------------------------------------------------------------------------------------------------

template <typename T>
void SendTable(int file, const std::vector<T>& table) {
  WriteAll(file, table.data(), table.size() * sizeof(T));
}

void Read(int file, const MeshRequest& request, MeshAnswer& answer) {
  Assimp::Importer importer;
  const aiScene* const scene =
      importer.ReadFile(request.path, aiProcess_Triangulate | aiProcess_ValidateDataStructure);
  if (!scene) throw Failure{importer.GetErrorString()};
  const Space space = SpaceOf(*scene, request);
  Tables tables;
  AddNodes(*scene, space, tables);
  if (tables.triangles.empty()) throw Failure{"it holds no triangles"};
  std::vector<MeshMaterial> materials;
  for (unsigned i = 0; i < scene->mNumMaterials; ++i) materials.push_back(MaterialOf(*scene->mMaterials[i]));
  std::vector<MeshPoint> points = request.weld > 0 ? Weld(tables, request.weld) : tables.points.Points();

  answer.isDone = 1;
  answer.metresPerUnit = space.metresPerUnit;
  answer.up = space.up;
  answer.leftOut = tables.leftOut;
  answer.points = static_cast<std::int64_t>(points.size());
  answer.texVerts = static_cast<std::int64_t>(tables.texVerts.Points().size());
  answer.normals = static_cast<std::int64_t>(tables.normals.Points().size());
  answer.triangles = static_cast<std::int64_t>(tables.triangles.size());
  answer.materials = static_cast<std::int64_t>(materials.size());
  WriteAll(file, &answer, sizeof answer);
  SendTable(file, points);
  SendTable(file, tables.texVerts.Points());
  SendTable(file, tables.normals.Points());
  SendTable(file, tables.triangles);
  SendTable(file, materials);
}

}  // namespace

int main() {
  // What the library prints isn't said to the program.
  const int file = dup(0);
  dup2(2, 1);
  MeshRequest request;
  MeshAnswer answer;
  std::memcpy(answer.magic, ovhost::kMeshMagic, sizeof answer.magic);
  if (!ReadAll(file, &request, sizeof request) ||
      std::memcmp(request.magic, answer.magic, sizeof answer.magic) != 0)
    return 1;
  request.path[sizeof request.path - 1] = 0;
  // A file that claims more than there is costs an exception; one that leads in circles an end.
  ovhost::LimitChild(request.freeMemory, static_cast<std::uint64_t>(std::max(1, request.seconds)));
  ovhost::EnterReaderSandbox();
  std::string problem;
  try {
    Read(file, request, answer);
    _exit(0);
  } catch (const Failure& failure) {
    problem = failure.text;
  } catch (const std::bad_alloc&) {
    problem = "it takes more memory than there is";
  } catch (const std::exception& error) {
    problem = error.what();
  }
  answer.isDone = 0;
  CopyText(answer.problem, problem.c_str());
  WriteAll(file, &answer, sizeof answer);
  _exit(0);
}
