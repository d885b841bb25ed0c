// Layers, distribution and merge shaders against independent evaluations of their arithmetic.
#include <cmath>
#include <limits>
#include <set>

#include "core/shading_save.h"
#include "tests/reflective_fixture.h"

namespace {

using Settings = std::vector<std::pair<const char*, double>>;

void Set(trBase& node, const Settings& settings) {
  for (const auto& [name, value] : settings) ASSERT_TRUE(node.SetParam(name, value, trWhoSystem)) << name;
}

/// Shades to a diffuse lobe and an emission.
class Paint : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    ++shaded;
    si.Cutil() = colour;
    si.SetShadingToLambert(colour);
    si.Bsdf().Emission() = emission;
    si.RenderState().ShadeOutputs().highlight = highlight;
    return 1;
  }
  long Displace(trShadingInterface& si) override {
    ++displaced;
    si.P().y += height;
    return 1;
  }
  trFCol colour{0.25f, 0.5f, 0.75f}, emission, highlight;
  double height = 0;
  int shaded = 0, displaced = 0;
};

void ExpectColour(const trFCol& a, const trFCol& b, const char* what, float tolerance = 2e-6f) {
  EXPECT_NEAR(a.r, b.r, tolerance) << what;
  EXPECT_NEAR(a.g, b.g, tolerance) << what;
  EXPECT_NEAR(a.b, b.b, tolerance) << what;
}

double Step(double t) {
  t = t < 0 ? 0 : t > 1 ? 1 : t;
  return 3 * t * t - 2 * t * t * t;
}

/// The cover a layer gives at an altitude, on ground of a slope, read from how it mixes white over black.
float Cover(trShader& layer, double altitude, double slopeDegrees = 0) {
  Sample sample({0, 0, 0});
  sample.si.P() = sample.si.Pt() = {0, altitude, 0};
  const double a = slopeDegrees * 0.017453292519943278;
  sample.si.N() = sample.si.Nt() = {std::sin(a), std::cos(a), 0};
  layer.ShadeTS(sample.si);
  return sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection).g;
}

TEST(SurfaceLayer, LimitsFollowTheFuzzyFormula) {
  struct Row {
    const char* what;
    Settings settings;
    double altitude, slope;
    double cover;  ///< before the smooth step
  };
  const double e = std::exp(-1.0);
  const Settings maximum = {
      {"limit_maximum_altitude", 1}, {"maximum_altitude", 1000}, {"max_alt_fuzzy_zone", 200}};
  const auto with = [](Settings a, const Settings& b) { return a.insert(a.end(), b.begin(), b.end()), a; };
  const Row rows[] = {
      {"no limits", {}, 0, 0, 1},
      {"cover", {{"coverage", 0.5}}, 0, 0, 0.5},
      {"no cover", {{"coverage", 0}}, 0, 0, 0},
      {"at the bound", maximum, 1000, 0, 0},
      {"past the bound", maximum, 1100, 0, 0},
      {"one zone inside", maximum, 800, 0, 1 - e},
      {"scaled by cover", with(maximum, {{"coverage", 0.5}}), 800, 0, 0.5 * (1 - e)},
      {"terms add",
       with(maximum, {{"limit_minimum_altitude", 1}, {"minimum_altitude", 600}, {"min_alt_fuzzy_zone", 200}}),
       800, 0, 1 - 2 * e},
      {"three terms at a zone's width leave nothing",
       with(maximum, {{"limit_minimum_altitude", 1},
                      {"minimum_altitude", 600},
                      {"min_alt_fuzzy_zone", 200},
                      {"limit_maximum_slope", 1},
                      {"maximum_slope_angle", 40},
                      {"max_slope_fuzzy_zone", 20}}),
       800, 20, 0},
      {"hard edge inside", with(maximum, {{"max_alt_fuzzy_zone", 0}}), 999.9, 0, 1},
      {"minimum slope",
       {{"limit_minimum_slope", 1}, {"minimum_slope_angle", 30}, {"min_slope_fuzzy_zone", 10}},
       0,
       50,
       1 - std::exp(-2.0)},
      {"flat ground has slope 0",
       {{"limit_minimum_slope", 1}, {"minimum_slope_angle", -10}, {"min_slope_fuzzy_zone", 10}},
       0,
       0.5,
       1 - e},
      {"softness enters squared", with(maximum, {{"fuzzy_zone_softness", 2}}), 800, 0, (1 - e) / 4},
  };
  Graph graph;
  for (const auto& row : rows) {
    trShader& layer = graph.Shader("surface_layer");
    Set(layer, {{"fractal_breakup", 0}, {"smoother_fuzzy_zones_for_shading", 1}});
    layer.SetParam("diffuse_colour", trManRgb(1, 1, 1), trWhoSystem);
    Set(layer, row.settings);
    EXPECT_NEAR(Cover(layer, row.altitude, row.slope), Step(row.cover), 2e-6) << row.what;
    layer.SetParam("smoother_fuzzy_zones_for_shading", 0, trWhoSystem);
    EXPECT_NEAR(Cover(layer, row.altitude, row.slope), Step(row.cover), 1e-5) << row.what << ", fast";
  }
}

