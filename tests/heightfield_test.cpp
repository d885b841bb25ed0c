// Rasters of heights: storage, scales, lookups, and chains that bring themselves up to date.
#include "core/heightfield.h"

#include <atomic>
#include <cmath>
#include <random>
#include <thread>

#include "host/base/log.h"
#include "host/raster/heightfield_walk.h"
#include "tests/shading_fixture.h"

namespace {

/// Counts how often it operates; its raster is its input's plus one, or all ones.
class CountingField : public trHeightfield {
 public:
  CountingField() { Param(other_, "other", ""); }
  long HfOperate() override {
    ++asked;
    if (HfIsValid()) return 1;
    long result = 1;
    float base = 0;
    if (trHeightfield* input = HfInput()) {
      result = input->HfOperateTS();
      if (!(result & 1)) return 0;
      base = static_cast<float>(input->HfZLookupNearest(0, 0));
    }
    ++made;
    Init(0, 0, 2, 2);
    Fill(base + 1);
    HfFindZRange();
    if (onMake) onMake();
    HfValidate();
    return result;
  }
  std::function<void()> onMake;
  std::atomic<int> asked{0}, made{0};

 private:
  trNodeLink other_;
};

struct Chain : Graph {
  CountingField& Add(const trString& name, const CountingField* input = nullptr) {
    auto& field = Graph::Add<CountingField>(name);
    if (input) Link(field, "input_node", *input);
    return field;
  }
};

/// Fills a field by a function of the grid point.
template <typename F>
void FillBy(trHeightfield& field, int width, int height, F f) {
  ASSERT_TRUE(field.Init(0, 0, width, height));
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) field.HfScanlineRaw(y)[x] = static_cast<float>(f(x, y));
}

class FreeField : public trHeightfield {};

using LookupFunction = double (trHeightfield::*)(const double&, const double&, double*) const;
struct LookupCase {
  const char* name;
  LookupFunction lookup;
  int interiorMargin;   // grid points from the border within which edges don't count
  int polynomialOrder;  // of the polynomials that it reproduces
  bool interpolates;
  int continuity;  // derivatives that are continuous
};
const LookupCase kLookups[] = {
    {"linear", &trHeightfield::HfZLookupLinear, 0, 1, true, 0},
    {"Catmull-Rom", &trHeightfield::HfZLookupCatmullRom, 1, 2, true, 1},
    {"cubic", &trHeightfield::HfZLookupCubic, 2, 3, true, 1},
    {"smooth", &trHeightfield::HfZLookupSmooth, 1, 1, false, 2},
};

}  // namespace

TEST(Image, DecodesPixelsOfEveryStorage) {
  struct Case {
    trChannelType type;
    std::vector<unsigned char> bytes;
    float value;
  };
  const Case cases[] = {{trChannelType::kByte, {51}, 0.2f},
                        {trChannelType::kHalf, {0x00, 0x3c}, 1.0f},
                        {trChannelType::kHalf, {0x01, 0x80}, -0x1p-24f},
                        {trChannelType::kHalf, {0xff, 0x7b}, 65504.0f},
                        {trChannelType::kShort, {0xff, 0xff}, 1.0f},
                        {trChannelType::kFloat, {0, 0, 0xc0, 0xbf}, -1.5f}};
  for (const Case& c : cases) {
    for (int channels = 1; channels <= 4; ++channels) {
      trImage image;
      ASSERT_TRUE(image.Init(0, 0, 2, 1, channels, static_cast<int>(c.type), 0));
      image.Clear();
      unsigned char* pixel = image.pixels + image.pixelSize;  // the second one
      const size_t last = (channels - 1) * c.bytes.size();    // its last channel gets the value
      std::copy(c.bytes.begin(), c.bytes.end(), pixel + last);
      const trF4Col colour = image.F4ColFromPixel(image.PixelAt(1, 0));
      EXPECT_EQ(channels == 1 || channels == 3 ? colour.b : colour.a, c.value) << channels;
      EXPECT_EQ(channels == 1 || channels == 3 ? colour.a : colour.r, channels % 2 ? 1.0f : 0.0f);
    }
  }
}

