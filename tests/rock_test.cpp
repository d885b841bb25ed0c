// Rocks and cubes cut by planes: their planes and corners, fragments, subdivision, bad settings.
#include <algorithm>

#include "core/random.h"
#include "tests/made_mesh.h"
#include "tests/solid_measure.h"

namespace {

/// The unit normals of a rock's planes, drawn as told: z first, and a tangent's three draws after each.
std::vector<trVector> PlanesOf(unsigned long seed, int faces) {
  trMersenneTwister draws(seed);
  std::vector<trVector> normals;
  for (int i = 0; i < faces; ++i) {
    double r[6];
    for (double& x : r) x = static_cast<double>(draws.genrand()) / 4294967295.0;
    const trVector n = trVector(r[2] - 0.5, r[1] - 0.5, r[0] - 0.5);
    normals.push_back(n / n.Length());
    const trVector foot = normals.back() * -0.5, q = trVector(r[5], r[4], r[3]) - foot;
    EXPECT_GT(Cross(q, foot).Length(), 1e-9) << "a tangent at the first try";
  }
  return normals;
}

/// Corners of the intersection of planes that all touch the ball of radius 1/2: points of three planes that
/// no other cuts away.
std::vector<trVector> CornersOf(const std::vector<trVector>& n) {
  std::vector<trVector> corners;
  for (size_t i = 0; i < n.size(); ++i)
    for (size_t j = i + 1; j < n.size(); ++j)
      for (size_t k = j + 1; k < n.size(); ++k) {
        const double det = Dot(n[i], Cross(n[j], n[k]));
        if (std::fabs(det) < 1e-12) continue;
        const trVector p = (Cross(n[j], n[k]) + Cross(n[k], n[i]) + Cross(n[i], n[j])) * (-0.5 / det);
        if (std::all_of(n.begin(), n.end(), [&](const trVector& m) { return Dot(m, p) + 0.5 > -1e-9; }))
          corners.push_back(p);
      }
  return corners;
}

double DistanceTo(const std::vector<trVector>& points, const trVector& p) {
  double nearest = 1e30;
  for (const trVector& q : points) nearest = std::min(nearest, (p - q).Length());
  return nearest;
}

TEST(Rock, IsTheIntersectionOfDrawnHalfSpaces) {
  int bounded = 0;
  for (const long seed : {1L, 77L, 4711L, 65000L, 3L, 12L}) {
    for (const int faces : {20, 30}) {
      Generator rock("rock", {{"seed", seed}, {"number_of_faces", faces}, {"diameter", 3.0}});
      const std::vector<trVector> planes = PlanesOf(static_cast<unsigned long>(seed + 5), faces);
      const std::vector<trVector> corners = CornersOf(planes);
      double farthest = 0;
      for (const trVector& p : corners) farthest = std::max(farthest, p.Length());
      if (farthest > 2) continue;  // perhaps open
      ++bounded;
      const MadeMesh made = rock.Make(5);
      ASSERT_EQ(made.result, 1);
      const SolidMeasure solid(*made.mesh);
      EXPECT_TRUE(solid.isClosed) << seed;
      EXPECT_EQ(solid.points + static_cast<size_t>(made.mesh->NumTris()), solid.edges + 2) << "Euler";
      EXPECT_EQ(solid.points, corners.size());
      std::vector<trVector> found;
      for (long i = 1; i <= made.mesh->NumPts(); ++i) {
        const trVector p = made.mesh->GetPPoint(i)->position;
        found.push_back(p / 3);
        EXPECT_LT(DistanceTo(corners, p / 3), 1e-6);
        for (const trVector& n : planes) EXPECT_GT(Dot(n, p) + 1.5, -1e-6) << "inside the tangent planes";
        EXPECT_NEAR((made.mesh->GetPTexVert(i)->uvw - p).Length(), 0, 1e-6);
        EXPECT_NEAR((made.mesh->GetPNormal(i)->direction - Normalised(p)).Length(), 0, 1e-6);
      }
      for (const trVector& corner : corners) EXPECT_LT(DistanceTo(found, corner), 1e-6);
      // Each triangle lies in a plane, with its front outside.
      for (long i = 1; i <= made.mesh->NumTris(); ++i) {
        trVector p[3];
        made.mesh->GetPointVecs(made.mesh->GetPTri(i)->point, p, 3);
        const trVector front = Cross(p[2] - p[0], p[1] - p[0]);
        if (front.Length() < 1e-4) continue;
        const auto plane = std::min_element(planes.begin(), planes.end(), [&](const auto& a, const auto& b) {
          return Dot(a, Normalised(front)) < Dot(b, Normalised(front));
        });
        EXPECT_NEAR(Dot(*plane, p[0]), -1.5, 1e-5);
        EXPECT_GT(Dot(front, p[0]), 0);
      }
      // A solid about a ball of radius r has volume = area x r / 3.
      EXPECT_NEAR(solid.volume, solid.area * 1.5 / 3, 1e-4 * solid.volume);
    }
  }
  EXPECT_GE(bounded, 6);
}

TEST(Rock, VariationsAndRepeats) {
  Generator rock("rock", {{"seed", 100}});
  EXPECT_TRUE(dynamic_cast<trSceneMaker&>(rock.node).SupportsVariations());
  EXPECT_EQ(dynamic_cast<trSceneMaker&>(rock.node).NumVariations(), 100) << "of a new one";
  const auto firstPoint = [](const MadeMesh& made) { return made.mesh->GetPPoint(1)->position; };
  const trVector third = firstPoint(rock.Make(3));
  EXPECT_TRUE(firstPoint(rock.Make(3)) == third);
  EXPECT_FALSE(firstPoint(rock.Make(4)) == third);
  Generator next("rock", {{"seed", 103}});
  EXPECT_TRUE(firstPoint(next.Make()) == third) << "seed and variation add up";
  long saved;
  ASSERT_TRUE(rock.node.FindParam(saved, "smooth_polygons_at_terminator"));
  EXPECT_FALSE(rock.node.ParamShouldBeSaved(saved));
  for (const long odd : {0L, -1L, 1000000000L}) {
    rock.node.SetParam("unique_variations", odd, trWhoSystem);
    EXPECT_EQ(dynamic_cast<trSceneMaker&>(rock.node).NumVariations(), odd > 1 ? 100 : 1);
  }
}

TEST(PolyCube, ShattersIntoClosedFragmentsOfTheSameVolume) {
  const struct {
    int planes;
    double probability;
    int fragments;
  } rows[] = {{1, 1, 2}, {3, 1, 8}, {0, 1, 2}, {4, 0, 1}};
  for (const auto& row : rows)
    for (const char* className : {"poly_cube", "rock"}) {
      Generator cube(className, {{"seed", 9},
                                 {"shatter", 1},
                                 {"shatter_probability", row.probability},
                                 {"number_of_shatter_planes", row.planes},
                                 {"shatter_separation", 0.25}});
      Generator whole(className, {{"seed", 9}});
      const MadeMesh made = cube.Make(2);
      const SolidMeasure solid(*made.mesh);
      EXPECT_TRUE(solid.isClosed) << className << row.planes;
      EXPECT_NEAR(solid.volume, SolidMeasure(*whole.Make(2).mesh).volume, 1e-5);
      if (className == std::string("poly_cube")) {
        EXPECT_NEAR(SolidMeasure(*whole.Make(2).mesh).volume, 1, 1e-6);
        const size_t euler = solid.points + static_cast<size_t>(made.mesh->NumTris()) - solid.edges;
        EXPECT_EQ(euler % 2, 0u);
        EXPECT_LE(euler, 2u * static_cast<unsigned>(row.fragments));
        EXPECT_GE(euler, row.fragments > 1 ? 4u : 2u) << "a plane or two hit the cube";
      }
    }
}

TEST(PolyCube, HalvesMoveApartByTheSeparation) {
  Generator near("poly_cube", {{"seed", 21}, {"shatter", 1}, {"shatter_separation", 0.0}});
  Generator far("poly_cube", {{"seed", 21}, {"shatter", 1}, {"shatter_separation", 2.0}});
  const MadeMesh a = near.Make(), b = far.Make();
  ASSERT_EQ(a.mesh->NumPts(), b.mesh->NumPts());
  // The seventh plane: three draws a tangent before it for each of the six.
  trMersenneTwister draws(21);
  double r[22];
  for (double& x : r) x = static_cast<double>(draws.genrand()) / 4294967295.0;
  const trVector n = Normalised({r[20] - 0.5, r[19] - 0.5, r[18] - 0.5});
  const double d = std::sqrt(r[21] + 9.999999974752427e-7) * 0.75;
  for (long i = 1; i <= a.mesh->NumPts(); ++i) {
    const trVector p = a.mesh->GetPPoint(i)->position, moved = b.mesh->GetPPoint(i)->position - p;
    EXPECT_NEAR(moved.Length(), 1, 1e-6);
    EXPECT_NEAR(std::fabs(Dot(moved, n)), 1, 1e-6);
    if (Dot(moved, n) > 0) {
      EXPECT_GT(Dot(n, p) + d, -1e-6);
    } else {
      EXPECT_LT(Dot(n, p) + d, 1e-6);
    }
  }
}

TEST(Rock, SubdivisionSplitsInFourAndKeepsTheShape) {
  Generator plain("rock", {{"seed", 8}});
  const MadeMesh base = plain.Make();
  const SolidMeasure before(*base.mesh);
  long triangles = base.mesh->NumTris();
  for (const long level : {-1L, 0L, 1L, 2L, 3L}) {
    Generator fine("rock", {{"seed", 8}, {"subdivide_mesh", 1}, {"subdivision_level", level}});
    const MadeMesh made = fine.Make();
    const long factor = level < 1 ? 1 : 1L << (2 * level);
    EXPECT_EQ(made.mesh->NumTris(), triangles * factor);
    EXPECT_EQ(made.mesh->NumPts() - base.mesh->NumPts(), triangles * (factor - 1)) << "three a split";
    const SolidMeasure solid(*made.mesh);
    EXPECT_TRUE(solid.isClosed);
    EXPECT_NEAR(solid.volume, before.volume, 1e-9);
    EXPECT_NEAR(solid.area, before.area, 1e-9) << "no triangle is turned over";
  }
}

TEST(Rock, StaysClosedUnderADisplacer) {
  Graph graph;
  auto& probe = graph.Add<ProbeShader>("Bumps");
  probe.onDisplace = [](trShadingInterface& si) { si.P() += si.N() * (0.1 * std::sin(20 * si.P().x)); };
  trBase& rock = *graph.project.CreateChild("rock");
  rock.SetParam("seed", 8, trWhoSystem);
  rock.SetParam("subdivide_mesh", 1, trWhoSystem);
  Graph::Link(rock, "mesh_displacer", probe);
  const MadeMesh made = MakeVariation(rock, 0);
  const SolidMeasure solid(*made.mesh);
  EXPECT_TRUE(solid.isClosed);
  EXPECT_EQ(probe.displaced, static_cast<int>(solid.points)) << "a place is displaced once";
}

TEST(Rock, SettingsBeyondReasonAreRefusedOrTaken) {
  const struct {
    const char *className, *param;
    double value;
    long result, triangles;  ///< -1 for any
  } rows[] = {{"rock", "number_of_faces", 0, 1, 0},           {"rock", "number_of_faces", -1, 1, 0},
              {"rock", "number_of_faces", 1, 1, 1},           {"rock", "number_of_faces", 1e9, 0, 0},
              {"rock", "subdivision_level", 30, 0, -1},       {"rock", "subdivision_level", 1e9, 0, -1},
              {"poly_cube", "subdivision_level", 14, 0, -1},  {"rock", "diameter", 0, 1, -1},
              {"rock", "number_of_shatter_planes", -5, 1, -1}};
  for (const auto& row : rows) {
    Generator node(row.className, {{"seed", 8}, {"shatter", row.param[10] == 's'}, {row.param, row.value}});
    node.node.SetParam("subdivide_mesh", row.param[0] == 's', trWhoSystem);
    const MadeMesh made = node.Make();
    EXPECT_EQ(made.result, row.result) << row.param << row.value;
    if (row.triangles >= 0) {
      EXPECT_EQ(made.mesh->NumTris(), row.triangles) << row.param << row.value;
    }
  }
  Generator broken("poly_cube", {{"shatter", 1}, {"number_of_shatter_planes", 11}});
  const SolidMeasure solid(*broken.Make().mesh);
  EXPECT_TRUE(solid.isClosed);
  EXPECT_NEAR(solid.volume, 1, 1e-4) << "1024 fragments at most";
}

}  // namespace
