// Dicing: no cracks, few displacements, the same bits for any number of threads.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "host/base/log.h"
#include "host/base/parallel.h"
#include "host/render/dice/dice_parts.h"
#include "host/render/trace/accel.h"

namespace {

/// A ball of planet size with ridges some kilometres high, in closed form.
class Ridges : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    const trVector p = si.Pt() * 1e-4;
    si.P() += si.Ng() * (3000 * std::sin(p.x) * std::cos(p.z * 1.3) + 400 * std::sin(17 * p.x + 9 * p.z));
    return 1;
  }
};

/// Projects to the sphere that the object's transform describes.
class Ball : public trGeometryShader {
 public:
  long Displace(trShadingInterface& si) override {
    const trVector centre = Forward().Translation();
    const trVector normal = Normalised(si.P() - centre);
    si.P() = si.Pg() = si.Pt() = si.Ptg() = centre + normal * Forward().Direction({0, 1, 0}).Length();
    si.N() = si.Ng() = si.Nt() = si.Ni() = normal;
    return 1;
  }
};

struct Planet {
  explicit Planet(double altitude) {
    scene.Init();
    scene.SetTransform(trTranslate({0, -6378000, 0}) * trScale(6378000, 6378000, 6378000));
    ball.SetObjectTransform(scene.GetTransform());
    material = trMaterial(&ball, &ridges, nullptr, 1);
    const long index = scene.AddMaterial(material);
    scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4, index);
    mesh.scene = &scene;
    mesh.material = &material;
    for (long i = 1; i < scene.NumTris(); i += 2) {
      const trTri &a = *scene.GetPTri(i), &b = *scene.GetPTri(i + 1);
      for (const auto corner : {a.point[0], b.point[2], a.point[2], a.point[1]})
        mesh.quadCorners.push_back(scene.GetPPoint(corner)->position);
    }
    settings.view.eye = {0, altitude, 0};
    settings.view.forward = Normalised(trVector(0.3, -0.2, -1));
    settings.view.right = Normalised(Cross({0, 1, 0}, settings.view.forward));
    settings.view.up = Cross(settings.view.forward, settings.view.right);
    settings.view.width = 160;
    settings.view.height = 120;
    settings.edgePixels = 2;
  }

  void DiceWith(int threads) {
    bool done = false;
    ovhost::WithThreads(threads, [&] { done = ovhost::Dice(mesh, settings, services, statistics); });
    ASSERT_TRUE(done);
  }

  trScene scene;
  Ball ball;
  Ridges ridges;
  trMaterial material;
  ovhost::GridMesh mesh;
  ovhost::DiceSettings settings;
  ovhost::DiceStatistics statistics;
  trNoRenderServices services;
};

using PointBits = std::array<std::uint32_t, 3>;

PointBits Bits(const trFVector& p) {
  PointBits bits;
  const float values[3] = {p.x + 0.0f, p.y + 0.0f, p.z + 0.0f};
  std::memcpy(bits.data(), values, sizeof bits);
  return bits;
}

/// Every edge of a closed surface is run through once each way. Degenerate faces have none.
size_t OpenEdges(const ovhost::GridMesh& mesh) {
  std::map<std::pair<PointBits, PointBits>, int> balance;
  const auto addTriangle = [&](const PointBits& a, const PointBits& b, const PointBits& c) {
    if (a == b || b == c || c == a) return;
    for (const auto& [from, to] : {std::pair{a, b}, {b, c}, {c, a}}) {
      ++balance[{from, to}];
      --balance[{to, from}];
    }
  };
  for (size_t patch = 0; patch < mesh.patches.size(); ++patch) {
    const ovhost::GridVertex* v = &mesh.vertices[patch * ovhost::kPatchVertices];
    for (int row = 0; row < ovhost::kPatchSide; ++row)
      for (int column = 0; column < ovhost::kPatchSide; ++column) {
        const int a = row * ovhost::kPatchStride + column, d = a + ovhost::kPatchStride;
        addTriangle(Bits(v[a].point), Bits(v[a + 1].point), Bits(v[d + 1].point));
        addTriangle(Bits(v[a].point), Bits(v[d + 1].point), Bits(v[d].point));
      }
  }
  size_t open = 0;
  for (const auto& [edge, count] : balance) open += count != 0;
  return open;
}

