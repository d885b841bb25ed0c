// Elevation files: round trips, parts and means of files, missing heights, placing, and files that lie.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "core/project.h"
#include "host/base/log.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/raster/fill_missing.h"
#include "host/raster/heightfield_run.h"
#include "host/raster/ovh_reader.h"
#include "host/raster/ovh_writer.h"
#include "host/raster/raster_read.h"
#include "host/raster/raster_write.h"
#include "host/raster/relief.h"
#include "tests/memory_source.h"
#include "tests/raster_files.h"

namespace {

using namespace ovhost;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// Hills, with the south-western point marked by a pit.
struct Hills {
  std::vector<float> values;
  HeightGrid grid;
  Hills(std::int64_t width, std::int64_t height, bool hasCorners) {
    for (std::int64_t y = 0; y < height; ++y)
      for (std::int64_t x = 0; x < width; ++x)
        values.push_back(static_cast<float>(30 * std::sin(0.1 * x) * std::cos(0.07 * y) + 0.01 * y));
    values[0] = -50;
    grid.width = width;
    grid.height = height;
    grid.values = values.data();
    grid.xScale = 20;
    grid.yScale = 30;
    grid.zScale = 25;
    grid.hasCorners = hasCorners;
    grid.corners = {46, 7.5, 46.25, 8};
    grid.lowest = -50;
    grid.highest = *std::max_element(values.begin(), values.end());
  }
};

TEST(HeightfieldFiles, RoundTrips) {
  const RasterFolder folder;
  struct Case {
    const char* name;
    int bits;
    double tolerance;  // metres
    bool keepsScale, keepsCorners;
  };
  const double step16 = (30 + 50) * 25.0 / 65535;
  const Case cases[] = {{"a.tif", 32, 1e-4, true, true},   {"b.tif", 16, step16, true, true},
                        {"c.png", 0, step16, true, false}, {"d.exr", 0, 1e-4, false, false},
                        {"e.asc", 0, 1e-4, true, true},    {"f.ovh", 0, 0, true, true}};
  for (const bool hasCorners : {false, true})
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + (hasCorners ? " with corners" : ""));
      // Wider than a tile of any format, and no multiple of it.
      const Hills hills(601, 300, hasCorners);
      const HeightGrid& grid = hills.grid;
      std::string note;
      ASSERT_EQ(WriteHeightfield(folder / c.name, grid, {c.bits, 2, {}}, note), "");
      EXPECT_EQ(!note.empty(), c.tolerance == step16);
      const LoadedRaster loaded = Load(folder / c.name);
      ASSERT_EQ(loaded.problem, "");
      const RasterPlan& plan = loaded.plan;
      ASSERT_EQ(plan.width, grid.width);
      ASSERT_EQ(plan.height, grid.height);
      double worst = 0;
      for (std::int64_t y = 0; y < grid.height; ++y)
        for (std::int64_t x = 0; x < grid.width; ++x)
          worst = std::max(worst, std::fabs(loaded.Metres(x, y) - grid.Row(y)[x] * grid.zScale));
      EXPECT_LE(worst, c.tolerance);
      EXPECT_EQ(plan.hasCorners, hasCorners && c.keepsCorners);
      if (plan.hasCorners) {
        EXPECT_NEAR(plan.corners.south, 46, 1e-9);
        EXPECT_NEAR(plan.corners.west, 7.5, 1e-9);
        EXPECT_NEAR(plan.corners.north, 46.25, 1e-9);
        EXPECT_NEAR(plan.corners.east, 8, 1e-9);
      } else if (c.keepsScale) {
        EXPECT_NEAR(plan.xScale, 20, 1e-9);
        EXPECT_NEAR(plan.yScale, 30, 1e-9);
      }
    }
}

TEST(HeightfieldFiles, AreTheSameForAnyNumberOfThreads) {
  const RasterFolder folder;
  const Hills hills(900, 700, false);
  for (const std::string name : {"a.tif", "b.png", "c.ovh"}) {
    std::string note;
    ASSERT_EQ(WriteHeightfield(folder / ("1" + name), hills.grid, {0, 1, {}}, note), "");
    ASSERT_EQ(WriteHeightfield(folder / ("3" + name), hills.grid, {0, 3, {}}, note), "");
    EXPECT_EQ(Bytes(folder / ("1" + name)), Bytes(folder / ("3" + name))) << name;
    EXPECT_EQ(Load(folder / ("1" + name), {}, 1).values, Load(folder / ("1" + name), {}, 5).values) << name;
  }
}

