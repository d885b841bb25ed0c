// Scenes: closed and outward primitives, tables and groups, bounds, the steps of scene makers.
#include <fstream>

#include "core/scene_maker.h"
#include "tests/shading_fixture.h"
#include "tests/solid_measure.h"
#include "tests/temp_file.h"

namespace {

TEST(Scene, SpheresAreClosedOutwardAndShareTheirPoints) {
  for (const long n : {1L, 2L, 3L, 4L, 7L}) {
    trScene scene;
    ASSERT_TRUE(scene.Init());
    const long material = scene.AddMaterial(trMaterial());
    ASSERT_EQ(scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 2 * n, n, material), 1);
    EXPECT_EQ(scene.NumTris(), 12 * n * n);
    EXPECT_EQ(scene.NumPts(), 6 * n * n + 2);
    for (long i = 1; i <= scene.NumPts(); ++i) EXPECT_NEAR(scene.GetPPoint(i)->position.Length(), 1, 1e-15);
    const SolidMeasure solid(scene);
    EXPECT_TRUE(solid.isClosed) << n;
    EXPECT_EQ(scene.NumPts() + scene.NumTris() - static_cast<long>(solid.edges), 2) << "Euler";
    for (long i = 1; i <= scene.NumTris(); i += 2) {
      const trTri &a = *scene.GetPTri(i), &b = *scene.GetPTri(i + 1);
      EXPECT_TRUE(a.point[0] == b.point[0] && a.point[2] == b.point[1]) << "a quad's two halves";
      trVector p[3];
      scene.GetPointVecs(a.point, p, 3);
      EXPECT_GT(Dot(Cross(p[2] - p[0], p[1] - p[0]), p[0] + p[1] + p[2]), 0) << "faces outward";
    }
  }
  trScene scene;
  EXPECT_EQ(scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4097, 0), 0);
  EXPECT_GT(scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, -5, 0), 0) << "at least one quad a face";
  EXPECT_EQ(scene.NumTris(), 12);
}

TEST(Scene, OtherPrimitives) {
  trScene cylinder;
  ASSERT_TRUE(cylinder.AddPolyCylinder({1, 2, 3}, {1, 6, 3}, 2, 64, 0));
  const SolidMeasure solid(cylinder);
  EXPECT_TRUE(solid.isClosed);
  EXPECT_NEAR(solid.volume, 4 * 64 / 2.0 * 4 * std::sin(2 * M_PI / 64), 1e-9) << "a prism of 64 sides";

  trScene plane;
  ASSERT_TRUE(plane.AddPolyPlane({0, 0, 0}, {0, 0, 2}, {3, 0, 0}, true, 0));
  EXPECT_EQ(plane.NumPts(), 4);
  EXPECT_EQ(plane.NumTris(), 4);
  trVector p[3];
  plane.GetPointVecs(plane.GetPTri(1)->point, p, 3);
  EXPECT_NEAR(Cross(p[2] - p[0], p[1] - p[0]).y, 6, 1e-12) << "faces along a x b";
  EXPECT_NEAR(SolidMeasure(plane).volume, 0, 1e-12);

  trScene disc;
  EXPECT_EQ(disc.AddPolyDisc({0, 0, 0}, {1, 0, 0}, {0, 0, 1}, 2, 0), 0);
  EXPECT_TRUE(disc.AddPolyDisc({0, 0, 0}, {1, 0, 0}, {0, 0, 1}, 16, 0));
}

