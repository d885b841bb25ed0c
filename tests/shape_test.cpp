// Shapes against the geometry they are named for, and arrays against the copies they promise.
#include <cmath>

#include "surface/shader_array.h"
#include "surface/shape_shader.h"
#include "tests/shading_fixture.h"

namespace {

/// The shape's mask at a point of the ground.
double MaskAt(trShader& shader, double x, double z) {
  Sample sample({x, 0, z});
  shader.ShadeTS(sample.si);
  return sample.si.Cutil().r;
}

TEST(Shape, CoversItsAreaAndNoMore) {
  struct Row {
    const char* what;
    long type, sides;
    double area;  // in units of the box's
  };
  const double pi = 3.14159265358979;
  const Row rows[] = {{"rectangle", 0, 5, 1},
                      {"ellipse", 1, 5, pi / 4},
                      {"triangle", 2, 3, 3 * std::sin(2 * pi / 3) / 8},
                      {"hexagon", 2, 6, 6 * std::sin(pi / 3) / 8},
                      {"star", 3, 5, 5 * 0.4 * std::sin(pi / 5) / 4}};
  for (const Row& row : rows) {
    ShapeShader shape;
    shape.SetParam("shape_type", row.type, trWhoUser);
    shape.SetParam("number_of_sides", row.sides, trWhoUser);
    shape.SetParam("size", tr2Vector(60, 200), trWhoUser);
    shape.SetParam("centre", trVector(400, 0, -70), trWhoUser);
    shape.SetParam("rotation", 33.0, trWhoUser);
    shape.SetParam("edge_width", 0.0, trWhoUser);
    double sum = 0;
    const double step = 1.7;
    for (double x = 250; x < 550; x += step)
      for (double z = -220; z < 80; z += step) sum += MaskAt(shape, x, z) * step * step;
    EXPECT_NEAR(sum / 12000, row.area, 0.02) << row.what;
  }
}

TEST(Shape, EdgesRiseInwardsByTheirProfile) {
  ShapeShader shape;
  shape.SetParam("size", tr2Vector(200, 100), trWhoUser);
  shape.SetParam("edge_width", 40.0, trWhoUser);
  const double t = 0.25;
  const struct {
    long profile;
    double expected;
  } rows[] = {{0, t}, {1, t * t * (3 - 2 * t)}, {2, std::sqrt(t * (2 - t))}, {3, 1 - std::sqrt(1 - t * t)}};
  for (const auto& row : rows) {
    shape.SetParam("edge_profile", row.profile, trWhoUser);
    EXPECT_NEAR(MaskAt(shape, 90, 0), row.expected, 1e-6) << row.profile;
    EXPECT_NEAR(MaskAt(shape, 0, -40), row.expected, 1e-6) << row.profile;
    EXPECT_EQ(MaskAt(shape, 101, 0), 0);
    EXPECT_EQ(MaskAt(shape, 0, 0), 1);
  }
  // A disc's edge is a ring of even width; rotation turns north towards east.
  shape.SetParam("edge_profile", 0, trWhoUser);
  shape.SetParam("shape_type", 1, trWhoUser);
  shape.SetParam("size", tr2Vector(200, 200), trWhoUser);
  for (double angle = 0; angle < 6; angle += 0.5)
    EXPECT_NEAR(MaskAt(shape, 90 * std::cos(angle), 90 * std::sin(angle)), t, 1e-6);
  shape.SetParam("shape_type", 0, trWhoUser);
  shape.SetParam("size", tr2Vector(10, 200), trWhoUser);
  shape.SetParam("rotation", 90.0, trWhoUser);
  EXPECT_GT(MaskAt(shape, 80, 0), 0.05);
  EXPECT_EQ(MaskAt(shape, 0, 80), 0);
  // What displaces is the same.
  shape.SetParam("apply_displacement", 1, trWhoUser);
  Sample sample({60, 0, 2});
  shape.DisplaceTS(sample.si);
  EXPECT_NEAR(sample.si.P().y, 100 * MaskAt(shape, 60, 2), 1e-4);
}

struct ArrayRig {
  ArrayRig() {
    shape.SetParam("size", tr2Vector(6, 6), trWhoUser);
    shape.SetParam("edge_width", 0.0, trWhoUser);
    shape.SetParam("apply_displacement", 1, trWhoUser);
    shape.SetParam("displacement_amplitude", 2.0, trWhoUser);
    array.SetParam("spacing", tr2Vector(20, 10), trWhoUser);
    array.SetParam("reach", 5.0, trWhoUser);
    array.SetParam("seed", 4, trWhoUser);
    Graph::Link(array, "shader", shape);
  }
  Graph graph;
  ShapeShader& shape = graph.Add<ShapeShader>("Shape");
  ShaderArray& array = graph.Add<ShaderArray>("Array");
};

TEST(ShaderArray, RepeatsItsShaderOverTheGrid) {
  ArrayRig rig;
  for (int i = -3; i <= 3; ++i)
    for (int j = -3; j <= 3; ++j) {
      EXPECT_EQ(MaskAt(rig.array, 20 * i + 2.9, 10 * j - 2.9), 1) << i << " " << j;
      EXPECT_EQ(MaskAt(rig.array, 20 * i + 3.1, 10 * j), 0);
      EXPECT_EQ(MaskAt(rig.array, 20 * i + 10, 10 * j), 0);
    }
  rig.array.SetParam("limit_number", 1, trWhoUser);
  rig.array.SetParam("columns", 3, trWhoUser);
  rig.array.SetParam("rows", 2, trWhoUser);
  int covered = 0;
  for (int i = -5; i <= 5; ++i)
    for (int j = -5; j <= 5; ++j) covered += MaskAt(rig.array, 20 * i, 10 * j) > 0;
  EXPECT_EQ(covered, 6);
  Sample sample({20, 0, 0});
  rig.array.DisplaceTS(sample.si);
  ExpectNear(sample.si.P(), {20, 2, 0}, 1e-9);
}

TEST(ShaderArray, JitterIsEachCopysOwnAndKeepsTheArea) {
  ArrayRig rig;
  rig.array.SetParam("position_jitter", 0.4, trWhoUser);
  rig.array.SetParam("rotation_jitter", 180.0, trWhoUser);
  rig.array.SetParam("scale_jitter", 0.2, trWhoUser);
  double sum = 0, squares = 0;
  const int cells = 40;
  for (int i = 0; i < cells; ++i) {
    double area = 0;
    for (double x = -10; x < 10; x += 0.25)
      for (double z = -5; z < 5; z += 0.25) area += MaskAt(rig.array, 20.0 * i + x, z) / 16;
    sum += area, squares += area * area;
  }
  EXPECT_NEAR(sum / cells, 36, 4);
  EXPECT_GT(squares / cells - sum * sum / cells / cells, 9) << "copies of one size";
  rig.array.SetParam("scale", 2.0, trWhoUser);
  rig.array.SetParam("position_jitter", 0.0, trWhoUser);
  rig.array.SetParam("scale_jitter", 0.0, trWhoUser);
  Sample sample({0.1, 0, 0.1});
  rig.array.DisplaceTS(sample.si);
  EXPECT_NEAR(sample.si.P().y, 4, 1e-9) << "twice as large, twice as high";
}

TEST(ShaderArray, LinkedToItselfItEnds) {
  ArrayRig rig;
  rig.array.SetParam("reach", 60.0, trWhoUser);
  Graph::Link(rig.array, "shader", rig.array);
  Sample sample({1, 2, 3});
  rig.array.DisplaceTS(sample.si);
  rig.array.ShadeTS(sample.si);
  EXPECT_TRUE(std::isfinite(sample.si.P().y));
  for (const double bad : {0.0, -1.0, 1e300}) {
    ArrayRig other;
    other.array.SetParam("spacing", tr2Vector(bad, bad), trWhoUser);
    other.array.SetParam("scale", bad, trWhoUser);
    other.array.SetParam("reach", bad, trWhoUser);
    Sample at({1e200, 2, -1e200});
    other.array.DisplaceTS(at.si);
    EXPECT_TRUE(std::isfinite(at.si.P().y)) << bad;
  }
}

}  // namespace
