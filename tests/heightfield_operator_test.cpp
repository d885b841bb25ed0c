// Heightfield operators against formulas of their own: heights, sizes, merges, filters.
#include <cmath>
#include <functional>
#include <random>

#include "core/heightfield.h"
#include "heightfield/filter_operators.h"
#include "host/base/log.h"
#include "tests/shading_fixture.h"

namespace {

using HeightFunction = std::function<double(int x, int y)>;

/// A raster that is what it is.
class SourceField : public trHeightfield {
 public:
  void Make(int w, int h, const HeightFunction& f, double xScale = 1, double yScale = 1, double zScale = 1) {
    ASSERT_TRUE(Init(0, 0, w, h));
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) HfScanlineRaw(y)[x] = static_cast<float>(f(x, y));
    HfSetScaleEnabled(1);
    HfSetScale(xScale, yScale, zScale);
    HfFindZRange();
    HfInvalidate();
    HfValidate();
  }
};

struct Operators : Graph {
  Operators() : source(Add<SourceField>("source")) {}
  trHeightfield& Operator(trHeightfield* node) {
    ovhost::AttachChild(&project, node, "op");
    Link(*node, "input_node", source);
    return *node;
  }
  trHeightfield& Operator(const char* className) {
    auto* node = dynamic_cast<trHeightfield*>(project.CreateChild(className));
    if (!node) throw std::runtime_error(className);
    Link(*node, "input_node", source);
    return *node;
  }
  SourceField& source;
};

struct Setting {
  const char* name;
  trParamValue value;
};
void Set(trHeightfield& node, const std::vector<Setting>& settings) {
  for (const Setting& s : settings) ASSERT_TRUE(node.SetParam(s.name, s.value, trWhoSystem)) << s.name;
}

float At(const trHeightfield& field, int x, int y) { return field.HfScanlineRaw(y)[x]; }

void ExpectField(trHeightfield& node, int w, int h, const HeightFunction& expected, double tolerance,
                 const std::string& what) {
  ASSERT_EQ(node.HfOperateTS(), 1) << what;
  ASSERT_EQ(node.HfXPnts(), w) << what;
  ASSERT_EQ(node.HfYPnts(), h) << what;
  double lowest = INFINITY, highest = -INFINITY;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      ASSERT_NEAR(At(node, x, y), expected(x, y), tolerance) << what << " at " << x << ", " << y;
      lowest = std::fmin(lowest, At(node, x, y));
      highest = std::fmax(highest, At(node, x, y));
    }
  EXPECT_EQ(node.HfMinZ(), lowest) << what;
  EXPECT_EQ(node.HfMaxZ(), highest) << what;
}

double Ramp(int x, int y) { return 2 * x - 3 * y + 4; }
double Cone(int x, int y) { return 40 - 3 * std::hypot(x - 11, y - 7); }
double Noise(int x, int y) {
  std::minstd_rand random(static_cast<unsigned>(x * 7919 + y * 104729 + 1));
  random.discard(3);
  return random() / 2147483647.0 * 60 - 20;
}

/// Answers progress, and asks to stop at a given report.
struct ProgressProbe {
  explicit ProgressProbe(long stopAfterReports = 1L << 40) : stopAfter(stopAfterReports) {
    ovhost::SetProgressSink(
        [](void* self, const trBase*, const trString& text, float fraction, float remaining, bool) {
          auto* probe = static_cast<ProgressProbe*>(self);
          probe->texts.push_back(text);
          probe->fractions.push_back(fraction);
          EXPECT_EQ(remaining, -1.0f);
          return static_cast<long>(probe->texts.size()) <= probe->stopAfter;
        },
        this);
  }
  ~ProgressProbe() { ovhost::SetProgressSink(nullptr, nullptr); }
  long stopAfter;
  std::vector<trString> texts;
  std::vector<float> fractions;
};

}  // namespace