TEST(Dicing, HasNoCracksNearTheGroundAndFromOrbit) {
  for (const double altitude : {4000.0, 2.0e6}) {
    Planet planet(altitude);
    planet.DiceWith(2);
    ASSERT_GT(planet.mesh.patches.size(), 400u);
    std::set<double> sizes;
    for (const auto& patch : planet.mesh.patches) sizes.insert(patch.size);
    EXPECT_GE(sizes.size(), 3u) << "levels must differ for the borders to be tried";
    EXPECT_EQ(OpenEdges(planet.mesh), 0u) << "altitude " << altitude;
    EXPECT_LE(static_cast<double>(planet.statistics.displacements),
              1.15 * planet.mesh.patches.size() * ovhost::kPatchSide * ovhost::kPatchSide);
  }
}

TEST(Dicing, SameBitsForAnyNumberOfThreads) {
  Planet one(3000), seven(3000);
  one.DiceWith(1);
  seven.DiceWith(7);
  ASSERT_EQ(one.mesh.vertices.size(), seven.mesh.vertices.size());
  EXPECT_EQ(std::memcmp(one.mesh.vertices.data(), seven.mesh.vertices.data(),
                        one.mesh.vertices.size() * sizeof(ovhost::GridVertex)),
            0);
}

/// A long ridge, 3 km high, 15 km to the north.
class Wall : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    const double across = (si.Pt().z + 15000) / 2000;
    si.P() += si.Ng() * (3000 * std::exp(-across * across));
    return 1;
  }
};

TEST(Dicing, OnlyWhatTheSurfaceHidesIsCoarser) {
  Wall wall;
  Planet planet(300);
  planet.material = trMaterial(&planet.ball, &wall, nullptr, 1);
  trView& view = planet.settings.view;
  view.forward = {0, 0, -1};
  view.right = {1, 0, 0};
  view.up = {0, 1, 0};
  view.width = 640;
  view.height = 480;
  planet.DiceWith(2);
  // How long the patches' micropolygons look, in wanted lengths, where nothing foreshortens them.
  const auto look = [&](size_t patch) {
    const ovhost::GridVertex* v = &planet.mesh.vertices[patch * ovhost::kPatchVertices];
    const trVector a(v[0].point), b(v[ovhost::kPatchSide].point),
        c(v[ovhost::kPatchSide * ovhost::kPatchStride].point);
    return std::fmin((b - a).Length(), (c - a).Length()) / ovhost::kPatchSide /
           ovhost::FootprintAt(view, planet.settings.edgePixels, a.Length());
  };
  ovhost::Accel accel;
  accel.Add(planet.mesh);
  ASSERT_TRUE(accel.Build());
  std::set<std::uint32_t> seen;
  for (double y = -1; y <= 1; y += 1.0 / 256)
    for (double x = -1; x <= 1; x += 1.0 / 256) {
      const trVector direction = Normalised(view.forward + view.right * (x * view.tanHalfHorizontal) +
                                            view.up * (y * view.tanHalfVertical));
      ovhost::SurfaceHit hit;
      if (accel.Intersect({}, direction, 0, 1e9, hit)) seen.insert(hit.primitive);
    }
  ASSERT_GT(seen.size(), 200u);
  for (const std::uint32_t patch : seen) EXPECT_LT(look(patch), 2.9) << "1 / 0.35 for what is seen along it";
  int hidden = 0;
  for (size_t patch = 0; patch < planet.mesh.patches.size(); ++patch) {
    const trVector centre(planet.mesh.vertices[patch * ovhost::kPatchVertices + 8 * 18].point);
    const double depth = Dot(centre, view.forward);
    const bool isInside = std::fabs(Dot(centre, view.right)) < 0.9 * depth * view.tanHalfHorizontal &&
                          std::fabs(Dot(centre, view.up)) < 0.9 * depth * view.tanHalfVertical;
    hidden += isInside && centre.Length() < 60000 && !seen.count(static_cast<std::uint32_t>(patch)) &&
              look(patch) > 2.9;
  }
  EXPECT_GT(hidden, 5);
}