TEST(Scene, TablesGroupsAndBounds) {
  trScene scene;
  EXPECT_EQ(scene.GetPPoint(0), nullptr);
  EXPECT_EQ(scene.GetPPoint(1), nullptr);
  trTri tri;
  EXPECT_EQ(scene.AddTri(tri), 0) << "no points";
  EXPECT_EQ(scene.AddAtmosphere(nullptr), 0);
  EXPECT_EQ(scene.AddMaterial(trMaterial()), 1);
  EXPECT_EQ(scene.AddPoint({{-1, 0, 0}}), 1);
  EXPECT_EQ(scene.EndGroup(), 0) << "none open";

  ASSERT_EQ(scene.BeginGroup("outer"), 1);
  EXPECT_EQ(scene.NumPts(), 0) << "a group counts its own";
  EXPECT_EQ(scene.AddMaterial(trMaterial()), 1);
  ASSERT_EQ(scene.BeginGroup("inner"), 1);
  EXPECT_EQ(scene.AddMaterial(trMaterial()), 1);
  for (const trVector& p : {trVector(0, 0, 0), trVector(4, 0, 0), trVector(0, 2, 1)}) scene.AddPoint({p});
  for (int i = 0; i < 3; ++i) tri.point[i] = i + 1;
  EXPECT_EQ(scene.AddTri(tri), 1);
  tri.normal[1] = 7;
  EXPECT_EQ(scene.AddTri(tri), 0) << "no such normal";
  EXPECT_TRUE(scene.EndGroup());
  EXPECT_TRUE(scene.EndGroup());
  EXPECT_EQ(scene.NumPts(), 1);

  scene.SetTransform(trTranslate({10, 0, 0}) * trRotateZ(M_PI / 2));
  scene.SetCastsShadows(false);
  scene.PrepForRender();
  EXPECT_EQ(scene.TotalNumTrisAtPrep(), 1);
  const trScene& outer = *scene.GetPGroup(1)->Subscene();
  const trScene& inner = *outer.GetPGroup(1)->Subscene();
  EXPECT_FALSE(outer.GetPGroup(1)->CastsShadows());
  EXPECT_EQ(scene.GetPersistentMaterialIndex(1), 1);
  EXPECT_EQ(outer.GetPersistentMaterialIndex(1), 2);
  EXPECT_EQ(inner.GetPersistentMaterialIndex(1), 3);
  ExpectNear(inner.GetTransform().Point({1, 0, 0}), {10, 1, 0}, 1e-12);
  ExpectNear(scene.BoundingBoxR().min, {-1, 0, 0}, 1e-12);
  ExpectNear(scene.BoundingBoxR().max, {4, 2, 1}, 1e-12);
  ExpectNear(scene.BoundingBoxT().min, {8, -1, 0}, 1e-12);
  ExpectNear(scene.BoundingBoxT().max, {10, 4, 1}, 1e-12);
}

TEST(Scene, ElementsSortAlongADirectionOfTheWorld) {
  trScene scene;
  for (const double x : {3.0, 1.0, 2.0}) scene.AddParticle({{x, 0, 0}, 0});
  scene.SetTransform(trRotateY(M_PI));  // +x turns to -x
  scene.SortElements({1, 0, 0}, true);
  ASSERT_EQ(scene.NumSortedElements(), 3);
  const long expected[] = {2, 3, 1};
  for (long i = 1; i <= 3; ++i) EXPECT_EQ(scene.GetSortedElementInfoReversed(i)->index, expected[i - 1]);
  EXPECT_EQ(scene.GetSortedElementInfoReversed(4), nullptr);

  // Groups count too, at the scale that they stand in.
  scene.SetTransform(trScale(2, 2, 2));
  ASSERT_TRUE(scene.BeginGroup("tri"));
  trTri tri;
  for (int i = 0; i < 3; ++i) {
    trPoint point{{5, 0, 0}};
    point.position[i] += 1;
    tri.point[i] = static_cast<std::int32_t>(scene.AddPoint(point));
  }
  ASSERT_TRUE(scene.AddTri(tri));
  scene.EndGroup();
  scene.SortElements({1, 0, 0}, false);
  ASSERT_EQ(scene.NumSortedElements(), 1);
  const trSortedElement& element = *scene.GetSortedElementInfoReversed(1);
  EXPECT_EQ(element.scene, scene.GetPGroup(1)->Subscene().get());
  EXPECT_NEAR(element.depth, 2 * (5 + 1.0 / 3), 1e-12);
  EXPECT_NEAR(element.size, -4 * std::sqrt(3.0) / 2, 1e-12);
}