TEST(SurfaceLayer, DirectionIsMeasuredFromThePeak) {
  Graph graph;
  trShader& layer = graph.Shader("surface_layer");
  Set(layer, {{"fractal_breakup", 0},
              {"limit_direction", 1},
              {"direction_heading", 90},
              {"direction_declination", 30},
              {"direction_max_deviation", 60},
              {"direction_max_deviation_fuzzy_zone", 40},
              {"smoother_fuzzy_zones_for_shading", 1}});
  layer.SetParam("diffuse_colour", trManRgb(1, 1, 1), trWhoSystem);
  // The peak lies at 30 degrees over +x; a normal tilted so far towards +x is off by the rest.
  for (const double tilt : {20.0, 40.0, 60.0, 80.0}) {
    const double off = std::fabs(60.0 - tilt);
    EXPECT_NEAR(Cover(layer, 0, tilt), Step(1 - std::exp(-(60 - off) / 40)), 1e-5) << tilt;
  }
}

TEST(SurfaceLayer, MaskStepsRunInOrder) {
  Graph graph;
  auto& mask = graph.Add<Paint>("Mask");
  auto& fractal = graph.Add<Paint>("Fractal");
  auto& beneath = graph.Add<Paint>("Beneath");
  beneath.colour = trFCol(0.2f);
  beneath.highlight = trFCol(1.0f);
  trShader& layer = graph.Shader("surface_layer");
  Graph::Link(layer, "input_node", beneath);
  layer.SetParam("diffuse_colour", trManRgb(1, 1, 1), trWhoSystem);
  const auto shade = [&] {
    Sample sample({0, 0, 0});
    layer.ShadeTS(sample.si);
    return std::pair(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection),
                     sample.state.ShadeOutputs().highlight);
  };
  const auto expected = [](double m) { return trFCol(static_cast<float>(m + 0.2 * (1 - m))); };

  // On and unlinked: the mask stays as far as it came, without breakup or smooth step.
  Set(layer, {{"coverage", 0.75}, {"blend_by_shader", 1}});
  ExpectColour(shade().first, expected(0.75), "mask shader missing");
  Set(layer, {{"blend_by_shader", 0}, {"fractal_breakup", 1}});
  layer.SetParam("breakup_shader", "", trWhoSystem);
  ExpectColour(shade().first, expected(0.75), "fractal missing");

  // Breakup, with the mask as cover or over all.
  mask.colour = trFCol(0.5f);
  fractal.colour = {0.8f, 0.8f, 0.8f};
  Graph::Link(layer, "breakup_shader", fractal);
  Graph::Link(layer, "blending_shader", mask);
  const double c = 0.5, e = 0.8 - 0.5;
  const double b = 0.5 * (0.2125 + 0.7152 + 0.0724);
  Set(layer, {{"blend_by_shader", 1}});
  double m = 0.75 * b;
  ExpectColour(shade().first, expected(Step(m + c * (m - 0.5 + e))), "as cover");
  Set(layer, {{"invert_breakup", 1}});
  ExpectColour(shade().first, expected(Step(m + c * (m - 0.5 - e))), "inverted fractal");
  Set(layer, {{"invert_breakup", 0}, {"blend_as_coverage", 0}, {"invert_blendshader", 1}});
  m = 0.75;
  const double whole = Step(m + c * (m - 0.5 + e)) * (1 - b);
  ExpectColour(shade().first, expected(whole), "over all");
  EXPECT_NEAR(shade().second.r, 1 - whole, 1e-6) << "light gathered beneath is covered in proportion";

  // Full cover samples no fractal.
  Set(layer, {{"coverage", 1}, {"blend_by_shader", 0}});
  const int before = fractal.shaded;
  shade();
  EXPECT_EQ(fractal.shaded, before);
}