/// 5 by 4 points; heights tell where they lie: column + 10 * row from the south.
std::string Numbered(const std::string& more = "") {
  std::string text = "ncols 5\nnrows 4\nxllcorner 100\nyllcorner 200\ncellsize 2\n" + more;
  for (int y = 3; y >= 0; --y)
    for (int x = 0; x < 5; ++x) text += std::to_string(x + 10 * y) + (x < 4 ? " " : "\n");
  return text;
}

TEST(HeightfieldFiles, PartsAndMeans) {
  const RasterFolder folder;
  Put(folder / "n.asc", Numbered());
  const LoadedRaster whole = Load(folder / "n.asc");
  ASSERT_EQ(whole.problem, "");
  EXPECT_EQ(whole.Metres(0, 0), 0);
  EXPECT_EQ(whole.Metres(4, 3), 34);
  EXPECT_EQ(whole.plan.xScale, 2);
  EXPECT_EQ(whole.plan.zScale, 2);  // slopes of the raster are those of the ground
  EXPECT_TRUE(Warns(whole.plan, "no coordinate reference system"));

  RasterRequest part;
  part.useWindow = true;
  part.windowX0 = 3, part.windowY0 = 2, part.windowX1 = 1,
  part.windowY1 = 99;  // in either order, cut at the edge
  LoadedRaster loaded = Load(folder / "n.asc", part);
  ASSERT_EQ(loaded.problem, "");
  ASSERT_EQ(loaded.plan.width, 3);
  ASSERT_EQ(loaded.plan.height, 2);
  EXPECT_EQ(loaded.Metres(0, 0), 21);
  EXPECT_EQ(loaded.Metres(2, 1), 33);
  part.windowX0 = 7, part.windowX1 = 9;
  EXPECT_NE(Load(folder / "n.asc", part).problem.find("outside"), std::string::npos);

  RasterRequest means;
  means.shrink = 2;
  means.georeference = RasterRequest::Georeference::kDegrees;
  loaded = Load(folder / "n.asc", means);
  ASSERT_EQ(loaded.problem, "");
  ASSERT_EQ(loaded.plan.width, 2);  // the fifth column is left over
  EXPECT_NEAR(loaded.Metres(1, 0), (2 + 3 + 12 + 13) / 4.0, 1e-6);
  EXPECT_FALSE(loaded.plan.hasCorners);  // latitude 200
  means.shrink = 6;
  EXPECT_NE(Load(folder / "n.asc", means).problem, "");
  means = {};
  means.band = 2;
  EXPECT_EQ(Load(folder / "n.asc", means).problem, "it has no band 2, only 1");
}

TEST(HeightfieldFiles, MissingHeights) {
  const RasterFolder folder;
  Put(folder / "n.asc", Numbered("NODATA_value 12\n"));
  RasterRequest request;
  EXPECT_TRUE(std::isnan(Load(folder / "n.asc", request).Metres(2, 1)));
  request.shrink = 2;
  EXPECT_NEAR(Load(folder / "n.asc", request).Metres(1, 0), (2 + 3 + 13) / 3.0, 1e-6);
  request.shrink = 1;
  request.fillsWithValue = true;
  request.fillHeight = -7;
  request.hasMissingValue = true;
  request.missingValue = 30;
  const LoadedRaster loaded = Load(folder / "n.asc", request);
  EXPECT_EQ(loaded.Metres(2, 1), -7);
  EXPECT_EQ(loaded.Metres(0, 3), -7);
  EXPECT_EQ(loaded.Metres(1, 3), 31);

  // What isn't finite, and the marker that is the greatest negative float, is missing in every format.
  Hills hills(40, 30, false);
  for (const float wrong : {kNan, INFINITY, -INFINITY, -FLT_MAX}) {
    hills.values[125] = wrong;
    std::string note;
    for (const std::string name : {"a.tif", "b.ovh", "c.exr"}) {
      ASSERT_EQ(WriteHeightfield(folder / name, hills.grid, {}, note), "");
      const LoadedRaster read = Load(folder / name);
      EXPECT_TRUE(std::isnan(read.values[125])) << name << wrong;
      EXPECT_FALSE(std::isnan(read.values[126])) << name;
    }
  }
}

