// Painting on the sky from outside: viewpoints of a paint node, and their faces as pictures.
#pragma once

#include <vector>

#include "host/render/frame/render_settings.h"
#include "host/session/session.h"
#include "host/session/sky_pictures.h"

namespace ovhost {

struct PaintedViewpoint {
  int number = 0;  ///< from 1
  trVector position;
  int side = 0;                   ///< pixels of the largest face; 0 where nothing is painted
  double removed = 0, added = 0;  ///< mean red and green over all directions, 0 to 1
};

/// The viewpoints of a paint node. Renders may read the paint meanwhile. Main thread only.
class OV_API SkyPaintEdit {
 public:
  /// Throws a SessionError where the node isn't one that can be painted on.
  explicit SkyPaintEdit(trBase& node);

  std::vector<PaintedViewpoint> Viewpoints() const;
  /// Number of the new viewpoint, which has no paint; throws a SessionError where all are in use. The
  /// position is kept to the six digits that projects have of it, so that a saved project looks the same.
  int Add(const trVector& position);
  /// The next three throw a SessionError where there is no such viewpoint.
  void Remove(int number);
  trVector PositionOf(int number) const;
  SkyFaces Faces(int number) const;
  /// Replaces all six faces; channels beyond R, G and B are left out. Empty ones become black.
  void SetFaces(int number, const SkyFaces& faces);

 private:
  const trSkyPaintStore::Record& RecordOf(int number) const;

  trBase& node_;
  trSkyPaintStore& store_;
};

/// The paint node of that name or path; the project's only one where the name is empty. Throws a
/// SessionError.
OV_API trBase& FindSkyPaint(const Session& session, const std::string& name);
/// The same, made where there is none of the name ("Sky paint 01" where it is empty), and linked to the cloud
/// layer `cloud`, whose paint is turned on.
OV_API trBase& MakeSkyPaint(const Session& session, const std::string& name, const std::string& cloud);

/// What is seen in all directions: linear light, and how the project shows it.
struct SkyView {
  SkyFaces faces;
  ViewTransform transform;
};
/// Renders what is seen from `position` on faces of `side` pixels. kDone, or why there are no faces. Main
/// thread only.
OV_API RenderOutcome RenderSky(juProject& project, const trVector& position, RenderJobSettings settings,
                               int side, RenderControl& control, SkyView& sky);

}  // namespace ovhost
