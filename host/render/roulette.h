// Russian roulette: which paths are worth following.
#pragma once

#include <algorithm>

#include "host/render/path_settings.h"
#include "host/render/world.h"

namespace ovhost {

/// Chances of paths to go on. Where little light has come home what a path may still bring is all that is
/// seen, and the few that survived would be bright dots; beside sunlight it is a trifle (after Vorba and
/// Krivanek, Adjoint-Driven Russian Roulette and Splitting, 2016). Thread-safe.
class Roulette {
 public:
  Roulette(const PathSettings& settings, const World& world)
      : start_(settings.rouletteStart), least_(settings.leastSurvival) {
    for (const auto& sun : world.Suns()) expected_ += kExpected * std::max(Brightness(sun->Radiance()), 0.0f);
  }

  /// For a path that has been scattered `depth` times and carries a share of the light it will meet, beside
  /// what its camera sample has got already.
  double Chance(int depth, const trFCol& carried, const trFCol& gathered) const {
    if (depth < start_) return 1;
    const double share = carried.MaxChannel();
    if (!(expected_ > 0)) return std::clamp(kCarried * share, least_, 1.0);
    const double brings = share * expected_;
    // A sample brighter than sunlit white ground is a bright dot already, and no reason for another.
    const double got = std::min<double>(std::max(Brightness(gathered), 0.0f), expected_ / kExpected);
    const double matters = brings / (brings + got + kDarkness * expected_);
    return std::clamp(kMatters * matters, least_, 1.0);
  }

 private:
  /// Mean radiance of what paths meet, as a share of white ground under the suns; what is dark beside that;
  /// the share of a sample's light from which on a path always goes on; and without suns, by what it carries.
  static constexpr double kExpected = 0.1, kDarkness = 0.02, kMatters = 2, kCarried = 2.5;

  int start_;
  double least_, expected_ = 0;
};

}  // namespace ovhost
