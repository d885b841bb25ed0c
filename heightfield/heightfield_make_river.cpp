// heightfield_make_river.
#include "heightfield/heightfield_make_river.h"

#include <algorithm>
#include <cmath>
#include <limits>

HeightfieldMakeRiver::HeightfieldMakeRiver() {
  KeepWhatAFailureLeaves();
  SetMenu(choiceHint_, this,
          {{"On high ground, by the seed", kHighGround}, {"At the places below", kPlaces}});
  SetMenu(resultHint_, this, {{"Ground with the river", kGround}, {"Mask of the river", kMask}});
  countHint_.SetParam("min_value", 1.0, this, true);
  countHint_.SetParam("max_value", static_cast<double>(kPlacesMost), this, true);
  SetRange(altitudeHint_, this, {.min = -1000.0, .max = 1000.0});
  SetRange(shareHint_, this, {.min = 0.0, .max = 1.0});
  SetRange(metresHint_, this, {.min = 0.0, .max = 10000.0, .focusPower = 4.0});
  SetRange(angleHint_, this, {.min = 5.0, .max = 85.0});
  SetRange(fallHint_, this, {.min = 0.0, .max = 100.0, .focusPower = 2.0});

  GuiTab("Course", "course_tab");
  Param(sourceChoice_, "source_choice", kHighGround, &choiceHint_)
      .About(
          "Whether sources are looked for on high ground, the seed saying which, or are at the places "
          "given.");
  Param(numberOfSources_, "number_of_sources", 1, &countHint_)
      .About("How many rivers spring, 1 to 4. Where they meet they go on as one.");
  for (int i = 0; i < kPlacesMost; ++i)
    Param(source_[i], ("source_" + std::to_string(i + 1)).c_str(), tr2Vector())
        .Display(("Source " + std::to_string(i + 1) + ", metres from the south-west corner").c_str())
        .About(
            "Where a river springs, metres from the raster's south-west corner, if sources are at places.");
  Param(endAtSea_, "end_at_sea", 0)
      .About("Lets rivers end where they reach the sea level, rather than at the border alone.");
  Gui(trGuiIndentOpen);
  Param(seaLevel_, "sea_level", 0.0, &altitudeHint_)
      .About("Height of the sea, metres: water that has got down there is at its end.");
  Gui(trGuiIndentClose);
  AddGuiAction({"end_at_sea"}, {"sea_level"}, 2);
  Gui(trGuiGap);
  Seed(seed_).About("Chooses the sources on high ground and the bends. Any number will do.");
  PushButton(randomiseButton_, "randomise_button");
  Param(meandering_, "meandering", 0.3, &shareHint_)
      .About("How strongly the course winds, 0 to 1. At 0 it takes the ground's own way down.");
  Param(meanderScale_, "meander_scale", 400.0, &metresHint_)
      .About("Length of a bend, metres. Rivers have bends of about ten times their width.");
  Gui(trGuiRule);
  GuiTab("Channel", "channel_tab");
  Param(riverWidth_, "river_width", 30.0, &metresHint_)
      .About("Width of the water at the mouth, metres. Upstream it shrinks with what drains there.");
  Param(riverDepth_, "river_depth", 4.0, &metresHint_)
      .About("Depth of the bed below its banks at the mouth, metres; less upstream.");
  Param(bankSlope_, "bank_slope", 30.0, &angleHint_)
      .About("Angle of the banks, degrees: shallow for sand, steep for rock.");
  Param(bedSmoothing_, "bed_smoothing", 200.0, &metresHint_)
      .About("Metres of course over which the bed's fall is evened out. Less leaves rapids.");
  Param(minimumFall_, "minimum_fall", 1.0, &fallHint_)
      .Display("Minimum fall in metres per kilometre")
      .About("The bed falls at least so many metres in a kilometre.");
  Param(maximumCut_, "maximum_cut", 40.0, &metresHint_)
      .About(
          "Depth below the ground, metres, to which the river cuts at most. Hollows that would need more are "
          "filled.");
  Gui(trGuiGap);
  Param(resultMode_, "result_mode", kGround, &resultHint_)
      .About(
          "Whether the raster is the ground with its rivers, or a mask that is 1 in the water and 0 "
          "elsewhere.");
  UpdateDerived();
}