TEST(SurfaceLayer, DisplacementIsFadedByTheMaskAndChildrenWithIt) {
  Graph graph;
  auto& beneath = graph.Add<Paint>("Beneath");
  auto& child = graph.Add<Paint>("Child");
  beneath.height = 10;
  child.height = 3;
  trShader& layer = graph.Shader("surface_layer");
  Graph::Link(layer, "input_node", beneath);
  Graph::Link(layer, "child_layers", child);
  Set(layer, {{"fractal_breakup", 0}, {"coverage", 0.5}, {"displacement_offset", 4}});
  const auto displaced = [&] {
    Sample sample({0, 0, 0});
    layer.DisplaceTS(sample.si);
    return sample.si.P().y;
  };
  EXPECT_NEAR(displaced(), 10 + 0.5 * (0.2125 + 0.7152 + 0.0724) * 7, 1e-5);
  layer.SetParam("enable", 0, trWhoSystem);
  EXPECT_EQ(displaced(), 10);
  Set(layer, {{"enable", 1}, {"coverage", 0}});
  child.displaced = 0;
  EXPECT_EQ(displaced(), 10);
  EXPECT_EQ(child.displaced, 0);
}

TEST(SurfaceLayer, IntersectionComparesHeights) {
  // The underlying ground rises by 10; the layer lies at its texture height plus a shift.
  for (const long mode : {0L, 1L, 2L}) {
    Graph graph;
    auto& beneath = graph.Add<Paint>("Beneath");
    beneath.height = 10;
    beneath.colour = trFCol();
    trShader& layer = graph.Shader("surface_layer");
    Graph::Link(layer, "input_node", beneath);
    layer.SetParam("diffuse_colour", trManRgb(1, 1, 1), trWhoSystem);
    Set(layer, {{"fractal_breakup", 0},
                {"coverage", 0.6},
                {"intersect_underlying", 1},
                {"intersection_zone", 4},
                {"displacement_offset", 9}});
    layer.SetParam("intersection_mode", mode, trWhoSystem);
    const double white = 0.2125 + 0.7152 + 0.0724, L = 0.6 * white, R = L / 4;
    double shift = (1 - L) * -2 + L * 2 + (L - 0.5) / R;
    const double t = mode == 2 ? 10 + 9 : 0;  // its own displacement, or the texture point that nothing moved
    if (mode == 1) shift -= 2 * (t - 10);
    const double height = t + shift - 10;
    const double m = std::fmin(std::fmax(0.6 / 4 * height + 0.5, 0), 1);
    Sample sample({0, 0, 0});
    sample.si.P() = {0, 7, 0};
    layer.ShadeTS(sample.si);
    ExpectColour(sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection), trFCol(static_cast<float>(Step(m))),
                 "mask", 1e-5f);
    EXPECT_EQ(sample.si.P(), trVector(0, 7, 0)) << "shading leaves the point";
  }
}