TEST(Dicing, NormalsFollowTheSurface) {
  Planet planet(3000);
  planet.DiceWith(2);
  // Against central differences of the closed form, on patches small enough for its ridges.
  size_t checked = 0;
  for (size_t p = 0; p < planet.mesh.patches.size(); ++p) {
    if (planet.mesh.patches[p].size > 1.0 / 4096) continue;
    const auto& vertex = planet.mesh.vertices[p * ovhost::kPatchVertices + 8 * ovhost::kPatchStride + 8];
    const trVector world = trVector(vertex.point) + planet.settings.view.eye;
    const trVector centre(0, -6378000, 0);
    const auto surface = [&](const trVector& towards) {
      trShadingInterface si;
      si.SetSample(towards, {0, 1, 0});
      planet.ball.Displace(si);
      planet.ridges.Displace(si);
      return si.P();
    };
    const double h = 5;
    const trVector up = Normalised(world - centre), side = Normalised(Cross(up, {0, 0, 1})),
                   front = Cross(side, up);
    const trVector normal = Normalised(Cross(surface(world + side * h) - surface(world - side * h),
                                             surface(world + front * h) - surface(world - front * h)));
    EXPECT_GT(std::fabs(Dot(normal, vertex.normal.Unpack())), 0.995);
    EXPECT_GT(Dot(vertex.normal.Unpack(), up), 0);
    ++checked;
  }
  EXPECT_GT(checked, 20u);
}

TEST(Dicing, ABudgetOfVerticesGoesToWhatLooksLongest) {
  Planet whole(3000), planet(3000);
  whole.settings.edgePixels = planet.settings.edgePixels = 0.7;
  whole.DiceWith(2);
  planet.settings.maxVertices = whole.mesh.vertices.size() / 2;
  planet.DiceWith(2);
  EXPECT_LE(planet.mesh.vertices.size(), planet.settings.maxVertices);
  // A share of the vertices makes edges longer by its root; patches are cut in halves.
  const double share = static_cast<double>(planet.mesh.vertices.size()) / whole.mesh.vertices.size();
  EXPECT_GT(planet.statistics.longestEdge, 1);
  EXPECT_LT(planet.statistics.longestEdge, 2 / std::sqrt(share));
  EXPECT_EQ(OpenEdges(planet.mesh), 0u);
}

/// Ridges with steps on every scale: edges hardly get shorter by being cut.
class Steps : public Ridges {
 public:
  long Displace(trShadingInterface& si) override {
    const trVector p = si.Pt();
    Ridges::Displace(si);
    for (double scale = 1000; scale > 1e-3; scale *= 0.5) {
      const double cell = std::floor(p.x / scale) + 3 * std::floor(p.z / scale);
      si.P() += si.Ng() * (150 * std::sin(12.9898 * cell + scale));
    }
    return 1;
  }
};

TEST(Dicing, WhatCouldBeCutForEverStopsAtThePicturesLimit) {
  Steps steps;
  Planet one(3000), seven(3000);
  for (Planet* planet : {&one, &seven}) {
    planet->material = trMaterial(&planet->ball, &steps, nullptr, 1);
    planet->settings.pictureVertices = 400000;
    planet->DiceWith(planet == &one ? 1 : 7);
  }
  EXPECT_LE(one.mesh.vertices.size(), 400000u);
  EXPECT_GT(one.mesh.vertices.size(), 200000u);
  EXPECT_GT(one.statistics.longestEdge, 1);
  EXPECT_EQ(OpenEdges(one.mesh), 0u);
  ASSERT_EQ(one.mesh.vertices.size(), seven.mesh.vertices.size());
  EXPECT_EQ(std::memcmp(one.mesh.vertices.data(), seven.mesh.vertices.data(),
                        one.mesh.vertices.size() * sizeof(ovhost::GridVertex)),
            0);
}

TEST(DicingMemory, IsSharedByNeed) {
  const struct {
    std::uint64_t total;
    std::vector<ovhost::VertexDemand> demands;
    std::vector<std::uint64_t> shares;
  } rows[] = {{100, {{1, 10}, {1, 20}}, {10, 20}},   // all fits
              {100, {{1, 10}, {1, 500}}, {10, 90}},  // who needs less leaves the rest
              {100, {{1, ~0ull}, {1, 5}, {1, ~0ull}}, {47, 5, 47}},
              {100, {{60, 60}, {1, 500}, {30, 30}}, {60, 10, 30}},  // least before wants
              {100, {{50, 90}, {50, 90}}, {50, 50}},
              {100, {}, {}}};
  for (const auto& row : rows) EXPECT_EQ(ovhost::ShareVertices(row.total, row.demands), row.shares);
  EXPECT_THROW(ovhost::ShareVertices(100, {{50, 50}, {51, 51}}), std::bad_alloc);
}

/// Leaves the surface where its mesh is.
class Flat : public trGeometryShader {
 public:
  long Displace(trShadingInterface& si) override {
    si.N() = si.Ng() = si.Nt() = si.Ni() = {0, 1, 0};
    return 1;
  }
};

