// Erosion: drops to the bit, the filter, and the life of the operators.
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <thread>

#include "core/heightfield.h"
#include "heightfield/drop_lanes.h"
#include "heightfield/drop_run.h"
#include "heightfield/drop_walk.h"
#include "heightfield/heightfield_erode_v2.h"
#include "heightfield/heightfield_erode_v3.h"
#include "heightfield/ordered_drops.h"
#include "heightfield/whole_cell_drops.h"
#include "host/node/node_data.h"
#include "tests/erosion_reference.h"
#include "tests/shading_fixture.h"

namespace {

using reference::Raster;
using reference::Settings;

/// Hills of a few sizes with a pit and a plain, different for each seed.
Raster Hills(int w, int h, unsigned seed = 1) {
  std::mt19937 random(seed);
  Raster raster{w, h, std::vector<float>(size_t(w) * h)};
  for (int octave = 0; octave < 4; ++octave) {
    const double fx = (octave + 1) * 5.0 / (w + 3), fy = (octave + 1) * 4.0 / (h + 3);
    const double phase = random() % 1000, height = 20.0 / (octave + 1);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        raster.z[size_t(y) * w + x] +=
            float(height * std::sin(fx * x + phase) * std::cos(fy * y - 0.3 * fx * x));
  }
  for (float& z : raster.z) z = std::max(z, -12.0f) + float(random() % 1000) * 1e-4f;
  return raster;
}

DropField FieldOf(Raster& raster, const Settings& s) {
  DropField field{raster.z.data(), raster.w, raster.h, {}};
  field.settings.border = static_cast<BorderFlow>(s.border);
  field.settings.nearestCentre = s.nearestCentre;
  field.settings.flowDistance = s.flowDistance;
  field.settings.erosionPower = float(s.erosionPower);
  field.settings.deposition = s.deposition;
  field.settings.depositionRate = float(s.depositionRate);
  field.settings.diffusion = s.diffusion;
  field.settings.diffusionAdapts = s.adapts;
  field.settings.slipLimit = SlipLimit(s.slips, s.slipAngle);
  return field;
}

size_t Differences(const std::vector<float>& a, const std::vector<float>& b) {
  size_t count = 0;
  for (size_t i = 0; i < a.size(); ++i) count += std::memcmp(&a[i], &b[i], 4) != 0;
  return count + (a.size() != b.size());
}

/// Settings of every kind, by name.
std::vector<std::pair<std::string, Settings>> AllSettings() {
  std::vector<std::pair<std::string, Settings>> all;
  const auto add = [&](const std::string& name, const std::function<void(Settings&)>& change) {
    Settings s;
    change(s);
    all.emplace_back(name, s);
  };
  for (int border = 0; border < 3; ++border)
    for (bool nearest : {false, true})
      add("border " + std::to_string(border) + (nearest ? " nearest" : ""), [&](Settings& s) {
        s.border = border;
        s.nearestCentre = nearest;
        s.depositionRate = nearest ? 1 : 0;
      });
  add("no deposition", [](Settings& s) { s.deposition = 0; });
  add("all deposited at once", [](Settings& s) { s.deposition = 1, s.depositionRate = 1000; });
  add("negative rate", [](Settings& s) { s.depositionRate = -3; });
  add("slips", [](Settings& s) { s.slips = true, s.slipAngle = 20, s.deposition = 1; });
  add("slips at 90", [](Settings& s) { s.slips = true, s.slipAngle = 90; });
  add("slips below 0", [](Settings& s) { s.slips = true, s.slipAngle = -10; });
  add("even diffusion", [](Settings& s) { s.adapts = false, s.diffusion = 0.7; });
  add("no diffusion", [](Settings& s) { s.diffusion = 0; });
  add("strong", [](Settings& s) { s.erosionPower = 40, s.duration = 2; });
  add("long walks", [](Settings& s) { s.flowDistance = 800, s.duration = 0.1, s.border = 1; });
  add("short walks", [](Settings& s) { s.flowDistance = 0.7, s.duration = 20; });
  return all;
}

const std::pair<int, int> kSizes[] = {{49, 33}, {2, 2}, {1, 30}, {30, 1}, {1, 1}, {5, 4}, {40, 3}};

struct NeverStops {
  std::atomic<unsigned char> stop{0};
  DropWatch watch{stop};
};

const DropReport kGoOn = [](float) { return true; };
constexpr DropOrder kOrders[] = {DropOrder::kRepeatable, DropOrder::kAny};

std::vector<trMersenneTwister> Generators(int count) {
  std::vector<trMersenneTwister> generators;
  for (int i = 0; i < count; ++i) generators.emplace_back(i);
  return generators;
}

}  // namespace

