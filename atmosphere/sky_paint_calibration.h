// How strong paint has to be, direction by direction from a viewpoint, for a cloud to be seen and to hide
// what is behind it.
#pragma once

#include <cstdint>
#include <vector>

#include "atmosphere/sky_paint_solve.h"

/// Cells on the faces of a cube round a viewpoint. Only those that have green paint on them, or lie next to
/// such, are measured, so that a few strokes cost little; what was measured stays until Clear.
class SkyPaintCalibration {
 public:
  static constexpr int kSide = 64;  ///< cells along a face: 1.4 degrees each

  /// Paint values; 1 where no paint makes the cloud so.
  struct Values {
    float seen = 1;    ///< at which 3 % of what is behind is hidden
    float opaque = 1;  ///< at which 97 % is
  };
  /// Who is told of progress and may stop it, and how the work is to be done.
  struct Job {
    trBase& node;
    trString text;
    int threads;
    const trView* view;
  };

  void Clear() { cells_.clear(); }
  /// Measures what isn't measured. False where it was stopped: then nothing new was. Main thread only.
  bool Measure(const SkyPaintBase& paint, long index, const trVector& eye, SkyPaintable& cloud,
               const Job& job);
  /// Interpolated within a face. Thread-safe.
  Values At(const trVector& direction) const;

 private:
  struct Cell {
    Values values;
    bool isMeasured = false;
  };
  std::vector<std::size_t> CellsToMeasure(const SkyPaintBase& paint, long index, const trVector& eye) const;

  std::vector<Cell> cells_;  ///< face by face, row by row; none until something is measured
};