class Waves : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    si.P() += si.Ng() * (0.1 * std::sin(si.Pt().x) * std::cos(1.7 * si.Pt().z));
    return 1;
  }
};

/// Squares of 16 m to be copied, each of its own, and what there is beside them.
struct Tiles {
  Tiles() {
    scene.Init();
    material = trMaterial(&flat, &waves, nullptr, 1);
  }
  /// With edges of so many metres: of 1 / 2^n, 4^n patches.
  void Add(double edge) {
    auto tile = std::make_unique<ovhost::Prototype>();
    tile->finestEdge = edge;
    auto grid = std::make_unique<ovhost::GridMesh>();
    grid->scene = &scene;
    grid->material = &material;
    grid->quadCorners = {{0, 0, 0}, {16, 0, 0}, {16, 0, 16}, {0, 0, 16}};
    tile->parts.grids.push_back(std::move(grid));
    shared.prototypes.push_back(std::move(tile));
  }
  void Dice(int threads, std::uint64_t mostVertices) {
    settings.maxVertices = mostVertices;
    bool done = false;
    ovhost::WithThreads(threads,
                        [&] { done = ovhost::DiceAllParts(parts, shared, settings, services, statistics); });
    ASSERT_TRUE(done);
  }
  const ovhost::GridMesh& Tile(size_t i) const { return *shared.prototypes[i]->parts.grids[0]; }

  trScene scene;
  Flat flat;
  Waves waves;
  trMaterial material;
  ovhost::Assembly parts;
  ovhost::SharedParts shared;
  ovhost::DiceSettings settings;
  ovhost::DiceStatistics statistics;
  trNoRenderServices services;
};

TEST(DicingMemory, IsEnoughForAThousandPrototypes) {
  constexpr std::uint64_t kMost = 1000 * 10 * ovhost::kPatchVertices;
  Tiles one, seven;
  for (Tiles* tiles : {&one, &seven}) {
    for (int i = 0; i < 1000; ++i) tiles->Add(i % 2 ? 0.9 : 0.09);  // 4 patches, or 256
    tiles->Dice(tiles == &one ? 1 : 7, kMost);
  }
  EXPECT_LE(one.statistics.vertices, kMost);
  EXPECT_GT(one.statistics.vertices, kMost * 3 / 4);
  EXPECT_GT(one.statistics.longestEdge, 2);
  EXPECT_TRUE(one.statistics.isByMemory);
  for (size_t i = 0; i < 1000; ++i) {
    // The modest half has all it wants, and what it leaves is the others'.
    if (i % 2)
      EXPECT_EQ(one.Tile(i).patches.size(), 4u);
    else
      EXPECT_GE(one.Tile(i).patches.size(), 10u);
    ASSERT_EQ(one.Tile(i).vertices.size(), seven.Tile(i).vertices.size());
    ASSERT_EQ(std::memcmp(one.Tile(i).vertices.data(), seven.Tile(i).vertices.data(),
                          one.Tile(i).vertices.size() * sizeof(ovhost::GridVertex)),
              0);
  }
}

TEST(DicingMemory, OneLargeSurfaceIsNotStarvedByManySmallOnes) {
  Tiles whole, tiles;
  for (Tiles* made : {&whole, &tiles}) {
    for (int i = 0; i < 60; ++i) made->Add(0.4);  // 16 patches
    made->Add(0.02);                              // 4096
  }
  whole.Dice(2, 0);
  constexpr std::uint64_t kSmall = 60 * 16 * ovhost::kPatchVertices, kLarge = 2000 * ovhost::kPatchVertices;
  ASSERT_EQ(whole.statistics.vertices, kSmall + 4096 * ovhost::kPatchVertices);
  tiles.Dice(2, kSmall + kLarge);
  for (size_t i = 0; i < 60; ++i) EXPECT_EQ(tiles.Tile(i).patches.size(), 16u);
  EXPECT_LE(tiles.Tile(60).vertices.size(), kLarge);
  EXPECT_GT(tiles.Tile(60).vertices.size(), kLarge * 3 / 4);
  // With room for all, limits change nothing.
  Tiles roomy;
  for (int i = 0; i < 60; ++i) roomy.Add(0.4);
  roomy.Add(0.02);
  roomy.Dice(2, 2 * whole.statistics.vertices);
  for (size_t i = 0; i <= 60; ++i) {
    ASSERT_EQ(roomy.Tile(i).vertices.size(), whole.Tile(i).vertices.size());
    EXPECT_EQ(std::memcmp(roomy.Tile(i).vertices.data(), whole.Tile(i).vertices.data(),
                          whole.Tile(i).vertices.size() * sizeof(ovhost::GridVertex)),
              0);
  }
  EXPECT_EQ(roomy.statistics.longestEdge, 1);
}