TEST(HeightfieldOperator, WithoutInputIsFlat) {
  Graph graph;
  for (const char* name :
       {"heightfield_adjust_vertical", "heightfield_clip_vertical", "heightfield_curve_vertical",
        "heightfield_crop", "heightfield_resize", "heightfield_merge", "heightfield_smooth"}) {
    auto& node = dynamic_cast<trHeightfield&>(*graph.project.CreateChild(name));
    ExpectField(
        node, 2, 2, [](int, int) { return 0; }, 0, name);
    // So is one whose input has no points yet.
    auto& idle = graph.Add<SourceField>("idle");
    Graph::Link(node, "input_node", idle);
    ExpectField(
        node, 2, 2, [](int, int) { return 0; }, 0, name);
  }
}

TEST(HeightfieldOperator, HeightsFollowTheirFormulas) {
  const double z = 2.5;  // metres per raster unit
  Operators graph;
  graph.source.Make(23, 17, Cone, 10, 12, z);
  const double low = graph.source.HfMinZ(), high = graph.source.HfMaxZ();
  const auto curve = [](double share, double glaciation, double stretch, bool alternative) {
    const double t =
        alternative ? 1 - std::pow(1 - share, std::exp(-glaciation)) : std::pow(share, std::exp(glaciation));
    const double c = 2 * t - 1, w = std::copysign(1 - std::pow(1 - std::fabs(c), std::exp(stretch)), c);
    return (w + 1) / 2;
  };
  struct Case {
    const char* className;
    std::vector<Setting> settings;
    std::function<double(double)> expected;
  };
  const Case cases[] = {
      {"heightfield_adjust_vertical", {}, [](double v) { return v; }},
      {"heightfield_adjust_vertical",
       {{"height_multiplier", -1.5}, {"add_height_value", 30.0}},
       [=](double v) { return -1.5 * v + 30 / z; }},
      {"heightfield_adjust_vertical",
       {{"set_height_range", 1},
        {"lowest", -20.0},
        {"highest", 55.0},
        {"multiply_height_by", 0},
        {"height_multiplier", 3.0},
        {"add_height", 0},
        {"add_height_value", 9.0}},
       [=](double v) { return (-20 + 75 * (v - low) / (high - low)) / z; }},
      {"heightfield_adjust_vertical",
       {{"set_height_range", 1}, {"height_multiplier", 2.0}, {"add_height_value", 10.0}},
       [=](double v) { return (200 * (v - low) / (high - low) + 10) / z; }},
      {"heightfield_clip_vertical",
       {{"clip_peaks_value", 60.0}, {"clip_valleys_value", 25.0}},
       [=](double v) { return std::fmax(std::fmin(v, 60 / z), 25 / z); }},
      {"heightfield_clip_vertical",
       {{"clip_peaks", 0}, {"clip_valleys_value", 25.0}},
       [=](double v) { return std::fmax(v, 10); }},
      {"heightfield_clip_vertical",
       {{"clip_peaks_value", -50.0}, {"clip_valleys_value", 5.0}},
       [=](double) { return 2; }},
      {"heightfield_curve_vertical", {}, [](double v) { return v; }},
      {"heightfield_curve_vertical",
       {{"glaciation", 0.7}, {"stretch", -0.4}},
       [=](double v) { return low + (high - low) * curve((v - low) / (high - low), 0.7, -0.4, false); }},
      {"heightfield_curve_vertical",
       {{"glaciation", 0.5},
        {"alternative_curve", 1},
        {"stretch", 0.3},
        {"top_of_curve", 1},
        {"top_of_curve_alt", 70.0},
        {"bottom_of_curve", 1},
        {"bottom_of_curve_alt", 30.0}},
       [=](double v) {
         const double share = (v - 12) / 16;
         return share < 0 || share > 1 ? v : 12 + 16 * curve(share, 0.5, 0.3, true);
       }},
  };
  for (const Case& c : cases) {
    trHeightfield& node = graph.Operator(c.className);
    Set(node, c.settings);
    ExpectField(
        node, 23, 17, [&](int x, int y) { return c.expected(At(graph.source, x, y)); }, 2e-4, c.className);
    EXPECT_EQ(node.HfYScale(), 12);
  }
}

