// Meshes displaced as they are made. Points that lie in one place stay together, so that a mesh whose faces
// have points of their own stays as closed as it was.
#include <bit>
#include <unordered_map>

#include "core/scene_maker.h"
#include "core/shading_state.h"

namespace {

struct PlaceHash {
  size_t operator()(const trVector& p) const {
    std::uint64_t hash = 0;
    for (int i = 0; i < 3; ++i) {
      // Both zeros are one place.
      hash = (hash ^ std::bit_cast<std::uint64_t>(p[i] + 0.0)) * 0x9e3779b97f4a7c15u;
      hash ^= hash >> 29;
    }
    return hash;
  }
};

/// The places of a scene's points, each once.
struct Places {
  std::vector<trVector> positions;
  std::vector<std::uint32_t> ofPoint;

  explicit Places(const trScene& scene) {
    std::unordered_map<trVector, std::uint32_t, PlaceHash> known;
    known.reserve(static_cast<size_t>(scene.NumPts()));
    ofPoint.reserve(static_cast<size_t>(scene.NumPts()));
    for (long i = 1; i <= scene.NumPts(); ++i) {
      const trVector& position = scene.GetPPoint(i)->position;
      const auto [entry, isNew] = known.try_emplace(position, static_cast<std::uint32_t>(positions.size()));
      if (isNew) positions.push_back(position);
      ofPoint.push_back(entry->second);
    }
  }

  /// Normals of the places: those of the triangles about each, weighted by area. Unit, or zero.
  std::vector<trVector> Normals(const trScene& scene) const {
    std::vector<trVector> normals(positions.size());
    for (long i = 1; i <= scene.NumTris(); ++i) {
      const std::int32_t* const corners = scene.GetPTri(i)->point;
      const trVector &a = At(corners[0]), &b = At(corners[1]), &c = At(corners[2]);
      const trVector weighted = Cross(c - a, b - a);
      for (int k = 0; k < 3; ++k) normals[ofPoint[corners[k] - 1]] += weighted;
    }
    for (trVector& normal : normals) normal = Normalised(normal);
    return normals;
  }

 private:
  const trVector& At(std::int32_t point) const { return positions[ofPoint[point - 1]]; }
};

void ReplaceNormals(trScene& scene, const Places& places) {
  const long first = scene.NumNormals() + 1;
  for (const trVector& normal : places.Normals(scene))
    if (!scene.AddNormal({normal})) return;
  for (long i = 1; i <= scene.NumTris(); ++i) {
    trTri& tri = *scene.GetPTri(i);
    for (int corner = 0; corner < 3; ++corner)
      tri.normal[corner] = static_cast<std::int32_t>(first + places.ofPoint[tri.point[corner] - 1]);
  }
}

}  // namespace

void juObjectGeneratorOrReader::MovePointsWithMeshDisplacer(trScene& scene, bool recalculateNormals,
                                                            trShader& shader) {
  trSamplingState state(shader);
  trShadingInterface& si = state.ShadingInterface();
  si.Object().objectToWorld = &scene.GetTransformForShaders();
  si.Object().scene = &scene;
  const trTransform<double>& transform = scene.GetTransform();
  Places places(scene);
  const std::vector<trVector> normals = places.Normals(scene);
  for (size_t i = 0; i < places.positions.size(); ++i) {
    trVector& position = places.positions[i];
    si.SetSample(transform.Point(position), transform.Normal(normals[i]));
    shader.DisplaceTS(si);
    const trVector moved = transform.inverse.Point(si.P());
    if (std::isfinite(moved.LengthSquared())) position = moved;
  }
  for (long i = 1; i <= scene.NumPts(); ++i)
    scene.GetPPoint(i)->position = places.positions[places.ofPoint[i - 1]];
  if (recalculateNormals) ReplaceNormals(scene, places);
  for (long i = 1; i <= scene.NumGroups(); ++i)
    MovePointsWithMeshDisplacer(*scene.GetPGroup(i)->Subscene(), recalculateNormals, shader);
}