TEST(Drops, AgreeWithTheirStepsToldOneByOne) {
  for (const auto& [name, settings] : AllSettings())
    for (const auto& [w, h] : kSizes) {
      Raster expected = Hills(w, h), walked = expected;
      reference::ErodeV3(expected, settings);
      trMersenneTwister generator(0);
      NeverStops never;
      EXPECT_TRUE(
          WalkDrops(FieldOf(walked, settings), generator, reference::Drops(walked, settings), never.watch));
      EXPECT_EQ(Differences(expected.z, walked.z), 0u) << name << " " << w << " x " << h;
      if (w > 45) {
        EXPECT_GT(Differences(Hills(w, h).z, walked.z), 300u) << name;
      }
    }
}

TEST(Drops, OnWholeCellsAgreeWithTheirStepsToldOneByOne) {
  for (auto [name, settings] : AllSettings())
    for (const auto& [w, h] : kSizes)
      for (bool experiment : {false, true}) {
        if (!experiment) settings.diffusion *= 1.5;
        Raster expected = Hills(w, h), walked = expected;
        reference::ErodeWholeCells(expected, settings, experiment);
        trMersenneTwister generator(0);
        const DropField field = FieldOf(walked, settings);
        const auto drops = reference::Drops(walked, settings);
        const DropReport report = [](float) { return true; };
        if (experiment)
          EXPECT_TRUE(WalkExperimentalDrops(field, settings.erosionPower, generator, drops, report));
        else
          EXPECT_TRUE(WalkWholeCellDrops(field, settings.depositionRate, generator, drops, report));
        EXPECT_EQ(Differences(expected.z, walked.z), 0u)
            << name << " " << w << " x " << h << (experiment ? " experiment" : "");
      }
}

// Ground moves, and nothing else happens to it, where all that is picked up is laid down again; and without
// deposition there is less of it.
TEST(Drops, NeitherRaiseNorDigBeyondWhatWasThere) {
  Settings settings;
  settings.deposition = 1;
  settings.depositionRate = 1;
  Raster raster = Hills(80, 80);
  const auto [low, high] = std::minmax_element(raster.z.begin(), raster.z.end());
  const float lowest = *low, highest = *high;
  auto generators = Generators(3);
  for (DropOrder order : kOrders) {
    EXPECT_TRUE(RunDrops(FieldOf(raster, settings), order, 3, generators, 20000, kGoOn));
    for (float z : raster.z) {
      ASSERT_GE(z, lowest - 1e-3f);
      ASSERT_LE(z, highest + 1e-3f);
    }
  }
}

