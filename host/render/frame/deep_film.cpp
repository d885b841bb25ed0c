// Lists of steps by tile.
#include "host/render/frame/deep_film.h"

#include <algorithm>
#include <cmath>

#include "host/render/air/brightness.h"

namespace ovhost {
namespace {

/// Where what no surface sends lies, metres: the sky behind all air.
constexpr float kBehindAll = 1e9f;
/// What rounding may leave, beside all of a sample's light.
constexpr float kRounding = 1e-6f;

/// What is missing to a sample's light and cover belongs to what it sees.
void AddRest(const CameraSample& sample, DeepStack& stack) {
  trFCol light = sample.beauty;
  float cover = sample.alpha;
  const auto take = [&](const DeepStep& step) {
    light = light - step.light;
    cover -= step.cover;
  };
  if (sample.air) std::for_each(sample.air->begin(), sample.air->end(), take);
  if (sample.steps) std::for_each(sample.steps->begin(), sample.steps->end(), take);
  const bool seesSurface = sample.depth > 0;
  const float least = kRounding * (1 + std::fabs(Brightness(sample.beauty)));
  if (std::fabs(Brightness(light)) <= least && std::fabs(cover) <= kRounding) return;
  const float depth = seesSurface ? sample.depth : kBehindAll;
  stack.Add({depth, depth, light, cover});
}

}  // namespace

DeepFilm::DeepFilm(const Film& film, int most)
    : film_(film),
      most_(static_cast<size_t>(std::clamp(most, 1, kMostDeepSamples))),
      tiles_(static_cast<size_t>(film.NumTiles())) {}

std::uint64_t DeepFilm::BytesFor(const PixelRect& area, int most) {
  // In the file: four halves and two floats, hardly compressed.
  constexpr std::uint64_t kEncodedBytes = 16;
  const std::uint64_t pixels = static_cast<std::uint64_t>(area.x1 - area.x0) * (area.y1 - area.y0);
  return pixels * (sizeof(std::uint32_t) + (sizeof(DeepStep) + kEncodedBytes) * most);
}

void DeepFilm::Add(int tile, const CameraSample* samples, int count, Work& work) const {
  const Tile& before = tiles_[tile];
  DeepStack& stack = work.stack;
  stack.Clear();
  const size_t pixel = work.next.ends.size();
  if (!before.ends.empty())
    for (std::uint32_t i = pixel ? before.ends[pixel - 1] : 0; i < before.ends[pixel]; ++i)
      stack.Add(before.steps[i]);
  for (int i = 0; i < count; ++i) {
    const CameraSample& sample = samples[i];
    if (sample.steps) stack.Add(*sample.steps);
    AddRest(sample, stack);
    // Air that samples share is added once for them all.
    const auto hasIt = [&sample](const CameraSample& other) { return other.air == sample.air; };
    if (!sample.air || std::any_of(samples, samples + i, hasIt)) continue;
    stack.Add(*sample.air, static_cast<float>(std::count_if(samples + i, samples + count, hasIt)));
  }
  const std::vector<DeepStep>& steps = stack.Resolve(most_);
  work.next.steps.insert(work.next.steps.end(), steps.begin(), steps.end());
  work.next.ends.push_back(static_cast<std::uint32_t>(work.next.steps.size()));
}

void DeepFilm::Replace(int tile, Work& work) {
  // Copies as large as they must be; the thread keeps what it works in.
  tiles_[tile] = work.next;
}

void DeepFilm::Steps(int x, int y, std::vector<DeepStep>& steps) const {
  steps.clear();
  const Film::Place place = film_.PlaceOf(x, y);
  const Tile& tile = tiles_[place.tile];
  if (tile.ends.empty()) return;
  const float scale = 1.0f / static_cast<float>(std::max(film_.TileSamples(place.tile), 1u));
  for (std::uint32_t i = place.pixel ? tile.ends[place.pixel - 1] : 0; i < tile.ends[place.pixel]; ++i) {
    DeepStep& step = steps.emplace_back(tile.steps[i]);
    step.light *= scale;
    step.cover *= scale;
  }
}

std::uint64_t DeepFilm::NumSteps() const {
  std::uint64_t count = 0;
  for (const Tile& tile : tiles_) count += tile.steps.size();
  return count;
}

bool DeepFilm::SetTile(int tile, Tile lists) {
  const PixelRect rect = film_.TileRect(tile);
  const auto pixels = static_cast<size_t>(rect.x1 - rect.x0) * (rect.y1 - rect.y0);
  if (lists.ends.size() != (lists.ends.empty() ? 0 : pixels)) return false;
  std::uint32_t begin = 0;
  for (const std::uint32_t end : lists.ends) {
    if (end < begin || end - begin > most_ || end > lists.steps.size()) return false;
    float depth = 0;
    for (std::uint32_t i = begin; i < end; ++i) {
      const DeepStep& step = lists.steps[i];
      if (!(step.front >= depth && step.back >= step.front && std::isfinite(step.back))) return false;
      depth = step.back;
    }
    begin = end;
  }
  if (begin != lists.steps.size()) return false;
  tiles_[tile] = std::move(lists);
  return true;
}

void DeepFilm::Clear() {
  for (Tile& tile : tiles_) tile = Tile();
}

}  // namespace ovhost
