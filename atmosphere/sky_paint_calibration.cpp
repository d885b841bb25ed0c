// Measuring by halving: each pass looks along one ray of every cell at one paint value.
#include "atmosphere/sky_paint_calibration.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "core/render_state.h"
#include "core/thread_session.h"

namespace {

constexpr int kSide = SkyPaintCalibration::kSide;
constexpr std::size_t kCells = std::size_t{kSkyPaintFaces} * kSide * kSide;

/// What is looked for, and by how many rays of a cell. A ray takes an equal share of the passes: two for the
/// ends of the range, the others halve it.
struct Kind {
  int passes, rays;
  float opacity;
};
constexpr Kind kSeen{48, 4, 0.03f}, kOpaque{16, 1, 0.97f};

/// Paint values run over this range, evenly in the logarithm of what they add to 1. Beyond it coverage has
/// long been full, and density alone grows.
constexpr float kLeastAdded = 1.0f / 64, kOctaves = 12;
float ValueAt(float t) { return 1 + kLeastAdded * std::exp2(kOctaves * t); }

trVector CellDirection(std::size_t cell, double u, double v) {
  const auto face = static_cast<trSkyPaintFace>(cell / (kSide * kSide));
  const auto row = static_cast<double>(cell / kSide % kSide), column = static_cast<double>(cell % kSide);
  // Cells share a face evenly as its pixels do.
  return Normalised(trSkyPaintDirection(
      {face, static_cast<float>((column + u) / kSide), static_cast<float>((row + v) / kSide)}));
}

/// Where the rays of a cell go through it: a turned grid, so that no two share a row or column.
trVector RayDirection(std::size_t cell, const Kind& kind, int ray) {
  constexpr double kPlaces[4][2] = {{0.375, 0.125}, {0.875, 0.375}, {0.125, 0.625}, {0.625, 0.875}};
  if (kind.rays == 1) return CellDirection(cell, 0.5, 0.5);
  return CellDirection(cell, kPlaces[ray][0], kPlaces[ray][1]);
}

/// A cell on its way to a value.
struct Search {
  std::size_t cell = 0;
  enum { kOpen, kFound, kBeyond } state = kOpen;
  float low = 0, high = 1;  ///< of the ray in hand
  float sum = 0;
  int found = 0;

  void TakeEnd(bool isFirst, bool isReached) {
    if (isFirst) {
      state = isReached ? kFound : kOpen;
      if (isReached) Add(1);
    } else if (state == kOpen && !isReached) {
      state = kBeyond;
    }
  }
  void Halve(bool isReached) { (isReached ? high : low) = (low + high) / 2; }
  void EndRay() {
    if (state == kOpen) Add(ValueAt((low + high) / 2));
    state = kOpen;
    low = 0;
    high = 1;
  }
  void Add(float value) {
    sum += value;
    ++found;
  }
};

/// Nothing is lit; the extent of a pixel is what it is from the viewpoint.
class CalibrationServices final : public trNoRenderServices {
 public:
  CalibrationServices(const trVector& eye, const trView* view)
      : eye_(eye), pixelAngle_(view ? view->PixelAngularSize() : 0.001) {}
  double SpotSize(const trVector& point) const override { return (point - eye_).Length() * pixelAngle_; }

 private:
  trVector eye_;
  double pixelAngle_;
};

/// What a thread looks at the cloud with.
struct Looker {
  Looker(unsigned thread, const trVector& eye, const trView* view)
      : services(eye, view), state(services, shading) {
    shading.SetRenderState(&state);
    shading.SetThread(thread);
    shading.SetMainView(view);
    shading.Eye() = shading.RootEye() = view ? view->eye : eye;
  }
  CalibrationServices services;
  trShadingInterface shading;
  trRenderState state;
};

/// The passes over all cells to be measured.
class Measurement {
 public:
  Measurement(std::vector<std::size_t> cells, const trVector& eye, SkyPaintable& cloud,
              const SkyPaintCalibration::Job& job)
      : cells_(std::move(cells)), eye_(eye), cloud_(cloud), job_(job) {
    const int threads = std::clamp(job.threads, 1, std::max(1, trMaxThreads()));
    for (int i = 0; i < threads; ++i)
      lookers_.push_back(std::make_unique<Looker>(static_cast<unsigned>(i), eye, job.view));
  }

  /// One value a cell, 1 where none was found; false where it was stopped.
  bool Find(const Kind& kind, std::vector<float>& values) {
    searches_.assign(cells_.size(), {});
    for (std::size_t i = 0; i < cells_.size(); ++i) searches_[i].cell = cells_[i];
    for (int pass = 0; pass < kind.passes; ++pass) {
      const float share = static_cast<float>(done_++) / static_cast<float>(kSeen.passes + kOpaque.passes);
      if (!job_.node.ReportProgress(token_, job_.text, share, -1.0f)) return false;
      RunPass(kind, pass);
    }
    for (const Search& search : searches_)
      values.push_back(search.found > 0 ? search.sum / static_cast<float>(search.found) : 1.0f);
    return true;
  }

 private:
  /// One pass of one kind over all cells, on all threads.
  void RunPass(const Kind& kind, int pass) {
    next_ = 0;
    std::vector<std::thread> helpers;
    try {
      for (std::size_t i = 1; i < lookers_.size(); ++i)
        helpers.emplace_back([this, &kind, pass, i, session = trThreadSession()] {
          const trThreadSession::Scope scope(session);
          TakeCells(kind, pass, *lookers_[i]);
        });
    } catch (const std::system_error&) {
      // Fewer threads than wished for: those that there are do it.
    }
    TakeCells(kind, pass, *lookers_[0]);
    for (std::thread& helper : helpers) helper.join();
    if (problem_) std::rethrow_exception(problem_);
  }