// Threads that walk ahead of their turn change no bit of what the drops do one after another, however they
// come to meet: on small rasters, in ground that is flat or steep, over the border, and where the border ends
// them early. Cancelled, they leave what the first drops have done.
TEST(Drops, InOrderAgreeWithThoseOneAfterAnother) {
  unsigned seed = 0;
  for (auto [name, settings] : AllSettings())
    for (const auto& [w, h] : {std::pair{64, 75}, {130, 67}, {400, 360}}) {
      const int drops = w > 300 ? 500 : 1000;
      settings.duration = double(drops) / (w * h);
      Raster expected = Hills(w, h, ++seed);
      if (seed % 2 == 0)
        for (float& z : expected.z) z *= 20;
      Raster walked = expected;
      const DropField field = FieldOf(walked, settings);
      if (!CanWalkInOrder(field)) continue;
      trMersenneTwister generator(seed), same(seed);
      NeverStops never;
      WalkDrops(FieldOf(expected, settings), same, drops, never.watch);
      EXPECT_TRUE(WalkDropsInOrder(field, 1 + seed % 4, generator, drops, never.watch));
      EXPECT_EQ(Differences(expected.z, walked.z), 0u) << name << " " << w << " x " << h << " seed " << seed;
    }
}

TEST(Drops, InOrderCancelledLeaveWhatTheFirstOnesHaveDone) {
  Settings settings;
  settings.flowDistance = 5000;
  const Raster before = Hills(90, 80);
  Raster walked = before;
  const DropField field = FieldOf(walked, settings);
  if (!CanWalkInOrder(field)) GTEST_SKIP() << "by this processor";
  constexpr int kDrops = 30;
  NeverStops run;
  trMersenneTwister generator(3);
  std::thread other([&] {
    WalkDropsInOrder(field, 2, generator, kDrops, run.watch);
    run.watch.percent = 100;
  });
  while (run.watch.percent < 20) std::this_thread::yield();
  run.stop = 1;
  other.join();
  size_t differences = 1;
  for (int drops = 6; drops <= kDrops && differences != 0; ++drops) {
    Raster first = before;
    trMersenneTwister same(3);
    NeverStops never;
    WalkDrops(FieldOf(first, settings), same, drops, never.watch);
    differences = Differences(first.z, walked.z);
  }
  EXPECT_EQ(differences, 0u);

  walked.z[7] = HUGE_VALF;
  EXPECT_FALSE(CanWalkInOrder(field)) << "lanes and the serial walk may differ in what is no number";
}

// Workers that meet lose an update now and then, and change nothing else of what drops do on the whole: as
// much is taken away and laid down as by the drops one after another.
TEST(Drops, AmongOthersMoveAsMuchGround) {
  const auto moved = [](const std::vector<float>& before, const std::vector<float>& after) {
    double down = 0, up = 0;
    for (size_t i = 0; i < before.size(); ++i) (after[i] < before[i] ? down : up) += after[i] - before[i];
    return std::pair(down, up);
  };
  for (auto [name, settings] : AllSettings()) {
    settings.duration *= 0.5;
    const Raster before = Hills(100, 90);
    Raster inTurn = before;
    trMersenneTwister generator(0);
    NeverStops never;
    WalkDrops(FieldOf(inTurn, settings), generator, reference::Drops(inTurn, settings), never.watch);
    const auto [down, up] = moved(before.z, inTurn.z);
    for (const auto walk : {WalkDropsAmongOthers, WalkDropsSideBySide}) {
      Raster walked = before;
      const DropField field = FieldOf(walked, settings);
      if (walk == WalkDropsSideBySide && !CanWalkSideBySide(field)) continue;
      auto generators = Generators(2);
      const int drops = reference::Drops(walked, settings) / 2;
      const auto work = [&](int i) { EXPECT_TRUE(walk(field, generators[i], drops, never.watch)); };
      std::thread other(work, 1);
      work(0);
      other.join();
      const auto [downNow, upNow] = moved(before.z, walked.z);
      EXPECT_NEAR(downNow / down, 1, 0.2) << name;
      EXPECT_NEAR(upNow / up, 1, 0.2) << name;
    }
    for (const auto& [w, h] : kSizes) {
      Raster small = Hills(w, h);
      auto generators = Generators(3);
      EXPECT_TRUE(RunDrops(FieldOf(small, settings), DropOrder::kAny, 3, generators, 100, kGoOn));
      EXPECT_TRUE(std::all_of(small.z.begin(), small.z.end(), [](float z) { return std::fabs(z) < 100; }))
          << name;
    }
  }
}