TEST(FillMissing, IsSmoothAndStaysInRange) {
  // A plane is the smoothest surface through the points of a plane.
  constexpr int kWidth = 90, kHeight = 70;
  std::vector<float> plane, holes;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      plane.push_back(static_cast<float>(3 * x - 2 * y));
      const bool isHole = std::hypot(x - 40, y - 30) < 15 || (x + y) % 7 == 0;
      holes.push_back(isHole ? kNan : plane.back());
    }
  EXPECT_GT(FillMissing(holes.data(), kWidth, kHeight), 700);
  float worst = 0;
  for (size_t i = 0; i < plane.size(); ++i) worst = std::max(worst, std::fabs(holes[i] - plane[i]));
  EXPECT_LT(worst, 6);  // two steps of the plane, 15 points from the nearest height

  std::vector<float> one(35, kNan);
  one[11] = 4;
  EXPECT_EQ(FillMissing(one.data(), 7, 5), 34);
  for (const float v : one) EXPECT_EQ(v, 4);
  std::vector<float> none(6, kNan);
  EXPECT_EQ(FillMissing(none.data(), 2, 3), 6);
  for (const float v : none) EXPECT_EQ(v, 0);
}

TEST(RasterPlan, Placing) {
  using Reference = RasterInfo::Reference;
  RasterInfo info;
  info.width = 101;
  info.height = 51;
  info.hasTransform = true;
  const double degrees[6] = {7, 0.1, 0, 50, 0, -0.2};
  std::copy(degrees, degrees + 6, info.transform);
  info.reference = Reference::kGeographic;
  info.metresPerDegree = 111000;
  RasterPlan plan;
  ASSERT_EQ(PlanRaster(info, {}, plan), "");
  EXPECT_NEAR(plan.corners.west, 7.05, 1e-12);
  EXPECT_NEAR(plan.corners.east, 17.05, 1e-12);
  EXPECT_NEAR(plan.corners.north, 49.9, 1e-12);
  EXPECT_NEAR(plan.corners.south, 39.9, 1e-12);
  EXPECT_NEAR(plan.xScale, 11100 * std::cos(44.9 * M_PI / 180), 1e-6);
  EXPECT_NEAR(plan.yScale, 22200, 1e-6);

  // Means lie in the middle of the pixels that they are of.
  RasterRequest request;
  request.shrink = 5;
  ASSERT_EQ(PlanRaster(info, request, plan), "");
  EXPECT_EQ(plan.width, 20);
  EXPECT_NEAR(plan.corners.west, 7.25, 1e-12);
  EXPECT_NEAR(plan.corners.south, 39.9 + 0.4, 1e-12);
  EXPECT_NEAR(plan.yScale, 5 * 22200, 1e-6);

  // Feet, and a scale of the file's own.
  info.reference = Reference::kMetric;
  info.metresPerUnit = 0.3048;
  info.scale = 0.1, info.offset = 100, info.metresPerHeight = 0.3048;
  request = {};
  request.verticalOffset = 5;
  ASSERT_EQ(PlanRaster(info, request, plan), "");
  EXPECT_FALSE(plan.hasCorners);
  EXPECT_NEAR(plan.xScale, 0.03048, 1e-12);
  EXPECT_NEAR((30 * plan.factor + plan.addend) * plan.zScale, 103 * 0.3048 + 5, 1e-9);

  for (const auto& [t1, t5] : {std::pair{0.0, -1.0}, {1e300, 1e300}, {NAN, 1.0}, {1.0, INFINITY}}) {
    info.transform[1] = t1, info.transform[5] = t5;
    ASSERT_EQ(PlanRaster(info, request, plan), "");
    EXPECT_EQ(plan.xScale, 1);
    EXPECT_FALSE(plan.warnings.empty());
  }
}

