// Gradient noise together with its slopes, for fractals whose octaves mind the slope of coarser ones.
#pragma once

#include "core/noise.h"

/// Where trNoise3SlopeBatch writes, `count` entries each: the noise, and its derivatives along x, y and z.
struct trNoiseSlopes {
  double* value;
  double* x;
  double* y;
  double* z;
};

/// Values as those of trNoise3Batch, to the bit, and slopes per unit of the lookup's space. The batch's count
/// is a multiple of 8: of entries that aren't wanted any finite point will do. Thread-safe; the same bits on
/// every instruction set.
OV_API void trNoise3SlopeBatch(const trNoiseBatch& batch, const trNoiseSlopes& out);
