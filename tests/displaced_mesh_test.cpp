// Displaced meshes: no cracks, each point displaced once, against closed forms, the same for any number of
// threads, and in pictures.
#include <cstring>
#include <map>

#include "host/render/dice/displace_mesh.h"
#include "tests/mesh_fixture.h"

namespace {

using ovhost::MicroMesh;

using PointBits = std::array<std::uint32_t, 3>;

PointBits Bits(const trFVector& p) {
  PointBits bits;
  const float values[3] = {p.x + 0.0f, p.y + 0.0f, p.z + 0.0f};
  std::memcpy(bits.data(), values, sizeof bits);
  return bits;
}

/// Edges of a closed surface are run through once each way.
size_t OpenEdges(const MicroMesh& mesh) {
  std::map<std::pair<PointBits, PointBits>, int> balance;
  for (const auto& triangle : mesh.triangles)
    for (int k = 0; k < 3; ++k) {
      const PointBits a = Bits(mesh.vertices[triangle[k]].point),
                      b = Bits(mesh.vertices[triangle[(k + 1) % 3]].point);
      if (a == b) continue;
      ++balance[{a, b}];
      --balance[{b, a}];
    }
  size_t open = 0;
  for (const auto& [edge, count] : balance) open += count != 0;
  return open;
}

/// Points of a mesh, whatever faces meet there.
size_t NumPoints(const MicroMesh& mesh) {
  std::map<PointBits, int> points;
  for (const auto& vertex : mesh.vertices) ++points[Bits(vertex.point)];
  return points.size();
}

/// A solid to displace, in the world at `place`.
struct Solid {
  explicit Solid(const trVector& place) : place(place) {
    scene.Init();
    scene.SetTransform(trTranslate(place) * trRotateX(0.4));
    shader.onDisplace = [this](trShadingInterface& si) {
      ++displacements;
      si.P() += si.N() * (0.05 * std::sin(9 * (si.P() - this->place).x) + 0.1);
    };
    material = scene.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
    settings.view.eye = place + trVector(0.6, 0.2, 2.5);
    settings.view.forward = {0, 0, -1};
    settings.view.right = {-1, 0, 0};
    settings.view.width = settings.view.height = 200;
    settings.view.tanHalfHorizontal = settings.view.tanHalfVertical = 0.3;
    settings.edgePixels = 3;
  }
  void MakeBall() { scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 4, 2, material); }
  /// A box with hard edges and a map that starts anew on every side, of two materials.
  void MakeBox() {
    const long other = scene.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1));
    long sides = 0;
    for (int axis = 0; axis < 3; ++axis)
      for (const double sign : {-1.0, 1.0}) {
        trVector normal, a, b;
        normal[axis] = sign;
        a[(axis + 1) % 3] = 1;
        b[(axis + 2) % 3] = sign;
        const trVector corners[4] = {normal - a - b, normal + a - b, normal + a + b, normal - a + b};
        std::int32_t points[4], maps[4];
        for (int k = 0; k < 4; ++k) {
          points[k] = static_cast<std::int32_t>(scene.AddPoint({corners[k] * 0.5}));
          maps[k] =
              static_cast<std::int32_t>(scene.AddTexVert({{k == 1 || k == 2 ? 1.0 : 0.0, k / 2 * 1.0, 3}}));
        }
        ++sides;
        for (const auto& [x, y, z] : {std::array{0, 2, 1}, {0, 3, 2}}) {
          trTri tri;
          const int k[3] = {x, y, z};
          for (int i = 0; i < 3; ++i) {
            tri.point[i] = points[k[i]];
            tri.texVert[i] = maps[k[i]];
          }
          tri.material = static_cast<std::int32_t>(sides % 2 ? material : other);
          EXPECT_TRUE(scene.AddTri(tri));
        }
      }
  }
  bool Displace(int threads = 2) {
    mesh.scene = &scene;
    mesh.roots.resize(scene.NumTris());
    for (size_t i = 0; i < mesh.roots.size(); ++i) mesh.roots[i] = static_cast<std::int32_t>(i + 1);
    bool moves = false, done = false;
    ovhost::WithThreads(threads,
                        [&] { done = ovhost::DisplaceMesh(mesh, settings, services, statistics, moves); });
    EXPECT_TRUE(done);
    return moves;
  }

  trVector place;
  trScene scene;
  FunctionShader shader;
  long material = 0;
  std::atomic<std::uint64_t> displacements{0};
  MicroMesh mesh;
  ovhost::DiceSettings settings;
  ovhost::DiceStatistics statistics;
  trNoRenderServices services;
};

