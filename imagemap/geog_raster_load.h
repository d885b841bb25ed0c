// A georeferenced raster on its way into an image: which bands are what, palettes, missing values, and where
// its corners lie.
#pragma once

#include <functional>

#include "core/colour.h"
#include "core/geo_raster.h"
#include "core/image.h"
#include "core/vector.h"
#include "imagemap/geog_table.h"
#include "imagemap/packed_nodata.h"

/// Which band holds what, numbered from 1; 0 for none.
struct GeogBandMap {
  enum Format { kUnknown = 0, kRgb = 1, kRgba = 2, kPalette = 3, kGrey = 4 } format = kUnknown;
  int red = 0, green = 0, blue = 0, alpha = 0, palette = 0, grey = 0;

  /// Of what the bands say; the format is unknown where that makes no picture.
  static GeogBandMap Of(const trGeoRasterInfo& info);
  /// The bands in use, in the order of the image's channels.
  std::vector<int> Bands() const;
};

/// What becomes of pixels without data.
struct GeogNoDataSettings {
  bool replaces = false, withColour = true, anyChannel = false, withScalar = false, makesTransparent = false;
  trManRgb colour;
  double alpha = 1, scalar = 0;
  bool operator==(const GeogNoDataSettings& other) const {
    return replaces == other.replaces && withColour == other.withColour && anyChannel == other.anyChannel &&
           withScalar == other.withScalar && makesTransparent == other.makesTransparent &&
           colour == other.colour && alpha == other.alpha && scalar == other.scalar;
  }
};

/// Latitude and longitude of a raster's corners, degrees, in this order: NW, NE, SE, SW.
using GeogCorners = std::array<tr2Vector, 4>;

struct GeogPlace {
  GeogCorners corners{tr2Vector{1, 0}, tr2Vector{1, 1}, tr2Vector{0, 1}, tr2Vector{0, 0}};
  tr2Vector pixelSize{1, 1};  ///< metres
  bool rowsRunSouth = false;
  bool hasInverse = false;
  double inverse[6] = {0, 1, 0, 0, 0, 1};
  std::unique_ptr<trGeoTransformation> fromDegrees;
  GeogTable table;  ///< of the same way, to pixels; may be empty
};
GeogPlace FindGeogPlace(const trGeoRaster& raster);

/// Told how far the work is, 0 to 1; false stops it.
using GeogProgress = std::function<bool(const trString& text, double fraction)>;

/// Reads the raster into a new image; null with the problem told.
std::unique_ptr<trImage> LoadGeogImage(trGeoRaster& raster, const GeogBandMap& map,
                                       const GeogNoDataSettings& settings, const GeogProgress& progress,
                                       trString& problem);

/// Writes what stands for missing values: `sets` are the pixels of each channel.
void ReplaceNoData(trImage& image, const GeogNoDataSettings& settings, std::array<GeogPackedNODATA, 4>& sets);

/// The raster and its coordinate system in words.
trString GeogReport(const trGeoRasterInfo& info);
