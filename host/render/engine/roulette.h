// Russian roulette and splitting: how many paths are worth following.
#pragma once

#include <algorithm>

#include "host/render/engine/path_settings.h"
#include "host/render/shade/light_layers.h"
#include "host/render/shade/lit_scene.h"

namespace ovhost {

/// Chances of paths to go on. Where little light has come home what a path may still bring is all that is
/// seen, and the few that survived would be bright dots, so more than one sets out; beside sunlight it is a
/// trifle (after Vorba and
/// Krivanek, Adjoint-Driven Russian Roulette and Splitting, 2016). Thread-safe.
class Roulette {
 public:
  Roulette(const PathSettings& settings, const LitScene& scene)
      : start_(settings.rouletteStart), least_(settings.leastSurvival) {
    for (const auto& sun : scene.Suns()) expected_ += kExpected * std::max(Brightness(sun->Radiance()), 0.0f);
  }

  /// For a path that has been scattered `depth` times and carries a share of the light it will meet, beside
  /// what its camera sample has got already.
  double Chance(int depth, const trFCol& carried, const trFCol& gathered) const {
    return depth < start_ ? 1.0 : std::clamp(Worth(carried, gathered), least_, 1.0);
  }

  /// How many paths are worth going on along at once from what a camera ray met, where it carries and has got
  /// as much; at least 1.
  int Ways(const trFCol& carried, const trFCol& gathered) const {
    return least_ < 1 ? std::clamp(static_cast<int>(Worth(carried, gathered) + 0.5), 1, kMostWays) : 1;
  }

 private:
  /// Paths that would be right for all of them to bring a like share of what is seen.
  double Worth(const trFCol& carried, const trFCol& gathered) const {
    const double share = carried.MaxChannel();
    if (!(expected_ > 0)) return std::min(kCarried * share, 1.0);
    const double brings = share * expected_;
    // A sample brighter than sunlit white ground is a bright dot already, and no reason for another.
    const double got = std::min<double>(std::max(Brightness(gathered), 0.0f), expected_ / kExpected);
    return kMatters * brings / (brings + got + kDarkness * expected_);
  }

  /// Mean radiance of what paths meet, as a share of white ground under the suns; what is dark beside that;
  /// how many paths a sample is worth that gets all its light by them; and without suns, by what they carry.
  static constexpr double kExpected = 0.1, kDarkness = 0.02, kMatters = 3, kCarried = 2.5;
  static constexpr int kMostWays = 3;

  int start_;
  double least_, expected_ = 0;
};

}  // namespace ovhost
