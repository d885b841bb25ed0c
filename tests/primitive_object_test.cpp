// Cubes and octahedra: their meshes, and edges rounded by distance.
#include "core/shading_state.h"
#include "tests/made_mesh.h"
#include "tests/solid_measure.h"

namespace {

/// A node's scene, with the points of its mesh taken to where the geometry shader makes the surface.
struct MadeSurface {
  struct Point {
    trVector base, position, normal;  ///< object space
  };
  trScene scene;
  std::vector<Point> points;

  explicit MadeSurface(trBase& node, int steps = 9) {
    scene.Init();
    EXPECT_EQ(dynamic_cast<trSceneMaker&>(node).Make(scene, trSceneMaker::kRender), 1);
    const trTransform<double>& transform = scene.GetTransform();
    for (long i = 1; i <= scene.NumTris(); ++i) {
      const trTri& tri = *scene.GetPTri(i);
      trVector p[3];
      scene.GetPointVecs(tri.point, p, 3);
      for (int a = 0; a <= steps; ++a)
        for (int b = 0; a + b <= steps; ++b) {
          const trVector base =
              p[0] + (p[1] - p[0]) * (double(a) / steps) + (p[2] - p[0]) * (double(b) / steps);
          Sample sample(transform.Point(base), transform.Normal(Cross(p[2] - p[0], p[1] - p[0])));
          EXPECT_EQ(scene.GetPMaterial(tri.material)->GeometryPlace(sample.state), 1);
          // A normal's own space: undone as normals are.
          const trVector normal = Normalised(transform.forward.TransposedDirection(sample.si.N()));
          points.push_back({base, transform.inverse.Point(sample.si.P()), normal});
          ExpectNear(sample.si.Pt(), sample.si.P(), 0);
        }
    }
  }
};

void Place(trBase& node) {
  node.SetParam("centre", trVector(3e6, -20, 7), trWhoSystem);
  node.SetParam("rotate", trVector(20, 50, -70), trWhoSystem);
  node.SetParam("scale", trVector(2, 1, 0.5), trWhoSystem);
}

TEST(Cube, EdgesAreRoundedByDistance) {
  const struct {
    trVector size;
    double radius, largest;  ///< radius along the shortest half
  } rows[] = {{{2, 3, 4}, 0.25, 0.25}, {{1, 1, 1}, 0, 0}, {{2, 2, 2}, 5, 1}, {{1, 2, 3}, -1, 0}};
  for (const auto& row : rows) {
    Generator cube("cube", {{"size", row.size}, {"round_radius", row.radius}});
    Place(cube.node);
    const MadeSurface made(cube.node);
    const SolidMeasure solid(made.scene);
    EXPECT_TRUE(solid.isClosed);
    EXPECT_NEAR(solid.volume, row.size.x * row.size.y * row.size.z, 1e-9);
    EXPECT_EQ(made.scene.NumTris(), 12);
    for (const auto& point : made.points) {
      const trVector &p = point.position, &n = point.normal;
      // Of a box with an ellipsoid rolled round it: the plane of every normal touches it.
      double reach = 0, rounded = 0;
      bool isInner = false;
      for (int i = 0; i < 3; ++i) {
        const double half = row.size[i] / 2, r = std::clamp(row.radius, 0.0, half);
        reach += std::fabs(n[i]) * (half - r);
        rounded += n[i] * n[i] * r * r;
        EXPECT_LE(std::fabs(p[i]), half + 1e-7);
        isInner |= std::fabs(std::fabs(point.base[i]) - half) < 1e-9 &&
                   std::fabs(point.base[(i + 1) % 3]) <= row.size[(i + 1) % 3] / 2 - row.radius &&
                   std::fabs(point.base[(i + 2) % 3]) <= row.size[(i + 2) % 3] / 2 - row.radius;
      }
      EXPECT_NEAR(Dot(n, p), reach + std::sqrt(rounded), 1e-6);
      if (isInner) ExpectNear(p, point.base, 1e-7, "flat parts stay");
    }
  }
}

TEST(Octahedron, EdgesAreRoundedByDistance) {
  for (const double roundness : {0.2, 0.0, 1.0, 0.6, 7.0, -3.0}) {
    Generator octahedron("octahedron", {{"roundness", roundness}});
    Place(octahedron.node);
    const MadeSurface made(octahedron.node);
    const SolidMeasure solid(made.scene);
    EXPECT_TRUE(solid.isClosed);
    EXPECT_NEAR(solid.volume, 4.0 / 3, 1e-9);
    const double rounded = std::clamp(roundness, 0.0, 1.0);
    for (const auto& point : made.points) {
      const trVector& n = point.normal;
      const double corner = std::max({std::fabs(n.x), std::fabs(n.y), std::fabs(n.z)});
      EXPECT_NEAR(Dot(n, point.position), (1 - rounded) * corner + rounded / std::sqrt(3), 1e-6) << roundness;
      EXPECT_GT(Dot(n, point.base), 0);
    }
  }
}

TEST(Cube, NewOnesHaveASurfaceAndAnAngularPosition) {
  for (const char* className : {"cube", "octahedron"}) {
    Generator made(className);
    ASSERT_EQ(made.node.NumChildren(), 1);
    EXPECT_EQ(made.node.Child(0)->ClassName(), "default_shader");
    trString link;
    made.node.GetParam("surface_shader", link);
    EXPECT_EQ(link, made.node.Child(0)->Name());
    made.node.SetParam("centre", trVector(0, 0, 9), trWhoUser);
    EXPECT_NEAR(DoubleParam(made.node, "angular_distance"), 9, 1e-12);
    trScene scene;
    ASSERT_TRUE(dynamic_cast<trSceneMaker&>(made.node).Make(scene, trSceneMaker::kRender));
    const trMaterial& material = *scene.GetPMaterial(1);
    EXPECT_NE(material.geometryShader, nullptr);
    EXPECT_EQ(static_cast<trBase*>(material.surfaceShader), made.node.Child(0));
  }
  Generator nothing("cube", {{"size", trVector(0, 0, 0)}});
  for (const auto& point : MadeSurface(nothing.node).points) ExpectNear(point.position, {}, 1e-9);
}

}  // namespace