TEST(DisplacedMesh, IsClosedAndDisplacedOnceAPoint) {
  for (const trVector& place : {trVector(), trVector(6.4e6, -6.4e6, 3e6)})
    for (const bool isBox : {false, true}) {
      Solid solid(place);
      isBox ? solid.MakeBox() : solid.MakeBall();
      ASSERT_TRUE(solid.Displace());
      ASSERT_GT(solid.mesh.triangles.size(), 2000u);
      EXPECT_EQ(OpenEdges(solid.mesh), 0u) << isBox;
      EXPECT_EQ(solid.mesh.sceneTris.size(), solid.mesh.triangles.size());
      const size_t points = NumPoints(solid.mesh);
      // The texture points of a box's edges are asked for by either side.
      EXPECT_LE(solid.statistics.displacements,
                static_cast<std::uint64_t>((isBox ? 1.4 : 1.01) * static_cast<double>(points)));
      // Edges in view are no longer than wanted, save where the box's sides are torn apart.
      const auto isSeen = [](const trVector& p) {
        return p.z < 0 && std::fmax(std::fabs(p.x), std::fabs(p.y)) < -0.3 * p.z;
      };
      const double pixel = solid.settings.view.PixelAngularSize();
      for (const auto& triangle : solid.mesh.triangles)
        for (int k = 0; k < 3; ++k) {
          const trVector a(solid.mesh.vertices[triangle[k]].point),
              b(solid.mesh.vertices[triangle[(k + 1) % 3]].point);
          if (!isSeen(a) || !isSeen(b) || isBox) continue;
          ASSERT_LT((b - a).Length() / (std::fmin(a.Length(), b.Length()) * pixel), 3.3);
        }
    }
}

TEST(DisplacedMesh, BallsFollowTheirClosedForm) {
  const trVector place(0, 6.4e6, 0);
  Solid solid(place);
  solid.MakeBall();
  ASSERT_TRUE(solid.Displace());
  int checked = 0;
  for (const auto& vertex : solid.mesh.vertices) {
    const trVector base = trVector(vertex.base) + solid.mesh.origin;
    const trVector normal = vertex.baseNormal.Unpack();
    const trVector expected = base + normal * (0.05 * std::sin(9 * (base - place).x) + 0.1);
    ASSERT_LT((trVector(vertex.point) + solid.mesh.origin - expected).Length(), 1e-4);
    // The sphere's normal, and its slope from the waves, seen from the mean surface.
    if (std::fabs((base - place).x) > 0.3) continue;
    const trVector sphere = Normalised(base - place);
    const trVector slope(0.45 * std::cos(9 * (base - place).x), 0, 0);
    const trVector tilted = Normalised(sphere - (slope - sphere * Dot(slope, sphere)));
    EXPECT_GT(Dot(vertex.normal.Unpack(), tilted), 0.97);
    ++checked;
  }
  EXPECT_GT(checked, 100);
}

TEST(DisplacedMesh, TexturePointsKeepToTheirSide) {
  Solid solid({});
  solid.MakeBox();
  ASSERT_TRUE(solid.Displace());
  for (size_t i = 0; i < solid.mesh.triangles.size(); ++i) {
    const trTri& root = *solid.scene.GetPTri(solid.mesh.sceneTris[i]);
    trVector p[3];
    solid.scene.GetPointVecs(root.point, p, 3);
    const trVector normal = solid.scene.GetTransform().Normal(Cross(p[2] - p[0], p[1] - p[0]));
    for (const std::uint32_t k : solid.mesh.triangles[i]) {
      const auto& vertex = solid.mesh.vertices[k];
      EXPECT_GT(Dot(vertex.baseNormal.Unpack(), normal), 0.9999);
      // The map of a side runs along its edges, from 0 to 1, so distances from its first corner agree.
      const trVector local =
          solid.scene.GetTransform().inverse.Point(trVector(vertex.base) + solid.mesh.origin) - p[0];
      EXPECT_NEAR(local.Length(), std::hypot(vertex.texture.x, vertex.texture.y), 1e-5);
      EXPECT_EQ(vertex.texture.z, 3);
    }
  }
}

