// Balls, grass and boxes made by code, and the previews of generators.
#include "core/random.h"
#include "tests/made_mesh.h"
#include "tests/solid_measure.h"

namespace {

double Draw(trMersenneTwister& draws) { return static_cast<double>(draws.genrand()) / 4294967295.0; }

TEST(PolySphere, IsAClosedBallWithAMap) {
  const struct { long x, y, triangles; } rows[] = {{60, 30, 60 * 58}, {3, 2, 6}, {7, 5, 7 * 8}, {-1, 0, 6}};
  for (const auto& row : rows) {
    Generator ball("poly_sphere", {{"divisions_x", row.x}, {"divisions_y", row.y}});
    const MadeMesh made = ball.Make();
    ASSERT_EQ(made.result, 1);
    EXPECT_EQ(made.mesh->NumTris(), row.triangles);
    const SolidMeasure solid(*made.mesh);
    EXPECT_TRUE(solid.isClosed);
    EXPECT_EQ(solid.points, static_cast<size_t>(made.mesh->NumPts()));
    EXPECT_EQ(solid.points + static_cast<size_t>(row.triangles), solid.edges + 2) << "Euler";
    if (row.x == 60) {
      EXPECT_NEAR(solid.volume, 4 * M_PI / 3, 0.02);
    }
    for (long i = 1; i <= made.mesh->NumTris(); ++i) {
      trVector p[3], n[3], uv[3];
      const trTri& tri = *made.mesh->GetPTri(i);
      ASSERT_EQ(made.mesh->GetPointVecs(tri.point, p, 3), 3);
      ASSERT_EQ(made.mesh->GetNormals(tri.normal, n, 3), 3);
      ASSERT_EQ(made.mesh->GetTexVecs(tri.texVert, uv, 3), 3);
      EXPECT_GT(Dot(Cross(p[2] - p[0], p[1] - p[0]), p[0] + p[1] + p[2]), 0);
      for (int k = 0; k < 3; ++k) {
        EXPECT_NEAR(p[k].Length(), 1, 1e-12);
        ExpectNear(n[k], p[k], 1e-12);
        EXPECT_NEAR(std::asin(std::clamp(p[k].y, -1.0, 1.0)) / M_PI + 0.5, uv[k].y, 1e-7);
        if (std::fabs(p[k].y) > 1 - 1e-9) continue;
        const double turns = uv[k].x - std::atan2(p[k].z, p[k].x) / (2 * M_PI);
        EXPECT_NEAR(turns, std::round(turns), 1e-12);
        EXPECT_LT(std::fabs(uv[k].x - uv[0].x), 1.0 / 3 + 1e-9) << "no triangle spans the seam";
      }
    }
  }
  Generator plain("poly_sphere", {{"generate_UVs", 0}});
  EXPECT_EQ(plain.Make().mesh->NumTexVerts(), 0);
  Generator huge("poly_sphere", {{"divisions_x", 1000000000L}});
  EXPECT_EQ(huge.Make().result, 0);
}

TEST(PolySphere, NormalsAreRecalculatedAfterDisplacingOrNot) {
  for (const int isOn : {0, 1}) {
    Generator ball("poly_sphere", {{"recalculate_normals", isOn}});
    auto& push = ball.graph.Add<ProbeShader>("Push");
    push.onDisplace = [](trShadingInterface& si) { si.P() = si.P() * trVector(1, 4, 1); };
    Graph::Link(ball.node, "mesh_displacer", push);
    const MadeMesh made = ball.Make();
    const long middle = made.mesh->NumTris() / 3;
    trVector p[3], n[3];
    made.mesh->GetPointVecs(made.mesh->GetPTri(middle)->point, p, 3);
    made.mesh->GetNormals(made.mesh->GetPTri(middle)->normal, n, 3);
    const trVector expected =
        isOn ? Normalised(p[0] * trVector(1, 1.0 / 16, 1)) : p[0] * trVector(1, 0.25, 1);
    ExpectNear(n[0], expected, isOn ? 0.02 : 1e-12);
  }
}

TEST(GrassClump, BladesFollowTheirDraws) {
  Generator grass("grass_clump", {{"number_of_blades", 200}, {"clump_diameter", 4.0}, {"blade_length", 0.5}});
  trGlobalRand.sgenrand(99);
  const MadeMesh made = grass.Make();
  ASSERT_EQ(made.result, 1);
  ASSERT_EQ(made.mesh->NumTris(), 200);
  EXPECT_FALSE(made.mesh->AllowsTriSubdivision());
  trMersenneTwister draws(99);
  for (long i = 1; i <= 200; ++i) {
    const double r = Draw(draws) * 0.45 + 0.05;
    double x, z;
    do {
      x = Draw(draws) - 0.5;
      z = Draw(draws) - 0.5;
    } while (x * x + z * z > r * r);
    const double l = Draw(draws) * 0.5, w = l * 0.05, a = Draw(draws) * 3.14159265358979;
    const double b = Draw(draws) * 3.14159265358979, c = Draw(draws) * l * 0.5;
    const trVector tip(4 * x + c * std::cos(2 * b), l, 4 * z - c * std::sin(2 * b)),
        first(4 * x + std::cos(2 * a) * w, 0, 4 * z - std::sin(2 * a) * w),
        second(4 * x - std::cos(2 * a) * w, 0, 4 * z + std::sin(2 * a) * w);
    trVector p[3], uv[3], n[3];
    const trTri& tri = *made.mesh->GetPTri(i);
    made.mesh->GetPointVecs(tri.point, p, 3);
    made.mesh->GetTexVecs(tri.texVert, uv, 3);
    made.mesh->GetNormals(tri.normal, n, 3);
    ExpectNear(p[0], tip, 2e-7);
    ExpectNear(p[1], first, 2e-7);
    ExpectNear(p[2], second, 2e-7);
    ExpectNear(uv[0], {0.5, 1, 0}, 0);
    ExpectNear(uv[1], {1, 0, 0}, 0);
    const trVector across = Cross(second - tip, first - tip);
    ExpectNear(n[0], across / across.Length(), 1e-9);
    EXPECT_EQ(tri.part, -1);
  }
}

TEST(GrassClump, NumbersOfBladesBeyondReason) {
  for (const long number : {0L, -1L}) {
    Generator grass("grass_clump", {{"number_of_blades", number}});
    const MadeMesh made = grass.Make();
    EXPECT_EQ(made.result, 1);
    EXPECT_EQ(made.mesh->NumTris(), 0);
  }
  Generator grass("grass_clump", {{"number_of_blades", 1000000000L}});
  EXPECT_EQ(grass.Make().result, 0);
}

TEST(BoundingBox, MakesNothingAndShowsItsBox) {
  Generator box("bounding_box", {{"box_size", trVector(2, 4, 6)}, {"box_centre", trVector(0, 2, 0)}});
  const MadeMesh made = box.Make();
  EXPECT_EQ(made.result, 1);
  EXPECT_EQ(made.mesh->NumTris() + made.mesh->NumPts(), 0);
  EXPECT_FALSE(made.mesh->AllowsTriSubdivision());
  auto& handler = dynamic_cast<juPreviewHandler&>(*box.node.PreviewHandler());
  ExpectNear(handler.BoundingBoxL().min, {-1, 0, -3}, 0);
  ExpectNear(handler.BoundingBoxL().max, {1, 4, 3}, 0);
}

TEST(Landmark, IsAMarkOfThePreviewAlone) {
  Generator mark("landmark", {{"position", trVector(5, 0, 0)}, {"rotation", trVector(0, 90, 0)}});
  trScene scene;
  EXPECT_TRUE(dynamic_cast<trSceneMaker&>(mark.node).Make(scene, trSceneMaker::kRender));
  EXPECT_EQ(scene.NumGroups() + scene.NumPts(), 0);
  auto& handler = dynamic_cast<juPreviewHandler&>(*mark.node.PreviewHandler());
  for (long type = -1; type <= 8; ++type) {
    mark.node.SetParam("type", type, trWhoUser);
    EXPECT_GT(handler.BoundingBoxL().Size().x, 0) << type;
  }
  ExpectNear(handler.HandlePositionTForInteraction(), {5, 0, 0}, 1e-12);
  handler.MoveHandlePositionT({0, 1, 0});
  ExpectNear(VectorParam(mark.node, "position"), {5, 1, 0}, 0);
}

TEST(Preview, GeneratorsTellTheBoxOfTheirMesh) {
  Generator cube("poly_cube", {{"translate", trVector(10, 0, 0)}, {"scale", trVector(2, 2, 2)}});
  auto& handler = dynamic_cast<juPreviewHandler&>(*cube.node.PreviewHandler());
  ExpectNear(handler.BoundingBoxL().max, {0.5, 0.5, 0.5}, 1e-6);
  ExpectNear(handler.BoundingBoxTForInteraction().max, {11, 1, 1}, 1e-6);
  cube.node.SetParam("shatter", 1, trWhoUser);
  cube.node.SetParam("shatter_separation", 8.0, trWhoUser);
  EXPECT_GT(handler.BoundingBoxL().Size().Length(), 5) << "made anew after a change";
  handler.MoveHandleScaleT({1, 2, 1});
  ExpectNear(VectorParam(cube.node, "scale"), {2, 4, 2}, 0);
}

}  // namespace