TEST(HeightfieldOperator, FlatInputsGiveNoNonsense) {
  Operators graph;
  graph.source.Make(3, 3, [](int, int) { return 5; });
  trHeightfield& adjust = graph.Operator("heightfield_adjust_vertical");
  Set(adjust, {{"set_height_range", 1}, {"lowest", 10.0}});
  // The only height becomes the lowest one, as far as single precision goes with so steep a factor.
  ExpectField(
      adjust, 3, 3, [&](int, int) { return At(adjust, 0, 0); }, 0, "adjust");
  EXPECT_TRUE(std::isfinite(At(adjust, 1, 1)));
  trHeightfield& curve = graph.Operator("heightfield_curve_vertical");
  Set(curve, {{"glaciation", 1.0}, {"stretch", 1.0}});
  ExpectField(
      curve, 3, 3, [](int, int) { return 5; }, 0, "curve");
}

TEST(HeightfieldOperator, CropsAndPads) {
  struct Case {
    tr2Vector a, b;
    bool includes, pads;
    int x0, y0, w, h;
  };
  const Case cases[] = {
      {{2, 3}, {9, 5}, true, false, 2, 3, 8, 3},        {{9, 5}, {2, 3}, true, false, 2, 3, 8, 3},
      {{2, 3}, {9, 5}, false, false, 2, 3, 7, 2},       {{-4, 1.6}, {99, 99}, true, false, 0, 2, 20, 13},
      {{-4, -2}, {22, 16}, true, true, -4, -2, 27, 19}, {{30, 2}, {33, 4}, true, true, 30, 2, 4, 3}};
  Operators graph;
  graph.source.Make(20, 15, Noise, 3, 4, 5);
  graph.source.HfSetLatLongEnabled(1);
  graph.source.HfSetLatLongCorners({10, 20, 24, 58});
  for (const Case& c : cases) {
    trHeightfield& node = graph.Operator("heightfield_crop");
    Set(node, {{"bottom_left", c.a},
               {"top_right", c.b},
               {"include_top_right", c.includes},
               {"pad_outside_original", c.pads}});
    const ProgressProbe probe;
    const auto expected = [&](int x, int y) {
      const int sx = x + c.x0, sy = y + c.y0;
      return sx >= 0 && sy >= 0 && sx < 20 && sy < 15 ? At(graph.source, sx, sy) : 0.0f;
    };
    ExpectField(node, c.w, c.h, expected, 0, "crop");
    EXPECT_EQ(node.HfZScale(), 5);
    EXPECT_EQ(probe.texts, std::vector<trString>(static_cast<size_t>(c.h), "Cropping heightfield"));
    trLatLongCorners corners;
    ASSERT_TRUE(node.HfLatLongCorners(&corners));
    EXPECT_NEAR(corners.west, 20 + 2 * c.x0, 1e-12);
    EXPECT_NEAR(corners.north, 10 + c.y0 + c.h - 1, 1e-12);
  }
  trHeightfield& outside = graph.Operator("heightfield_crop");
  Set(outside, {{"bottom_left", tr2Vector(50, 50)}});
  const long errors = ovhost::NumErrors();
  EXPECT_EQ(outside.HfOperateTS(), 0);
  EXPECT_EQ(ovhost::NumErrors(), errors + 1);
  Set(outside, {{"top_right", tr2Vector(1e18, 1e18)}, {"pad_outside_original", 1}});
  EXPECT_EQ(outside.HfOperateTS(), 0);
}