TEST(SurfaceLayer, AnIntersectingLayerIsBrokenUpWhereItIsShaded) {
  // The fractal follows the texture space that a transform above the layer makes, not the one in which the
  // underlying ground was run again to be compared with.
  Graph graph;
  auto& beneath = graph.Add<Paint>("Beneath");
  beneath.height = 10;
  auto& fractal = graph.Add<ProbeShader>("Fractal");
  trShader& layer = graph.Shader("surface_layer");
  Graph::Link(layer, "input_node", beneath);
  Graph::Link(layer, "breakup_shader", fractal);
  Set(layer, {{"fractal_breakup", 1}, {"coverage", 0.6}, {"intersect_underlying", 1}});
  trShader& transform = graph.Shader("transform_input_shader");
  Graph::Link(transform, "input_node", layer);
  transform.SetParam("translate", 1, trWhoSystem);
  transform.SetParam("translate_by", trVector(5, 6, 7), trWhoSystem);
  for (const long mode : {0L, 1L, 2L}) {
    layer.SetParam("intersection_mode", mode, trWhoSystem);
    layer.SetParam("intersection_zone", 1000.0, trWhoSystem);
    Sample sample({0, 0, 0});
    sample.si.P() = {0, 7, 0};
    sample.si.Pt() = {100, 20, 3};
    fractal.seenPt = {};
    transform.ShadeTS(sample.si);
    EXPECT_EQ(fractal.seenPt, trVector(95, 14, -4)) << mode;
    EXPECT_EQ(sample.si.Pt(), trVector(100, 20, 3)) << mode;
  }
}

TEST(SurfaceLayer, NewLayersHaveAFractalAndSwitchesFollowLinks) {
  Graph graph;
  trShader& layer = graph.Shader("surface_layer");
  trBase* const fractal = graph.project.NodeByPath("/Fractal breakup 01");
  ASSERT_TRUE(fractal);
  EXPECT_EQ(DoubleParam(*fractal, "noise_variation"), 1);
  EXPECT_EQ(DoubleParam(layer, "only_breakup_colour"), 1);
  layer.SetParam("breakup_shader", "", trWhoUser);
  EXPECT_EQ(DoubleParam(layer, "fractal_breakup"), 0);
  layer.SetParam("smoothing_amount", 3.0, trWhoUser);
  EXPECT_EQ(DoubleParam(layer, "smoothing_amount"), 1);
  layer.SetParam("intersection_mode", 2, trWhoUser);
  layer.SetParam("intersect_underlying", 1, trWhoUser);
  EXPECT_EQ(DoubleParam(layer, "smoothing_effect"), 1);
  EXPECT_TRUE(layer.SetParamFromString("displacement", "2.5", trWhoSystem));
  EXPECT_EQ(DoubleParam(layer, "displacement_offset"), 2.5);
  trShader& spread = graph.Shader("distribution_shader_v4");
  EXPECT_EQ(DoubleParam(spread, "fractal_breakup"), 0) << "its fractal stands ready, switched off";
  EXPECT_EQ(DoubleParam(spread, "altitude_key"), 1);
}

TEST(Distribution, NewSecondVersionsHaveAnUnclampedFractal) {
  Graph graph;
  trShader& spread = graph.Shader("distribution_shader_v2");
  trString link;
  ASSERT_TRUE(spread.GetParam("breakup_shader", link));
  trBase* const fractal = graph.project.NodeByPath("/" + link);
  ASSERT_TRUE(fractal) << link;
  for (const char* const clamp : {"clamp_high_colour", "clamp_low_colour"})
    EXPECT_EQ(DoubleParam(*fractal, clamp), 0) << clamp;
}

