// Hierarchies over single scenes' triangles.
#include "host/render/trace/tri_rays.h"

#include <mutex>
#include <numeric>
#include <thread>

#include "host/render/trace/accel.h"

namespace ovhost {

struct TriRays::Entry {
  trVector origin;
  TriMesh mesh;
  Accel rays;
};

TriRays::TriRays() = default;
TriRays::~TriRays() = default;

const TriRays::Entry& TriRays::EntryOf(const trScene& scene) {
  {
    const std::shared_lock lock(mutex_);
    if (const auto known = entries_.find(&scene); known != entries_.end()) return *known->second;
  }
  const std::unique_lock lock(mutex_);
  std::unique_ptr<Entry>& entry = entries_[&scene];
  if (entry) return *entry;
  entry = std::make_unique<Entry>();
  entry->origin = scene.BoundingBoxT().Centre();
  entry->mesh.scene = &scene;
  std::vector<std::int32_t> all(scene.NumTris());
  std::iota(all.begin(), all.end(), 1);
  FillTriMesh(entry->mesh, all, entry->origin);
  entry->rays.Add(entry->mesh);
  // In a thread of its own: this one would take up other work of the render while it waits, and with that
  // might come back for the lock.
  std::thread([&entry] { entry->rays.Build(); }).join();
  return *entry;
}

bool TriRays::Intersect(const trScene& scene, const trVector& origin, const trVector& direction,
                        trTriHit& hit) {
  const Entry& entry = EntryOf(scene);
  const double length = direction.Length();
  SurfaceHit met;
  if (!(length > 0) || entry.rays.IsEmpty() ||
      !entry.rays.Intersect(origin - entry.origin, direction / length, 0, hit.distance * length, met,
                            kAllRays))
    return false;
  hit.distance = met.distance / length;
  hit.tri = entry.mesh.SceneTri(met.primitive);
  hit.u = met.u;
  hit.v = met.v;
  hit.normal = met.faceNormal;
  return true;
}

}  // namespace ovhost
