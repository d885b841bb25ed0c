// What every reader of elevation files offers: facts about the file, and rows of heights.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace ovhost {

/// What a file says of its raster. Column and row 0 are the first of the file.
struct RasterInfo {
  std::string format;
  std::int64_t width = 0, height = 0;
  /// Rows that are decoded together; reading in multiples of it from a multiple of it decodes nothing twice.
  std::int64_t blockRows = 1;
  /// Whether rows can be read in any order at no cost, and by several readers of the file at once.
  bool isRandomAccess = false;

  /// Heights are value * scale + offset, in units of `metresPerHeight` (0: the file doesn't tell).
  double scale = 1, offset = 0, metresPerHeight = 0;
  std::string unknownUnit;  ///< of heights, as the file tells it, where nobody knows how long it is
  /// Whether stored values are numbers that floats don't hold: sources of such offer ReadWide.
  bool isWide = false;
  bool hasMissingValue = false;
  double missingValue = 0;
  /// The scales of the heightfield that the file was written from, metres per pixel and per raster unit, or
  /// 0.
  double xScale = 0, yScale = 0, zScale = 0;

  /// Position of the corner of pixel (column, row): t[0] + column t[1] + row t[2], t[3] + column t[4] +
  /// row t[5].
  bool hasTransform = false;
  double transform[6] = {0, 1, 0, 0, 0, 1};
  enum class Reference {
    kNone,       ///< none is told
    kUnknown,    ///< one is told that can't be understood
    kMetric,     ///< lengths, times metresPerUnit
    kGeographic  ///< degrees of longitude and latitude
  } reference = Reference::kNone;
  double metresPerUnit = 1;        ///< kMetric
  double metresPerDegree = 111e3;  ///< along the equator
  double flattening = 0;           ///< of the ellipsoid
  std::string referenceName;
  /// Of a map projection: turns `count` positions of the reference into degrees of longitude and latitude, of
  /// its own datum. Empty, or why that can't be done. Null for other references.
  std::function<std::string(double* x, double* y, int count)> toLonLat;
  /// Of a map projection: its well-known text, ISO 19162's or ESRI's; empty where it has none.
  std::function<std::string(bool isEsri)> referenceText;
};

/// A rectangle of a file's pixels.
struct RasterRows {
  std::int64_t x = 0, y = 0, width = 0, rows = 0;
};

/// One band of an open file. One thread at a time; several sources of one file may be read at once.
class RasterSource {
 public:
  virtual ~RasterSource() = default;
  const RasterInfo& Info() const { return info_; }
  /// Reads stored values: column x + i of row y + j goes to out[i + j * stride]; the stride may be negative.
  /// False with the problem told.
  virtual bool Read(const RasterRows& part, float* out, std::ptrdiff_t stride, std::string& problem) = 0;
  /// The same in double precision, where `Info().isWide`.
  virtual bool ReadWide(const RasterRows& part, double* out, std::ptrdiff_t stride, std::string& problem) {
    return problem = "it isn't read in double precision", false;
  }

 protected:
  RasterInfo info_;
};

}  // namespace ovhost