TEST(PackedNormal, KeepsDirectionsWithinAHundredthOfADegree) {
  for (int i = 0; i < 2000; ++i) {
    const double y = 1 - (i + 0.5) / 1000, r = std::sqrt(1 - y * y), phi = 2.399963 * i;
    const trVector n(r * std::cos(phi), y, r * std::sin(phi));
    EXPECT_GT(Dot(n, ovhost::PackedNormal(n).Unpack()), std::cos(0.01 * kDegreesToRadians));
  }
}

TEST(Accel, RaysFromAboveMeetTheDisplacedGround) {
  Planet planet(4000);
  planet.DiceWith(2);
  ovhost::Accel accel;
  accel.Add(planet.mesh);
  ASSERT_TRUE(accel.Build());
  for (int i = 0; i < 50; ++i) {
    const trVector direction = Normalised({0.1 * std::sin(i), -1, 0.1 * std::cos(1.7 * i)});
    ovhost::SurfaceHit hit;
    ASSERT_TRUE(accel.Intersect({}, direction, 0.01, 1e9, hit));
    const trVector world = planet.settings.view.eye + direction * hit.distance;
    trShadingInterface si;
    si.SetSample(world, {0, 1, 0});
    planet.ball.Displace(si);
    planet.ridges.Displace(si);
    EXPECT_LT((si.P() - world).Length(), 25.0);
    EXPECT_TRUE(accel.Occluded({}, direction, 0.01, hit.distance * 1.01));
    EXPECT_FALSE(accel.Occluded({}, direction, 0.01, hit.distance * 0.99));
  }
}

TEST(Accel, BuildsEndWhenTheyAreStopped) {
  Planet planet(4000);
  planet.DiceWith(2);
  std::atomic<bool> stop{true};
  ovhost::Accel accel(&stop);
  accel.Add(planet.mesh);
  const ovhost::ToldErrors told;
  EXPECT_FALSE(accel.Build());
  ovhost::Prototype prototype;
  prototype.parts.grids.push_back(std::make_unique<ovhost::GridMesh>(planet.mesh));
  EXPECT_FALSE(accel.Build(prototype));
  EXPECT_FALSE(told.Any());
  // What was stopped can be taken up again.
  stop = false;
  EXPECT_TRUE(accel.Build());
  ovhost::SurfaceHit hit;
  EXPECT_TRUE(accel.Intersect({}, {0, -1, 0}, 0.01, 1e9, hit));
}

TEST(Accel, BundlesMeetWhatSingleRaysMeet) {
  Planet planet(4000);
  planet.DiceWith(2);
  ovhost::Accel accel;
  accel.Add(planet.mesh);
  ASSERT_TRUE(accel.Build());
  int met = 0;
  for (int i = 0; i < 60; ++i) {
    // Not full, across the horizon, and with a ray that can't be traced.
    ovhost::RayBundle bundle;
    trVector directions[ovhost::RayBundle::kSize];
    const int count = 1 + i % ovhost::RayBundle::kSize;
    for (int k = 0; k < count; ++k) {
      directions[k] = Normalised({0.05 * k + std::sin(i), 0.012 * (k - 10), std::cos(i)});
      bundle.Add(k == 5 ? trVector(1e300, 0, 0) : trVector(), directions[k], 0.01);
    }
    ovhost::SurfaceHit hits[ovhost::RayBundle::kSize];
    accel.Intersect(bundle, 1e9, hits);
    const std::uint32_t occluded = accel.Occluded(bundle, 1e9);
    EXPECT_EQ(occluded >> count, 0u);
    for (int k = 0; k < count; ++k) {
      ovhost::SurfaceHit single;
      const bool expected = k != 5 && accel.Intersect({}, directions[k], 0.01, 1e9, single);
      ASSERT_EQ(hits[k].part != nullptr, expected) << i << ' ' << k;
      EXPECT_EQ((occluded >> k & 1) != 0, expected);
      if (!expected) continue;
      ++met;
      EXPECT_EQ(hits[k].part, single.part);
      EXPECT_NEAR(hits[k].distance, single.distance, 1e-5 * single.distance);
    }
  }
  EXPECT_GT(met, 100);
}

}  // namespace