TEST(HeightfieldOperator, ResizingKeepsSlopes) {
  const auto slope = [](const trHeightfield& f) {
    return (At(f, 2, 1) - At(f, 1, 1)) * f.HfZScale() / f.HfXScale();
  };
  Operators graph;
  graph.source.Make(21, 11, Ramp, 10, 10, 10);
  // Twice as fine along x and y: exact on a ramp, its slope the same.
  trHeightfield& finer = graph.Operator("heightfield_resize");
  Set(finer, {{"re-sample_pixels", 1}, {"re-size_in_metres", 0}, {"size_in_pixels", tr2Vector(41, 21)}});
  const auto inside = [](int x, int y) { return x > 1 && y > 1 && x < 39 && y < 19; };
  ExpectField(
      finer, 41, 21,
      [&](int x, int y) { return inside(x, y) ? 2 * (x * 1.0 - y * 1.5 + 4) : At(finer, x, y); }, 1e-4,
      "finer");
  EXPECT_EQ(finer.HfXScale(), 5);
  EXPECT_EQ(finer.HfZScale(), 5);
  EXPECT_NEAR((At(finer, 6, 5) - At(finer, 5, 5)) * finer.HfZScale() / finer.HfXScale(), slope(graph.source),
              1e-5);
  for (const double points : {24.0, 31.0, 63.0}) {
    Set(finer, {{"size_in_pixels", tr2Vector(points, points / 2)}});
    ASSERT_EQ(finer.HfOperateTS(), 1);
    // Against the lookups, point by point.
    const double fx = 20 / (points - 1), fy = 10 / (std::floor(points / 2 + 0.5) - 1), d = std::sqrt(fx * fy);
    const double k = std::clamp(-std::log2(d), 0.0, 1.0);
    for (int y = 0; y < finer.HfYPnts(); ++y)
      for (int x = 0; x < finer.HfXPnts(); ++x) {
        const double sx = x * fx, sy = y * fy;
        EXPECT_NEAR(At(finer, x, y),
                    ((1 - k) * graph.source.HfZLookupNearest(sx, sy) +
                     k * graph.source.HfZLookupCatmullRom(sx, sy, nullptr)) /
                        d,
                    1e-4);
      }
  }
  // Coarser takes points as they are.
  Set(finer, {{"size_in_pixels", tr2Vector(11, 6)}});
  ExpectField(
      finer, 11, 6, [](int x, int y) { return Ramp(2 * x, 2 * y) / 2; }, 1e-5, "coarser");
  EXPECT_EQ(finer.HfXScale(), 20);

  trHeightfield& stretched = graph.Operator("heightfield_resize");
  Set(stretched, {{"size_in_metres", tr2Vector(400, 50)}});
  ExpectField(stretched, 21, 11, Ramp, 0, "stretched");
  EXPECT_EQ(stretched.HfXScale(), 20);
  EXPECT_EQ(stretched.HfYScale(), 5);
  EXPECT_EQ(stretched.HfZScale(), 10);  // new nodes leave heights
  Set(stretched, {{"re-scale_vertical", 1}, {"size_in_metres", tr2Vector(400, 200)}});
  ASSERT_EQ(stretched.HfOperateTS(), 1);
  EXPECT_EQ(stretched.HfZScale(), 20);
  Set(stretched, {{"re-size_in_metres", 0}});
  EXPECT_EQ(stretched.HfXScale(), 10);
  Set(stretched, {{"re-sample_pixels", 1}, {"size_in_pixels", tr2Vector(1, 1)}});
  EXPECT_EQ(stretched.HfOperateTS(), 1);
  Set(stretched, {{"size_in_pixels", tr2Vector(1e10, 1e10)}});
  EXPECT_EQ(stretched.HfOperateTS(), 0);
}

TEST(HeightfieldOperator, MergesOfEveryModeAndUnequalSizes) {
  Operators graph;
  graph.source.Make(12, 9, Noise);
  auto& other = graph.Add<SourceField>("other");
  trHeightfield& node = graph.Operator("heightfield_merge");
  ExpectField(node, 12, 9, Noise, 1e-5, "alone");
  Graph::Link(node, "heightfield_A", other);
  const double imin = graph.source.HfMinZ(), imax = graph.source.HfMaxZ(), m = 0.3;
  for (const auto& [w, h] : {std::pair{12, 9}, {7, 5}, {20, 20}}) {
    other.Make(w, h, Cone);
    const double amin = other.HfMinZ(), amax = other.HfMaxZ(), r = 1 / (amax - amin);
    const std::function<double(double, double)> modes[] = {
        [=](double i, double a) { return (1 - m) * i + m * a; },
        [=](double i, double a) { return i + m * a; },
        [=](double i, double a) { return i - m * a; },
        [=](double i, double a) { return m * std::fabs(i - a) + (1 - m) * i; },
        [=](double i, double a) { return m * std::fmax(i, a) + (1 - m) * i; },
        [=](double i, double a) { return m * std::fmin(i, a) + (1 - m) * i; },
        [=](double i, double a) { return m * ((i - imin) * (a - amin) * r + imin) + (1 - m) * i; },
        [=](double i, double a) { return m * (imax - (amax - a) * (imax - i) * r) + (1 - m) * i; }};
    for (int mode = 0; mode < 8; ++mode) {
      Set(node, {{"mix_amount", m}, {"merge_mode", mode}});
      ExpectField(
          node, 12, 9,
          [&, w = w, h = h](int x, int y) {
            return x < w ? modes[mode](Noise(x, y), Cone(x, std::min(y, h - 1))) : Noise(x, y);
          },
          1e-4, "mode " + std::to_string(mode));
    }
  }
  // A field merged with its own input, and one that isn't there.
  Graph::Link(node, "heightfield_A", graph.source);
  Set(node, {{"merge_mode", 3}, {"mix_amount", 1.0}});
  ExpectField(
      node, 12, 9, [](int, int) { return 0; }, 0, "itself");
  Graph::Link(node, "heightfield_A", graph.Shader("lambert_shader"));
  ExpectField(node, 12, 9, Noise, 1e-5, "no heightfield");
}