TEST(Drops, OneThreadAloneIsRepeatable) {
  const auto [name, settings] = AllSettings()[0];
  const Raster before = Hills(300, 280);
  std::vector<Raster> walked;
  for (const DropOrder order : kOrders) {
    walked.push_back(before);
    auto generators = Generators(1);
    EXPECT_TRUE(RunDrops(FieldOf(walked.back(), settings), order, 1, generators, 5000, kGoOn));
  }
  EXPECT_EQ(Differences(walked[0].z, walked[1].z), 0u) << name;
  EXPECT_GT(Differences(walked[0].z, before.z), 1000u);
}

// Hostile heights and settings: no fault (run under the sanitizers), and an end.
TEST(Drops, SurviveHostileNumbers) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::nanf(""), most = 3e38f;
  const double huge = 1e300;
  for (int border = 0; border < 3; ++border)
    for (float bad : {inf, -inf, nan, most, -most})
      for (double diffusion : {3.0, huge, -huge, 0.0})
        for (double other : {0.25, huge, -huge}) {
          Settings s;
          s.border = border;
          s.diffusion = diffusion;
          s.erosionPower = s.deposition = s.depositionRate = other;
          Raster raster = Hills(17, 13);
          for (size_t i = 0; i < raster.z.size(); i += 7) raster.z[i] = bad;
          auto generators = Generators(2);
          for (DropOrder order : kOrders)
            EXPECT_TRUE(RunDrops(FieldOf(raster, s), order, 2, generators, 100, kGoOn));
          trMersenneTwister generator(0);
          WalkWholeCellDrops(FieldOf(raster, s), other, generator, 100, kGoOn);
          WalkExperimentalDrops(FieldOf(raster, s), other, generator, 100, kGoOn);
        }
}

TEST(Drops, CountedInThirtyTwoBitsAndBounded) {
  EXPECT_EQ(DropCount(100, 50, 0.5), 2500);
  EXPECT_EQ(DropCount(3, 3, 0.4), 3);
  EXPECT_EQ(DropCount(100, 50, -1), -5000);
  EXPECT_EQ(DropCount(65536, 65536, 1), 0);
  EXPECT_LT(DropCount(46341, 46341, 1), 0);
  EXPECT_GT(DropCount(100, 50, 1e300), 0);
}

TEST(Drops, RunsReportAndStop) {
  Settings settings;
  settings.flowDistance = 1e300;  // no drop ends by itself
  Raster raster = Hills(64, 64);
  auto generators = Generators(2);
  for (DropOrder order : kOrders) {
    int polls = 0;
    EXPECT_FALSE(RunDrops(FieldOf(raster, settings), order, 2, generators, 1000000,
                          [&](float) { return ++polls < 3; }));
    EXPECT_GE(polls, 3);
    const std::vector<float> before = raster.z;
    EXPECT_FALSE(
        RunDrops(FieldOf(raster, settings), order, 2, generators, 1000000, [](float) { return false; }));
    EXPECT_EQ(Differences(before, raster.z), 0u) << "stopped before the first step";
  }

  // Drops without a step, fewer drops than workers, none at all.
  settings.flowDistance = 0;
  for (std::int64_t drops : {1000, 1, 0, -5}) {
    std::vector<float> fractions;
    EXPECT_TRUE(
        RunDrops(FieldOf(raster, settings), DropOrder::kAny, 2, generators, drops, [&](float fraction) {
          fractions.push_back(fraction);
          return true;
        }));
    EXPECT_EQ(fractions.front(), 0.0f);
    EXPECT_EQ(fractions.back(), 1.0f);
  }
  settings.flowDistance = 100;
  const std::vector<float> before = raster.z;
  EXPECT_TRUE(RunDrops(FieldOf(raster, settings), DropOrder::kAny, 2, generators, 1, kGoOn));
  EXPECT_EQ(Differences(before, raster.z), 0u) << "a remainder of drops isn't walked";
}

