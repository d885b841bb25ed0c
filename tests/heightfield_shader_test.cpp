// Heightfields on surfaces: placement, borders, masks, detail and shading against formulas.
#include <cmath>

#include "core/heightfield.h"
#include "core/noise.h"
#include "tests/shading_fixture.h"

namespace {

using Settings = std::vector<std::pair<const char*, double>>;

/// A raster told by a function of its points, heights in tens of metres.
class Field : public trHeightfield {
 public:
  void Make(int w, int h, double xScale, double yScale, const std::function<double(int, int)>& z) {
    Init(0, 0, w, h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) HfScanlineRaw(y)[x] = static_cast<float>(z(x, y));
    HfSetScaleEnabled(1);
    HfSetScale(xScale, yScale, 10);
    HfFindZRange();
    HfValidate();
  }
};

class Ball : public trBase {
 public:
  Ball() {
    DeclareTrue("is_planet");
    Param(centre_, "centre", {0, -1e6, 0});
    Param(radius_, "radius", 1e6);
    Param(apex_, "lat_long_at_apex", tr2Vector(30, 40));
  }

 private:
  trVector centre_;
  double radius_;
  tr2Vector apex_;
};

struct Stage {
  Stage() : field(graph.Add<Field>("Field")), shader(graph.Shader("heightfield_shader")) {
    // 11 by 6 points over 100 by 50 m, rising by 1 a step along x and 2 along y.
    field.Make(11, 6, 10, 10, [](int x, int y) { return x + 2.0 * y; });
    Graph::Link(shader, "heightfield", field);
    Set({{"add_fractal_detail", 0},
         {"border_blending", 0},
         {"interpolation_method", 1},
         {"locate_in", 2},
         {"displacement_direction", 2}});
  }
  void Set(const Settings& settings) {
    for (const auto& [name, value] : settings) ASSERT_TRUE(shader.SetParam(name, value, trWhoSystem)) << name;
  }
  void Anchor(int which) {
    const char* names[] = {"position_centre", "position_lower_left", "position_upper_left"};
    for (int i = 0; i < 3; ++i) shader.SetParam(names[i], 0, trWhoSystem);
    if (which < 3) shader.SetParam(names[which], 1, trWhoSystem);
  }
  trVector Displaced(const trVector& p) {
    Sample sample(p);
    shader.DisplaceTS(sample.si);
    return sample.si.P();
  }
  double Height(double x, double z) { return Displaced({x, 0, z}).y; }
  Graph graph;
  Field& field;
  trShader& shader;
};

TEST(HeightfieldShader, AnchorsRotationAndFlipsPlaceTheField) {
  Stage stage;
  const auto ramp = [](double x, double y) { return 10 * (x / 10 + 2 * y / 10); };
  stage.shader.SetParam("position", tr2Vector(1000, 2000), trWhoSystem);
  EXPECT_NEAR(stage.Height(1000 + 7, 2000 - 4), ramp(57, 21), 1e-6) << "about the centre";
  EXPECT_EQ(stage.Height(1000 + 51, 2000), 0) << "outside";
  stage.Anchor(1);
  EXPECT_NEAR(stage.Height(1007, 2004), ramp(7, 4), 1e-6);
  stage.Anchor(2);
  EXPECT_NEAR(stage.Height(1007, 2000 - 4), ramp(7, 46), 1e-6);
  stage.Anchor(3);
  EXPECT_NEAR(stage.Height(7, 4), ramp(7, 4), 1e-6) << "no anchor, no position";

  // A turned field: its x axis points where the rotation takes +x.
  stage.Anchor(1);
  stage.Set({{"rotation", 90}});
  const double s = 1, c = 0;
  const double u = -30, v = 20;  // world offsets
  const double x = -s * v + c * u, y = c * v + s * u;
  EXPECT_EQ(stage.Height(1000 + u, 2000 + v), 0) << x << " " << y << " lies outside";
  EXPECT_NEAR(stage.Height(1000 + 30, 2000 - 20), ramp(20, 30), 1e-6);
  stage.Set({{"rotation", 0}, {"flip_x", 1}});
  EXPECT_NEAR(stage.Height(1007, 2004), ramp(93, 4), 1e-6);
  stage.Set({{"flip_x", 0}, {"flip_y", 1}, {"height_multiplier", 0.5}});
  EXPECT_NEAR(stage.Height(1007, 2004), 0.5 * ramp(7, 50), 1e-6)
      << "flipped about the width, clamped to the edge";
}

TEST(HeightfieldShader, BordersFadeAndStitchableOnesSumToOne) {
  Stage stage;
  stage.field.Make(11, 11, 10, 10, [](int, int) { return 1.0; });
  stage.Anchor(1);
  const auto step = [](double t) { return t < 0 ? 0 : t > 1 ? 1 : (3 - 2 * t) * t * t; };
  stage.Set({{"stitchable_border", 0}});
  EXPECT_EQ(stage.Height(0, 50), 10) << "without a border the weight is 1 to the edge";
  stage.Set({{"border_blending", 0.2}});
  for (const double x : {0.0, 5.0, 12.0, 50.0, 91.0})
    EXPECT_NEAR(stage.Height(x, 50), 10 * step(x / 20) * step((100 - x) / 20), 1e-9) << x;
  stage.Set({{"stitchable_border", 1}});
  EXPECT_NEAR(stage.Height(0, 50), 5, 1e-9);
  for (const double x : {92.0, 97.0, 103.0, 109.0}) {
    const double left = stage.Height(x, 50);
    stage.shader.SetParam("position", tr2Vector(100, 0), trWhoSystem);
    EXPECT_NEAR(left + stage.Height(x, 50), 10, 1e-9) << x;
    stage.shader.SetParam("position", tr2Vector(0, 0), trWhoSystem);
  }
}

TEST(HeightfieldShader, MasksAndFlattening) {
  Stage stage;
  stage.Anchor(1);
  auto& mask = stage.graph.Add<ProbeShader>("Mask");
  mask.colour = trFCol(0.25f);
  Graph::Link(stage.shader, "blending_shader", mask);
  stage.Set({{"blend_by_shader", 1}});
  const double w = 0.25 * (0.2125 + 0.7152 + 0.0724), height = 10 * (3 + 2 * 2);
  EXPECT_NEAR(stage.Height(30, 20), height * w, 1e-5);
  EXPECT_EQ(mask.seenPt, trVector(0.3, 0, 0.4)) << "fitted to the field";
  stage.Set({{"flatten_surface_to", 2}});
  EXPECT_NEAR(stage.Displaced({30, 100, 20}).y, 100 * (1 - w) + height * w, 1e-4);
  stage.Set({{"flatten_surface_first", 0}});
  EXPECT_NEAR(stage.Displaced({30, 100, 20}).y, 100 + height * w, 1e-4);
  stage.shader.SetParam("blending_shader", "", trWhoSystem);
  EXPECT_EQ(stage.Height(30, 20), 0) << "a mask that leads nowhere";

  // A mask field counts from its lowest to its highest, by its width in both directions.
  stage.Set({{"blend_by_shader", 0}, {"blend_by_heightfield", 1}});
  auto& maskField = stage.graph.Add<Field>("Mask field");
  maskField.Make(21, 21, 1, 1, [](int x, int y) { return 5.0 + x + y; });
  Graph::Link(stage.shader, "blending_heightfield", maskField);
  EXPECT_NEAR(stage.Height(30, 20), height * (0.3 * 20 + 0.4 * 20) / 40, 1e-4);
  stage.Set({{"height_multiplier", 0}, {"flatten_surface_first", 1}});
  EXPECT_EQ(stage.Displaced({30, 100, 20}).y, 100) << "no height, no flattening";
}

TEST(HeightfieldShader, LiesByLatitudeAndLongitudeOnThePlanet) {
  Stage stage;
  auto& ball = stage.graph.Add<Ball>("Ball");
  stage.graph.project.SetActiveShadableObject(&ball);
  stage.field.HfSetLatLongEnabled(1);
  stage.field.HfSetLatLongCorners({.south = 25, .west = 35, .north = 35, .east = 55});
  stage.Set({{"displacement_direction", 0}});
  const double degrees = 0.017453292519943278;
  for (const auto& [latitude, longitude] :
       {std::pair(30.0, 40.0), {26.0, 37.0}, {34.5, 54.0}, {31.0, 50.0}}) {
    // Earth axes to the world: the apex up, north along z.
    const double a = latitude * degrees, b = (longitude - 40) * degrees, apex = 30 * degrees;
    const double towardsPole = std::sin(a), outwards = std::cos(a) * std::cos(b),
                 east = std::cos(a) * std::sin(b);
    const trVector up(east, towardsPole * std::sin(apex) + outwards * std::cos(apex),
                      towardsPole * std::cos(apex) - outwards * std::sin(apex));
    const trVector point = trVector(0, -1e6, 0) + up * 1e6;
    Sample sample(point, up);
    stage.shader.DisplaceTS(sample.si);
    const double x = (longitude - 35) / 20 * 10, y = (latitude - 25) / 10 * 5;
    EXPECT_NEAR((sample.si.P() - point).Length(), 10 * (x + 2 * y), 1e-4) << latitude << " " << longitude;
  }
  Sample below({0, -2e6, 0}, {0, -1, 0});
  stage.shader.DisplaceTS(below.si);
  EXPECT_EQ(below.si.P().y, -2e6);
  stage.field.HfSetLatLongEnabled(0);
  stage.Set({{"locate_in", 2}, {"flatten_surface_first", 0}});
  Sample flat({0, 0, 0}, {0, -1, 0});
  stage.shader.DisplaceTS(flat.si);
  EXPECT_EQ(flat.si.P().y, 0) << "a flat field leaves the lower half alone";
}

TEST(HeightfieldShader, DetailShiftsTheLookupByItsOctaves) {
  Stage stage;
  stage.field.Make(41, 41, 10, 10, [](int x, int y) { return x + 2.0 * y; });
  stage.Anchor(1);
  stage.Set({{"add_fractal_detail", 1},
             {"fractal_amount", 0.3},
             {"fractal_scale_adjust", 2},
             {"fractal_variation", 1.2},
             {"fractal_roughness", 0.8}});
  const auto offset = [](double x, double y) {
    double mx = x, my = y;
    for (int i = 15; i >= 0; --i) {
      const double f = std::ldexp(1.0, i), a = 1.2 * std::pow(2, -i / 0.8);
      if (a <= 1e-12) continue;
      const trVector q(mx * f, my * f, 0), one = q + trNoff3(i), two = q + trNoff3(i + 5);
      mx += a * trLerpNoise3(&one.x);
      my += a * trLerpNoise3(&two.x);
    }
    return std::pair((mx - x) / 1.2 * 0.3, (my - y) / 1.2 * 0.3);
  };
  const double x = 14.3, y = 12.6;
  const auto [ox, oy] = offset(x / 2, y / 2);
  EXPECT_NEAR(stage.Height(10 * x, 10 * y), 10 * (x + 2 * ox + 2 * (y + 2 * oy)), 1e-6);
  const double plain = stage.Height(10 * x, 10 * y);

  // Flow: drawn out along the fall of a ramp, between the two nearest of the sectors.
  stage.Set({{"fractal_flow_factor", 3}});
  EXPECT_EQ(stage.Height(10 * x, 10 * y), plain) << "linear lookups have no flow";
  stage.Set({{"interpolation_method", 3}});
  const double g1 = -1, g2 = 2, d = std::sqrt(5), turn = 2 * M_PI;
  double t = std::asin(g1 / d);
  if (-g2 < 0) t = M_PI - t;
  const double T = turn * t, first = std::floor(T), e = 4, k = 2;
  double fx = x, fy = y;
  for (int i = 0; i < 2; ++i) {
    const double angle = (first + i) / turn, dx = std::sin(angle), dy = std::cos(angle);
    const double along = (x * dx + y * dy) * (1 - 1 / e);
    const auto [px, py] = offset((x - along * dx) / k, (y - along * dy) / k);
    const double weight = std::sqrt(e) * k * (i ? T - first : 1 - (T - first));
    fx += px * weight;
    fy += py * weight;
  }
  EXPECT_NEAR(stage.Height(10 * x, 10 * y), 10 * (fx + 2 * fy), 1e-4);
  stage.Set({{"fractal_variation", 0}});
  EXPECT_TRUE(std::isfinite(stage.Height(10 * x, 10 * y)));
}

TEST(HeightfieldShader, ShadesByHeightAndLight) {
  Stage stage;
  stage.Anchor(1);
  stage.shader.SetParam("diffuse_colour", trManRgb(0.8f, 0.4f, 0.2f), trWhoSystem);
  stage.Set({{"apply_colour_and_shade", 1}, {"shade_by_height", 1}});
  Sample lit({50, 0, 25});
  stage.shader.ShadeTS(lit.si);
  EXPECT_NEAR(lit.si.Cutil().r, 0.8 * 0.5, 1e-5);
  EXPECT_NEAR(lit.si.Bsdf().ColourOf(trLobe::kDiffuseReflection).g, 0.4 * 0.5, 1e-5);
  stage.Set({{"shade_by_light", 0}});
  Sample flat({50, 0, 25});
  stage.shader.ShadeTS(flat.si);
  EXPECT_NEAR(flat.si.Bsdf().Emission().b, 0.2 * 0.5, 1e-5);
  EXPECT_TRUE(flat.si.Bsdf().ColourOf(trLobe::kDiffuseReflection).IsBlack());
}

TEST(HeightfieldShader, NewOnesAndOldOnes) {
  Stage stage;
  EXPECT_EQ(DoubleParam(stage.graph.Shader("heightfield_shader"), "locate_in"), 0);
  EXPECT_EQ(DoubleParam(stage.graph.Shader("heightfield_shader"), "stitchable_border"), 1);
  stage.shader.SetParam("blending_heightfield", "/Field", trWhoUser);
  EXPECT_EQ(DoubleParam(stage.shader, "blend_by_heightfield"), 1);
  EXPECT_EQ(stage.shader.RequestMember("heightfield"), static_cast<trBase*>(&stage.field));
  EXPECT_EQ(stage.shader.RequestMember("preview_handler"), stage.shader.PreviewHandler());

  trShader& old = stage.graph.Shader("heightfield_displacement_shader");
  Graph::Link(old, "heightfield", stage.field);
  Sample sample({10, 0, 5});
  old.DisplaceTS(sample.si);
  EXPECT_NEAR(sample.si.P().y, 10 * (6 + 2 * 3), 1e-6);
}

}  // namespace