TEST(Image, RefusesAbsurdSizesAndIsEmptyThen) {
  const int kSizes[][2] = {{0, 5}, {5, 0}, {-3, 4}, {2147483647, 2147483647}};
  for (const auto& size : kSizes) {
    trFloatMap map;
    ASSERT_TRUE(map.Init(0, 0, 4, 4));
    const long errors = ovhost::NumErrors();
    EXPECT_FALSE(map.Init(0, 0, size[0], size[1]));
    EXPECT_EQ(ovhost::NumErrors(), errors + 1);
    EXPECT_EQ(map.pixels, nullptr);
    EXPECT_EQ(map.MemoryBytes(), 0);
    map.Fill(1);
    map.Clear();
  }
}

TEST(HeightfieldLookup, AreExactOnGridPointsAndReproducePolynomials) {
  FreeField field;
  for (const LookupCase& c : kLookups) {
    const auto polynomial = [&c](double x, double y) {
      double value = 0;
      for (int i = 0; i <= c.polynomialOrder; ++i) value += std::pow(x - 4, i) * (i + 1) - std::pow(y, i) / 8;
      return value + (x - 4) * (y - 3);
    };
    FillBy(field, 12, 9, polynomial);
    for (int y = 0; y < 9 && c.interpolates; ++y)
      for (int x = 0; x < 12; ++x)
        EXPECT_EQ((field.*c.lookup)(x, y, nullptr), field.HfScanlineRaw(y)[x]) << c.name;
    for (double y = c.interiorMargin; y <= 8 - c.interiorMargin; y += 0.37)
      for (double x = c.interiorMargin; x <= 11 - c.interiorMargin; x += 0.29) {
        double gradient = -1;
        EXPECT_NEAR((field.*c.lookup)(x, y, &gradient), polynomial(x, y), 2e-3) << c.name;
        if (c.continuity == 0) continue;
        const double h = 1e-4, gx = (polynomial(x + h, y) - polynomial(x - h, y)) / (2 * h),
                     gy = (polynomial(x, y + h) - polynomial(x, y - h)) / (2 * h);
        EXPECT_NEAR(gradient, std::hypot(gx, gy), 2e-3) << c.name;
      }
  }
}

TEST(HeightfieldLookup, AreContinuousToTheirOrderAndClampedAtEdges) {
  FreeField field;
  std::mt19937 random(5);
  FillBy(field, 9, 7, [&random](int, int) { return random() * 0x1p-32; });
  for (const LookupCase& c : kLookups) {
    const auto along = [&](double x) { return (field.*c.lookup)(x, 2.3, nullptr); };
    for (int x = 1; x < 8; ++x) {
      const double h = 1e-4;
      EXPECT_NEAR(along(x - 1e-9), along(x + 1e-9), 1e-7) << c.name;
      const double left = (along(x) - along(x - h)) / h, right = (along(x + h) - along(x)) / h;
      EXPECT_TRUE(c.continuity < 1 || std::abs(left - right) < 2e-3) << c.name;
      const double bendLeft = (along(x) - 2 * along(x - h) + along(x - 2 * h)) / (h * h),
                   bendRight = (along(x + 2 * h) - 2 * along(x + h) + along(x)) / (h * h);
      EXPECT_TRUE(c.continuity < 2 || std::abs(bendLeft - bendRight) < 2e-2) << c.name;
    }
    for (const double far : {9.0, 1e30, double(INFINITY)}) {
      EXPECT_EQ((field.*c.lookup)(far, 2, nullptr), (field.*c.lookup)(8, 2, nullptr)) << c.name;
      EXPECT_EQ((field.*c.lookup)(-far, -far, nullptr), (field.*c.lookup)(0, 0, nullptr)) << c.name;
    }
    EXPECT_EQ((field.*c.lookup)(std::nan(""), 0, nullptr), (field.*c.lookup)(0, 0, nullptr)) << c.name;
    for (const auto& [w, h] : {std::pair{1, 1}, {1, 3}, {3, 1}, {2, 2}}) {
      FreeField small;
      FillBy(small, w, h, [](int, int) { return 7; });
      EXPECT_NEAR((small.*c.lookup)(0.6, 0.7, nullptr), 7, 1e-12) << c.name;
    }
  }
  const double steps[][2] = {{0.49, 0}, {0.5, 1}, {1.5, 2}, {-4, 0}, {99, 8}};
  for (const auto& [x, column] : steps)
    EXPECT_EQ(field.HfZLookupNearest(x, 3.2), field.HfScanlineRaw(3)[static_cast<int>(column)]);
  EXPECT_EQ(FreeField().HfZLookupCubic(1, 1, nullptr), 0);
}