TEST(RasterPlan, PlacingOnAMap) {
  RasterInfo info;
  info.width = 41;
  info.height = 21;
  info.hasTransform = true;
  const double metres[6] = {-500, 1000, 0, 20500, 0, -1000};  // points at 0 to 40 km, 0 to 20 km
  std::copy(metres, metres + 6, info.transform);
  info.reference = RasterInfo::Reference::kMetric;
  info.metresPerDegree = 100000;
  double east = 0, bend = 0;
  info.toLonLat = [&](double* x, double* y, int count) {
    for (int i = 0; i < count; ++i) {
      const double right = x[i] / 1e5;
      x[i] = std::remainder(east + right, 360);
      y[i] = y[i] / 1e5 + bend * right * (0.4 - right);
    }
    return std::string();
  };
  RasterPlan plan;
  // Across the antimeridian too; the middle is what says where a box is.
  for (const double start : {0.0, 179.7, 179.9, -180.1}) {
    east = start;
    ASSERT_EQ(PlanRaster(info, {}, plan), "");
    ASSERT_TRUE(plan.hasCorners);
    EXPECT_TRUE(plan.warnings.empty());
    EXPECT_NEAR(std::remainder(plan.corners.west - start, 360), 0, 1e-9);
    EXPECT_NEAR(plan.corners.east - plan.corners.west, 0.4, 1e-9);
    EXPECT_LE(std::fabs(plan.corners.west + plan.corners.east), 360);
    EXPECT_NEAR(plan.corners.south, 0, 1e-9);
    EXPECT_NEAR(plan.corners.north, 0.2, 1e-9);
    EXPECT_EQ(plan.xScale, 1000);
  }
  // Of a part, its own corners, whatever the order of rows.
  RasterRequest part;
  part.useWindow = true;
  part.windowX0 = 10, part.windowX1 = 30, part.windowY0 = 5, part.windowY1 = 10;
  east = 0;
  for (const bool isSouthFirst : {false, true}) {
    if (isSouthFirst) info.transform[3] = -500, info.transform[5] = 1000;
    ASSERT_EQ(PlanRaster(info, part, plan), "");
    EXPECT_NEAR(plan.corners.west, 0.1, 1e-9);
    EXPECT_NEAR(plan.corners.east, 0.3, 1e-9);
    EXPECT_NEAR(plan.corners.south, 0.05, 1e-9);
    EXPECT_NEAR(plan.corners.north, 0.1, 1e-9);
  }
  // Parallels that are parabolas on the map: the mean along the edge is 2/3 of their height.
  bend = 1;
  ASSERT_EQ(PlanRaster(info, {}, plan), "");
  EXPECT_NEAR(plan.corners.south, 0.04 * 2 / 3, 1e-9);
  EXPECT_TRUE(Warns(plan, "2.67e+03 metres"));

  // Around a pole, and where nothing can be computed: no corners, one message.
  for (const bool isPole : {false, true}) {
    info.toLonLat = [isPole](double* x, double* y, int count) {
      for (int i = 0; isPole && i < count; ++i) {
        const double dx = x[i] - 20000, dy = y[i] - 10000;
        x[i] = std::atan2(dx, -dy) * 180 / M_PI;
        y[i] = 90 - std::hypot(dx, dy) / 1e5;
      }
      return std::string(isPole ? "" : "no grid");
    };
    ASSERT_EQ(PlanRaster(info, {}, plan), "");
    EXPECT_FALSE(plan.hasCorners);
    EXPECT_FALSE(plan.warnings.empty());
    EXPECT_EQ(plan.xScale, 1000);
  }
  RasterRequest scaleOnly;
  scaleOnly.georeference = RasterRequest::Georeference::kScale;
  ASSERT_EQ(PlanRaster(info, scaleOnly, plan), "");
  EXPECT_TRUE(plan.warnings.empty());
}

TEST(OvhFiles, AreReadAsDescribed) {
  // Written by another program, after the description of the format.
  const LoadedRaster loaded = Load(std::string(OV_SOURCE_DIR) + "/tests/fuzz/ovh/tiles.ovh");
  ASSERT_EQ(loaded.problem, "");
  ASSERT_EQ(loaded.plan.width, 20);
  ASSERT_EQ(loaded.plan.height, 35);
  EXPECT_EQ(loaded.plan.xScale, 10);
  EXPECT_EQ(loaded.plan.yScale, 20);
  EXPECT_EQ(loaded.plan.zScale, 5);
  EXPECT_NEAR(loaded.plan.corners.east, 8, 1e-12);
  EXPECT_NEAR(loaded.plan.corners.south, 46, 1e-12);
  for (int y = 0; y < 35; ++y)
    for (int x = 0; x < 20; ++x)
      EXPECT_EQ(loaded.values[static_cast<size_t>(y * 20 + x)], static_cast<float>(std::sin(x * 0.3) * y));
}

