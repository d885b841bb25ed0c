// Paint on the sky: what paint nodes are to the clouds that obey them and to the tools that paint.
//
// A viewpoint is a place from which the sky was painted, on the six faces of a cube round it. Red takes cloud
// away, green adds some, both together change nothing.
#pragma once

#include <array>
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "core/image.h"
#include "core/node.h"
#include "core/shading.h"

/// The faces in the order of files.
enum class trSkyPaintFace : int { kNone = -1, kNorth, kEast, kSouth, kWest, kUp, kDown };
inline constexpr int kSkyPaintFaces = 6;
inline constexpr const char* kSkyPaintFaceNames[kSkyPaintFaces] = {"face_n", "face_e", "face_s",
                                                                   "face_w", "face_u", "face_d"};

/// A place on the faces: pixel coordinates are u times the width and v times the height; row 0 is at v = 0.
struct trSkyPaintSpot {
  trSkyPaintFace face = trSkyPaintFace::kNone;
  float u = 0, v = 0;
};

/// Half of a face's side for a direction of slope 1: a little less than a half, so that lookups stay inside
/// the edge pixels.
inline constexpr float kSkyPaintHalfSide = 0.4999f;

/// Where a direction (of any length) meets the faces. On edges the first of north, south, east, west, up and
/// down wins; no direction has no face. The south face stands on its head.
inline trSkyPaintSpot trSkyPaintSpotOf(const trVector& direction) {
  const float x = static_cast<float>(direction.x), y = static_cast<float>(direction.y),
              z = static_cast<float>(direction.z);
  const float ax = std::fabs(x), ay = std::fabs(y), az = std::fabs(z);
  constexpr float c = kSkyPaintHalfSide;
  using Face = trSkyPaintFace;
  if (!std::isfinite(ax + ay + az)) return {};
  if (az > 0 && az >= ax && az >= ay)
    return {z > 0 ? Face::kNorth : Face::kSouth, 0.5f + c * x / z, 0.5f + c * y / z};
  if (ax > 0 && ax >= ay) return {x > 0 ? Face::kEast : Face::kWest, 0.5f - c * z / x, 0.5f + c * y / ax};
  if (ay > 0) return {y > 0 ? Face::kUp : Face::kDown, 0.5f + c * x / y, 0.5f - c * z / y};
  return {};
}

/// The direction, not of unit length, that meets a face there; the inverse of trSkyPaintSpotOf.
inline trVector trSkyPaintDirection(const trSkyPaintSpot& spot) {
  const double a = (static_cast<double>(spot.u) - 0.5) / kSkyPaintHalfSide,
               b = (static_cast<double>(spot.v) - 0.5) / kSkyPaintHalfSide;
  switch (spot.face) {
    case trSkyPaintFace::kNorth:
      return {a, b, 1};
    case trSkyPaintFace::kEast:
      return {1, b, -a};
    case trSkyPaintFace::kSouth:
      return {-a, -b, -1};
    case trSkyPaintFace::kWest:
      return {-1, b, a};
    case trSkyPaintFace::kUp:
      return {a, 1, -b};
    case trSkyPaintFace::kDown:
      return {-a, -1, b};
    case trSkyPaintFace::kNone:
      break;
  }
  return {};
}

/// Keeps those who read faces and the one who writes them apart. Readers never hold each other up: each
/// counts itself in one of several places. Thread-safe.
class trSkyPaintGuard {
 public:
  /// A read, over in a moment. Waits for a writer; where one comes in between, there is nothing to be read.
  class Reader {
   public:
    Reader(const trSkyPaintGuard& guard, unsigned thread) : readers_(guard.readers_[thread % kPlaces].count) {
      while (guard.isWritten_.load()) std::this_thread::yield();
      readers_.fetch_add(1);
      if (!guard.isWritten_.load()) return;
      readers_.fetch_sub(1);
      mayRead_ = false;
    }
    ~Reader() {
      if (mayRead_) readers_.fetch_sub(1);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    bool MayRead() const { return mayRead_; }

   private:
    std::atomic<int>& readers_;
    bool mayRead_ = true;
  };

  /// Lives while faces are written: waits until nobody reads or writes them.
  class Writer {
   public:
    explicit Writer(trSkyPaintGuard& guard) : guard_(guard) {
      while (guard_.isWritten_.exchange(true)) std::this_thread::yield();
      for (Place& place : guard_.readers_)
        while (place.count.load() != 0) std::this_thread::yield();
    }
    ~Writer() { guard_.isWritten_.store(false); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

   private:
    trSkyPaintGuard& guard_;
  };

 private:
  static constexpr unsigned kPlaces = 16;
  struct alignas(64) Place {
    std::atomic<int> count{0};
  };
  std::atomic<bool> isWritten_{false};
  mutable std::array<Place, kPlaces> readers_;
};

/// What a paint node holds and a paint tool writes, under the guard's Writer. A node that can be painted on
/// gives it as its member "sky paint store".
struct trSkyPaintStore {
  struct Record {
    bool isInUse = false;
    trVector position;              ///< world, metres
    trFImage face[kSkyPaintFaces];  ///< four floats a pixel; empty ones are black
  };
  static constexpr int kViewpoints = 10;
  trSkyPaintGuard guard;
  std::array<Record, kViewpoints> records;
};

struct trSkyPaintViewpoint {
  bool isInUse = false;
  trVector position;  ///< world, metres
};

/// A node that has paint. It declares "is_sky_paint".
class OV_API SkyPaintBase : public trBase {
 public:
  SkyPaintBase() { DeclareTrue("is_sky_paint"); }
  /// The paint as viewpoint `index`, from 0, has it in the direction of si's P; black where there is none.
  /// Thread-safe, for the viewpoints that Viewpoints last told.
  virtual void Sample(trFCol& result, const trShadingInterface& si, long index) const = 0;
  /// Main thread only, and ahead of a render that samples.
  virtual std::vector<trSkyPaintViewpoint> Viewpoints() = 0;
};