TEST(Distribution, VersionsKeepTheirArithmetic) {
  struct Row {
    const char* className;
    Settings settings;
    double expected;
  };
  const double limit = 1 - std::exp(-1.0), e = 0.7f - 0.5, c = 0.5;
  const auto softened = [](double v, double s) { return Step((v - 0.5) / s + 0.5); };
  const auto legacy = [&](double g) { return e * c + (g - 0.5) * (2 * c + 1) + 0.5; };
  const double v4 = 0.8 * limit + c * (0.8 * limit - 0.5 + e);
  const Row rows[] = {
      {"distribution_shader_v4", {}, softened(v4, 1)},
      {"distribution_shader_v4", {{"fuzzy_zone_softness", 2}}, softened(v4, 2)},
      {"distribution_shader_v3", {{"version_4", 1}}, softened(v4, 1)},
      {"distribution_shader_v3", {}, softened(legacy(limit - 1 + 0.8), 1)},
      {"distribution_shader_v2", {{"limit_maximum_slope", 0}}, softened(legacy(limit - 1 + 0.8), 1)},
  };
  Graph graph;
  auto& fractal = graph.Add<Paint>("Fractal");
  fractal.colour = trFCol(0.7f);
  for (const auto& row : rows) {
    trShader& shader = graph.Shader(row.className);
    Graph::Link(shader, "breakup_shader", fractal);
    Set(shader, {{"coverage", 0.8}, {"fractal_breakup", 1}, {"limit_maximum_altitude", 1}});
    Set(shader, row.settings);
    EXPECT_NEAR(Cover(shader, 800), row.expected, 1e-5) << row.className;
  }

  // The old form's contrast holds where nothing is broken up.
  trShader& unbroken = graph.Shader("distribution_shader_v3");
  Set(unbroken, {{"coverage", 0.6}, {"fractal_breakup", 0}});
  EXPECT_NEAR(Cover(unbroken, 0), Step((0.6 - 0.5) * (2 * c + 1) + 0.5), 1e-5);
}

// ---------------------------------------------------------------------------------------------------------------

struct MergeGraph : Graph {
  MergeGraph() : input(Add<Paint>("Input")), a(Add<Paint>("A")), merge(Shader("merge_shader")) {
    input.colour = {0.25f, 0.5f, 0.75f};
    a.colour = {0.5f, 0.1f, 0.9f};
    input.emission = trFCol(0.5f);
    a.emission = trFCol(0.25f);
    input.highlight = trFCol(1.0f);
    input.height = 2;
    a.height = 5;
    Link(merge, "input_node", input);
    Link(merge, "shader_A", a);
  }
  Paint &input, &a;
  trShader& merge;
};

