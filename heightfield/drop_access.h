// How drops read and write heights, and which kinds of walks there are.
#pragma once

#include "heightfield/drop_settings.h"

/// Accesses to heights that no other thread has to do with meanwhile.
struct Alone {
  static float Load(const float* p) { return *p; }
  static void Store(float* p, float v) { *p = v; }
};

/// Accesses to heights that other threads read and write too: each one is whole, their order is open.
struct AmongOthers {
  static float Load(const float* p) {
    float v;
    __atomic_load(p, &v, __ATOMIC_RELAXED);
    return v;
  }
  static void Store(float* p, float v) { __atomic_store(p, &v, __ATOMIC_RELAXED); }
};

/// Calls walk.operator()<border, nearest centre>() with what the settings say, so that the steps themselves
/// needn't ask.
template <typename Walk>
auto ForDropKind(const DropSettings& settings, const Walk& walk) {
  const auto withBorder = [&]<BorderFlow kBorder>() {
    return settings.nearestCentre ? walk.template operator()<kBorder, true>()
                                  : walk.template operator()<kBorder, false>();
  };
  switch (settings.border) {
    case BorderFlow::kStop:
      return withBorder.template operator()<BorderFlow::kStop>();
    case BorderFlow::kOffMap:
      return withBorder.template operator()<BorderFlow::kOffMap>();
    default:
      return withBorder.template operator()<BorderFlow::kAround>();
  }
}
