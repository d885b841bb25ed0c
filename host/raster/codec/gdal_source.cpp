// Reads elevation files with GDAL.
#include <cpl_string.h>
#include <gdal.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <vector>

#include "core/api.h"
#include "host/raster/codec/claims.h"
#include "host/raster/codec/codec.h"
#include "host/raster/codec/gdal_files.h"
#include "host/raster/codec/gdal_scope.h"

namespace ovhost {
namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;
/// The largest piece that a file may be compressed in: it is decoded whole.
constexpr std::int64_t kMaxBlockBytes = 1ll << 30;

/// Formats whose rows lie at known places.
constexpr const char* kRandomAccess[] = {"GTiff", "SRTMHGT", "ENVI", "EHdr", "GTX", "NTv2", "BT", "DTED"};

struct HeightUnit {
  const char* name;
  double metres;
};
constexpr double kFoot = 0.3048, kSurveyFoot = 1200.0 / 3937;
constexpr HeightUnit kHeightUnits[] = {{"m", 1},
                                       {"metre", 1},
                                       {"metres", 1},
                                       {"meter", 1},
                                       {"meters", 1},
                                       {"ft", kFoot},
                                       {"foot", kFoot},
                                       {"feet", kFoot},
                                       {"international foot", kFoot},
                                       {"us-ft", kSurveyFoot},
                                       {"sft", kSurveyFoot},
                                       {"sfoot", kSurveyFoot},
                                       {"US survey foot", kSurveyFoot},
                                       {"foot_us", kSurveyFoot},
                                       {"yd", 0.9144},
                                       {"yard", 0.9144},
                                       {"fathom", 1.8288},
                                       {"km", 1000},
                                       {"kilometre", 1000},
                                       {"kilometer", 1000},
                                       {"dm", 0.1},
                                       {"decimetre", 0.1},
                                       {"decimeter", 0.1},
                                       {"cm", 0.01},
                                       {"centimetre", 0.01},
                                       {"centimeter", 0.01},
                                       {"mm", 0.001},
                                       {"millimetre", 0.001},
                                       {"millimeter", 0.001}};

/// The way from a map projection to degrees, set up when it is used: few who open a file do.
class ToLonLat {
 public:
  explicit ToLonLat(const OGRSpatialReference& projected)
      : projected_(projected.Clone(), [](OGRSpatialReference* reference) { reference->Release(); }) {}

  std::string operator()(double* x, double* y, int count) const {
    const GdalScope scope;
    try {
      const std::unique_ptr<OGRSpatialReference> degrees(projected_->CloneGeogCS());
      if (!degrees) return scope.Problem("it has no globe");
      projected_->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
      degrees->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
      const std::unique_ptr<OGRCoordinateTransformation> way(
          OGRCreateCoordinateTransformation(projected_.get(), degrees.get()));
      if (!way || !way->Transform(count, x, y)) return scope.Problem("it can't be computed");
      const double unit = degrees->GetAngularUnits() / kDegreesToRadians;
      for (int i = 0; i < count; ++i) {
        x[i] = x[i] * unit + degrees->GetPrimeMeridian();  // which is in degrees, whatever the unit
        y[i] *= unit;
        if (!std::isfinite(x[i]) || !std::isfinite(y[i])) return "it leads off the globe";
      }
      return {};
    } catch (const GdalGaveUp& gaveUp) {
      return gaveUp.text;
    } catch (const std::exception& error) {
      return error.what();
    }
  }

 private:
  std::shared_ptr<OGRSpatialReference> projected_;
};

/// The text of a map projection, without a system of heights: ours are metres.
class ReferenceText {
 public:
  explicit ReferenceText(const OGRSpatialReference& projected)
      : projected_(projected.Clone(), [](OGRSpatialReference* reference) { reference->Release(); }) {}

