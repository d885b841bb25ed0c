// rock and poly_cube.
#include "objects/rock.h"

#include <algorithm>
#include <string>

#include "core/idioms.h"
#include "core/seed.h"
#include "objects/mesh_subdivision.h"

namespace {

constexpr long kMostVariations = 100;
constexpr long kMostShatterPlanes = 10;
/// Every plane is tried on every other's polygon: twice as many take four times as long.
constexpr long kMostPlanes = 100000;
/// Shattering draws from a sequence of its own, so that whether a solid breaks doesn't change its shape.
constexpr long kShatterSeedStep = 2000;

void SetHardRange(trIntHint& hint, trBase* owner, double min, double max) {
  SetRange(hint, owner, {.min = min, .max = max});
  hint.SetParam("do_range", 1, owner, 1);
}

}  // namespace

void CutSolidGenerator::DeclareVariations() {
  SetHardRange(variationsHint_, this, 1, kMostVariations);
  Param(uniqueVariations_, "unique_variations", 1, &variationsHint_)
      .Display("Variation count")
      .About(
          "How many different solids a populator makes from this node, 1 to 100. More look less alike and "
          "take more memory.");
  Seed(seed_).About(
      "Start of the random draws. Each variation adds its number, so that another seed gives another set of "
      "solids.");
  PushButton(randomiseButton_, "randomise_button");
}

void CutSolidGenerator::DeclareCommonTabs() {
  GuiTab("Shattering", "shattering_tab");
  Param(shatter_, "shatter", 0)
      .About("Splits the solid by random planes into fragments that are moved apart.");
  Param(shatterProbability_, "shatter_probability", 1.0)
      .About("Share of the variations that shatter, from 0 for none to 1 for all.");
  Param(numberOfShatterPlanes_, "number_of_shatter_planes", 1)
      .About("How many planes split the solid, 1 to 10. Each doubles the number of fragments at most.");
  Param(shatterSeparation_, "shatter_separation", 0.1)
      .About("How far each plane moves its two halves apart, as a share of the solid's size.");
  GuiTab("Mesh Modifiers", "mesh_tab");
  Param(subdivideMesh_, "subdivide_mesh", 0)
      .About(
          "Splits every triangle in four, several times over, so that a displacer has points to move. The "
          "shape stays.");
  Param(subdivisionLevel_, "subdivision_level", 3)
      .About(
          "Rounds of subdivision; each takes four times the triangles and memory. 3 suits stones in view, 5 "
          "a close one.");
  Param(meshDisplacer_, "mesh_displacer", "")
      .About(
          "Shader that moves the points of the mesh as it is made, once and for all cameras. Subdivide the "
          "mesh first.");
  DeclareObjectGeneratorTabbedParams();
  SetParamGuiEnabled("smooth_polygons_at_terminator", false);
  SetParamShouldBeSaved("smooth_polygons_at_terminator", false);
}

long CutSolidGenerator::OnFirstCreate() {
  if (SupportsVariations()) SetParam("unique_variations", kMostVariations, this);
  SetParam("double-sided_surface", 0, this);
  SetParam("use_smooth_normals", 0, this);
  return juObjectGenerator::OnFirstCreate();
}

long CutSolidGenerator::NumVariations() { return std::clamp(uniqueVariations_, 1L, kMostVariations); }

long CutSolidGenerator::NumShatterPlanes() const {
  if (!shatter_) return 0;
  const long shapeSeed = trSeedAfter(seed_, current_variation);
  trMersenneTwister draws(static_cast<unsigned long>(trSeedAfter(shapeSeed, kShatterSeedStep)));
  if (!(shatterProbability_ > draws.Unit())) return 0;
  if (numberOfShatterPlanes_ > kMostShatterPlanes) {
    const trScopedErrorsWarningsContext context(this);
    trWarning(Name() + ": Number of shatter planes cannot be greater than 10");
  }
  return std::clamp(numberOfShatterPlanes_, 1L, kMostShatterPlanes);
}

bool CutSolidGenerator::HasTooManyPlanes() const {
  if (NumPlanes() <= kMostPlanes) return false;
  const trScopedErrorsWarningsContext context(this);
  trError(std::to_string(NumPlanes()) + " faces are asked for; the budget is " + std::to_string(kMostPlanes) +
          ".");
  return true;
}

long CutSolidGenerator::GenerateMesh(trScene& scene, long materialIndex) {
  scene.SetAllowsTriSubdivision(false);
  if (NumPlanes() < 1) return 1;
  if (HasTooManyPlanes()) return 0;

  const long shatterPlanes = NumShatterPlanes();
  trMersenneTwister draws(static_cast<unsigned long>(trSeedAfter(seed_, current_variation)));
  CutSolid solid(NumPlanes(), draws, [&](long i) { return NextPlane(i, draws); });
  unsigned long progress = 0;
  const bool isCut = solid.Cut([&](float fraction) {
    return ReportProgress(progress, Name() + ": Cutting faces", fraction, -1.0f) != 0;
  });
  if (progress) ReportProgress(progress, trString(), 1.0f, -1.0f);
  if (!isCut) return 0;
  for (long i = 0; i < shatterPlanes; ++i) solid.Shatter(shatterSeparation_, draws);
  if (!solid.AddTo(scene, Size(), materialIndex)) return 0;

  if (subdivideMesh_ && !SubdivideMesh(scene, subdivisionLevel_, *this)) return 0;
  if (trShader* const displacer = LinkedShader(meshDisplacer_))
    MovePointsWithMeshDisplacer(scene, true, *displacer);
  return 1;
}

Rock::Rock() {
  SetHardRange(facesHint_, this, 10, 30);
  GuiTab("Rock", "rock_tab");
  Param(numberOfFaces_, "number_of_faces", 20, &facesHint_)
      .About("How many planes cut the rock out, 10 to 30. Few give slabs and spikes, many a rounder stone.");
  Param(diameter_, "diameter", 1.0)
      .About("Diameter in metres of the ball that all faces touch from outside; corners reach further out.");
  DeclareVariations();
  DeclareCommonTabs();
}

CutPlane Rock::NextPlane(long, trMersenneTwister& draws) const { return {DrawDirection(draws), 0.5}; }

PolyCube::PolyCube() {
  GuiTab("PolyCube", "polycube_tab");
  DeclareVariations();
  DeclareCommonTabs();
}

CutPlane PolyCube::NextPlane(long index, trMersenneTwister&) const {
  trVector normal;
  normal[static_cast<int>(index / 2)] = index % 2 ? -1 : 1;
  return {normal, 0.5};
}
