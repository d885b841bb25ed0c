// Rivers: water finds the way out, beds fall, channels are as wide and deep as they are told, cuts are
// bounded.
#include <cmath>
#include <functional>
#include <set>

#include "heightfield/heightfield_make_river.h"
#include "host/node/node_data.h"
#include "tests/shading_fixture.h"

namespace {

using HeightFunction = std::function<double(double x, double z)>;

class Ground : public trHeightfield {
 public:
  void Make(int w, int h, double step, const HeightFunction& metres, double unit = 1) {
    ASSERT_TRUE(Init(0, 0, w, h));
    for (int z = 0; z < h; ++z)
      for (int x = 0; x < w; ++x) HfScanlineRaw(z)[x] = static_cast<float>(metres(x * step, z * step) / unit);
    HfSetScaleEnabled(1);
    HfSetScale(step, step, unit);
    HfFindZRange();
    HfInvalidate();
    HfValidate();
  }
};

/// Hills with hollows that hold water.
double Hills(double x, double z) {
  return 200 + 0.05 * z + 40 * std::sin(x / 150) * std::cos(z / 190) + 12 * std::sin(x / 31 + z / 47);
}

struct Rig : Graph {
  Rig() { Link(river, "input_node", ground); }
  void Set(std::initializer_list<std::pair<const char*, double>> settings) {
    for (const auto& [name, value] : settings) ASSERT_TRUE(river.SetParam(name, value, trWhoUser)) << name;
  }
  void SourceAt(double x, double z) {
    Set({{"source_choice", 1}});
    river.SetParam("source_1", tr2Vector(x, z), trWhoUser);
  }
  double At(int x, int z) { return river.HfScanlineRaw(z)[x] * river.HfZScale(); }
  double Before(int x, int z) { return ground.HfScanlineRaw(z)[x] * ground.HfZScale(); }
  Ground& ground = Add<Ground>("ground");
  HeightfieldMakeRiver& river = Add<HeightfieldMakeRiver>("river");
};

TEST(Drainage, EveryPointFindsTheLowestWayOut) {
  const int w = 60, h = 50;
  std::vector<float> heights;
  for (int z = 0; z < h; ++z)
    for (int x = 0; x < w; ++x) heights.push_back(static_cast<float>(Hills(x * 10, z * 10)));
  const Drainage drainage(heights, w, h, -1e9);
  // The lowest that the highest point of any way out can be, by relaxation until nothing changes.
  std::vector<float> lowest(heights.size(), HUGE_VALF);
  for (bool changes = true; changes;) {
    changes = false;
    for (int z = 0; z < h; ++z)
      for (int x = 0; x < w; ++x) {
        float best = HUGE_VALF;
        if (x == 0 || z == 0 || x == w - 1 || z == h - 1)
          best = heights[z * w + x];
        else
          for (int dz = -1; dz <= 1; ++dz)
            for (int dx = -1; dx <= 1; ++dx)
              best = std::min(best, std::max(heights[z * w + x], lowest[(z + dz) * w + x + dx]));
        if (best < lowest[z * w + x]) lowest[z * w + x] = best, changes = true;
      }
  }
  double leaving = 0;
  for (int point = 0; point < w * h; ++point) {
    float highest = heights[point];
    int at = point, steps = 0;
    for (; drainage.Next(at) >= 0 && steps <= w * h; ++steps) {
      at = drainage.Next(at);
      highest = std::max(highest, heights[at]);
    }
    ASSERT_LE(steps, w * h);
    EXPECT_NEAR(highest, lowest[point], 0.01) << point;
    if (drainage.Next(point) < 0) leaving += drainage.Area(point);
  }
  EXPECT_EQ(leaving, w * h) << "all water leaves, and once";
}

TEST(River, BedsFallAllAlongAndCutsAreBounded) {
  const int w = 160, h = 140;
  const double step = 10;
  std::vector<float> heights;
  for (int z = 0; z < h; ++z)
    for (int x = 0; x < w; ++x) heights.push_back(static_cast<float>(Hills(x * step, z * step)));
  const Drainage drainage(heights, w, h, -1e9);
  for (const double deepest : {5.0, 100.0})
    for (const double smoothing : {0.0, 300.0}) {
      const RiverShape shape = {20, 3, 0.001, deepest, smoothing};
      const auto courses =
          FindCourses(drainage, heights, w, step, step, {80 * w + 75, 120 * w + 40, 100 * w + 90}, shape);
      ASSERT_GE(courses.size(), 2u);
      for (const RiverCourse& course : courses)
        for (std::size_t i = 0; i < course.size(); ++i) {
          EXPECT_GE(course[i].bed, course[i].ground - deepest - 1e-3);
          if (i == 0) continue;
          const double way = std::hypot(course[i].x - course[i - 1].x, course[i].z - course[i - 1].z);
          EXPECT_GT(course[i - 1].bed - course[i].bed, 0.0009 * way);
          EXPECT_GE(course[i].area, course[i - 1].area);
          EXPECT_GE(course[i].width, course[i - 1].width);
        }
    }
}

TEST(River, CutsAChannelOfItsSizeIntoAPlane) {
  Rig rig;
  const auto plane = [](double, double z) { return 100 + 0.02 * z; };
  rig.ground.Make(101, 201, 5, plane, 0.5);
  rig.SourceAt(250, 900);
  rig.Set(
      {{"meandering", 0}, {"river_width", 60}, {"river_depth", 6}, {"bank_slope", 30}, {"bed_smoothing", 0}});
  ASSERT_EQ(rig.river.HfOperateTS(), 1);
  // At the mouth the channel has its full size: a bowl that far below the ground, then the banks.
  double lowest = 1e9, wet = 0;
  for (int x = 0; x < 101; ++x) {
    const double cut = rig.Before(x, 2) - rig.At(x, 2);
    lowest = std::min(lowest, rig.At(x, 2));
    wet += cut > 0.2 ? 5 : 0;
    EXPECT_GE(cut, -1e-3);
  }
  EXPECT_NEAR(lowest, plane(0, 10) - 6, 0.3);
  EXPECT_NEAR(wet, 60, 11);
  // Nothing is touched far off, or above the source.
  EXPECT_EQ(rig.At(5, 100), rig.Before(5, 100));
  EXPECT_EQ(rig.At(50, 199), rig.Before(50, 199));
  rig.Set({{"result_mode", 1}});
  ASSERT_EQ(rig.river.HfOperateTS(), 1);
  double mask = 0;
  for (int x = 0; x < 101; ++x) mask += 5 * rig.river.HfScanlineRaw(2)[x];
  EXPECT_NEAR(mask, 60, 5);
  EXPECT_EQ(rig.river.HfMaxZ(), 1);
}

TEST(River, EndsAtTheSeaAndMeanders) {
  Rig rig;
  rig.ground.Make(121, 121, 10, [](double x, double z) { return z / 20 - 10 + 0.2 * std::sin(x / 100); });
  rig.SourceAt(600, 1100);
  rig.Set({{"end_at_sea", 1}, {"sea_level", 0}, {"result_mode", 1}, {"meandering", 0}});
  const auto course = [&] {
    EXPECT_EQ(rig.river.HfOperateTS(), 1);
    std::set<std::pair<int, int>> wet;
    for (int z = 0; z < 121; ++z)
      for (int x = 0; x < 121; ++x)
        if (rig.river.HfScanlineRaw(z)[x] > 0.5f) wet.insert({x, z});
    return wet;
  };
  const auto straight = course();
  ASSERT_FALSE(straight.empty());
  for (const auto& [x, z] : straight) EXPECT_GE(z, 15) << "the shore is at 20";
  rig.Set({{"meandering", 1}, {"meander_scale", 200}, {"seed", 3}});
  const auto bent = course();
  EXPECT_GT(bent.size(), straight.size());
  rig.Set({{"seed", 4}});
  EXPECT_NE(course(), bent);
  rig.Set({{"seed", 3}});
  EXPECT_EQ(course(), bent) << "repeatable";
}

TEST(River, BearsOddGround) {
  for (const auto& [w, h] : {std::pair(1, 1), {2, 2}, {3, 3}, {50, 3}}) {
    Rig rig;
    rig.ground.Make(w, h, 10, [](double, double) { return 7.0; });
    EXPECT_EQ(rig.river.HfOperateTS(), 1) << w;
    for (int z = 0; z < h; ++z)
      for (int x = 0; x < w; ++x) EXPECT_TRUE(std::isfinite(rig.At(x, z)));
  }
  Rig rig;
  rig.ground.Make(40, 40, 10, [](double x, double z) {
    return x > 180 && x < 220 ? std::nan("") : z > 350 ? HUGE_VAL : Hills(x, z);
  });
  rig.Set({{"number_of_sources", 4}, {"river_width", 1e300}, {"maximum_cut", 1e300}, {"meander_scale", 0}});
  EXPECT_EQ(rig.river.HfOperateTS(), 1);
  Rig alone;
  alone.river.SetParam("input_node", "", trWhoUser);
  EXPECT_EQ(alone.river.HfOperateTS(), 1);
  EXPECT_EQ(alone.river.HfXPnts(), 2);
}

}  // namespace