TEST(MersenneTwister, DrawsTheSameByBatches) {
  std::mt19937 expected(77);
  trMersenneTwister generator(77);
  std::vector<unsigned> batch(2000);
  for (int count : {1, 5, 623, 624, 625, 2000, 3}) {
    generator.Draw(batch.data(), count);
    for (int i = 0; i < count; ++i) ASSERT_EQ(batch[i], expected());
    ASSERT_EQ(generator.genrand(), expected());
  }
}

// ---------------------------------------------------------------------------------------------------------------

namespace {

/// A heightfield with given heights, an operator of a class behind it, and what it reports.
class Erosion : public testing::Test {
 protected:
  class Source : public trHeightfield {
   public:
    void Take(const Raster& raster) {
      Init(0, 0, raster.w, raster.h);
      std::copy(raster.z.begin(), raster.z.end(), HfScanlineRaw(0));
      HfFindZRange();
      HfInvalidate();
    }
  };

  Erosion() : source_(graph_.Add<Source>("Source")) {
    ovhost::SetProgressSink(
        [](void* context, const trBase*, const trString& text, float fraction, float, bool) {
          auto& self = *static_cast<Erosion*>(context);
          self.reports_.emplace_back(text, fraction);
          return self.reports_.size() < self.stopAt_;
        },
        this);
  }
  ~Erosion() override { ovhost::SetProgressSink(nullptr, nullptr); }

  /// A node as a new one is made.
  trHeightfield& New(const char* className) {
    return LinkedToSource(dynamic_cast<trHeightfield&>(*graph_.project.CreateChild(className)));
  }
  /// A node as an old project that says nothing of its parameters has it.
  template <typename T>
  T& Old(const char* name) {
    return LinkedToSource(graph_.Add<T>(name));
  }
  template <typename T>
  T& LinkedToSource(T& field) {
    Graph::Link(field, "input_node", source_);
    return field;
  }
  static std::vector<float> Heights(const trHeightfield& field) {
    const float* const first = field.HfScanlineRaw(0);
    return {first, first + size_t(field.width) * field.height};
  }
  static long Press(trHeightfield& field) {
    for (const trSheetItem& item : field.Data().sheet)
      if (item.button && item.name == "calculate_button") return item.button->OnPressed();
    ADD_FAILURE() << "no button";
    return -1;
  }
  static void Set(trBase& node, const std::map<const char*, double>& params) {
    for (const auto& [name, value] : params) ASSERT_TRUE(node.SetParam(name, value, trWhoUser)) << name;
  }

  Graph graph_;
  Source& source_;
  std::vector<std::pair<std::string, float>> reports_;
  size_t stopAt_ = 1000000;
};

}  // namespace

TEST_F(Erosion, ThirdVersionIsRepeatableOnOneThreadInBothResultModes) {
  Settings settings;
  settings.nearestCentre = true;
  settings.deposition = settings.depositionRate = 1;
  Raster expected = Hills(60, 50);
  source_.Take(expected);
  const Raster before = expected;
  reference::ErodeV3(expected, settings);
  trHeightfield& field = New("heightfield_erode_v3");
  Set(field, {{"multi-thread", 0}});
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Press(field), 1);
    EXPECT_EQ(Differences(Heights(field), expected.z), 0u);
  }
  EXPECT_EQ(field.HfMinZ(), *std::min_element(expected.z.begin(), expected.z.end()));

  reports_.clear();
  Set(field, {{"result_mode", 1}});
  EXPECT_EQ(Press(field), 1);
  for (size_t i = 0; i < expected.z.size(); ++i) expected.z[i] -= before.z[i];
  EXPECT_EQ(Differences(Heights(field), expected.z), 0u);
  EXPECT_EQ(reports_.front(), std::make_pair(std::string("HeightfieldErode: Eroding"), 0.0f));
  ASSERT_GE(reports_.size(), 4u);
  EXPECT_EQ(reports_[reports_.size() - 3].second, 1.0f);
  EXPECT_EQ(reports_[reports_.size() - 2],
            std::make_pair(std::string("HeightfieldErode: Difference Map"), 0.5f));
  EXPECT_EQ(reports_.back(), std::make_pair(std::string("HeightfieldErode: Difference Map"), 1.0f));

  Set(field, {{"multi-thread", 1}, {"result_mode", 0}});
  EXPECT_EQ(Press(field), 1);
  EXPECT_GT(Differences(Heights(field), before.z), 1000u);
}

