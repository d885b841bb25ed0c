// Rasters that know where on a globe their pixels lie, as a file holds them: bands, palettes, missing values,
// coordinate systems.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/api.h"
#include "core/string.h"

/// What a band says that it holds. The numbers are those of the formats' library.
enum class trBandColour : int {
  kUndefined = 0,
  kGrey = 1,
  kPalette = 2,
  kRed = 3,
  kGreen = 4,
  kBlue = 5,
  kAlpha = 6,
  kHue = 7,
  kSaturation = 8,
  kLightness = 9,
  kCyan = 10,
  kMagenta = 11,
  kYellow = 12,
  kBlack = 13,
  kLuma = 14,
  kBlueChroma = 15,
  kRedChroma = 16
};

/// The type of a band's values.
enum class trBandType : int {
  kUnknown = 0,
  kByte = 1,
  kUnsigned16 = 2,
  kSigned16 = 3,
  kUnsigned32 = 4,
  kSigned32 = 5,
  kFloat32 = 6,
  kFloat64 = 7,
  kComplexInt16 = 8,
  kComplexInt32 = 9,
  kComplexFloat32 = 10,
  kComplexFloat64 = 11
};

struct trGeoBand {
  trBandColour colour = trBandColour::kUndefined;
  trBandType type = trBandType::kUnknown;
  int width = 0, height = 0;
  bool hasNoData = false;
  double noData = 0;  ///< may be NaN
  bool hasPalette = false;
  /// Whether the palette's entries are greys or colours; other kinds can't be shown.
  bool isPaletteOfColours = false;
  std::vector<std::array<short, 4>> palette;  ///< red, green, blue, alpha, 0 to 255
};

/// Turns positions of one coordinate system into those of another. One thread at a time.
class OV_API trGeoTransformation {
 public:
  virtual ~trGeoTransformation() = default;
  /// False where a point has no place there; x and y mean nothing then.
  virtual bool Transform(double& x, double& y) = 0;
  /// One of its own for another thread; null without memory.
  virtual std::unique_ptr<trGeoTransformation> Clone() const = 0;
};

struct trGeoRasterInfo {
  int width = 0, height = 0;
  std::vector<trGeoBand> bands;
  /// Position of the corner of pixel (column, row): t[0] + column t[1] + row t[2], t[3] + column t[4] +
  /// row t[5].
  bool hasTransform = false, hasInverse = false;
  double transform[6] = {0, 1, 0, 0, 0, 1}, inverse[6] = {0, 1, 0, 0, 0, 1};
  bool hasReference = false;  ///< a coordinate system is told
  bool isProjected = false;
  double semiMajor = 0;    ///< of its ellipsoid, metres; 0 where nobody knows
  trString referenceText;  ///< well-known text, laid out for reading
};

/// An open file. One thread at a time.
class OV_API trGeoRaster {
 public:
  virtual ~trGeoRaster() = default;
  const trGeoRasterInfo& Info() const { return info_; }
  /// Reads rows of a band (from 1), row 0 being the file's first, as they are stored. False with the problem.
  virtual bool ReadRows(int band, int row, int rows, double* out, trString& problem) = 0;
  /// From the file's coordinate system to degrees of longitude (x) and latitude (y) of its own datum, and
  /// back; null where there is no such way, or none is needed.
  virtual std::unique_ptr<trGeoTransformation> ToDegrees() const = 0;
  virtual std::unique_ptr<trGeoTransformation> FromDegrees() const = 0;

 protected:
  trGeoRasterInfo info_;
};

/// Opens a raster. Null with the problem told; `isFormatKnown` is false where no reader knows the format.
OV_API std::unique_ptr<trGeoRaster> trOpenGeoRaster(const trString& path, bool& isFormatKnown,
                                                    trString& problem);