TEST(Merge, ColourFollowsTheTable) {
  const double m = 0.25;
  struct Row {
    long mode;
    double (*diffuse)(double i, double a, double m);
    double (*emission)(double i, double a, double m, double ci, double ca);
  };
  const Row rows[] = {
      {0, [](double i, double a, double m) { return i * (1 - m) + a * m; },
       [](double i, double a, double m, double, double) { return i * (1 - m) + a * m; }},
      {1, [](double i, double a, double m) { return i + a * m; },
       [](double i, double a, double m, double, double) { return i + a * m; }},
      {2, [](double i, double a, double m) { return i - a * m; },
       [](double i, double a, double m, double, double) { return i - a * m; }},
      {3, [](double i, double a, double m) { return -i + a * m; },
       [](double i, double a, double m, double, double) { return -i + a * m; }},
      // The first diffuse lobe is the input's share; A's stands behind it.
      {4, [](double i, double a, double m) { return i + m * (std::fabs(i - a) - i) + a * m; },
       [](double i, double a, double m, double, double) { return i * (1 - m) + a * m; }},
      {5, [](double i, double a, double m) { return i * (1 + m * (a - 1)); },
       [](double i, double, double m, double, double ca) { return i * (1 + m * (ca - 1)); }},
      {6, [](double i, double a, double m) { return i * (1 - m) + a * m * i; },
       [](double i, double a, double m, double ci, double) { return i * (1 - m) + a * m * ci; }},
      {7, [](double i, double a, double m) { return i + a * m * (1 - i); },
       [](double i, double, double, double, double) { return i; }},
      {8, [](double i, double a, double m) { return a + i * m * (1 - a); },
       [](double, double a, double, double, double) { return a; }},
  };
  MergeGraph graph;
  graph.merge.SetParam("mix_to_A", m, trWhoSystem);
  for (const auto& row : rows) {
    graph.merge.SetParam("colour_merge_mode", row.mode, trWhoSystem);
    Sample sample({0, 0, 0});
    graph.merge.ShadeTS(sample.si);
    const trFCol diffuse = sample.si.Bsdf().ColourOf(trLobe::kDiffuseReflection);
    for (int k = 0; k < 3; ++k) {
      const double i = graph.input.colour[k], a = graph.a.colour[k];
      EXPECT_NEAR(diffuse[k], row.diffuse(i, a, m), 1e-6) << "mode " << row.mode;
      EXPECT_NEAR(sample.si.Bsdf().Emission()[k], row.emission(0.5, 0.25, m, i, a), 1e-6)
          << "mode " << row.mode;
      const double screened = row.mode == 7 ? a * m * (1 - i) : i * m * (1 - a);
      if (row.mode >= 7) {
        EXPECT_NEAR(sample.si.Cutil()[k], a + screened, 1e-6) << "mode " << row.mode;
      }
    }
    EXPECT_NEAR(sample.state.ShadeOutputs().highlight.r, 1 - m, 1e-6)
        << "gathered light is mixed in every mode";
  }
}

TEST(Merge, DisplacementFollowsTheTable) {
  const double w = 0.25 * (0.2125 + 0.7152 + 0.0724), ci = Luminance({0.25f, 0.5f, 0.75f}),
               ca = Luminance({0.5f, 0.1f, 0.9f});
  const double expected[] = {
      5 * w + 2 * (1 - w),      2 + 5 * w, 2 - 5 * w, 5 * w - 2, 2 - 5 * w, ca * 2 * w + 2 * (1 - w),
      ci * 5 * w + 2 * (1 - w), 2,         2};
  MergeGraph graph;
  graph.merge.SetParam("mix_to_A", 0.25, trWhoSystem);
  for (long mode = 0; mode < 9; ++mode) {
    graph.merge.SetParam("displace_merge_mode", mode, trWhoSystem);
    Sample sample({0, 0, 0});
    graph.merge.DisplaceTS(sample.si);
    EXPECT_NEAR(sample.si.P().y, expected[mode], 1e-5) << mode;
  }
}

TEST(Merge, ShortCutsControllersAndAltitude) {
  MergeGraph graph;
  Sample sample({0, 0, 0});
  graph.merge.SetParam("mix_to_A", 0, trWhoSystem);
  graph.merge.ShadeTS(sample.si);
  EXPECT_EQ(graph.a.shaded, 0) << "no weight, no work";
  EXPECT_EQ(graph.input.shaded, 1);

  auto& controller = graph.Add<Paint>("Controller");
  controller.colour = {1, 1, 1};
  Graph::Link(graph.merge, "mix_controller", controller);
  graph.merge.ShadeTS(sample.si);
  EXPECT_EQ(graph.a.shaded, 1) << "the controller decides, whatever mix_to_A says";
  EXPECT_EQ(graph.input.shaded, 1);

  const auto height = [&](long choice, double inputHeight) {
    graph.merge.SetParam("choose_by_altitude", choice, trWhoSystem);
    graph.input.height = inputHeight;
    Sample at({0, 0, 0});
    graph.merge.DisplaceTS(at.si);
    return at.si.P().y;
  };
  for (const long space : {0L, 1L, 2L}) {
    graph.merge.SetParam("texture_space", space, trWhoSystem);
    EXPECT_EQ(height(1, 2), 5) << space;
    EXPECT_EQ(height(2, 2), 2) << space;
    EXPECT_EQ(height(1, 7), 7) << space;
    EXPECT_EQ(height(2, 5), 5) << space << ", a tie";
  }
  graph.merge.SetParam("shader_A", "", trWhoSystem);
  EXPECT_EQ(height(0, 2), 0) << "an empty slot hides the input";
}