TEST(HeightfieldOperator, SmoothsUnderACone) {
  Operators graph;
  graph.source.Make(19, 14, Noise, 10, 4);
  trHeightfield& node = graph.Operator("heightfield_smooth");
  for (const double radius : {0.0, 3.0, 10.0, 25.0, 200.0}) {
    Set(node, {{"smooth_radius", radius}});
    const double rx = radius / 10, ry = radius / 4;
    const int hx = static_cast<int>(std::ceil(rx)), hy = static_cast<int>(std::ceil(ry));
    ExpectField(
        node, 19, 14,
        [&](int x, int y) {
          double sum = 0, weights = 0;
          for (int j = -hy; j <= hy; ++j)
            for (int i = -hx; i <= hx; ++i) {
              const double weight = std::fmax(0, 1 - std::hypot(i / (rx + 1), j / (ry + 1)));
              weights += weight;
              sum += weight * Noise(std::clamp(x + i, 0, 18), std::clamp(y + j, 0, 13));
            }
          return sum / weights;
        },
        2e-5, "radius " + std::to_string(radius));
  }
  ProgressProbe probe(5);
  Set(node, {{"smooth_radius", 5.0}});
  EXPECT_EQ(node.HfOperateTS(), 0);
  EXPECT_EQ(probe.texts, std::vector<trString>(6, "HeightfieldSmooth: Smoothing"));
  for (size_t i = 0; i < 6; ++i) EXPECT_FLOAT_EQ(probe.fractions[i], static_cast<float>(i) / 14);
  Set(node, {{"smooth_radius", 1e9}});
  EXPECT_EQ(node.HfOperateTS(), 0);
}

TEST(HeightfieldOperator, MediansOfEveryRadius) {
  Operators graph;
  graph.source.Make(37, 9, Noise);
  trHeightfield& node = graph.Operator(new HeightfieldMedian);
  for (const long radius : {2L, 3L, 4L, 12L}) {
    Set(node, {{"kernel_radius", radius}});
    const int r = static_cast<int>(radius);
    ExpectField(
        node, 37, 9,
        [r](int x, int y) {
          std::vector<double> square;
          for (int j = -r; j <= r; ++j)
            for (int i = -r; i <= r; ++i)
              square.push_back(Noise(std::clamp(x + i, 0, 36), std::clamp(y + j, 0, 8)));
          std::sort(square.begin(), square.end());
          return square[square.size() / 2];
        },
        1e-5, "radius " + std::to_string(radius));
  }
  Set(node, {{"kernel_radius", 1}});
  long radius = 0;
  EXPECT_TRUE(node.GetParam("kernel_radius", radius));
  EXPECT_EQ(radius, 2);
  graph.source.HfScanlineRaw(4)[4] = NAN;
  for (const long r : {2L, 3L, 5L}) {
    Set(node, {{"kernel_radius", r}});
    EXPECT_EQ(node.HfOperateTS(), 1);
  }
}
