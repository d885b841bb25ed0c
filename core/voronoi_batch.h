// Voronoi distances at many points in one call, for the octaves of a fractal.
#pragma once

#include "core/api.h"

/// Points of lattice space. All arrays of a call have room for `count` rounded up to a multiple of eight
/// entries; those past the count are read and written, whatever they are.
struct trVoronoiBatch {
  const double* x;
  const double* y;
  const double* z;
  int count;
};

/// The lengths of trVoronoi3's vectors at each point. `second` may be null, which saves a third. Where two
/// features are equally far but for rounding, the single form may name the farther one first. Thread-safe;
/// the same bits on every instruction set.
OV_API void trVoronoi3Batch(const trVoronoiBatch& batch, double* nearest, double* second);

/// trDEV_SmoothVoronoi3 at each point, to the bit, each with a filter of its own `size`. Thread-safe; the
/// same bits on every instruction set.
OV_API void trDEV_SmoothVoronoi3Batch(const trVoronoiBatch& batch, const double* size, double* result);
