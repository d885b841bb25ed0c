// Drainage and courses of rivers.
#include "heightfield/river_course.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "heightfield/operator.h"

namespace {

/// Points by steps of height; those of one step come out in the order in which they went in, so that water
/// takes the shortest way over flats.
class StepQueue {
 public:
  explicit StepQueue(std::size_t points) : following_(points, -1), first_(kSteps, -1), last_(kSteps, -1) {}
  static constexpr int kSteps = 65536;

  void Push(int step, std::int32_t point) {
    step = std::max(step, at_);
    if (first_[step] < 0)
      first_[step] = point;
    else
      following_[last_[step]] = point;
    last_[step] = point;
  }
  /// The next point, or -1.
  std::int32_t Pop() {
    while (at_ < kSteps && first_[at_] < 0) ++at_;
    if (at_ == kSteps) return -1;
    const std::int32_t point = first_[at_];
    first_[at_] = following_[point];
    return point;
  }

 private:
  std::vector<std::int32_t> following_, first_, last_;
  int at_ = 0;
};

struct Neighbour {
  int dx, dz;
};
/// Straight ones first: of two equal ways the shorter one is taken.
constexpr Neighbour kNeighbours[] = {{1, 0}, {0, 1}, {-1, 0}, {0, -1}, {1, 1}, {-1, 1}, {-1, -1}, {1, -1}};

}  // namespace

Drainage::Drainage(const std::vector<float>& heights, int width, int height, double seaLevel)
    : next_(heights.size(), -2), area_(heights.size(), 1.0f) {
  trHeightRange range;
  range.Take(heights.data(), static_cast<std::int64_t>(heights.size()));
  const double lowest = range.lowest, steps = StepQueue::kSteps - 1;
  const double perMetre = range.highest > range.lowest ? steps / (double{range.highest} - lowest) : 0.0;
  const auto stepOf = [&](std::int32_t point) {
    const double step = (heights[point] - lowest) * perMetre;
    return step > 0 ? static_cast<int>(std::min(step, steps)) : 0;
  };
  StepQueue queue(heights.size());
  for (int z = 0; z < height; ++z)
    for (int x = 0; x < width; ++x) {
      const std::int32_t point = z * width + x;
      const bool isBorder = x == 0 || z == 0 || x == width - 1 || z == height - 1;
      if (!isBorder && heights[point] > seaLevel) continue;
      next_[point] = -1;
      queue.Push(std::isfinite(heights[point]) ? stepOf(point) : 0, point);
    }
  std::vector<std::int32_t> order, rank(heights.size());
  order.reserve(heights.size());
  for (std::int32_t point; (point = queue.Pop()) >= 0;) {
    rank[point] = static_cast<std::int32_t>(order.size());
    order.push_back(point);
    const int x = point % width, z = point / width;
    for (const Neighbour& n : kNeighbours) {
      if (x + n.dx < 0 || x + n.dx >= width || z + n.dz < 0 || z + n.dz >= height) continue;
      const std::int32_t other = point + n.dz * width + n.dx;
      if (next_[other] != -2) continue;
      next_[other] = point;
      queue.Push(stepOf(other), other);
    }
  }
  // Where it can fall, water takes the steepest way of those that lead out; the flood's own way is for
  // hollows and flats.
  ForEachRow(height, [&](long row) {
    for (int x = 0; x < width; ++x) {
      const auto point = static_cast<std::int32_t>(row * width + x);
      if (next_[point] < 0) continue;
      float steepest = 0;
      for (const Neighbour& n : kNeighbours) {
        const std::int32_t other = point + n.dz * width + n.dx;
        const float fall = (heights[point] - heights[other]) * (n.dx != 0 && n.dz != 0 ? 0.70710678f : 1.0f);
        if (!(fall > steepest) || rank[other] > rank[point]) continue;
        steepest = fall;
        next_[point] = other;
      }
    }
  });
  for (auto point = order.rbegin(); point != order.rend(); ++point)
    if (next_[*point] >= 0) area_[next_[*point]] += area_[*point];
}