  std::string operator()(bool isEsri) const {
    const GdalScope scope;
    try {
      projected_->StripVertical();
      const char* const options[] = {isEsri ? "FORMAT=WKT1_ESRI" : "FORMAT=WKT2_2018", nullptr};
      char* text = nullptr;
      const bool isTold = projected_->exportToWkt(&text, options) == OGRERR_NONE && text;
      const std::string result = isTold ? text : "";
      CPLFree(text);
      return result;
    } catch (const GdalGaveUp&) {
      return {};
    }
  }

 private:
  std::shared_ptr<OGRSpatialReference> projected_;
};

/// What the coordinate reference system says of the transform's units; angles come out as degrees.
void ReadReference(const OGRSpatialReference* reference, RasterInfo& info) {
  using Reference = RasterInfo::Reference;
  if (!reference || reference->IsEmpty()) return;
  const char* name = reference->GetName();
  info.referenceName = name ? name : "";
  info.reference = Reference::kUnknown;
  OGRErr failed = OGRERR_NONE;
  const double radius = reference->GetSemiMajor(&failed);
  info.metresPerDegree = (failed == OGRERR_NONE ? radius : 6378137.0) * kDegreesToRadians;
  const double inverse = reference->GetInvFlattening(&failed);
  info.flattening = failed == OGRERR_NONE && inverse > 1 ? 1 / inverse : 0;
  if (reference->IsGeographic()) {
    const double degrees = reference->GetAngularUnits() / kDegreesToRadians;
    for (double& t : info.transform) t *= degrees;
    info.transform[0] += reference->GetPrimeMeridian();
    info.reference = Reference::kGeographic;
  } else if (reference->IsProjected() || reference->IsLocal()) {
    const double metres = reference->GetLinearUnits();
    if (!std::isfinite(metres) || metres <= 0) return;
    info.metresPerUnit = metres;
    info.reference = Reference::kMetric;
    if (!reference->IsProjected()) return;
    info.toLonLat = ToLonLat(*reference);
    info.referenceText = ReferenceText(*reference);
  }
}

double Number(const char* text, double otherwise) {
  char* end = nullptr;
  const double value = text ? CPLStrtod(text, &end) : otherwise;
  return end != text && std::isfinite(value) ? value : otherwise;
}

class GdalSource : public RasterSource {
 public:
  explicit GdalSource(GDALDataset* file) : file_(file) {}
  ~GdalSource() override {
    const GdalScope scope;
    // After a failure in the midst of its work nothing is known of its state.
    if (!isBroken_) GDALClose(GDALDataset::ToHandle(file_));
  }

  bool ReadFacts(int band, std::string& problem);
  bool Read(const RasterRows& part, float* out, std::ptrdiff_t stride, std::string& problem) override {
    return ReadAs(part, out, GDT_Float32, stride, problem);
  }
  bool ReadWide(const RasterRows& part, double* out, std::ptrdiff_t stride, std::string& problem) override {
    return ReadAs(part, out, GDT_Float64, stride, problem);
  }

 private:
  std::string SizeProblem(int bands) const;
  std::string FindPdsBytes(std::uint64_t& bytes) const;
  void MendPdsOffset();
  std::string FindAbsentBlocks();
  void ReadHeightFacts();
  template <typename Value>
  bool ReadAs(const RasterRows& part, Value* out, GDALDataType type, std::ptrdiff_t stride,
              std::string& problem);
  template <typename Value>
  bool DropMasked(const RasterRows& part, Value* out, std::ptrdiff_t stride);
  template <typename Value>
  void DropAbsent(const RasterRows& part, Value* out, std::ptrdiff_t stride);

