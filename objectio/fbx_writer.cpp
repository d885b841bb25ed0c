#include "objectio/fbx_writer.h"

#include <cmath>
#include <filesystem>
#include <new>

#include "core/scene.h"
#include "core/shader.h"
#include "objectio/fbx_document.h"
#include "objectio/object_output.h"

namespace {

/// Offsets are 32 bits wide.
constexpr double kMostBinaryBytes = 4294967295.0;
constexpr std::int64_t kDocument = 1000000, kGeometry = 2000000, kModel = 3000000, kFirstMaterial = 4000000,
                       kFirstTexture = 1LL << 40;
constexpr unsigned char kFileId[] = {0x28, 0xb3, 0x2a, 0xeb, 0xb6, 0x24, 0xcc, 0xc2,
                                     0xbf, 0xc8, 0xb0, 0x2a, 0xa9, 0x2b, 0xfc, 0xf1};

double Finite(double v) { return std::isfinite(v) ? v : 0; }

/// Control characters would end names early.
std::string Clean(std::string name) {
  for (char& c : name)
    if (static_cast<unsigned char>(c) < ' ') c = '_';
  return name;
}

void Integer(FbxDocument& out, const char* name, std::int32_t value) {
  out.Leaf("P", {std::string(name), std::string("int"), std::string("Integer"), std::string(), value});
}
void Number(FbxDocument& out, const char* name, double value) {
  out.Leaf("P", {std::string(name), std::string("double"), std::string("Number"), std::string(), value});
}

// --- What stands ahead of the objects

void WriteHead(FbxDocument& out) {
  out.Open("FBXHeaderExtension");
  out.Leaf("FBXHeaderVersion", {1003});
  out.Leaf("FBXVersion", {7400});
  out.Leaf("Creator", {std::string("Ombrivex ObjectWriterFBX")});
  out.Close();
  // The same object gives the same bytes, so the time is none in particular; readers check the two together.
  out.Leaf("FileId", {FbxBytes(std::begin(kFileId), std::end(kFileId))});
  out.Leaf("CreationTime", {std::string("1970-01-01 10:00:00:000")});
  out.Leaf("Creator", {std::string("Ombrivex ObjectWriterFBX")});

  out.Open("GlobalSettings");
  out.Leaf("Version", {1000});
  out.Open("Properties70");
  Integer(out, "UpAxis", 1);
  Integer(out, "UpAxisSign", 1);
  Integer(out, "FrontAxis", 2);
  Integer(out, "FrontAxisSign", 1);
  Integer(out, "CoordAxis", 0);
  Integer(out, "CoordAxisSign", 1);
  Integer(out, "OriginalUpAxis", 1);
  Integer(out, "OriginalUpAxisSign", 1);
  Number(out, "UnitScaleFactor", 100);  // centimetres in a metre
  Number(out, "OriginalUnitScaleFactor", 100);
  out.Close();
  out.Close();

  out.Open("Documents");
  out.Leaf("Count", {1});
  out.Open("Document", {kDocument, std::string(), std::string("Scene")});
  out.Open("Properties70");
  out.Leaf("P", {std::string("SourceObject"), std::string("object"), std::string(), std::string()});
  out.Close();
  out.Leaf("RootNode", {std::int64_t{0}});
  out.Close();
  out.Close();
  out.Open("References");
  out.Close();
}

void WriteDefinitions(FbxDocument& out, std::int32_t materials, std::int32_t textures) {
  out.Open("Definitions");
  out.Leaf("Version", {100});
  out.Leaf("Count", {3 + materials + textures});
  const auto type = [&out](const char* name, std::int32_t count) {
    if (count == 0) return;
    out.Open("ObjectType", {std::string(name)});
    out.Leaf("Count", {count});
    out.Close();
  };
  type("GlobalSettings", 1);
  type("Geometry", 1);
  type("Model", 1);
  type("Material", materials);
  type("Texture", textures);
  out.Close();
}

// --- The mesh

/// Three numbers of each entry of a table, the third with the other sign.
template <typename Get>
std::vector<double> Turned(long count, const Get& get) {
  std::vector<double> numbers;
  numbers.reserve(3 * static_cast<std::size_t>(count));
  for (long i = 1; i <= count; ++i) {
    const trVector& v = get(i);
    numbers.insert(numbers.end(), {Finite(v.x), Finite(v.y), -Finite(v.z)});
  }
  return numbers;
}

void WriteNormals(FbxDocument& out, const trScene& object) {
  std::vector<double> normals =
      Turned(object.NumNormals(), [&](long i) -> const trVector& { return object.GetPNormal(i)->direction; });
  std::vector<std::int32_t> indices;
  indices.reserve(3 * static_cast<std::size_t>(object.NumTris()));
  for (long i = 1; i <= object.NumTris(); ++i) {
    const trTri& tri = *object.GetPTri(i);
    std::int32_t face = 0;  // where a corner has no normal, the triangle's
    for (const std::int32_t index : tri.normal) {
      if (index == 0 && face == 0) {
        trVector p[3];
        object.GetPointVecs(tri.point, p, 3);
        const trVector n = Normalised(Cross(p[2] - p[0], p[1] - p[0]));
        normals.insert(normals.end(), {Finite(n.x), Finite(n.y), -Finite(n.z)});
        face = static_cast<std::int32_t>(normals.size() / 3);
      }
      indices.push_back((index ? index : face) - 1);
    }
  }
  out.Open("LayerElementNormal", {0});
  out.Leaf("Version", {101});
  out.Leaf("Name", {std::string()});
  out.Leaf("MappingInformationType", {std::string("ByPolygonVertex")});
  out.Leaf("ReferenceInformationType", {std::string("IndexToDirect")});
  out.Array("Normals", normals);
  out.Array("NormalsIndex", indices);
  out.Close();
}

void WriteTexVerts(FbxDocument& out, const trScene& object) {
  std::vector<double> uvs;
  uvs.reserve(2 * static_cast<std::size_t>(object.NumTexVerts()) + 2);
  for (long i = 1; i <= object.NumTexVerts(); ++i) {
    const trVector& uvw = object.GetPTexVert(i)->uvw;
    uvs.insert(uvs.end(), {Finite(uvw.x), Finite(uvw.y)});
  }
  const auto none = static_cast<std::int32_t>(uvs.size() / 2);  // for corners without
  bool needsNone = false;
  std::vector<std::int32_t> indices;
  indices.reserve(3 * static_cast<std::size_t>(object.NumTris()));
  for (long i = 1; i <= object.NumTris(); ++i)
    for (const std::int32_t index : object.GetPTri(i)->texVert) {
      needsNone |= index == 0;
      indices.push_back(index ? index - 1 : none);
    }
  if (needsNone) uvs.insert(uvs.end(), {0.0, 0.0});
  out.Open("LayerElementUV", {0});
  out.Leaf("Version", {101});
  out.Leaf("Name", {std::string("DiffuseUV")});
  out.Leaf("MappingInformationType", {std::string("ByPolygonVertex")});
  out.Leaf("ReferenceInformationType", {std::string("IndexToDirect")});
  out.Array("UV", uvs);
  out.Array("UVIndex", indices);
  out.Close();
}

void WriteMaterialIndices(FbxDocument& out, const trScene& object) {
  std::vector<std::int32_t> indices;
  if (object.NumMaterials() > 1) {
    indices.reserve(static_cast<std::size_t>(object.NumTris()));
    for (long i = 1; i <= object.NumTris(); ++i) {
      const std::int32_t material = object.GetPTri(i)->material;
      indices.push_back(object.GetPMaterial(material) ? material - 1 : 0);
    }
  } else {
    indices.push_back(0);
  }
  out.Open("LayerElementMaterial", {0});
  out.Leaf("Version", {101});
  out.Leaf("Name", {std::string()});
  out.Leaf("MappingInformationType", {std::string(indices.size() > 1 ? "ByPolygon" : "AllSame")});
  out.Leaf("ReferenceInformationType", {std::string("IndexToDirect")});
  out.Array("Materials", indices);
  out.Close();
}

void WriteGeometry(FbxDocument& out, const trScene& object, const std::string& name) {
  out.Open("Geometry", {kGeometry, FbxName{name + " mesh 1", "Geometry"}, std::string("Mesh")});
  out.Leaf("GeometryVersion", {124});
  out.Array("Vertices", Turned(object.NumPts(),
                               [&](long i) -> const trVector& { return object.GetPPoint(i)->position; }));
  {
    std::vector<std::int32_t> corners;
    corners.reserve(3 * static_cast<std::size_t>(object.NumTris()));
    for (long i = 1; i <= object.NumTris(); ++i) {
      const std::int32_t* const p = object.GetPTri(i)->point;
      corners.insert(corners.end(), {p[0] - 1, p[1] - 1, ~(p[2] - 1)});  // inverted: a polygon's last
    }
    out.Array("PolygonVertexIndex", corners);
  }
  const bool hasNormals = object.NumNormals() > 0, hasTexVerts = object.NumTexVerts() > 0,
             hasMaterials = object.NumMaterials() > 0;
  if (hasNormals) WriteNormals(out, object);
  if (hasTexVerts) WriteTexVerts(out, object);
  if (hasMaterials) WriteMaterialIndices(out, object);
  out.Open("Layer", {0});
  out.Leaf("Version", {100});
  const auto element = [&out](bool isThere, const char* type) {
    if (!isThere) return;
    out.Open("LayerElement");
    out.Leaf("Type", {std::string(type)});
    out.Leaf("TypedIndex", {0});
    out.Close();
  };
  element(hasNormals, "LayerElementNormal");
  element(hasTexVerts, "LayerElementUV");
  element(hasMaterials, "LayerElementMaterial");
  out.Close();
  out.Close();
  out.Open("Model", {kModel, FbxName{name + " mesh node 1", "Model"}, std::string("Mesh")});
  out.Leaf("Version", {232});
  out.Leaf("Shading", {true});
  out.Leaf("Culling", {std::string("CullingOff")});
  out.Close();
}

// --- Materials

struct FbxMaterial {
  std::string name;
  trFCol colour{0.8f};
  std::string image;  ///< path of the base colour's; empty for none
};

std::vector<FbxMaterial> MaterialsOf(const trScene& object) {
  std::vector<FbxMaterial> materials;
  for (long i = 1; i <= object.NumMaterials(); ++i) {
    const trMaterial& from = *object.GetPMaterial(i);
    FbxMaterial material;
    material.name = Clean(from.name.empty() ? "Material " + std::to_string(i) : from.name);
    long index;
    if (from.surfaceShader) {
      trManRgb colour;
      if (from.surfaceShader->GetParam("diffuse_colour", colour)) material.colour = colour.ToRender();
      if (from.surfaceShader->FindParam(index, "colour_image") &&
          from.surfaceShader->ParamType(index) == trParamType::kFile)
        material.image = Clean(static_cast<const trFile*>(from.surfaceShader->ParamPtr(index))->FullPath());
    }
    materials.push_back(std::move(material));
  }
  return materials;
}

void WriteMaterial(FbxDocument& out, const FbxMaterial& material, std::int64_t id) {
  out.Open("Material", {id, FbxName{material.name, "Material"}, std::string()});
  out.Leaf("Version", {102});
  out.Leaf("ShadingModel", {std::string("lambert")});
  out.Leaf("MultiLayer", {0});
  out.Open("Properties70");
  const trFCol& c = material.colour;
  out.Leaf("P", {std::string("DiffuseColor"), std::string("Color"), std::string(), std::string("A"),
                 Finite(c.r), Finite(c.g), Finite(c.b)});
  out.Leaf("P", {std::string("DiffuseFactor"), std::string("Number"), std::string(), std::string("A"), 1.0});
  out.Close();
  out.Close();
}

void WriteTexture(FbxDocument& out, const FbxMaterial& material, std::int64_t id, const std::string& folder) {
  const FbxName name{material.name + " colour", "Texture"};
  out.Open("Texture", {id, name, std::string()});
  out.Leaf("Type", {std::string("TextureVideoClip")});
  out.Leaf("Version", {202});
  out.Leaf("TextureName", {name});
  out.Open("Properties70");
  out.Leaf("P", {std::string("UVSet"), std::string("KString"), std::string(), std::string(),
                 std::string("DiffuseUV")});
  out.Leaf("P", {std::string("UseMaterial"), std::string("bool"), std::string(), std::string(), 1});
  out.Close();
  out.Leaf("FileName", {material.image});
  const std::string relative = std::filesystem::path(material.image).lexically_relative(folder).string();
  out.Leaf("RelativeFilename", {relative.empty() ? material.image : relative});
  out.Close();
}

void Fill(FbxDocument& out, const trScene& object, const std::string& name, const std::string& path) {
  const std::vector<FbxMaterial> materials = MaterialsOf(object);
  std::int32_t textures = 0;
  for (const FbxMaterial& material : materials) textures += !material.image.empty();
  WriteHead(out);
  WriteDefinitions(out, static_cast<std::int32_t>(materials.size()), textures);

  const std::string folder = std::filesystem::absolute(path).lexically_normal().parent_path().string();
  out.Open("Objects");
  WriteGeometry(out, object, name);
  for (std::size_t i = 0; i < materials.size(); ++i) {
    const auto number = static_cast<std::int64_t>(i);
    WriteMaterial(out, materials[i], kFirstMaterial + number);
    if (!materials[i].image.empty()) WriteTexture(out, materials[i], kFirstTexture + number, folder);
  }
  out.Close();

  out.Open("Connections");
  const auto connect = [&out](std::int64_t from, std::int64_t to) {
    out.Leaf("C", {std::string("OO"), from, to});
  };
  connect(kModel, 0);
  connect(kGeometry, kModel);
  for (std::size_t i = 0; i < materials.size(); ++i) {
    const auto number = static_cast<std::int64_t>(i);
    connect(kFirstMaterial + number, kModel);
    if (!materials[i].image.empty())
      out.Leaf("C", {std::string("OP"), kFirstTexture + number, kFirstMaterial + number,
                     std::string("DiffuseColor")});
  }
  out.Close();
}

}  // namespace

long ObjectWriterFBX::WriteObject(trScene& scene, trBase*, const trString& path) {
  const trScene* const object = FirstGroup(scene, "ObjectWriterFBX");
  if (!object) return 0;
  const double bytes = 24.0 * static_cast<double>(object->NumPts() + object->NumNormals()) +
                       16.0 * static_cast<double>(object->NumTexVerts()) +
                       64.0 * static_cast<double>(object->NumTris());
  if (!ascii_ && bytes > kMostBinaryBytes) {
    trError("ObjectWriterFBX: Unable to export " + path + ": the object takes " +
            std::to_string(static_cast<long long>(bytes)) + " bytes; the format holds 4294967295.");
    return 0;
  }
  try {
    const std::unique_ptr<FbxDocument> document = ascii_ ? MakeTextFbx() : MakeBinaryFbx();
    Fill(*document, *object, Clean(scene.GetPGroup(1)->Name()), path);
    const std::string& file = document->Finish();
    return PutObjectFile("ObjectWriterFBX", "ObjectWriterFBX: Unable to export " + path, path, file.data(),
                         file.size());
  } catch (const std::bad_alloc&) {
    trError("ObjectWriterFBX: Unable to export " + path + ": it takes more memory than there is");
    return 0;
  }
}
