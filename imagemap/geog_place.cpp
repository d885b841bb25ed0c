// Where a raster's corners lie, and its report.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "core/guarded.h"
#include "imagemap/geog_raster_load.h"

namespace {

/// Of the ellipsoid, where the file doesn't tell it, metres.
constexpr double kUsualRadius = 6378000;

/// Whether corners are degrees of latitude and longitude by their size.
bool AreDegrees(const GeogCorners& corners) {
  return std::all_of(corners.begin(), corners.end(), [](const tr2Vector& corner) {
    return std::fabs(corner.x) <= 90 && std::fabs(corner.y) <= 360;
  });
}

const char* ColourName(trBandColour colour) {
  static constexpr const char* kNames[] = {
      "Unknown", "Grey Indexed", "Colour Indexed", "Red",       "Green",    "Blue",
      "Alpha",   "Hue",          "Saturation",     "Lightness", "Cyan",     "Magenta",
      "Yellow",  "Black (K)",    "Y Luminance",    "Cb Chroma", "Cr Chroma"};
  const auto index = static_cast<std::size_t>(colour);
  return index < std::size(kNames) ? kNames[index] : kNames[0];
}

const char* TypeName(trBandType type) {
  static constexpr const char* kNames[] = {"Unknown",
                                           "Unsigned 8 bit integer",
                                           "Unsigned 16 bit integer",
                                           "Signed 16 bit integer",
                                           "Unsigned 32 bit integer",
                                           "Signed 32 bit integer",
                                           "32 bit floating point",
                                           "64 bit floating point",
                                           "16 bit complex integer",
                                           "32 bit complex integer",
                                           "32 bit complex floating point",
                                           "64 bit complex floating point"};
  const auto index = static_cast<std::size_t>(type);
  return index < std::size(kNames) ? kNames[index] : kNames[0];
}

}  // namespace

GeogPlace FindGeogPlace(const trGeoRaster& raster) {
  const trGeoRasterInfo& info = raster.Info();
  const double w = info.width, h = info.height, *g = info.transform;
  GeogPlace place;
  if (info.hasTransform) {
    place.hasInverse = info.hasInverse;
    std::copy_n(info.inverse, 6, place.inverse);
    std::unique_ptr<trGeoTransformation> toDegrees;
    if (info.hasReference) {
      toDegrees = raster.ToDegrees();
      place.fromDegrees = raster.FromDegrees();
    }
    if (toDegrees && place.fromDegrees) place.table = GeogTable(info, *toDegrees, *place.fromDegrees);
    const double columns[] = {0, w, w, 0}, rows[] = {0, 0, h, h};
    GeogCorners corners = place.corners;
    for (std::size_t i = 0; i < 4; ++i) {
      // The row's term takes the first coordinate, not the column: old scenes' corners are so.
      double x = g[1] * columns[i] + g[0] + g[2] * rows[i], y = x * g[4] + g[3] + g[5] * rows[i];
      if (!toDegrees || toDegrees->Transform(x, y)) corners[i] = {y, x};
    }
    // Without a coordinate system only what can be degrees is taken for such.
    if (info.hasReference || AreDegrees(corners)) {
      place.corners = corners;
      place.rowsRunSouth = g[5] < 0;
    }
    if (info.hasReference && info.isProjected && g[2] == 0 && g[4] == 0 && g[1] != 0 && g[5] != 0) {
      place.pixelSize = {std::fabs(g[1]), std::fabs(g[5])};
      return place;
    }
  }
  const GeogCorners& c = place.corners;
  const double longitudes = std::fabs(GuardedDivide(c[1].y - c[0].y, w)),
               latitudes = std::fabs(GuardedDivide(c[3].x - c[0].x, h));
  const double radius = info.semiMajor > 0 ? info.semiMajor : kUsualRadius;
  place.pixelSize = {
      std::fabs(longitudes * kDegreesToRadians * radius * std::cos(c[0].x * kDegreesToRadians)),
      std::fabs(latitudes * kDegreesToRadians * radius)};
  return place;
}

trString GeogReport(const trGeoRasterInfo& info) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  if (info.hasReference)
    text << "Coordinate system:\n" << info.referenceText << "\n";
  else
    text << "No coordinate system defined\n";
  text << "Dataset size (pixels): " << info.width << " x " << info.height << "\n";
  text << "Num. raster bands: " << info.bands.size() << "\n";
  for (std::size_t i = 0; i < info.bands.size(); ++i) {
    const trGeoBand& band = info.bands[i];
    text << "Raster band " << i + 1 << "\n";
    if (band.width == 0) {
      text << "Unable to get raster band\n";
      continue;
    }
    text << "Colour interpretation: " << ColourName(band.colour) << "\n";
    text << "Data type: " << TypeName(band.type) << "\n";
    if (band.hasNoData)
      text << "NODATA value: " << band.noData << "\n";
    else
      text << "Band doesn't have a NODATA value\n";
  }
  return text.str();
}