  void TakeCells(const Kind& kind, int pass, Looker& looker) {
    constexpr std::size_t kBunch = 16;
    try {
      for (std::size_t first; (first = next_.fetch_add(kBunch)) < searches_.size();)
        for (std::size_t i = first; i < std::min(first + kBunch, searches_.size()); ++i)
          Step(searches_[i], kind, pass, looker);
    } catch (...) {
      const std::lock_guard lock(mutex_);
      problem_ = std::current_exception();
      next_ = searches_.size();
    }
  }

  /// Looks along the ray of the pass, with the same draws in all passes of the ray.
  void Step(Search& search, const Kind& kind, int pass, Looker& looker) {
    const int each = kind.passes / kind.rays, ray = pass / each, step = pass % each;
    if (search.state == Search::kOpen) {
      const float value = step == 0 ? 1 : step == 1 ? ValueAt(1) : ValueAt((search.low + search.high) / 2);
      looker.shading.Random() = {search.cell * 8 + static_cast<std::size_t>(ray), 0};
      const float opacity =
          cloud_.OpacityAtPaintValue(looker.state, eye_, RayDirection(search.cell, kind, ray), value);
      const bool isReached = opacity >= kind.opacity;
      if (step < 2)
        search.TakeEnd(step == 0, isReached);
      else
        search.Halve(isReached);
    }
    if (step == each - 1) search.EndRay();
  }

  std::vector<std::size_t> cells_;
  const trVector eye_;
  SkyPaintable& cloud_;
  const SkyPaintCalibration::Job& job_;
  std::vector<std::unique_ptr<Looker>> lookers_;
  std::vector<Search> searches_;
  std::atomic<std::size_t> next_{0};
  std::mutex mutex_;
  std::exception_ptr problem_;
  unsigned long token_ = 0;
  int done_ = 0;
};

}  // namespace

std::vector<std::size_t> SkyPaintCalibration::CellsToMeasure(const SkyPaintBase& paint, long index,
                                                             const trVector& eye) const {
  // Finer than a thin brush at the usual size of faces.
  constexpr int kLooks = 8;
  trShadingInterface si;
  std::vector<bool> isWanted(kCells, false);
  for (std::size_t cell = 0; cell < kCells; ++cell) {
    float green = 0;
    for (int look = 0; look < kLooks * kLooks && !(green > 0); ++look) {
      trFCol colour;
      // Far out, for the point to be told from the eye.
      si.P() =
          eye + CellDirection(cell, (look % kLooks + 0.5) / kLooks, (look / kLooks + 0.5) / kLooks) * 1e7;
      paint.Sample(colour, si, index);
      green = colour.g;
    }
    if (!(green > 0)) continue;
    const auto column = static_cast<int>(cell % kSide), row = static_cast<int>(cell / kSide % kSide);
    for (int y = std::max(0, row - 1); y <= std::min(kSide - 1, row + 1); ++y)
      for (int x = std::max(0, column - 1); x <= std::min(kSide - 1, column + 1); ++x)
        isWanted[cell - cell % (kSide * kSide) + static_cast<std::size_t>(y * kSide + x)] = true;
  }
  std::vector<std::size_t> cells;
  for (std::size_t cell = 0; cell < kCells; ++cell)
    if (isWanted[cell] && (cells_.empty() || !cells_[cell].isMeasured)) cells.push_back(cell);
  return cells;
}

bool SkyPaintCalibration::Measure(const SkyPaintBase& paint, long index, const trVector& eye,
                                  SkyPaintable& cloud, const Job& job) {
  const std::vector<std::size_t> cells = CellsToMeasure(paint, index, eye);
  if (cells.empty()) return true;
  Measurement measurement(cells, eye, cloud, job);
  std::vector<float> seen, opaque;
  if (!measurement.Find(kSeen, seen) || !measurement.Find(kOpaque, opaque)) return false;
  cells_.resize(kCells);
  for (std::size_t i = 0; i < cells.size(); ++i) cells_[cells[i]] = {{seen[i], opaque[i]}, true};
  return true;
}

SkyPaintCalibration::Values SkyPaintCalibration::At(const trVector& direction) const {
  const trSkyPaintSpot spot = trSkyPaintSpotOf(direction);
  if (cells_.empty() || spot.face == trSkyPaintFace::kNone) return {};
  const Cell* const face = &cells_[static_cast<std::size_t>(spot.face) * kSide * kSide];
  const float x = std::clamp(spot.u * kSide - 0.5f, 0.0f, kSide - 1.0f),
              y = std::clamp(spot.v * kSide - 0.5f, 0.0f, kSide - 1.0f);
  const int x0 = std::min(static_cast<int>(x), kSide - 2), y0 = std::min(static_cast<int>(y), kSide - 2);
  const float s = x - static_cast<float>(x0), t = y - static_cast<float>(y0);
  const float weight[4] = {(1 - s) * (1 - t), s * (1 - t), (1 - s) * t, s * t};
  Values mean{0, 0};
  for (int i = 0; i < 4; ++i) {
    const Values& values = face[(y0 + i / 2) * kSide + x0 + i % 2].values;
    mean.seen += weight[i] * values.seen;
    mean.opaque += weight[i] * values.opaque;
  }
  return mean;
}
