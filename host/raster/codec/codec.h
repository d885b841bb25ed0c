// The raster formats, a library of its own: the one it stands on brings a hundred others, which only a run
// that reads or writes elevation files should pay for.
#pragma once

#include <string>

#include "core/geo_raster.h"
#include "host/raster/raster_source.h"

namespace ovhost {

/// Opens a band (from 1) of a file of any format that it knows; null with the problem told. The library's
/// function `ovOpenRaster`. Thread-safe.
using RasterOpener = RasterSource*(const std::string& path, int band, std::string& problem);

/// Opens a file with all its bands and places; null with the problem told. The library's function
/// `ovOpenGeoRaster`. Thread-safe.
using GeoRasterOpener = trGeoRaster*(const std::string& path, bool& isFormatKnown, std::string& problem);

/// A GeoTIFF to be written. Row 0 of `values` is the southern one.
struct GeoTiffJob {
  std::string path;
  std::int64_t width = 0, height = 0;
  const float* values = nullptr;
  double metresPerValue = 1;
  int bits = 32;  ///< 32: floats, metres; 16: metres are value * scale + offset
  double scale = 1, offset = 0;
  bool hasMissing = false;  ///< some values aren't finite; of 16 bits, 0 stands for them
  /// The north-western point and the steps between points: in the reference's units where there is one,
  /// degrees if geographic, else metres.
  double west = 0, north = 0, stepX = 1, stepY = 1;
  bool isGeographic = false;
  std::string reference;  ///< well-known text of a map projection, or empty
  std::string software;
  int threads = 1;
  /// Told how far the work is, 0 to 1; false stops it.
  bool (*progress)(void* context, double fraction) = nullptr;
  void* context = nullptr;
  std::string problem;  ///< why there is no file
};

/// The library's function `ovWriteGeoTiff`: false with the problem told. Thread-safe.
using GeoTiffWriter = bool(GeoTiffJob& job);

}  // namespace ovhost