TEST(OvhFiles, DamageIsFound) {
  const RasterFolder folder;
  const Hills hills(300, 40, true);
  std::string note;
  ASSERT_EQ(WriteHeightfield(folder / "a.ovh", hills.grid, {}, note), "");
  const std::string whole = Bytes(folder / "a.ovh");
  const auto reads = [&](const std::string& bytes) {
    std::string problem;
    const auto source = OpenOvh(std::make_unique<MemorySource>(bytes), problem);
    std::vector<float> values(300 * 40);
    return source && source->Read({0, 0, 300, 40}, values.data(), 300, problem);
  };
  ASSERT_TRUE(reads(whole));
  for (size_t i = 0; i < whole.size(); i += i < 140 ? 1 : 97) {
    std::string changed = whole;
    changed[i] = static_cast<char>(changed[i] ^ 0x10);
    EXPECT_FALSE(reads(changed)) << "byte " << i;
    EXPECT_FALSE(reads(whole.substr(0, i))) << "cut at " << i;
  }

  // Lies with the right checksum: a raster of 10^10 points, none at all, scales and tiles that can't be.
  struct Lie {
    size_t at;
    std::uint64_t value;
    size_t size;
  };
  for (const Lie& lie :
       {Lie{16, 100000ull << 32 | 100000, 8}, Lie{16, 0, 4}, Lie{20, 0xffffffff, 4}, Lie{24, 0, 4},
        Lie{24, 1u << 31, 4}, Lie{32, 0, 8}, Lie{40, ~0ull, 8}, Lie{96, ~0ull - 8, 8}, Lie{12, 8, 4}}) {
    std::string changed = whole;
    std::memcpy(changed.data() + lie.at, &lie.value, lie.size);
    const auto sum =
        static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(changed.data()), 116));
    std::memcpy(changed.data() + 116, &sum, 4);
    EXPECT_FALSE(reads(changed)) << "at " << lie.at;
  }
}

TEST(Relief, SlopesOfAPlane) {
  std::vector<float> values;
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 30; ++x) values.push_back(static_cast<float>(x * 3 + y * 8));
  HeightGrid grid;
  grid.width = 30;
  grid.height = 20;
  grid.values = values.data();
  grid.xScale = 2;
  grid.yScale = 4;
  grid.zScale = 0.5;
  grid.lowest = 0;
  grid.highest = 29 * 3 + 19 * 8;
  for (const auto& [x, y] : {std::pair{0, 0}, {29, 19}, {0, 7}, {12, 19}, {11, 9}}) {
    const GroundGradient g = GradientAt(grid, x, y);
    EXPECT_NEAR(g.east, 3 * 0.5 / 2, 1e-12);
    EXPECT_NEAR(g.north, 8 * 0.5 / 4, 1e-12);
  }
  const HeightStatistics s = MeasureHeights(grid, 3);
  EXPECT_EQ(s.missing, 0);
  EXPECT_NEAR(s.mean, 0.25 * grid.highest, 1e-9);
  EXPECT_NEAR(s.median, s.mean, 1e-9);
  EXPECT_NEAR(s.steepest, std::atan(1.25) * 180 / M_PI, 1e-9);
  EXPECT_NEAR(s.meanSlope, s.steepest, 1e-9);
  EXPECT_EQ(ReliefExaggeration(grid), 1);
}

TEST(Relief, TheMedianIsExact) {
  std::uint32_t random = 1;
  const auto draw = [&] { return static_cast<float>(random = random * 1664525u + 1013904223u) * 2e-8f - 30; };
  // Odd and even numbers of heights; equal ones; both signs of 0; what isn't finite doesn't count.
  for (const auto& [width, height] : {std::pair{7, 3}, {200, 130}, {200, 131}, {2, 1}, {1, 1}})
    for (const bool isFlat : {false, true}) {
      std::vector<float> values, sorted;
      for (int i = 0; i < width * height; ++i) values.push_back(isFlat ? i % 3 * 1e-3f - 1e-3f : draw());
      if (width > 100)
        for (const float odd : {kNan, INFINITY, -INFINITY, 0.0f, -0.0f})
          values[static_cast<size_t>(random = random * 1664525u + 1013904223u) % values.size()] = odd;
      for (const float v : values)
        if (std::isfinite(v)) sorted.push_back(v);
      std::sort(sorted.begin(), sorted.end());
      HeightGrid grid;
      grid.width = width;
      grid.height = height;
      grid.values = values.data();
      grid.lowest = sorted.front();
      grid.highest = sorted.back();
      const double wanted =
          (static_cast<double>(sorted[(sorted.size() - 1) / 2]) + sorted[sorted.size() / 2]) / 2;
      for (const int threads : {1, 3}) EXPECT_EQ(MeasureHeights(grid, threads).median, wanted);
    }
}

