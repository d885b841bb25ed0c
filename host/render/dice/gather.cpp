// Taking scenes apart into what is diced and what is traced as it is.
#include "host/render/dice/gather.h"

#include <algorithm>

#include "host/render/dice/inflate.h"

namespace ovhost {
namespace {

bool MayDisplace(const trMaterial& material) {
  return material.surfaceShader && material.surfaceShader->HasDisplacementTS();
}

PartSource SourceOf(const trScene& scene, const trGeomGroup* group, const SceneSource& source) {
  PartSource part;
  part.scene = &scene;
  part.group = group;
  part.node = source.node;
  part.nodeId = source.nodeId;
  part.rayKinds = RayKindsOf(scene);
  part.isHoldout = scene.VisibilityMode() == trSceneVisibilityMode::kHoldout;
  return part;
}

/// The material of a triangle; an index that leads nowhere means the first. 0 in a scene without materials.
long MaterialIndex(const trScene& scene, const trTri& tri) {
  const long count = scene.NumMaterials();
  return tri.material >= 1 && tri.material <= count ? tri.material : std::min(count, 1L);
}

/// One scene (without its groups) on its way into an assembly.
class Gatherer {
 public:
  Gatherer(const trScene& scene, const trGeomGroup* group, const SceneSource& source, Assembly& assembly)
      : scene_(scene), source_(SourceOf(scene, group, source)), assembly_(assembly) {}

  void Run() {
    std::vector<char> isDiced(scene_.NumMaterials() + 1), isDisplaced(isDiced.size());
    for (long i = 1; i <= scene_.NumMaterials(); ++i) {
      const trMaterial& material = *scene_.GetPMaterial(i);
      isDiced[i] = material.geometryShader != nullptr;
      isDisplaced[i] = scene_.AllowsTriSubdivision() && MayDisplace(material);
    }
    grids_.resize(isDiced.size());
    std::vector<std::int32_t> plain, displaced;
    for (long i = 1; i <= scene_.NumTris(); ++i) {
      const long material = MaterialIndex(scene_, *scene_.GetPTri(i));
      if (isDiced[material])
        i += AddQuad(material, i);
      else
        (isDisplaced[material] ? displaced : plain).push_back(static_cast<std::int32_t>(i));
    }
    for (auto& grid : grids_)
      if (grid) assembly_.grids.push_back(std::move(grid));
    if (!displaced.empty()) {
      auto mesh = std::make_unique<MicroMesh>(source_);
      mesh->roots = std::move(displaced);
      assembly_.micros.push_back(std::move(mesh));
    }
    if (!plain.empty()) assembly_.meshes.push_back(MakeTriMesh(source_, plain, assembly_.origin));
  }

 private:
  /// Pairs of triangles (a, b, c), (a, c, d) are quads; a single one has a corner twice. Quads run round the
  /// other way than the scene's triangles. 1 where the next triangle was taken as well.
  long AddQuad(long material, long index) {
    const trTri& tri = *scene_.GetPTri(index);
    const trTri* next = scene_.GetPTri(index + 1);
    std::int32_t corners[4] = {tri.point[0], tri.point[2], tri.point[1], tri.point[1]};
    const bool isQuad = next && next->material == tri.material && next->point[0] == tri.point[0] &&
                        next->point[1] == tri.point[2];
    if (isQuad) {
      corners[1] = next->point[2];
      corners[2] = tri.point[2];
    }
    std::unique_ptr<GridMesh>& grid = grids_[material];
    if (!grid) {
      grid = std::make_unique<GridMesh>(source_);
      grid->material = scene_.GetPMaterial(material);
    }
    for (const std::int32_t corner : corners) grid->quadCorners.push_back(scene_.GetPPoint(corner)->position);
    return isQuad ? 1 : 0;
  }

  const trScene& scene_;
  PartSource source_;
  Assembly& assembly_;
  std::vector<std::unique_ptr<GridMesh>> grids_;  ///< by material's index
};

/// A scene and its groups on their way into an assembly; `level` counts the copies that they are inside of.
class SceneWalk {
 public:
  SceneWalk(const SceneSource& source, SharedParts& shared) : source_(source), shared_(shared) {}

  void Gather(const trScene& scene, const trGeomGroup* group, int level, Assembly& assembly) {
    if (RayKindsOf(scene) != kNoRays) {
      Gatherer(scene, group, source_, assembly).Run();
      if (const trParticleInflator* inflator = scene.GetParticleInflator();
          inflator && scene.NumParticles()) {
        if (!inflator->IsBasicInstancer())
          AddInflated(scene, group, assembly);
        else if (level < kMaxInstanceLevels)
          AddPopulation(scene, level, assembly);
      }
    }
    for (long i = 1; i <= scene.NumGroups(); ++i) {
      const trGeomGroup* inner = scene.GetPGroup(i);
      Gather(*inner->Subscene(), inner, level, assembly);
    }
  }

 private:
  void AddInflated(const trScene& scene, const trGeomGroup* group, Assembly& assembly) {
    shared_.inflated.push_back(InflateParticles(scene, shared_.view, shared_.seed));
    const size_t first = assembly.meshes.size();
    Gatherer(*shared_.inflated.back(), group, source_, assembly).Run();
    for (size_t i = first; i < assembly.meshes.size(); ++i) assembly.meshes[i]->particles = &scene;
  }

  void AddPopulation(const trScene& scene, int level, Assembly& assembly) {
    const trParticleInflator& inflator = *scene.GetParticleInflator();
    auto population = std::make_unique<Population>();
    population->scene = &scene;
    population->node = source_.node;
    population->nodeId = source_.nodeId;
    population->rayKinds = RayKindsOf(scene);
    population->isHoldout = scene.VisibilityMode() == trSceneVisibilityMode::kHoldout;
    for (long i = 0; i < inflator.NumInstanceScenes(); ++i)
      population->prototypes.push_back(FindPrototype(inflator.InstanceScene(i), level + 1));
    PlaceInstances(*population, assembly.origin);
    if (!population->instances.empty()) assembly.populations.push_back(std::move(population));
  }

  /// The prototype of a scene, made where it is met first. Null where there is no scene.
  const Prototype* FindPrototype(std::shared_ptr<const trScene> scene, int level) {
    if (!scene) return nullptr;
    for (const auto& known : shared_.prototypes)
      if (known->scene == scene) return known.get();
    auto made = std::make_unique<Prototype>();
    made->scene = scene;
    made->parts.origin = scene->BoundingBoxT().Centre();
    Gather(*scene, nullptr, level, made->parts);
    shared_.prototypes.push_back(std::move(made));
    return shared_.prototypes.back().get();
  }

  const SceneSource& source_;
  SharedParts& shared_;
};

}  // namespace

std::unique_ptr<TriMesh> MakeTriMesh(const PartSource& source, const std::vector<std::int32_t>& sceneTris,
                                     const trVector& origin) {
  auto mesh = std::make_unique<TriMesh>(source);
  mesh->mayDisplace.resize(source.scene->NumMaterials() + 1);
  for (long i = 1; i <= source.scene->NumMaterials(); ++i)
    mesh->mayDisplace[i] = MayDisplace(*source.scene->GetPMaterial(i));
  FillTriMesh(*mesh, sceneTris, origin);
  return mesh;
}

void GatherParts(const trScene& scene, const SceneSource& source, Assembly& assembly, SharedParts& shared) {
  SceneWalk(source, shared).Gather(scene, nullptr, 0, assembly);
}

}  // namespace ovhost
