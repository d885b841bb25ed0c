#include "host/object/mesh_object.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "core/messages.h"

namespace ovhost {
namespace {

namespace fs = std::filesystem;

/// A file's image by the name that it has there, which may come from another system; empty where it is
/// nowhere.
std::string FindImage(std::string name, const std::string& file) {
  for (char& c : name)
    if (c == '\\') c = '/';
  std::error_code error;
  const fs::path folder = fs::absolute(file, error).parent_path(), path(name);
  const fs::path base = path.filename();
  for (const fs::path& candidate :
       {folder / path, folder / base, folder / "textures" / base, folder / "Textures" / base})
    if (!base.empty() && fs::is_regular_file(candidate, error)) return candidate.lexically_normal().string();
  return {};
}

void SetImage(trBase& shader, const char* param, const char* name, const std::string& file) {
  if (!name[0]) return;
  if (name[0] == '*') {
    trWarning(file + ": the image " + name + " lies inside of the file and is left out");
    return;
  }
  if (const std::string path = FindImage(name, file); !path.empty())
    shader.SetParam(param, path, trWhoSystem);
  else
    trWarning(file + ": the image " + name + " is not to be found and is left out");
}

void SetUp(trBase& shader, const MeshMaterial& material, const std::string& file) {
  const auto set = [&shader](const char* param, const trParamValue& value) {
    shader.SetParam(param, value, trWhoSystem);
  };
  const float* const c = material.colour;
  const bool isBlack = c[0] <= 0 && c[1] <= 0 && c[2] <= 0;
  // An image is multiplied by the colour, and some programs leave that black.
  const bool hasImage = material.image[MeshMaterial::kColour][0] != 0;
  set("diffuse_colour", isBlack && hasImage ? trManRgb(1, 1, 1) : trManRgb(c[0], c[1], c[2]));
  const float* const l = material.luminosity;
  set("luminosity", trManRgb(l[0], l[1], l[2]));
  if (material.opacity >= 0) set("opacity", trRgbLinear709(std::min(material.opacity, 1.0f)));
  if (material.roughness >= 0) set("specular_roughness", std::min(material.roughness, 1.0f));
  if (material.metalness >= 0) set("metalness", std::min(material.metalness, 1.0f));
  if (material.indexOfRefraction >= 1) set("index_of_refraction", std::min(material.indexOfRefraction, 5.0f));
  constexpr const char* kParams[MeshMaterial::kImages] = {
      "colour_image",    "opacity_image",    "specular_roughness_image",
      "metalness_image", "luminosity_image", "displacement_image"};
  for (int i = 0; i < MeshMaterial::kImages; ++i) SetImage(shader, kParams[i], material.image[i], file);
  // One picture for both: its alpha channel is what covers.
  if (material.image[MeshMaterial::kOpacity][0] &&
      !std::strcmp(material.image[MeshMaterial::kOpacity], material.image[MeshMaterial::kColour]))
    set("use_alpha_channel", 1);
}

/// Materials that no triangle has are no part of an object.
std::vector<bool> UsedMaterials(const ForeignMesh& mesh) {
  std::vector<bool> isUsed(mesh.materials.size());
  for (const MeshTriangle& triangle : mesh.triangles)
    if (triangle.material >= 0 && static_cast<std::size_t>(triangle.material) < isUsed.size())
      isUsed[static_cast<std::size_t>(triangle.material)] = true;
  return isUsed;
}

/// Indices in the scene count from 1, and 0 is none.
void Fill(trScene& scene, const ForeignMesh& mesh, const std::vector<std::int32_t>& materials) {
  const auto vector = [](const MeshPoint& p) { return trVector(p.x, p.y, p.z); };
  for (const MeshPoint& p : mesh.points) scene.AddPoint({vector(p)});
  for (const MeshPoint& p : mesh.texVerts) scene.AddTexVert({vector(p)});
  for (const MeshPoint& p : mesh.normals) scene.AddNormal({vector(p)});
  for (const MeshTriangle& from : mesh.triangles) {
    trTri tri;
    for (int corner = 0; corner < 3; ++corner) {
      tri.point[corner] = from.point[corner] + 1;
      tri.texVert[corner] = from.texVert[corner] + 1;
      tri.normal[corner] = from.normal[corner] + 1;
    }
    const auto material = static_cast<std::size_t>(from.material);
    tri.material = material < materials.size() ? materials[material] : 1;
    scene.AddTri(tri);
  }
}

}  // namespace

trSceneMaker* MakeMeshObject(trBase& parent, const std::string& file, const ForeignMesh& mesh,
                             trScene& scene) {
  auto* const maker = dynamic_cast<trSceneMaker*>(parent.CreateChild("ovo_reader"));
  if (!maker || !scene.Init()) {
    trError("The module has no class ovo_reader.");
    return nullptr;
  }
  maker->SetName(fs::path(file).stem().string());
  const long group = scene.BeginGroup(maker->Name());
  trScene& object = *scene.GetPGroup(group)->Subscene();
  const std::vector<bool> isUsed = UsedMaterials(mesh);
  std::vector<std::int32_t> materials(mesh.materials.size());
  for (std::size_t i = 0; i < mesh.materials.size(); ++i) {
    if (!isUsed[i]) continue;
    trBase* const shader = maker->CreateChild("default_shader");
    if (!shader) continue;
    shader->SetName(mesh.materials[i].name[0] ? mesh.materials[i].name : "Material");
    SetUp(*shader, mesh.materials[i], file);
    trMaterial material;
    material.id = static_cast<std::int32_t>(object.NumMaterials()) + 1;
    // Shader and material find each other by the name.
    material.name = shader->Name();
    material.surfaceShader = dynamic_cast<trShader*>(shader);
    materials[i] = static_cast<std::int32_t>(object.AddMaterial(material));
  }
  if (maker->NumChildren() > 0) maker->SetParam("surface_shader", maker->Child(0)->Name(), trWhoSystem);
  Fill(object, mesh, materials);
  scene.EndGroup();
  return maker;
}

}  // namespace ovhost