  GDALDataset* file_;
  GDALRasterBand* band_ = nullptr;
  int blockWidth_ = 1, blockHeight_ = 1;
  bool hasAbsentBlocks_ = false;  ///< which the file has no bytes of
  bool isBroken_ = false;
};

bool GdalSource::ReadFacts(int band, std::string& problem) {
  info_.format = file_->GetDriver() ? file_->GetDriver()->GetDescription() : "";
  info_.width = file_->GetRasterXSize();
  info_.height = file_->GetRasterYSize();
  const int bands = file_->GetRasterCount();
  if (bands < 1 || info_.width < 1 || info_.height < 1) return problem = "it holds no raster", false;
  if (band < 1 || band > bands) {
    problem = "it has no band " + std::to_string(band) + ", only " + std::to_string(bands);
    return false;
  }
  band_ = file_->GetRasterBand(band);
  problem = SizeProblem(bands);
  if (!problem.empty()) return false;
  const GDALDataType type = band_->GetRasterDataType();
  band_->GetBlockSize(&blockWidth_, &blockHeight_);
  const std::int64_t blockBytes =
      static_cast<std::int64_t>(blockWidth_) * blockHeight_ * GDALGetDataTypeSizeBytes(type);
  if (blockBytes > kMaxBlockBytes) return problem = "it is stored in pieces of more than a gigabyte", false;
  info_.blockRows = std::max(blockHeight_, 1);
  info_.isWide = GDALGetDataTypeSizeBits(GDALGetNonComplexDataType(type)) > 16 && type != GDT_Float32 &&
                 type != GDT_CFloat32;
  if (info_.format == "GTiff") problem = FindAbsentBlocks();
  if (!problem.empty()) return false;
  for (const char* format : kRandomAccess) info_.isRandomAccess |= info_.format == format;

  info_.hasTransform = file_->GetGeoTransform(info_.transform) == CE_None;
  for (const double t : info_.transform) info_.hasTransform &= std::isfinite(t);
  if (info_.hasTransform && info_.format == "PDS") MendPdsOffset();
  if (info_.hasTransform) ReadReference(file_->GetSpatialRef(), info_);
  ReadHeightFacts();
  return true;
}

/// What the header claims is held against the file before anything is made for it.
std::string GdalSource::SizeProblem(int bands) const {
  const std::string path = file_->GetDescription();
  if (info_.format == "TGA") return TgaProblem(path);
  std::error_code error;
  RasterClaim claim;
  claim.format = info_.format;
  claim.width = info_.width;
  claim.height = info_.height;
  claim.bands = bands;
  claim.fileBytes = std::filesystem::file_size(path, error);
  if (error) return error.message();
  if (info_.format == "PDS") {
    const std::string problem = FindPdsBytes(claim.fileBytes);
    if (!problem.empty()) return problem;
  }
  claim.bits = GDALGetDataTypeSizeBits(band_->GetRasterDataType());
  if (const char* bits = band_->GetMetadataItem("NBITS", "IMAGE_STRUCTURE"))
    claim.bits = static_cast<int>(std::clamp(Number(bits, 8), 1.0, 1.0 * claim.bits));
  return ClaimProblem(claim);
}

/// A label may name the file of its numbers, which must lie beside it: it could name any file there is.
std::string GdalSource::FindPdsBytes(std::uint64_t& bytes) const {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path folder = fs::canonical(file_->GetDescription(), error).parent_path();
  const CPLStringList files(file_->GetFileList());
  for (int i = 0; i < files.size(); ++i) {
    const fs::path path = fs::canonical(files[i], error);
    if (error || path.parent_path() != folder || !fs::is_regular_file(path, error))
      return "its label names a file that doesn't lie beside it";
    bytes = std::max<std::uint64_t>(bytes, fs::file_size(path, error));
  }
  return {};
}

/// Labels count the offset of the projection's origin from the first pixel, or from the one before it. GDAL
/// takes the first for granted; which of the two it is shows in the northernmost latitude that they tell.
void GdalSource::MendPdsOffset() {
  constexpr std::size_t kMostLabel = 1 << 16;
  std::string label(kMostLabel, '\0');
  std::ifstream in(file_->GetDescription(), std::ios::binary);
  in.read(label.data(), static_cast<std::streamsize>(label.size()));
  label.resize(static_cast<std::size_t>(std::max<std::streamsize>(in.gcount(), 0)));
  const auto valueOf = [&label](const char* keyword) {
    const std::size_t at = label.find(keyword), is = label.find('=', at);
    return at == std::string::npos || is == std::string::npos ? 0.0 : Number(label.c_str() + is + 1, 0);
  };
  const double perDegree = valueOf("MAP_RESOLUTION"), northernmost = valueOf("MAXIMUM_LATITUDE");
  double* const t = info_.transform;
  if (!(perDegree > 0) || t[2] != 0 || t[4] != 0 || !(t[5] < 0)) return;
  const double rowsTooFarNorth = -t[3] / t[5] - northernmost * perDegree;
  if (std::fabs(rowsTooFarNorth - 1) > 0.1) return;
  t[0] += t[1];
  t[3] += t[5];
}

/// A file may leave blocks out. Of a large raster it mustn't leave out nearly all: it would claim gigabytes.
std::string GdalSource::FindAbsentBlocks() {
  constexpr double kLeastPercent = 0.1, kSmall = 1 << 24;  // points
  double percent = 100;
  const int coverage =
      band_->GetDataCoverageStatus(0, 0, file_->GetRasterXSize(), file_->GetRasterYSize(), 0, &percent);
  hasAbsentBlocks_ =
      !(coverage & GDAL_DATA_COVERAGE_STATUS_UNIMPLEMENTED) && (coverage & GDAL_DATA_COVERAGE_STATUS_EMPTY);
  if (!hasAbsentBlocks_) return {};
  if (percent <= 0) return "none of its points has a height";
  if (percent<kLeastPercent&& static_cast<double>(info_.width) * static_cast<double>(info_.height)> kSmall)
    return "it leaves out nearly all of its " + std::to_string(info_.width) + " x " +
           std::to_string(info_.height) + " points";
  return {};
}

void GdalSource::ReadHeightFacts() {
  int hasValue = 0;
  if (band_->GetRasterDataType() == GDT_Int64)
    info_.missingValue = static_cast<double>(band_->GetNoDataValueAsInt64(&hasValue));
  else if (band_->GetRasterDataType() == GDT_UInt64)
    info_.missingValue = static_cast<double>(band_->GetNoDataValueAsUInt64(&hasValue));
  else
    info_.missingValue = band_->GetNoDataValue(&hasValue);
  info_.hasMissingValue = hasValue != 0;
  const double scale = band_->GetScale(&hasValue), offset = band_->GetOffset();
  if (std::isfinite(scale) && std::isfinite(offset) && scale != 0) info_.scale = scale, info_.offset = offset;
  // Texts that the writer of 16-bit pictures leaves in them.
  if (const char* pixel = file_->GetMetadataItem("metres_per_pixel"); pixel && !info_.hasTransform) {
    info_.xScale = Number(pixel, 0);
    const char* blank = std::strchr(pixel, ' ');
    info_.yScale = Number(blank, info_.xScale);
  }
  info_.scale = Number(file_->GetMetadataItem("height_scale"), info_.scale);
  info_.offset = Number(file_->GetMetadataItem("height_offset"), info_.offset);
  const char* unit = band_->GetUnitType();
  for (const HeightUnit& known : kHeightUnits)
    if (unit && EQUAL(unit, known.name)) info_.metresPerHeight = known.metres;
  if (unit && *unit && info_.metresPerHeight == 0) info_.unknownUnit = unit;
}

/// Points that the file's own mask leaves out become NaN.
template <typename Value>
bool GdalSource::DropMasked(const RasterRows& part, Value* out, std::ptrdiff_t stride) {
  const int flags = band_->GetMaskFlags();
  if (!(flags & GMF_PER_DATASET) || (flags & GMF_ALPHA)) return true;
  std::vector<GByte> mask(static_cast<size_t>(part.width));
  for (std::int64_t j = 0; j < part.rows; ++j) {
    if (band_->GetMaskBand()->RasterIO(GF_Read, static_cast<int>(part.x), static_cast<int>(part.y + j),
                                       static_cast<int>(part.width), 1, mask.data(),
                                       static_cast<int>(part.width), 1, GDT_Byte, 0, 0, nullptr) != CE_None)
      return false;
    for (std::int64_t i = 0; i < part.width; ++i)
      if (!mask[static_cast<size_t>(i)]) out[i + j * stride] = std::numeric_limits<Value>::quiet_NaN();
  }
  return true;
}

/// GDAL reads blocks that aren't in the file as zeros: points of which nothing is stored have no height.
template <typename Value>
void GdalSource::DropAbsent(const RasterRows& part, Value* out, std::ptrdiff_t stride) {
  if (!hasAbsentBlocks_) return;
  for (std::int64_t y = part.y / blockHeight_; y * blockHeight_ < part.y + part.rows; ++y)
    for (std::int64_t x = part.x / blockWidth_; x * blockWidth_ < part.x + part.width; ++x) {
      const std::string item = "BLOCK_OFFSET_" + std::to_string(x) + "_" + std::to_string(y);
      if (band_->GetMetadataItem(item.c_str(), "TIFF")) continue;
      const std::int64_t west = std::max(part.x, x * blockWidth_) - part.x,
                         east = std::min(part.x + part.width, (x + 1) * blockWidth_) - part.x;
      const std::int64_t first = std::max(part.y, y * blockHeight_) - part.y,
                         end = std::min(part.y + part.rows, (y + 1) * blockHeight_) - part.y;
      for (std::int64_t row = first; row < end; ++row)
        std::fill(out + row * stride + west, out + row * stride + east,
                  std::numeric_limits<Value>::quiet_NaN());
    }
}

template <typename Value>
bool GdalSource::ReadAs(const RasterRows& part, Value* out, GDALDataType type, std::ptrdiff_t stride,
                        std::string& problem) {
  const GdalScope scope;
  try {
    const bool isRead =
        band_->RasterIO(GF_Read, static_cast<int>(part.x), static_cast<int>(part.y),
                        static_cast<int>(part.width), static_cast<int>(part.rows), out,
                        static_cast<int>(part.width), static_cast<int>(part.rows), type, sizeof(Value),
                        static_cast<GSpacing>(stride) * static_cast<GSpacing>(sizeof(Value)),
                        nullptr) == CE_None &&
        DropMasked(part, out, stride);
    if (isRead) DropAbsent(part, out, stride);
    if (isRead && !scope.HasFailed()) return true;
    problem = scope.Problem("its heights can't be read: it is cut off, or lies about its size");
  } catch (const GdalGaveUp& gaveUp) {
    isBroken_ = true;
    problem = gaveUp.text;
  } catch (const std::exception& error) {
    isBroken_ = true;
    problem = error.what();
  }
  return false;
}

/// Of formats that are known by the file's name.
std::string NameRule(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  if (!EQUAL(extension.c_str(), ".hgt")) return {};
  return ": an SRTM file is named after its south-western corner, such as N46E007.hgt, and holds 1201 x "
         "1201, "
         "1801 x 3601 or 3601 x 3601 heights of two bytes";
}

GdalSource* Open(const std::string& path, int band, std::string& problem) {
  struct stat file;
  if (stat(path.c_str(), &file) != 0) return problem = std::strerror(errno), nullptr;
  if (!S_ISREG(file.st_mode)) return problem = "it isn't a file", nullptr;
  const GdalScope scope;
  try {
    const CPLStringList beside = FilesBeside(path);
    // Grids of text whose first heights are whole numbers would be read as such, and what isn't a number as
    // 0.
    CPLStringList options;
    options.SetNameValue("DATATYPE", "Float64");
    auto* opened = static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR, RasterDrivers(),
                   options.List(), beside.List()));
    if (!opened) {
      problem = scope.Problem("");
      if (problem.empty() || problem.find("not recognized") != std::string::npos)
        problem = "it is of no known raster format" + NameRule(path);
      return nullptr;
    }
    auto source = std::make_unique<GdalSource>(opened);
    return source->ReadFacts(band, problem) ? source.release() : nullptr;
  } catch (const GdalGaveUp& gaveUp) {
    problem = gaveUp.text;
  } catch (const std::exception& error) {
    problem = error.what();
  }
  return nullptr;
}

}  // namespace
}  // namespace ovhost

extern "C" OV_API ovhost::RasterSource* ovOpenRaster(const std::string& path, int band,
                                                     std::string& problem) {
  return ovhost::Open(path, band, problem);
}