TEST(Heightfield, FindsTheRangeOfFinitePoints) {
  FreeField field;
  FillBy(field, 37, 5, [](int x, int y) { return x == 36 && y == 4 ? -9.0 : x - 3.0 * y; });
  field.HfScanlineRaw(2)[5] = NAN;
  field.HfScanlineRaw(0)[17] = INFINITY;
  field.HfScanlineRaw(1)[18] = -INFINITY;
  field.HfFindZRange();
  EXPECT_EQ(field.HfMinZ(), -12);
  EXPECT_EQ(field.HfMaxZ(), 36);
  EXPECT_EQ(field.Hf01FromZ(0), 0.25);
  field.Fill(INFINITY);
  field.HfFindZRange();
  EXPECT_EQ(field.HfMinZ(), 0);
  EXPECT_EQ(field.HfMaxZ(), 0);
}

TEST(Heightfield, TakesScaleAndCornersFromTheNearestThatHasThem) {
  Chain chain;
  CountingField& a = chain.Add("a");
  CountingField& b = chain.Add("b", &a);
  CountingField& c = chain.Add("c", &b);
  EXPECT_EQ(c.HfXScale(), 1);
  a.HfSetScaleEnabled(1);
  a.HfSetScale(10, 20, 14);
  a.HfSetLatLongEnabled(1);
  a.HfSetLatLongCorners({-1, 2, 3, 4});
  EXPECT_EQ(c.HfXScale(), 10);
  EXPECT_EQ(c.HfYScale(), 20);
  EXPECT_EQ(c.HfZScale(), 14);
  trLatLongCorners corners;
  ASSERT_TRUE(c.HfLatLongCorners(&corners));
  EXPECT_EQ(corners.north, 3);
  c.Init(0, 0, 5, 3);
  EXPECT_EQ(c.HfScaledXSize(), 40);
  b.HfSetScaleEnabled(1);
  b.HfSetScale(1.5, 2, 3);
  EXPECT_EQ(c.HfXScale(), 1.5);
  EXPECT_FALSE(c.HfLatLongCorners(&corners));
  b.HfSetScaleEnabled(0);
  Graph::Link(c, "input_node", a);
  EXPECT_EQ(c.HfXScale(), 10);
  Graph::Link(b, "input_node", b);
  Graph::Link(c, "input_node", b);
  EXPECT_EQ(c.HfXScale(), 1);
  EXPECT_FALSE(c.HfLatLongCorners(&corners));
}