/// Keeps what it is given, up to two.
struct TriList : trTriSink {
  bool Take(const trRenderTri& tri) override {
    tris.push_back(tri);
    return tris.size() <= 2;
  }
  std::vector<trRenderTri> tris;
};

TEST(RenderState, PushedTrianglesStandInTheWorld) {
  trScene scene;
  scene.SetTransform(trTranslate({6.4e6, 0, 0}) * trScale(1, 2, 1));
  trTri tri;
  for (int i = 0; i < 3; ++i) {
    trVector corner;
    corner[i] = 1;
    tri.point[i] = static_cast<std::int32_t>(scene.AddPoint({corner}));
    tri.texVert[i] = static_cast<std::int32_t>(scene.AddTexVert({{i * 0.5, 1, 0}}));
    tri.normal[i] = static_cast<std::int32_t>(scene.AddNormal({{0, 1, 1}}));
  }
  tri.material = static_cast<std::int32_t>(scene.AddMaterial(trMaterial()));
  const long index = scene.AddTri(tri);

  trNoRenderServices services;
  trShadingInterface si;
  trRenderState state(services, si);
  trTriHit hit;
  EXPECT_EQ(state.IntersectRayTriAccelerator(scene, {}, {1, 0, 0}, hit), 0) << "nothing is rendered";
  EXPECT_EQ(state.PushTri(scene, index), 0) << "nobody takes it";
  TriList list;
  state.SetTriSink(&list);
  EXPECT_EQ(state.PushTri(scene, index), 1);
  EXPECT_EQ(state.PushTri(scene, index + 1), 0);
  ASSERT_EQ(list.tris.size(), 1u);
  ExpectNear(list.tris[0].point[1], {6.4e6, 2, 0}, 1e-9);
  ExpectNear(list.tris[0].texture[1], {0.5, 1, 0}, 0);
  ExpectNear(list.tris[0].normal[2], Normalised(trVector(0, 0.5, 1)), 1e-12);
  scene.GetPMaterial(1)->useNormals = false;
  EXPECT_EQ(state.PushTri(scene, index), 1);
  ExpectNear(list.tris[1].normal[0], -Normalised(trVector(1, 0.5, 1)), 1e-12);
  trRenderTri bad = list.tris[0];
  bad.point[2].x = std::nan("");
  EXPECT_EQ(state.PushRenderTri(bad), 0);
  EXPECT_EQ(state.PushTri(scene, index), 0) << "full";
}

/// Notes the steps of Make, and fails at one.
class Steps : public juSubSceneMaker {
 public:
  Steps() : juSubSceneMaker("", "", "position") {
    Param(position_, "position", trVector(0, 0, -5));
    DeclareVisibilityParams(1, 1, 1, 0);
    DeclareAdvancedVisibilityParams();
    DeclareAngularPositionParams();
    DeclareImportMotionFileParams(false);
  }
  long MakePlanetSurface(trScene& scene) override {
    ApplyVisibilityParams(scene);
    return log += "surface ", failAt != 1;
  }
  void BindPlanetMaterials(trScene&) override { log += "bind "; }
  bool MakeNonSurface(trScene&) override { return log += "other ", failAt != 2; }
  void PushPlanetParamsToChildren() override { log += "push "; }
  using juSubSceneMaker::OnImportMotion;
  std::string log;
  int failAt = 0;

 private:
  trVector position_;
};

