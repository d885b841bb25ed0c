// From latitude and longitude to pixels by a table, where a raster's coordinate system is smooth enough.
#pragma once

#include <vector>

#include "core/geo_raster.h"
#include "core/vector.h"

/// Pixels on a grid of latitudes and longitudes that covers a raster, with some room around it. Thread-safe
/// once it is built.
class GeogTable {
 public:
  /// Empty where the raster is turned round a pole, lies somewhere that its system can't tell, or would need
  /// too fine a grid.
  GeogTable() = default;
  GeogTable(const trGeoRasterInfo& info, trGeoTransformation& toDegrees, trGeoTransformation& fromDegrees);

  bool IsEmpty() const { return pixels_.empty(); }
  /// Longitudes are meant that lie within half a turn of this one, degrees.
  double MiddleLongitude() const { return west_ + 0.5 * cells_ * stepLongitude_; }
  /// The pixel (column, row) at a place, degrees, within a tenth of a pixel; false beyond the grid, and so of
  /// the raster.
  bool Find(double latitude, double longitude, tr2Vector& pixel) const;

 private:
  bool FindExtent(const trGeoRasterInfo& info, trGeoTransformation& toDegrees);
  bool Fill(const trGeoRasterInfo& info, trGeoTransformation& fromDegrees, int cells);
  bool IsExactEnough(const trGeoRasterInfo& info, trGeoTransformation& fromDegrees) const;

  double south_ = 0, west_ = 0, spanLatitude_ = 0, spanLongitude_ = 0;
  double stepLatitude_ = 1, stepLongitude_ = 1;
  int cells_ = 0;  ///< along either side
  std::vector<tr2Vector> pixels_;
};
