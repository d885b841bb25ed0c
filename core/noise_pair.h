// Lattice noise at two points in one call, for walks that noise moves in two coordinates at every step.
#pragma once

#include "core/api.h"

/// out[0] and out[1] are trLerpNoise3 at `a` and `b`, to the bit; with a `filter`, which may be null, they
/// are trLerpNoise3_SmoothXY. Thread-safe; the same bits on every instruction set.
OV_API void trLerpNoise3Pair(const double* a, const double* b, const double* filter, double* out);