TEST(SceneMaker, StepsComeInOrderAndVisibilityIsCarriedOver) {
  const struct {
    int failAt;
    long result;
    const char* log;
  } rows[] = {
      {0, 1, "push surface bind other "}, {1, 0, "push surface "}, {2, 0, "push surface bind other "}};
  for (const auto& row : rows) {
    Steps maker;
    trScene scene;
    maker.failAt = row.failAt;
    EXPECT_EQ(maker.Make(scene, trSceneMaker::kRender), row.result);
    EXPECT_EQ(maker.log, row.log);
    EXPECT_FALSE(scene.AllowsTriSubdivision());
    EXPECT_EQ(scene.VisibilityMode(), trSceneVisibilityMode::kVisible);
  }
  Steps maker;
  trScene scene;
  maker.SetParam("holdout", 1, trWhoUser);
  maker.Make(scene, trSceneMaker::kRender);
  EXPECT_EQ(scene.VisibilityMode(), trSceneVisibilityMode::kHoldout);
  maker.SetParam("visible", 0, trWhoUser);
  maker.Make(scene, trSceneMaker::kRender);
  EXPECT_FALSE(scene.IsVisibleOrHoldout());
}

TEST(SceneMaker, AngularPositionFollowsThePositionAndBack) {
  Steps maker;
  maker.OnCreate();
  EXPECT_NEAR(DoubleParam(maker, "angular_distance"), 5, 1e-12);
  EXPECT_NEAR(DoubleParam(maker, "angular_heading"), 180, 1e-12);
  maker.SetParam("angular_heading", 90, trWhoUser);
  ExpectNear(VectorParam(maker, "position"), {5, 0, 0}, 1e-12);
  maker.SetParam("angular_elevation", 30, trWhoUser);
  ExpectNear(VectorParam(maker, "position"), {5 * std::sqrt(0.75), 2.5, 0}, 1e-12);
  maker.SetParam("position", trVector(0, -7, 0), trWhoUser);
  EXPECT_NEAR(DoubleParam(maker, "angular_elevation"), -90, 1e-12);
  ExpectNear(VectorParam(maker, "position"), {0, -7, 0}, 0);
}

TEST(SceneMaker, MotionFilesAreKeyedWholeOrNotAtAll) {
  const std::string path = TempFile("motion.txt");
  Steps maker;
  long position;
  ASSERT_TRUE(maker.FindParam(position, "position"));
  for (const char* bad : {"1 0 0\n", "1 0 0 0\n2 1 x 0\n", "1 0 0 0\n2 inf 0 0\n", "# nothing\n"}) {
    std::ofstream(path) << bad;
    maker.SetParam("motion_file", path, trWhoUser);
    EXPECT_FALSE(maker.OnImportMotion()) << bad;
    EXPECT_FALSE(maker.IsParamAnimated(position)) << bad;
  }
  std::ofstream(path) << "# frame x y z\n1 0 10 0\n\n11, 5, 20, 0\r\n";
  ASSERT_TRUE(maker.OnImportMotion());
  ASSERT_TRUE(maker.UpdateParamFromAnim(position, 6));
  ExpectNear(VectorParam(maker, "position"), {2.5, 15, 0}, 1e-9);
}

/// A ball made by code, displaced by a linked shader.
class Ball : public juObjectGenerator {
 public:
  Ball() { DeclareObjectGeneratorTabbedParams(); }
  long GenerateMesh(trScene& scene, long material) override {
    if (!scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4, material)) return 0;
    if (auto* shader = static_cast<trShader*>(meshDisplacer_.LinkedNode()))
      MovePointsWithMeshDisplacer(scene, true, *shader);
    return 1;
  }
};

TEST(SceneMaker, GeneratorsPlaceAndDisplaceTheirMesh) {
  Graph graph;
  auto& ball = graph.Add<Ball>("Ball");
  auto& probe = graph.Add<ProbeShader>("Push");
  probe.onDisplace = [](trShadingInterface& si) { si.P() += si.N() * 3; };
  Graph::Link(ball, "mesh_displacer", probe);
  ball.SetParam("translate", trVector(100, 0, 0), trWhoUser);
  ball.SetParam("scale", trVector(2, 2, 2), trWhoUser);
  trScene scene;
  ASSERT_TRUE(ball.Make(scene, trSceneMaker::kInstance));
  scene.PrepForRender();
  const trScene& mesh = *scene.GetPGroup(1)->Subscene();
  EXPECT_EQ(probe.displaced, mesh.NumPts());
  for (long i = 1; i <= mesh.NumPts(); ++i)
    EXPECT_NEAR((mesh.GetTransform().Point(mesh.GetPPoint(i)->position) - trVector(100, 0, 0)).Length(), 5,
                0.05);
  trVector normals[3];
  ASSERT_EQ(mesh.GetNormals(mesh.GetPTri(1)->normal, normals, 3), 3);
  EXPECT_GT(Dot(normals[0], mesh.GetPPoint(mesh.GetPTri(1)->point[0])->position), 0);
}

