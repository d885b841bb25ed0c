// The host's value nodes against the arithmetic they are named for.
#include <cmath>

#include "host/project/project_file.h"
#include "tests/shading_fixture.h"

namespace {

/// A ball with the parameters and the fact by which nodes know a planet.
class Ball : public trBase {
 public:
  Ball() {
    DeclareTrue("is_planet");
    Param(centre_, "centre", {0, -1000, 0});
    Param(radius_, "radius", 1000.0);
  }

 private:
  trVector centre_;
  double radius_;
};

struct FunctionGraph {
  FunctionGraph() { ovhost::RegisterHostClasses(); }
  trShader& Make(const char* className, const std::vector<std::pair<const char*, double>>& settings = {}) {
    auto* node = dynamic_cast<trShader*>(project.CreateChild(className));
    if (!node) throw std::runtime_error(className);
    for (const auto& [name, value] : settings) EXPECT_TRUE(node->SetParam(name, value, trWhoSystem)) << name;
    return *node;
  }
  juProject project;
};

TEST(FunctionNodes, ScalarsFollowTheirFormulas) {
  struct Row {
    const char* className;
    std::vector<std::pair<const char*, double>> settings;
    double expected;
  };
  const double t = 0.3;
  const Row rows[] = {
      {"constant_scalar", {{"value", -2.5}}, -2.5},
      {"constant_scalar", {{"value", 1e300}}, std::numeric_limits<float>::max()},
      {"add", {{"constant_a", 2}, {"constant_b", 0.5}}, 2.5},
      {"multiply", {{"constant_a", 2}, {"constant_b", -3}}, -6},
      {"mix", {{"constant_a", 2}, {"constant_b", 4}, {"constant_mix", 0.25}}, 2.5},
      {"mix", {{"constant_a", 2}, {"constant_b", 4}, {"constant_mix", 7}}, 4},
      {"clamp", {{"constant", 3}, {"low", -1}, {"high", 2}}, 2},
      {"clamp", {{"constant", -3}, {"low", 2}, {"high", -1}}, -1},
      {"smooth_step", {{"constant", 13}, {"edge_low", 10}, {"edge_high", 20}}, t * t * (3 - 2 * t)},
      {"smooth_step", {{"constant", 17}, {"edge_low", 20}, {"edge_high", 10}}, t * t * (3 - 2 * t)},
      {"smooth_step", {{"constant", 9}, {"edge_low", 10}, {"edge_high", 10}}, 0},
      {"smooth_step", {{"constant", 11}, {"edge_low", 10}, {"edge_high", 10}}, 1},
  };
  FunctionGraph graph;
  for (const Row& row : rows) {
    trShader& node = graph.Make(row.className, row.settings);
    Sample sample({1, 2, 3});
    EXPECT_TRUE(node.IsFunction());
    EXPECT_FLOAT_EQ(node.FloatValueTS(sample.si), static_cast<float>(row.expected)) << row.className;
    EXPECT_FLOAT_EQ(node.FColValueTS(sample.si).g, static_cast<float>(row.expected)) << row.className;
  }
}

TEST(FunctionNodes, LinksStandInForConstants) {
  FunctionGraph graph;
  trShader& colour = graph.Make("constant_colour");
  colour.SetParam("colour", trManRgb(0.25f, 0.5f, 1.0f), trWhoSystem);
  trShader& product = graph.Make("multiply", {{"constant_b", 2}});
  trShader& sum = graph.Make("add", {{"constant_b", 1}});
  Graph::Link(product, "input_a", colour);
  Graph::Link(sum, "input_a", product);
  Sample sample({0, 0, 0});
  EXPECT_EQ(sum.FColValueTS(sample.si), trFCol(1.5f, 2.0f, 3.0f));

  // Positions pass through arithmetic in double precision: a millimetre of the planet's radius is kept.
  const trVector far(6378000.001, 0, -6378000.001);
  trShader& position = graph.Make("get_position");
  trShader& moved = graph.Make("add", {{"constant_b", 0}});
  Graph::Link(moved, "input_a", position);
  Sample there(far);
  EXPECT_EQ(moved.VectorValueTS(there.si), far);
}

TEST(FunctionNodes, ReadersKnowTheSampleAndThePlanet) {
  FunctionGraph graph;
  trShader& altitude = graph.Make("get_altitude");
  trShader& slope = graph.Make("get_slope");
  trShader& distance = graph.Make("get_camera_distance");
  trShader& normal = graph.Make("get_normal");
  const trVector point(1300, -1000, 0);
  const trVector tilted(std::cos(0.5), std::sin(0.5), 0);
  Sample sample(point, tilted);
  sample.si.RootEye() = {1300, -1000, 12};
  trRenderingInterface rendering(sample.state, 1, nullptr, trRenderContext::kFinal);
  const auto start = [&] {
    EXPECT_TRUE(altitude.StartRender(rendering));
    EXPECT_TRUE(slope.StartRender(rendering));
  };
  const double degree = std::acos(-1.0) / 180;

  start();  // without a planet the ground is y = 0, and up is y
  EXPECT_FLOAT_EQ(altitude.FloatValueTS(sample.si), -1000);
  EXPECT_NEAR(slope.FloatValueTS(sample.si), 90 - 0.5 / degree, 1e-4);

  auto* ball = new Ball;
  ovhost::AttachChild(&graph.project, ball, "Ball");
  graph.project.SetActiveShadableObject(ball);
  start();
  EXPECT_FLOAT_EQ(altitude.FloatValueTS(sample.si), 300);
  EXPECT_NEAR(slope.FloatValueTS(sample.si), 0.5 / degree, 1e-4);
  EXPECT_FLOAT_EQ(distance.FloatValueTS(sample.si), 12);
  ExpectNear(normal.VectorValueTS(sample.si), tilted, 1e-12);
}

TEST(FunctionNodes, AFunctionThatFeedsItselfEndsWithAnError) {
  FunctionGraph graph;
  trShader& a = graph.Make("add");
  trShader& b = graph.Make("mix");
  Graph::Link(a, "input_a", b);
  Graph::Link(b, "input_a", a);
  Sample sample({0, 0, 0});
  EXPECT_TRUE(std::isfinite(a.FloatValueTS(sample.si)));
  EXPECT_TRUE(std::isfinite(a.VectorValueTS(sample.si).x));
}

}  // namespace