TEST(Heightfield, OperatesOnceAChangeAndInputsFirst) {
  Chain chain;
  CountingField& a = chain.Add("a");
  CountingField& b = chain.Add("b", &a);
  CountingField& c = chain.Add("c", &b);
  Graph::Link(c, "other", a);
  EXPECT_EQ(c.HfOperateTS(), 1);
  EXPECT_EQ(c.HfMaxZ(), 3);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(c.HfOperateTS(), 1);
  EXPECT_EQ(a.made, 1);
  EXPECT_EQ(c.asked, 1);
  // A change in the middle makes anew what depends on it, and nothing else.
  b.HfInvalidate();
  EXPECT_EQ(c.HfOperateTS(), 1);
  EXPECT_EQ(a.made, 1);
  EXPECT_EQ(b.made, 2);
  EXPECT_EQ(c.made, 2);
  // So does another input.
  Graph::Link(c, "input_node", a);
  EXPECT_EQ(c.HfOperateTS(), 1);
  EXPECT_EQ(c.HfMaxZ(), 2);
  // A linked node that is no heightfield is none.
  Graph::Link(c, "input_node", chain.Shader("lambert_shader"));
  EXPECT_EQ(c.HfOperateTS(), 1);
  EXPECT_EQ(c.HfMaxZ(), 1);
}

TEST(Heightfield, ChainsOfAHundredThousandNeedNoDeepStack) {
  constexpr int kGroups = 400, kInGroup = 250;
  Chain chain;
  std::vector<CountingField*> fields;
  const ovhost::QuietDependents quiet;
  for (int g = 0; g < kGroups; ++g) {
    auto& group = chain.Graph::Add<trBase>(std::to_string(g));
    for (int i = 0; i < kInGroup; ++i) {
      auto* field = new CountingField;
      ovhost::AttachChild(&group, field, std::to_string(kGroups + i));
      if (!fields.empty()) Graph::Link(*field, "input_node", *fields.back());
      fields.push_back(field);
    }
  }
  EXPECT_EQ(fields.back()->HfOperateTS(), 1);
  EXPECT_EQ(fields.back()->HfMaxZ(), kGroups * kInGroup);
  fields[0]->HfSetScaleEnabled(1);
  fields[0]->HfSetScale(5, 6, 7);
  EXPECT_EQ(fields.back()->HfZScale(), 7);
  EXPECT_FALSE(fields.back()->HfLatLongCorners(nullptr));
}

TEST(Heightfield, RingsAreNamedAndFail) {
  Chain chain;
  CountingField& a = chain.Add("a");
  CountingField& b = chain.Add("b", &a);
  CountingField& c = chain.Add("c", &b);
  CountingField& d = chain.Add("d", &c);
  Graph::Link(a, "input_node", c);
  EXPECT_EQ(ovhost::ReportHeightfieldRings(&chain.project), 1);
  const long errors = ovhost::NumErrors();
  EXPECT_EQ(d.HfOperateTS(), 0);
  EXPECT_EQ(a.HfOperateTS(), 0);
  EXPECT_EQ(b.HfOperateTS(), 0);
  EXPECT_EQ(ovhost::NumErrors(), errors + 1);
  EXPECT_EQ(a.asked, 0);
  // Cut, it works again.
  a.SetParam("input_node", "", trWhoUser);
  EXPECT_EQ(d.HfOperateTS(), 1);
  EXPECT_EQ(d.HfMaxZ(), 4);
  // A node that asks for what depends on it while it is being made.
  a.onMake = [&d] { EXPECT_EQ(d.HfOperateTS(), 0); };
  a.HfInvalidate();
  d.HfOperateTS();
  EXPECT_EQ(a.made, 2);
  EXPECT_EQ(ovhost::NumErrors(), errors + 2);
}

TEST(Heightfield, ManyThreadsAskAtOnce) {
  Chain chain;
  CountingField& a = chain.Add("a");
  CountingField& b = chain.Add("b", &a);
  CountingField& c = chain.Add("c", &b);
  for (int round = 1; round <= 50; ++round) {
    a.HfInvalidate();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t)
      threads.emplace_back([&] {
        for (int i = 0; i < 100; ++i)
          wrong += c.HfOperateTS() != 1 || c.HfZLookupLinear(0.5, 0.5, nullptr) != 3;
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(a.made, round);
    EXPECT_EQ(c.made, round);
  }
}