// ---------------------------------------------------------------------------------------------------------------

TEST(ColourUtilities, LevelsAndGamma) {
  Graph graph;
  auto& paint = graph.Add<Paint>("Paint");
  paint.colour = {0.3f, 0.6f, 1.2f};
  trShader& adjust = graph.Shader("colour_adjust_shader");
  Graph::Link(adjust, "input_node", paint);
  adjust.SetParam("black_point", trManRgb(0.1f, 0.2f, 0.3f), trWhoUser);
  EXPECT_FLOAT_EQ(static_cast<float>(DoubleParam(adjust, "black_point_adjust")), 0.2f);
  adjust.SetParam("gamma_adjust", 2.0, trWhoUser);
  Set(adjust, {{"clamp_above_white", 0}});
  Sample sample({0, 0, 0});
  adjust.ShadeTS(sample.si);
  const auto level = [](double x, double black) {
    const double y = (x - black) / (1 - black);
    return static_cast<float>(y >= 1 ? (y - 1) / 2 + 1 : std::sqrt(y));
  };
  ExpectColour(sample.si.Cutil(), {level(0.3, 0.1), level(0.6, 0.2), level(1.2, 0.3)}, "levels");
  adjust.SetParam("black_point_adjust", 0.3, trWhoUser);
  trManRgb moved;
  ASSERT_TRUE(adjust.GetParam("black_point", moved));
  ExpectColour(moved.ToRender(), {0.2f, 0.3f, 0.4f}, "the slider moves all channels");
}

TEST(ColourUtilities, ContoursLieAtTheirAltitudes) {
  Graph graph;
  trShader& contour = graph.Shader("contour_shader");
  const auto at = [&](double y) {
    Sample sample({0, 0, 0});
    sample.si.P() = {0, y, 0};
    contour.ShadeTS(sample.si);
    return sample.si.Cutil();
  };
  Set(contour, {{"smooth_edges", 0}});
  for (const double y : {0.5, 99.5, 100.9, -100.5, 300.0}) ExpectColour(at(y), {1, 0, 0}, "main");
  for (const double y : {20.5, 79.5, -39.5}) ExpectColour(at(y), {1, 1, 0}, "between");
  for (const double y : {1.5, 22.0, 98.0, 50.0}) ExpectColour(at(y), {}, "none");
  Set(contour, {{"smooth_edges", 1}, {"smoothing_distance", 0.5}});
  EXPECT_NEAR(at(100.75).r, 1 - Step(0.5), 1e-6);
  EXPECT_NEAR(at(100.6).r, 1 - Step(0.2), 1e-6);
  contour.SetParam("number_of_intermediates", 4.0, trWhoUser);
  EXPECT_EQ(DoubleParam(contour, "intermediate_interval"), 25);
  contour.SetParam("intermediate_interval", 50.0, trWhoUser);
  EXPECT_EQ(DoubleParam(contour, "number_of_intermediates"), 2);
  contour.SetParam("main_interval", 0.0, trWhoUser);
  Sample sample({0, 0, 0});
  EXPECT_EQ(contour.ShadeTS(sample.si), 0);
}

