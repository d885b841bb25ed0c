// Medians of small squares, many points of a row at a time in SIMD lanes.
#pragma once

/// Points behind a row's last one that are read by whole vectors.
constexpr int kMedianRoom = 16;

/// Medians of the squares of 2 * `radius` + 1 rows, a `radius` of 2 or 3, about the points of the middle one.
/// Of each row the points from -radius to `width` + radius + kMedianRoom - 1 can be read. Thread-safe; the
/// same bits on every instruction set.
void MedianRow(int radius, const float* const* rows, int width, float* to);
