// Lakes: water level and centre in step, the disc and its sphere, new lakes.
#include "tests/made_mesh.h"

namespace {

struct LakeAndPlanet : Graph {
  LakeAndPlanet() : planet(*project.CreateChild("planet")), lake(*project.CreateChild("lake")) {
    planet.SetParam("centre", trVector(100, -5000, 50), trWhoSystem);
    planet.SetParam("radius", 5000.0, trWhoSystem);
    lake.SetParam("planet", planet.Name(), trWhoSystem);
  }
  trBase &planet, &lake;
};

TEST(Lake, LevelAndCentreFollowEachOther) {
  LakeAndPlanet stage;
  const trVector c(100, -5000, 50);
  const struct {
    const char* param;
    trParamValue value;
    trBase* who;
    trVector centre;
    double level;
  } rows[] = {
      {"centre", trVector(100, 20, 50), trWhoUser, {100, 20, 50}, 20},
      {"water_level", -1000.0, trWhoUserIndirect, {100, -1000, 50}, -1000},
      {"centre", trVector(3100, -1000, 50), trWhoUser, {3100, -1000, 50}, 0},
      {"water_level", 5000.0, trWhoUser, {6100, 3000, 50}, 5000},
      {"water_level", 7.0, trWhoSystem, {6100, 3000, 50}, 7},
      {"centre", trVector(1, 2, 3), trWhoSystem, {1, 2, 3}, 7},
      {"planet", "Planet 01", trWhoUser, {1, 2, 3}, (trVector(1, 2, 3) - c).Length() - 5000},
      {"centre", c, trWhoUser, c, -5000},
      {"water_level", 10.0, trWhoUser, c, 10},  // no way up from the planet's centre
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(stage.lake.SetParam(row.param, row.value, row.who));
    ExpectNear(VectorParam(stage.lake, "centre"), row.centre, 1e-8, row.param);
    EXPECT_NEAR(DoubleParam(stage.lake, "water_level"), row.level, 1e-8) << row.param;
  }
  stage.lake.SetParam("planet", "nowhere", trWhoUser);
  stage.lake.SetParam("water_level", 44.0, trWhoUser);
  ExpectNear(VectorParam(stage.lake, "centre"), c, 1e-8, "without a planet nothing follows");
}

TEST(Lake, ItsDiscIsCurvedByASphereThroughItsCentre) {
  LakeAndPlanet stage;
  stage.lake.SetParam("centre", trVector(100, 30, 50), trWhoUser);
  stage.lake.SetParam("max_radius", 800.0, trWhoUser);
  for (const bool hasPlanet : {true, false}) {
    if (!hasPlanet) stage.lake.SetParam("planet", "", trWhoUser);
    trScene scene;
    ASSERT_TRUE(dynamic_cast<trSceneMaker&>(stage.lake).Make(scene, trSceneMaker::kRender));
    EXPECT_EQ(scene.NumTris(), 16);
    EXPECT_FALSE(scene.CastsShadows());
    const trMaterial& material = *scene.GetPMaterial(1);
    EXPECT_EQ(material.geometryShader != nullptr, hasPlanet);
    ASSERT_NE(material.surfaceShader, nullptr);
    EXPECT_EQ(material.surfaceShader->ClassName(), "water_shader");
    EXPECT_EQ(material.displacementTolerance, 0.5f);
    for (long i = 1; i <= scene.NumPts(); ++i) {
      const trVector p = scene.GetPPoint(i)->position;
      EXPECT_NEAR(p.y, 30, 1e-9);
      const double out = (p - trVector(100, 30, 50)).Length();
      EXPECT_TRUE(out < 1e-9 || std::fabs(out - 800) < 1e-9);
      Sample sample(p);
      material.GeometryPlace(sample.state);
      const trVector up = sample.si.P() - trVector(100, -5000, 50);
      if (!hasPlanet) continue;
      EXPECT_NEAR(up.Length(), 5030, 1e-6);
      EXPECT_NEAR(Dot(Normalised(up), sample.si.N()), 1, 1e-9);
    }
    trVector p[3];
    scene.GetPointVecs(scene.GetPTri(1)->point, p, 3);
    EXPECT_GT(Cross(p[2] - p[0], p[1] - p[0]).y, 0) << "its front is above";
  }
}

TEST(Lake, ANewOneHasWaterBundledWithIt) {
  Graph graph;
  trBase& lake = *graph.project.CreateChild("lake");
  EXPECT_TRUE(lake.IsTrue("is_water_related"));
  trString text;
  lake.GetParam("planet", text);
  EXPECT_EQ(text, "Planet 01");
  lake.GetParam("surface_shader", text);
  const trBase* const water = graph.project.NodeByPath("/" + text);
  ASSERT_NE(water, nullptr);
  EXPECT_EQ(water->ClassName(), "water_shader");
  const auto bundled = lake.GetBundledNodeList();
  EXPECT_NE(std::find(bundled.begin(), bundled.end(), water), bundled.end());
  ExpectNear(VectorParam(lake, "centre"), {0, 1, 0}, 0);
}

}  // namespace