TEST_F(Erosion, OlderVersionsComputeTheirOwn) {
  const Raster before = Hills(40, 30);
  source_.Take(before);
  Settings settings;
  settings.diffusion = 5;
  settings.slips = true;
  Raster expected = before;
  reference::ErodeWholeCells(expected, settings, false);
  auto& second = Old<HeightfieldErodeV2>("Old");
  EXPECT_EQ(second.HfOperateTS(), 1);
  EXPECT_EQ(second.pixels, nullptr) << "idle until its button is pressed";
  EXPECT_EQ(Press(second), 1);
  EXPECT_EQ(Differences(Heights(second), expected.z), 0u);
  EXPECT_EQ(reports_.size(), 101u) << "one in a hundredth and the last";
  Set(second, {{"result_mode", 1}});
  EXPECT_EQ(Press(second), 1);
  EXPECT_EQ(Heights(second)[777], expected.z[777] - before.z[777]);

  expected = before;
  settings = {};
  settings.diffusion = 0.1;
  settings.adapts = false;
  reference::ErodeWholeCells(expected, settings, true);
  trHeightfield& experiment = New("heightfield_erode_experiment");
  EXPECT_EQ(experiment.HfOperateTS(), 1) << "it needs no button";
  EXPECT_EQ(Differences(Heights(experiment), expected.z), 0u);
  reports_.clear();
  Set(experiment, {{"duration", 0.01}});
  EXPECT_EQ(experiment.HfOperateTS(), 1);
  EXPECT_EQ(reports_.size(), 13u) << "fewer than a hundred drops report each";
}

TEST_F(Erosion, NewNodesDifferFromThoseOfOldProjects) {
  const auto value = [](const trHeightfield& node, const char* name) { return DoubleParam(node, name); };
  const trHeightfield& v3 = New("heightfield_erode_v3");
  const trHeightfield& v2 = New("heightfield_erode_v2");
  const trHeightfield& old3 = Old<HeightfieldErodeV3>("Old 3");
  for (const char* name : {"multi-thread", "fix_gradient_bug", "deposition", "deposition_rate"})
    EXPECT_EQ(value(v3, name), 1) << name;
  for (const char* name : {"multi-thread", "fix_gradient_bug", "deposition_rate"})
    EXPECT_EQ(value(old3, name), 0) << name;
  EXPECT_EQ(value(v2, "deposition"), 1);
  EXPECT_EQ(value(v2, "deposition_rate"), 10);
}

