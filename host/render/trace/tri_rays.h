// Rays against the triangles of single scenes, for whoever looks for them one scene at a time.
#pragma once

#include <map>
#include <memory>
#include <shared_mutex>

#include "core/scene.h"

namespace ovhost {

class Accel;

/// Hierarchies over scenes' own triangles, each built when it is first asked for. Thread-safe. The scenes
/// must not change, and must outlive this.
class OV_API TriRays {
 public:
  TriRays();
  ~TriRays();

  /// The nearest of a scene's own triangles (not of its groups) on a ray in the space that the scene's
  /// transform leads to, before hit.distance; false leaves `hit` as it is.
  bool Intersect(const trScene& scene, const trVector& origin, const trVector& direction, trTriHit& hit);

 private:
  struct Entry;
  const Entry& EntryOf(const trScene& scene);

  std::shared_mutex mutex_;
  std::map<const trScene*, std::unique_ptr<Entry>> entries_;
};

}  // namespace ovhost