TEST(DisplacedMesh, SameForAnyNumberOfThreadsAndWithinABudget) {
  Solid one({}), seven({});
  one.MakeBox();
  seven.MakeBox();
  one.Displace(1);
  seven.Displace(7);
  ASSERT_EQ(one.mesh.vertices.size(), seven.mesh.vertices.size());
  EXPECT_EQ(std::memcmp(one.mesh.vertices.data(), seven.mesh.vertices.data(),
                        one.mesh.vertices.size() * sizeof(ovhost::MicroVertex)),
            0);
  EXPECT_EQ(one.mesh.triangles, seven.mesh.triangles);

  Solid bounded({});
  bounded.MakeBox();
  bounded.settings.maxVertices = one.mesh.vertices.size() / 3;
  bounded.Displace();
  EXPECT_LE(bounded.mesh.vertices.size(), bounded.settings.maxVertices);
  EXPECT_GT(bounded.statistics.longestEdge, 1);
  EXPECT_EQ(OpenEdges(bounded.mesh), 0u);
}

TEST(DisplacedMesh, WhatDoesNotMoveStaysWhole) {
  Solid solid({});
  solid.MakeBall();
  solid.shader.onDisplace = [](trShadingInterface&) {};
  EXPECT_FALSE(solid.Displace());
  EXPECT_TRUE(solid.mesh.triangles.empty());
}

TEST(DisplacedMesh, RendersWithItsShadingState) {
  // Steps up and down a plane, in the world and as copies.
  for (const bool isCopied : {false, true}) {
    MeshStage stage;
    auto& shader = stage.AddShader("Waves");
    const trVector shift = isCopied ? trVector(6.4e6, 0, 0) : trVector();
    shader.onDisplace = [](trShadingInterface& si) { si.P() += si.N() * (0.3 * std::sin(2 * si.Pg().y)); };
    int seen = 0;
    shader.onShade = [&](trShadingInterface& si) {
      if (!IsForCamera(si)) return;
      ++seen;
      const trVector p = si.P() - shift;
      EXPECT_NEAR(p.z, 0.3 * std::sin(2 * p.y), isCopied ? 0.02 : 0.004);
      ExpectNear(si.N(), Normalised(trVector(0, -0.6 * std::cos(2 * p.y), 1)), 0.05);
      ExpectNear(si.Pg() - shift, {p.x, p.y, 0}, 0.01);
      ExpectNear(si.Ng(), {0, 0, 1}, 1e-3);
      ExpectNear(si.Pt(), si.Pg(), 1e-3);
      ExpectNear(si.Ptg(), si.Pg(), 1e-6);
      si.SetShadingToConstant(trFCol(1.0f));
    };
    const auto fill = [&](trScene& scene) {
      scene.SetAllowsTriSubdivision(true);
      return scene.AddPolyPlane({-40, -40, 0}, {80, 0, 0}, {0, 80, 0}, false,
                                scene.AddMaterial(trMaterial(nullptr, &shader, nullptr, 1)));
    };
    struct Mover : trParticleInflator {
      trBoundingBox InstanceBoundingBox(const trParticle&) const override { return {}; }
      long InflateInstanceElement(trRenderState&, const trParticle&, long&) override { return 0; }
      bool IntersectInstance(trRenderState&, const trParticle&, const trVector&, const trVector&,
                             double&) override {
        return false;
      }
      bool IsBasicInstancer() const override { return true; }
      long NumInstanceScenes() const override { return 1; }
      std::shared_ptr<trScene> InstanceScene(long) const override { return scene; }
      trTransform<double> InstanceTransform(const trParticle& particle) const override {
        return trTranslate(particle.position);
      }
      std::shared_ptr<trScene> scene = std::make_shared<trScene>();
    } mover;
    fill(*mover.scene);
    stage.AddMaker("Plane", [&](trScene& scene) {
      if (!isCopied) return fill(scene);
      scene.AssignParticleInflator(&mover);
      return scene.AddParticle({shift, 0});
    });
    stage.LookFrom(shift + trVector(0, 0, 6));
    stage.settings.edgePixels = 0.5;
    const auto picture = stage.Picture(80);
    EXPECT_GT(seen, 80 * 80 / 2);
    for (const auto& sample : picture) EXPECT_EQ(sample.alpha, 1);
  }
}

}  // namespace