TEST(ColourUtilities, DistanceRampsFromTheView) {
  Graph graph;
  trShader& distance = graph.Shader("distance_shader");
  Set(distance, {{"far_distance", 10}, {"near_distance", 2}});
  trView view;
  view.forward = {0, 0, -1};
  const auto at = [&](const trVector& p) {
    Sample sample(p);
    sample.si.SetMainView(&view);
    distance.ShadeTS(sample.si);
    return sample.si.Cutil().r;
  };
  EXPECT_NEAR(at({3, 0, -4}), (5.0 - 2) / 8, 1e-6);
  EXPECT_EQ(at({0, 0, -100}), 1);
  distance.SetParam("distance_mode", 1, trWhoSystem);
  EXPECT_NEAR(at({3, 0, -4}), (4.0 - 2) / 8, 1e-6);
  Set(distance, {{"clamp_far_colour", 0}, {"apply_near_colour", 0}});
  EXPECT_NEAR(at({0, 0, -18}), 2, 1e-6);
}

// ---------------------------------------------------------------------------------------------------------------

/// A shader whose colour and number are whatever is wanted.
class Wild : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    si.Cutil() = colour;
    return 1;
  }
  trFCol colour{1.0f};
};

TEST(AllSurfaces, LeaveFiniteResultsWhateverTheyAreGiven) {
  const float infinity = std::numeric_limits<float>::infinity();
  const trFCol wild[] = {trFCol(infinity),
                         trFCol(-infinity),
                         trFCol(std::nanf("")),
                         {-1.0f, 3e38f, 0.5f},
                         {infinity, 0.5f, -3e38f}};
  Graph graph;
  auto& base = graph.Add<Paint>("Base");
  auto& function = graph.Add<Wild>("Function");
  // Links to whole surfaces, which are passed on as they are.
  const std::set<std::string> networks = {"input_node", "shader", "shader_A", "child_layers"};
  std::set<std::string> seen;
  for (const ovhost::CatalogueEntry& entry : ovhost::Catalogue()) {
    if (entry.category.rfind("shader/", 0) != 0 || entry.category.rfind("shader/atmosphere", 0) == 0 ||
        !seen.insert(entry.className).second)
      continue;
    trShader& shader = graph.Shader(entry.className);
    const auto expectFinite = [&](const std::string& what, bool pointToo) {
      ReflectionRender render;
      render.suns.resize(1);
      for (const bool deferred : {false, true}) {
        render.deferred = deferred;
        render.Look(0.6);
        trVector p = render.si.P();
        shader.ShadeTS(render.si);
        ASSERT_TRUE(LeavesFinite(render.si)) << entry.className << ", " << what;
        render.Look(0.6);
        shader.DisplaceTS(render.si);
        p = render.si.P();
        ASSERT_TRUE(!pointToo || std::isfinite(p.x + p.y + p.z)) << entry.className << ", " << what;
      }
    };
    for (const trParamInfo& param : shader.Data().params) {
      if (param.type == trParamType::kShaderLink)
        Graph::Link(shader, param.name.c_str(),
                    networks.count(param.name) ? static_cast<trShader&>(base) : function);
      if (param.name == "blend_by_shader" || param.name == "intersect_underlying" ||
          param.name == "limit_direction")
        shader.SetParam(param.name.c_str(), 1, trWhoSystem);
    }
    for (const trFCol& colour : wild) {
      function.colour = colour;
      expectFinite("a function of " + std::to_string(colour.r), true);
    }
    function.colour = trFCol(0.7f);
    for (const trParamInfo& param : shader.Data().params) {
      if (param.type != trParamType::kDouble) continue;
      double before = 0;
      shader.GetParam(param.name.c_str(), before);
      for (const double value : {0.0, 1e30, -1e30, 1e300, -1e300}) {
        shader.SetParam(param.name.c_str(), value, trWhoSystem);
        expectFinite(param.name + " of " + std::to_string(value), false);
      }
      shader.SetParam(param.name.c_str(), before, trWhoSystem);
    }
  }
  EXPECT_GT(seen.size(), 15u);
}

}  // namespace
