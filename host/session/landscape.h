// Landscapes to begin with: what `ov new` writes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/api.h"
#include "host/session/session.h"

namespace ovhost {

/// A landscape that a new project may start as.
struct LandscapeKind {
  std::string name, about;
  /// Its text: nodes "Camera", "Sun" and "Planet", perhaps "Water" and "Elevation". Empty: NewDefaultProject.
  std::string project;
  bool isFromFile = false;  ///< "Elevation" loads a file of the user's
  bool isOnGround = true;   ///< the camera stands on the land, where its view is best
};

/// All kinds; the first is what is meant where none is named. Thread-safe.
OV_API const std::vector<LandscapeKind>& LandscapeKinds();

/// A project of that kind, with seeds of its own from trNewSeed. `elevation` is the file of a kind that is
/// made from one. Throws a SessionError for an unknown kind, and for a file that can't be read. Main thread
/// only.
OV_API std::unique_ptr<Session> NewLandscape(const std::string& kind, const std::string& elevation);

}  // namespace ovhost
