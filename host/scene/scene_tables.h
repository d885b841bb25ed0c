// What a trScene holds.
#pragma once

#include "core/scene.h"

struct trScene::Tables {
  std::vector<trPoint> points;
  std::vector<trNormal> normals;
  std::vector<trTexVert> texVerts;
  std::vector<trTri> tris;
  std::vector<trMaterial> materials;
  std::vector<trParticle> particles;
  std::vector<trShader*> atmospheres;
  std::vector<std::unique_ptr<trGeomGroup>> groups;
  trScene* openGroup = nullptr;

  bool allowsTriSubdivision = true, castsShadows = true, isVisibleInReflections = true;
  trSceneVisibilityMode visibility = trSceneVisibilityMode::kVisible;
  long primaryRenderMethod = 0;
  trTransform<double> transform, shaderTransform;
  trParticleInflator* inflator = nullptr;

  std::vector<trSortedElement> sorted;
  bool isSorted = false;

  // Settled by PrepForRender.
  bool isSettled = false;
  trBoundingBox boxR, boxT;
  long totalTris = 0;
  long firstMaterial = 0;  ///< persistent index of material 0 of this table

  /// The tables being filled: those of the innermost open group.
  Tables& Current();
  static void Settle(trScene& scene, long& nextMaterial);
  static void CollectElements(const trScene& scene, const trVector& direction, bool includeParticles,
                              std::vector<trSortedElement>& out);
};

namespace ovhost {
/// The box about the eight moved corners; empty stays empty.
trBoundingBox TransformedBox(const trTransform<double>& transform, const trBoundingBox& box);
}  // namespace ovhost