void HeightfieldMakeRiver::UpdateDerived() {
  trHeightfield::UpdateDerived();
  bankTangent_ = std::tan(std::clamp(bankSlope_, 1.0, 89.0) * kDegreesToRadians);
}

double HeightfieldMakeRiver::BankReach() const {
  return 1.5 * (std::max(maximumCut_, 0.0) + std::max(riverDepth_, 0.0)) / bankTangent_;
}

std::vector<std::int32_t> HeightfieldMakeRiver::Sources(const std::vector<float>& ground, int columns,
                                                        int rows) const {
  std::vector<std::int32_t> sources;
  const long count = std::clamp(numberOfSources_, 1L, long{kPlacesMost});
  for (long i = 0; i < count; ++i) {
    if (sourceChoice_ == kPlaces) {
      const double x = GuardedDivide(source_[i].x, HfXScale()), z = GuardedDivide(source_[i].y, HfYScale());
      if (!(x > -0.5 && x < columns - 0.5 && z > -0.5 && z < rows - 0.5)) {
        trWarning("source_" + std::to_string(i + 1) + " lies outside of the heightfield.");
        continue;
      }
      sources.push_back(static_cast<std::int32_t>(std::lround(z) * columns + std::lround(x)));
      continue;
    }
    // The highest of a few places: on high ground, but seldom on a summit.
    trRandomStream draws;
    draws.key = static_cast<std::uint64_t>(seed_) * 0x9e3779b97f4a7c15ull + static_cast<std::uint64_t>(i);
    std::int32_t best = -1;
    for (int draw = 0; draw < 12; ++draw) {
      const auto x = static_cast<std::int32_t>((0.1 + 0.8 * draws.Next()) * columns);
      const auto z = static_cast<std::int32_t>((0.1 + 0.8 * draws.Next()) * rows);
      const std::int32_t point = z * columns + x;
      if (best < 0 || ground[point] > ground[best]) best = point;
    }
    sources.push_back(best);
  }
  return sources;
}

std::vector<float> HeightfieldMakeRiver::LeadingHeights(const std::vector<float>& ground, int columns) const {
  std::vector<float> leading = ground;
  const double scale = std::max(meanderScale_, 1e-3);
  // As much as ground rises over a bend where it is as steep as most valley floors.
  const double height = std::clamp(meandering_, 0.0, 1.0) * 0.15 * scale;
  if (!(height > 0)) return leading;
  const auto seed = static_cast<std::uint32_t>(seed_);
  ForEachRow(static_cast<long>(ground.size()) / columns, [&](long row) {
    std::vector<double> x(columns), y(columns, 0.5),
        z(columns, static_cast<double>(row) * HfYScale() / scale), noise(columns);
    for (int i = 0; i < columns; ++i) x[i] = i * HfXScale() / scale;
    trNoise3Batch({x.data(), y.data(), z.data(), nullptr, seed, 0, columns}, noise.data());
    float* const to = leading.data() + row * columns;
    for (int i = 0; i < columns; ++i) to[i] += static_cast<float>(noise[i] * height);
  });
  return leading;
}

void HeightfieldMakeRiver::Lay(const RiverCourse& course, std::vector<Nearest>& nearest) const {
  const double stepX = HfXScale(), stepZ = HfYScale(), beyond = BankReach() + 2 * std::max(stepX, stepZ);
  for (std::size_t i = 1; i < course.size(); ++i) {
    const RiverPlace &a = course[i - 1], &b = course[i];
    const double ex = b.x - a.x, ez = b.z - a.z, squared = std::max(ex * ex + ez * ez, 1e-12);
    const double reach = beyond + std::max(a.width, b.width) / 2;
    const auto grid = [](double value, double step, int size) {
      return static_cast<int>(std::clamp(std::floor(value / step), 0.0, size - 1.0));
    };
    const int x0 = grid(std::min(a.x, b.x) - reach, stepX, width),
              x1 = grid(std::max(a.x, b.x) + reach, stepX, width);
    const int z0 = grid(std::min(a.z, b.z) - reach, stepZ, height),
              z1 = grid(std::max(a.z, b.z) + reach, stepZ, height);
    for (int z = z0; z <= z1; ++z)
      for (int x = x0; x <= x1; ++x) {
        const double px = x * stepX - a.x, pz = z * stepZ - a.z;
        const double t = std::clamp((px * ex + pz * ez) / squared, 0.0, 1.0);
        const double wide = a.width + (b.width - a.width) * t;
        const auto distance = static_cast<float>(
            std::sqrt((px - ex * t) * (px - ex * t) + (pz - ez * t) * (pz - ez * t)) - wide / 2);
        Nearest& at = nearest[static_cast<std::size_t>(z) * width + x];
        if (distance >= at.beyondBank || distance > reach) continue;
        at = {distance, static_cast<float>(a.bed + (b.bed - a.bed) * t), static_cast<float>(wide),
              static_cast<float>(a.depth + (b.depth - a.depth) * t)};
      }
  }
}

