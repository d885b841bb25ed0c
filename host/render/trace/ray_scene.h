// One scene of the ray tracer: the parts of one frame of coordinates, and copies of other such scenes.
#pragma once

#include <embree3/rtcore.h>

#include <atomic>
#include <mutex>
#include <string>

#include "host/render/trace/accel.h"

namespace ovhost {

/// What a query hands to the copies it meets, by way of Embree, and what they find. Per-thread state.
struct RayContext {
  struct Found {
    const RayScene* scene;
    int levels;
    InstanceRef instances[kMaxInstanceLevels];
  };

  /// `found` has an entry for every ray's id.
  explicit RayContext(Found* found) : found(found) {
    rtcInitIntersectContext(&embree);
    embree.instID[0] = 0;
  }

  RTCIntersectContext
      embree;  ///< first, as Embree hands this on; its instID tells how many copies deep we are
  int level = 0;
  InstanceRef path[kMaxInstanceLevels];
  Found* found;
};

/// A running ray tracer.
class RayDevice {
 public:
  /// `stop`, which may be null, ends builds; it must outlive the device.
  explicit RayDevice(const std::atomic<bool>* stop);
  ~RayDevice();
  RayDevice(const RayDevice&) = delete;
  RayDevice& operator=(const RayDevice&) = delete;
  /// Null where it could not be started.
  RTCDevice Handle() const { return handle_; }
  /// Thread-safe.
  bool IsStopped() const { return stop_ && stop_->load(std::memory_order_relaxed); }
  /// False where something went wrong since the last time: with an error reported, unless it was stopped.
  /// Throws std::bad_alloc where that was for want of memory.
  bool Report() const;

 private:
  /// Embree's call for an error, from any thread.
  static void TakeError(void* self, RTCError code, const char* text);

  const std::atomic<bool>* const stop_;
  RTCDevice handle_;
  mutable std::mutex mutex_;
  mutable std::string error_;  ///< the first since the last report
  mutable bool isOutOfMemory_ = false;
};

/// Owns its Embree scene; the parts must outlive it. Adding is for one thread at a time; the rest is
/// thread-safe.
class RayScene {
 public:
  explicit RayScene(std::shared_ptr<const RayDevice> device);
  ~RayScene();
  RayScene(const RayScene&) = delete;
  RayScene& operator=(const RayScene&) = delete;

  void Add(const SurfacePart& part);
  void Add(const Population& population);
  void Add(const Assembly& parts);
  /// Builds the hierarchy with the workers of the caller's arena, as far as it isn't stopped.
  void Commit();

  RTCScene Handle() const { return scene_; }
  bool IsEmpty() const { return parts_.empty(); }
  const SurfacePart* Part(unsigned geometry) const { return parts_[geometry]; }
  /// Of the committed scene.
  trBoundingBox Box() const;

 private:
  void Attach(RTCGeometry geometry, unsigned rayKinds, const SurfacePart* part);

  std::shared_ptr<const RayDevice> device_;
  RTCScene scene_;
  std::vector<const SurfacePart*> parts_;  ///< by geometry; null for populations
};

}  // namespace ovhost