namespace {

/// Rounds a way of steps of 45 degrees off; its ends stay.
void RoundOff(RiverCourse& course) {
  constexpr int kTimes = 6;
  for (int time = 0; time < kTimes; ++time) {
    RiverPlace before = course.front();
    for (std::size_t i = 1; i + 1 < course.size(); ++i) {
      const RiverPlace here = course[i];
      course[i].x = 0.25 * before.x + 0.5 * here.x + 0.25 * course[i + 1].x;
      course[i].z = 0.25 * before.z + 0.5 * here.z + 0.25 * course[i + 1].z;
      before = here;
    }
  }
}

double Step(const RiverCourse& course, std::size_t i) {
  return std::hypot(course[i].x - course[i - 1].x, course[i].z - course[i - 1].z);
}

/// The mean of the bed over `length` metres of course about each place, less of it near the ends. A bed that
/// falls does so still.
void Level(RiverCourse& course, double length) {
  const std::size_t count = course.size();
  std::vector<double> way(count, 0.0), sum(count + 1, 0.0);
  for (std::size_t i = 1; i < count; ++i) way[i] = way[i - 1] + Step(course, i);
  for (std::size_t i = 0; i < count; ++i) sum[i + 1] = sum[i] + course[i].bed;
  std::size_t first = 0, last = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double half = std::min({length / 2, way[i], way[count - 1] - way[i]});
    while (way[first] < way[i] - half) ++first;
    while (last + 1 < count && way[last + 1] <= way[i] + half) ++last;
    // As many places on either side: otherwise the mean would run ahead.
    const std::size_t reach = std::min(i - std::min(first, i), last - std::min(i, last));
    course[i].bed = (sum[i + reach + 1] - sum[i - reach]) / static_cast<double>(2 * reach + 1);
    first = std::min(first, i);
  }
}

/// Heights of the bed: as deep below the ground as the river is, but never rising downstream; where that
/// would cut too deep, as low as may be, with hollows above filled.
void LayBed(RiverCourse& course, const RiverShape& shape, double end) {
  const std::size_t count = course.size();
  double low = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) low -= shape.fall * Step(course, i);
    low = std::min(low, course[i].ground - course[i].depth);
    course[i].bed = low;
  }
  if (shape.smoothing > 0) Level(course, shape.smoothing);
  double floor = end;
  for (std::size_t i = count; i-- > 0;) {
    if (i + 1 < count) floor += shape.fall * Step(course, i + 1);
    floor = std::max(floor, course[i].ground - std::max(shape.deepestCut, course[i].depth));
    course[i].bed = std::max(course[i].bed, floor);
  }
  // What the levelling left level falls as well.
  for (std::size_t i = 1; i < count; ++i)
    course[i].bed = std::min(course[i].bed, course[i - 1].bed - shape.fall * Step(course, i) * 0.999);
}

}  // namespace

std::vector<RiverCourse> FindCourses(const Drainage& drainage, const std::vector<float>& ground, int width,
                                     double stepX, double stepZ, const std::vector<std::int32_t>& sources,
                                     const RiverShape& shape) {
  double largest = 1;
  std::vector<std::pair<int, std::int32_t>> byLength;
  for (const std::int32_t source : sources) {
    int length = 1;
    std::int32_t point = source;
    for (; drainage.Next(point) >= 0; point = drainage.Next(point)) ++length;
    largest = std::max(largest, double{drainage.Area(point)});
    if (length > 1) byLength.emplace_back(-length, source);
  }
  std::sort(byLength.begin(), byLength.end());

  std::vector<RiverCourse> courses;
  std::unordered_map<std::int32_t, RiverPlace> made;
  for (const auto& [length, source] : byLength) {
    RiverCourse course;
    std::vector<std::int32_t> points;
    double end = -std::numeric_limits<double>::infinity();
    for (std::int32_t point = source; point >= 0; point = drainage.Next(point)) {
      const double share = drainage.Area(point) / largest;
      RiverPlace place;
      place.x = point % width * stepX;
      place.z = point / width * stepZ;
      place.ground = std::isfinite(ground[point]) ? ground[point]
                     : course.empty()             ? 0.0
                                                  : course.back().ground;
      place.area = drainage.Area(point);
      // How rivers grow with what they carry (Leopold and Maddock 1953).
      place.width = shape.width * std::max(std::pow(share, 0.5), 0.1);
      place.depth = shape.depth * std::max(std::pow(share, 0.4), 0.1);
      place.bed = place.ground;
      const auto met = made.find(point);
      if (met != made.end()) {
        place.x = met->second.x;
        place.z = met->second.z;
        end = met->second.bed;
      }
      course.push_back(place);
      points.push_back(point);
      if (met != made.end()) break;
    }
    if (course.size() < 2) continue;
    RoundOff(course);
    LayBed(course, shape, end);
    for (std::size_t i = 0; i < points.size(); ++i) made.emplace(points[i], course[i]);
    courses.push_back(std::move(course));
  }
  return courses;
}