/// An operator that waits for its button, as costly ones do.
class Waiting : public trHeightfield {
 public:
  Waiting() : button_(this) {
    Param(auto_, "auto_calculate", 0);
    PushButton(button_, "calculate_button");
  }
  long HfOperate() override {
    HfValidate();
    return 1;
  }
  long Compute() {
    const trHeightfield* input = HfInput();
    Init(0, 0, 3, 2);
    Fill(input && input->HfXPnts() > 0 ? input->HfScanlineRaw(0)[0] + 1 : 1);
    HfFindZRange();
    HfInvalidate();
    HfValidate();
    return 1;
  }

 private:
  class Button : public trGuiPushButton {
   public:
    explicit Button(Waiting* node) : trGuiPushButton(node, "Calculate") {}
    long OnPressed() override { return static_cast<Waiting*>(Node())->Compute(); }
  };
  unsigned char auto_;
  Button button_;
};

class HeightfieldNodes : public testing::Test {
 protected:
  void SetUp() override {
    RegisterHostClasses();
    if (!FindClass("test_waiting"))
      RegisterHostClass("hidden", "test_waiting", trCreateNode<Waiting>, trDestroyNode);
    SetLogSink([](void* self,
                  const LogRecord& record) { static_cast<HeightfieldNodes*>(self)->log_ += record.text; },
               this);
  }
  void TearDown() override { SetLogSink(nullptr, nullptr); }
  trHeightfield* Add(const char* className, const char* name, const char* input = "") {
    trBase* node = CreateNode(className, &project_, name);
    node->SetParam("input_node", input, trWhoSystem);
    return dynamic_cast<trHeightfield*>(node);
  }

  RasterFolder folder_;
  juProject project_;
  std::string log_;
};

TEST_F(HeightfieldNodes, RunPressesWhatWaits) {
  Add("test_waiting", "A");
  Add("test_waiting", "B", "A");
  trHeightfield* last = Add("test_waiting", "C", "B");
  std::atomic<bool> stop{false};
  const HeightfieldRun run = RunHeightfield(*last, stop);
  EXPECT_EQ(run.outcome, HeightfieldRun::Outcome::kDone);
  EXPECT_EQ(last->HfMaxZ(), 3);
  stop = true;
  EXPECT_EQ(RunHeightfield(*last, stop).outcome, HeightfieldRun::Outcome::kStopped);
}

TEST_F(HeightfieldNodes, LoadReadsAgainWhatChanges) {
  trHeightfield* load = Add("heightfield_load", "Load");
  EXPECT_EQ(load->HfOperateTS(), 1);  // no file: flat
  EXPECT_EQ(load->HfXPnts(), 2);
  load->SetParam("filename", folder_ / "none.tif", trWhoUser);
  EXPECT_EQ(load->HfOperateTS(), 0);
  EXPECT_NE(log_.find("none.tif"), std::string::npos);
  EXPECT_EQ(load->HfXPnts(), 0);

  Put(folder_ / "n.asc", Numbered("NODATA_value 12\n"));
  load->SetParam("filename", folder_ / "n.asc", trWhoUser);
  ASSERT_EQ(load->HfOperateTS(), 1);
  EXPECT_EQ(load->HfXPnts(), 5);
  EXPECT_NEAR(load->HfMaxHeight(), 34, 1e-6);
  EXPECT_NEAR(load->HfZLookupNearest(2, 1) * load->HfZScale(), 12, 3);
  load->SetParam("vertical_units", 2, trWhoUser);
  load->SetParam("vertical_offset", 10.0, trWhoUser);
  ASSERT_EQ(load->HfOperateTS(), 1);
  EXPECT_NEAR(load->HfMaxHeight(), 34 * 0.3048 + 10, 1e-5);
  load->SetParam("set_metres_per_pixel", 1, trWhoUser);
  load->SetParam("metres_per_pixel", tr2Vector(5, 7), trWhoUser);
  ASSERT_EQ(load->HfOperateTS(), 1);
  EXPECT_EQ(load->HfYScale(), 7);
  EXPECT_NEAR(load->HfMaxHeight(), 34 * 0.3048 + 10, 1e-5);

  Put(folder_ / "empty.asc",
      "ncols 2\nnrows 2\nxllcorner 0\nyllcorner 0\ncellsize 1\nNODATA_value 1\n1 1\n1 1\n");
  load->SetParam("filename", folder_ / "empty.asc", trWhoUser);
  log_.clear();
  EXPECT_EQ(load->HfOperateTS(), 0);
  EXPECT_NE(log_.find("none of its points has a height"), std::string::npos);
}

}  // namespace
