// Scenes with groups and copies as one mesh.
#include <map>

#include "host/scene/object_files.h"

namespace ovhost {
namespace {

/// Copies of copies; deeper ones are a ring.
constexpr int kMostLevels = 8;

void Measure(const trScene& scene, double copies, int level, SceneSize& size) {
  size.points += copies * static_cast<double>(scene.NumPts());
  size.triangles += copies * static_cast<double>(scene.NumTris());
  size.depth = std::max(size.depth, level);
  if (level >= kMostLevels) return;
  for (long i = 1; i <= scene.NumGroups(); ++i) Measure(*scene.GetPGroup(i)->Subscene(), copies, level, size);
  const trParticleInflator* const inflator = scene.GetParticleInflator();
  if (!inflator || scene.NumParticles() == 0) return;
  // Each scene is looked into once, however many copies it has.
  std::map<long, double> used;
  for (long i = 1; i <= scene.NumParticles(); ++i)
    used[inflator->InstanceSceneIndex(*scene.GetPParticle(i))] += copies;
  for (const auto& [index, count] : used) {
    size.copies += count;
    if (const auto instance = inflator->InstanceScene(index)) Measure(*instance, count, level + 1, size);
  }
}

class Flattener {
 public:
  explicit Flattener(trScene& to) : to_(to) {}

  /// `place` leads from the scene's space to that of the mesh.
  void Add(const trScene& scene, const trTransform<double>& place, int level) {
    AddMesh(scene, place);
    if (level >= kMostLevels) return;
    const trTransform<double> fromWorld = scene.GetTransform().Inverse();
    for (long i = 1; i <= scene.NumGroups(); ++i) {
      const trScene& group = *scene.GetPGroup(i)->Subscene();
      Add(group, place * fromWorld * group.GetTransform(), level);
    }
    const trParticleInflator* const inflator = scene.GetParticleInflator();
    if (!inflator) return;
    for (long i = 1; i <= scene.NumParticles(); ++i) {
      const trParticle& particle = *scene.GetPParticle(i);
      const auto instance = inflator->InstanceScene(inflator->InstanceSceneIndex(particle));
      if (instance)
        Add(*instance, place * inflator->InstanceTransform(particle) * instance->GetTransform(), level + 1);
    }
  }

 private:
  void AddMesh(const trScene& scene, const trTransform<double>& place) {
    const auto points = static_cast<std::int32_t>(to_.NumPts()),
               texVerts = static_cast<std::int32_t>(to_.NumTexVerts()),
               normals = static_cast<std::int32_t>(to_.NumNormals());
    for (long i = 1; i <= scene.NumPts(); ++i) to_.AddPoint({place.Point(scene.GetPPoint(i)->position)});
    for (long i = 1; i <= scene.NumTexVerts(); ++i) to_.AddTexVert(*scene.GetPTexVert(i));
    for (long i = 1; i <= scene.NumNormals(); ++i)
      to_.AddNormal({Normalised(place.Normal(scene.GetPNormal(i)->direction))});
    std::vector<std::int32_t> materials;
    for (long i = 1; i <= scene.NumMaterials(); ++i)
      materials.push_back(MaterialNumber(*scene.GetPMaterial(i)));
    for (long i = 1; i <= scene.NumTris(); ++i) {
      trTri tri = *scene.GetPTri(i);
      for (int corner = 0; corner < 3; ++corner) {
        tri.point[corner] += points;
        if (tri.texVert[corner]) tri.texVert[corner] += texVerts;
        if (tri.normal[corner]) tri.normal[corner] += normals;
      }
      const auto material = static_cast<std::size_t>(tri.material);
      tri.material = material >= 1 && material <= materials.size() ? materials[material - 1] : 0;
      to_.AddTri(tri);
    }
  }

  std::int32_t MaterialNumber(const trMaterial& material) {
    const auto [entry, isNew] = materials_.try_emplace({material.surfaceShader, material.name}, 0);
    if (isNew) {
      trMaterial copy = material;
      copy.id = static_cast<std::int32_t>(to_.NumMaterials()) + 1;
      if (copy.name.empty() && copy.surfaceShader) copy.name = copy.surfaceShader->Name();
      entry->second = static_cast<std::int32_t>(to_.AddMaterial(copy));
    }
    return entry->second;
  }

  trScene& to_;
  std::map<std::pair<const trShader*, trString>, std::int32_t> materials_;
};

}  // namespace

SceneSize MeasureScene(const trScene& scene) {
  SceneSize size;
  Measure(scene, 1, 0, size);
  return size;
}

void FlattenScene(const trScene& from, const std::string& name, trScene& to) {
  const long group = to.BeginGroup(name);
  Flattener(*to.GetPGroup(group)->Subscene()).Add(from, {}, 0);
  to.EndGroup();
}

}  // namespace ovhost