double HeightfieldMakeRiver::Cut(double ground, const Nearest& at) const {
  if (at.beyondBank <= 0) {
    // A bed like a bowl: deepest in the middle, at its full height at the water's edge.
    const double off = 1 + GuardedDivide(2.0 * at.beyondBank, double{at.width});
    return at.bed + at.depth * off * off;
  }
  const double bank = double{at.bed} + at.depth, rise = at.beyondBank * bankTangent_;
  const double cut = std::clamp(ground, bank - rise, bank + rise);
  return cut + (ground - cut) * SmoothStep(GuardedDivide(double{at.beyondBank}, BankReach()));
}

long HeightfieldMakeRiver::Compute(trHeightfield* input) {
  if (!input) return MakeFlat(*this);
  HfSetScaleEnabled(0);
  const std::int64_t points = static_cast<std::int64_t>(input->width) * input->height;
  if (points > std::numeric_limits<std::int32_t>::max()) {
    trError("HeightfieldMakeRiver: the heightfield has too many points.");
    return 0;
  }
  if (!CopyRows(*input)) return 0;
  const double unit = HfZScale();
  if (width < 3 || height < 3 || !(HfXScale() > 0 && HfYScale() > 0 && unit != 0)) return 1;

  unsigned long token = 0;
  const trString text = "HeightfieldMakeRiver: Finding the course";
  const auto goesOn = [&](float done) { return ReportProgress(token, text, done, -1.0f) != 0; };
  if (!goesOn(0.0f)) return 0;
  std::vector<float> ground(static_cast<std::size_t>(points));
  ForEachRow(height, [&](long row) {
    const float* const from = HfScanlineRaw(static_cast<int>(row));
    for (int x = 0; x < width; ++x) ground[row * width + x] = static_cast<float>(from[x] * unit);
  });
  const double sea = endAtSea_ ? seaLevel_ : -std::numeric_limits<double>::infinity();
  const std::vector<std::int32_t> sources = Sources(ground, width, height);
  std::vector<RiverCourse> courses;
  {
    const Drainage drainage(LeadingHeights(ground, width), width, height, sea);
    if (!goesOn(0.6f)) return 0;
    const RiverShape shape = {std::max(riverWidth_, 0.0), std::max(riverDepth_, 0.0),
                              std::max(minimumFall_, 0.0) / 1000, std::max(maximumCut_, 0.0),
                              std::max(bedSmoothing_, 0.0)};
    courses = FindCourses(drainage, ground, width, HfXScale(), HfYScale(), sources, shape);
  }
  std::vector<Nearest> nearest(static_cast<std::size_t>(points));
  for (const RiverCourse& course : courses) Lay(course, nearest);
  if (!goesOn(0.9f)) return 0;
  const double soft = std::max(HfXScale(), HfYScale());
  MakeRows(*this, [&](long row) {
    float* const to = HfScanlineRaw(static_cast<int>(row));
    for (int x = 0; x < width; ++x) {
      const Nearest& at = nearest[row * width + x];
      if (resultMode_ == kMask)
        to[x] = static_cast<float>(std::clamp(0.5 - at.beyondBank / soft, 0.0, 1.0));
      else if (at.beyondBank < HUGE_VALF)
        to[x] = static_cast<float>(Cut(ground[row * width + x], at) / unit);
    }
  });
  ReportProgress(token, text, 1.0f, -1.0f);
  return 1;
}
