// Slopes summed under a cone, many points of a row at a time in SIMD lanes.
#pragma once

/// The two rows of a field that lie `distance` rows above and below a row, as double precision sums and
/// differences (above less below) by column. Points from -reach to the row's width + reach - 1, and a whole
/// vector behind them, can be read.
struct MirroredRows {
  const double* sums;
  const double* differences;
  int width;
  double distance;
};

/// Adds to every point's slopes those towards the points of both rows that lie 1 to `reach` columns to
/// either side: of four points that mirror each other the one in the middle cancels out. `weights` holds a
/// weight for each column from 0 on, `weightsByColumn` the same over the column's number. The slopes' arrays
/// have room for a whole vector behind the row. Thread-safe; the same bits on every instruction set.
void AddMirroredSlopes(const MirroredRows& rows, int reach, const double* weights,
                       const double* weightsByColumn, double* slopeX, double* slopeY);
