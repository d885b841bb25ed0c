// The kinds of new landscapes. Their projects are files of scenes/new, built into the library.
#include "host/session/landscape.h"
#include "landscape_texts.h"

namespace ovhost {

const std::vector<LandscapeKind>& LandscapeKinds() {
  static const std::vector<LandscapeKind> kinds = {
      {"mountains", "ranges with snow, rock and meadows", kMountainsProject},
      {"lake", "the same land with water in its valleys", kLakeProject},
      {"desert", "mesas and canyons of layered rock", kDesertProject},
      {"planet", "a whole planet from orbit", kPlanetProject, false, false},
      {"elevation", "land from an elevation file of yours: --like elevation FILE", kElevationProject, true},
      {"plain", "camera, sun, sky light and a planet with one fractal, for building from the ground up", "",
       false, false}};
  return kinds;
}

}  // namespace ovhost