TEST_F(Erosion, ComputesOnItsOwnOnlyWhenAllowed) {
  source_.Take(Hills(20, 20));
  for (const char* className : {"heightfield_erode_v3", "heightfield_erode_v2"}) {
    trHeightfield& field = New(className);
    EXPECT_EQ(Press(field), 1);
    EXPECT_TRUE(field.HfIsValid());
    const std::vector<float> pressed = Heights(field);
    Set(field, {{"duration", 3}});
    EXPECT_TRUE(field.HfIsValid()) << "a change doesn't invalidate what the button made";
    Set(field, {{"auto_calculate", 1}});
    EXPECT_TRUE(field.HfIsValid());
    Set(field, {{"duration", 4}});
    EXPECT_FALSE(field.HfIsValid());
    EXPECT_EQ(field.HfOperateTS(), 1);
    EXPECT_GT(Differences(Heights(field), pressed), 0u);

    Graph::Link(field, "input_node", field);
    EXPECT_EQ(Press(field), 0) << "it can't be its own input";
    ASSERT_TRUE(field.SetParam("input_node", "", trWhoUser));
    EXPECT_EQ(Press(field), 1) << "flat without an input";
    EXPECT_EQ(Heights(field), std::vector<float>(4));
  }
}

TEST_F(Erosion, CancelKeepsWhatWasDone) {
  const Raster before = Hills(50, 50);
  source_.Take(before);
  for (const char* className : {"heightfield_erode_v3", "heightfield_erode_v2",
                                "heightfield_erode_experiment", "heightfield_smooth_erode"}) {
    trHeightfield& field = New(className);
    const bool drops = field.SetParam("duration", 1e6, trWhoUser);
    if (drops) Set(field, {{"flow_distance", 50}});
    field.SetParam("auto_calculate", 1, trWhoUser);  // there where it needs one
    reports_.clear();
    stopAt_ = 3;
    EXPECT_EQ(field.HfOperateTS(), 0) << className;
    EXPECT_EQ(field.HfXPnts(), 50);
    EXPECT_TRUE(field.HfIsValid()) << "a stopped raster stays in use";
    const std::vector<float> left = Heights(field);
    EXPECT_EQ(field.HfMinZ(), *std::min_element(left.begin(), left.end()));
    EXPECT_EQ(field.HfMaxZ(), *std::max_element(left.begin(), left.end()));
    if (drops) {
      EXPECT_GT(Differences(left, before.z), 0u) << className;
    }
    stopAt_ = 1000000;
  }
}

// Each point goes down to the lowest blend with what lies downhill of it.
TEST_F(Erosion, SmoothErodeAgreesWithItsSumsToldPointByPoint) {
  class Scaled : public trHeightfield {
   public:
    Scaled() {
      HfSetScaleEnabled(1);
      HfSetScale(4, 10, 1);
    }
  };
  for (double radius : {0.0, 11.0, 25.0, 130.0, 1e9}) {
    Raster raster = Hills(31, 23);
    auto& source = graph_.Add<Scaled>("Scaled");
    source.Init(0, 0, raster.w, raster.h);
    std::copy(raster.z.begin(), raster.z.end(), source.HfScanlineRaw(0));
    source.HfValidate();
    trHeightfield& field = New("heightfield_smooth_erode");
    Graph::Link(field, "input_node", source);
    Set(field, {{"smooth_radius", radius}});
    reports_.clear();
    if (radius > 1000) {
      EXPECT_EQ(field.HfOperateTS(), 0) << "a kernel beyond all sense";
      EXPECT_EQ(Differences(Heights(field), raster.z), 0u);
      continue;
    }
    EXPECT_EQ(field.HfOperateTS(), 1);
    const std::vector<float> eroded = Heights(field),
                             wanted = reference::SmoothErode(raster, float(radius / 4), float(radius / 10));
    if (radius < 100) {
      EXPECT_EQ(Differences(eroded, wanted), 0u);
    } else {  // sums of other roundings
      float worst = 0;
      for (size_t i = 0; i < wanted.size(); ++i) worst = std::max(worst, std::fabs(eroded[i] - wanted[i]));
      EXPECT_LT(worst, 1e-4f);
      EXPECT_GT(Differences(eroded, raster.z), wanted.size() / 2);
    }
    EXPECT_EQ(reports_.size(), 24u) << "one a row and the last";
    EXPECT_EQ(field.HfXScale(), 4);
  }
}