TEST(SceneMaker, GeneratorsCarryTheirSwitchesOver) {
  Ball ball;
  const auto make = [&](trSceneMaker::Context context) {
    auto scene = std::make_unique<trScene>();
    EXPECT_TRUE(ball.Make(*scene, context));
    return scene;
  };
  const auto materialOf = [](const trScene& scene) {
    return *scene.GetPGroup(1)->Subscene()->GetPMaterial(1);
  };
  EXPECT_TRUE(materialOf(*make(trSceneMaker::kRender)).isDoubleSided);
  EXPECT_FALSE(make(trSceneMaker::kRender)->GetPGroup(1)->Subscene()->AllowsTriSubdivision());
  for (const char* param : {"double-sided_surface", "use_smooth_normals", "smooth_polygons_at_terminator"})
    ball.SetParam(param, 0, trWhoUser);
  ball.SetParam("allow_subdivision", 1, trWhoUser);
  const auto scene = make(trSceneMaker::kRender);
  EXPECT_FALSE(materialOf(*scene).isDoubleSided);
  EXPECT_FALSE(materialOf(*scene).useNormals);
  EXPECT_FALSE(materialOf(*scene).smoothsTerminator);
  EXPECT_TRUE(scene->GetPGroup(1)->Subscene()->AllowsTriSubdivision());
  ball.SetParam("population_mode", 1, trWhoUser);
  EXPECT_EQ(make(trSceneMaker::kRender)->NumGroups(), 0) << "its populator shows it";
  EXPECT_EQ(make(trSceneMaker::kInstance)->NumGroups(), 1);
}

}  // namespace

TEST(Preview, EveryPartHasAHighlightOfItsOwn) {
  using Handler = juPreviewHandler;
  const struct {
    bool (Handler::*is)();
    void (Handler::*set)(bool);
  } parts[] = {{&Handler::IsHighlighted, &Handler::SetHighlighted},
               {&Handler::IsTXHighlighted, &Handler::SetTXHighlighted},
               {&Handler::IsTYHighlighted, &Handler::SetTYHighlighted},
               {&Handler::IsTZHighlighted, &Handler::SetTZHighlighted},
               {&Handler::IsRXHighlighted, &Handler::SetRXHighlighted},
               {&Handler::IsRYHighlighted, &Handler::SetRYHighlighted},
               {&Handler::IsRZHighlighted, &Handler::SetRZHighlighted},
               {&Handler::IsRotGrabHighlighted, &Handler::SetRotGrabHighlighted},
               {&Handler::IsSXHighlighted, &Handler::SetSXHighlighted},
               {&Handler::IsSYHighlighted, &Handler::SetSYHighlighted},
               {&Handler::IsSZHighlighted, &Handler::SetSZHighlighted},
               {&Handler::IsScaleCentreGrabHighlighted, &Handler::SetScaleCentreGrabHighlighted}};
  Handler handler;
  const auto count = [&] {
    int lit = 0;
    for (const auto& part : parts) lit += (handler.*part.is)();
    return lit;
  };
  for (const auto& part : parts) {
    (handler.*part.set)(true);
    EXPECT_TRUE((handler.*part.is)());
    EXPECT_EQ(count(), 1);
    (handler.*part.set)(false);
  }
  for (const auto& part : parts) (handler.*part.set)(true);
  EXPECT_EQ(count(), static_cast<int>(std::size(parts)));
  handler.RemoveAllHighlighting();
  EXPECT_EQ(count(), 0);
}
