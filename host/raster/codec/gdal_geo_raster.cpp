// Georeferenced rasters with GDAL: all bands, palettes and the ways between coordinate systems.
#include <gdal.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>

#include "host/raster/codec/claims.h"
#include "host/raster/codec/codec.h"
#include "host/raster/codec/gdal_files.h"
#include "host/raster/codec/gdal_scope.h"

namespace ovhost {
namespace {

constexpr double kDegreesToRadians = 0.017453292519943295;
/// The largest piece that a file may be compressed in, bytes: it is decoded whole.
constexpr std::int64_t kMaxBlockBytes = 1ll << 30;
/// More bands than this aren't looked at.
constexpr int kMaxBands = 1024;

/// What counts as an answer of a transformation: on a globe, and far within what a projection may reach.
bool IsPlace(double x, double y) { return std::fabs(x) < 1e12 && std::fabs(y) < 1e12; }

/// A way between a coordinate system and degrees of its own globe, from Greenwich.
class GdalTransformation : public trGeoTransformation {
 public:
  GdalTransformation(std::unique_ptr<OGRCoordinateTransformation> way, double degreesPerUnit,
                     double primeMeridian, bool isToDegrees)
      : way_(std::move(way)),
        degreesPerUnit_(degreesPerUnit),
        primeMeridian_(primeMeridian),
        isToDegrees_(isToDegrees) {}
  ~GdalTransformation() override {
    const GdalScope scope;
    way_.reset();
  }

  bool Transform(double& x, double& y) override {
    const GdalScope scope;
    try {
      if (!isToDegrees_) x = (x - primeMeridian_) / degreesPerUnit_, y /= degreesPerUnit_;
      if (!way_->Transform(1, &x, &y) || !IsPlace(x, y)) return false;
      if (isToDegrees_) x = x * degreesPerUnit_ + primeMeridian_, y *= degreesPerUnit_;
      return true;
    } catch (const GdalGaveUp&) {
      return false;
    } catch (const std::exception&) {
      return false;
    }
  }

  std::unique_ptr<trGeoTransformation> Clone() const override {
    const GdalScope scope;
    try {
      std::unique_ptr<OGRCoordinateTransformation> way(way_->Clone());
      if (!way) return nullptr;
      return std::make_unique<GdalTransformation>(std::move(way), degreesPerUnit_, primeMeridian_,
                                                  isToDegrees_);
    } catch (const GdalGaveUp&) {
      return nullptr;
    } catch (const std::exception&) {
      return nullptr;
    }
  }

 private:
  std::unique_ptr<OGRCoordinateTransformation> way_;
  const double degreesPerUnit_, primeMeridian_;
  const bool isToDegrees_;
};

class GdalGeoRaster : public trGeoRaster {
 public:
  explicit GdalGeoRaster(GDALDataset* file) : file_(file) {}
  ~GdalGeoRaster() override {
    const GdalScope scope;
    reference_.Clear();
    // After a failure in the midst of its work nothing is known of its state.
    if (!isBroken_) GDALClose(GDALDataset::ToHandle(file_));
  }

  bool ReadFacts(std::string& problem);
  bool ReadRows(int band, int row, int rows, double* out, trString& problem) override;
  std::unique_ptr<trGeoTransformation> ToDegrees() const override { return Way(true); }
  std::unique_ptr<trGeoTransformation> FromDegrees() const override { return Way(false); }

 private:
  std::string SizeProblem() const;
  trGeoBand BandFacts(GDALRasterBand& band) const;
  void ReadReference();
  std::unique_ptr<trGeoTransformation> Way(bool isToDegrees) const;

  GDALDataset* file_;
  OGRSpatialReference reference_;
  bool isBroken_ = false;
};

bool GdalGeoRaster::ReadFacts(std::string& problem) {
  info_.width = file_->GetRasterXSize();
  info_.height = file_->GetRasterYSize();
  const int bands = file_->GetRasterCount();
  if (bands < 1 || info_.width < 1 || info_.height < 1) return problem = "it holds no raster", false;
  problem = SizeProblem();
  if (!problem.empty()) return false;
  for (int i = 1; i <= std::min(bands, kMaxBands); ++i)
    info_.bands.push_back(file_->GetRasterBand(i) ? BandFacts(*file_->GetRasterBand(i)) : trGeoBand());

  info_.hasTransform = file_->GetGeoTransform(info_.transform) == CE_None;
  for (const double t : info_.transform) info_.hasTransform &= std::isfinite(t);
  info_.hasInverse = info_.hasTransform && GDALInvGeoTransform(info_.transform, info_.inverse) != 0;
  ReadReference();
  return true;
}

/// What the header claims is held against the file before anything is made for it.
std::string GdalGeoRaster::SizeProblem() const {
  GDALRasterBand* const band = file_->GetRasterBand(1);
  if (!band) return "it holds no raster";
  const std::string path = file_->GetDescription(),
                    format = file_->GetDriver() ? file_->GetDriver()->GetDescription() : "";
  if (format == "TGA") return TgaProblem(path);
  int blockWidth = 1, blockHeight = 1;
  band->GetBlockSize(&blockWidth, &blockHeight);
  if (static_cast<std::int64_t>(blockWidth) * blockHeight *
          GDALGetDataTypeSizeBytes(band->GetRasterDataType()) >
      kMaxBlockBytes)
    return "it is stored in pieces of more than a gigabyte";
  std::error_code error;
  RasterClaim claim;
  claim.format = format;
  claim.width = info_.width;
  claim.height = info_.height;
  claim.bands = file_->GetRasterCount();
  claim.bits = GDALGetDataTypeSizeBits(band->GetRasterDataType());
  if (const char* bits = band->GetMetadataItem("NBITS", "IMAGE_STRUCTURE"))
    claim.bits = std::clamp(std::atoi(bits), 1, claim.bits);
  claim.fileBytes = std::filesystem::file_size(path, error);
  return error ? error.message() : ClaimProblem(claim);
}

trGeoBand GdalGeoRaster::BandFacts(GDALRasterBand& band) const {
  trGeoBand facts;
  facts.colour = static_cast<trBandColour>(band.GetColorInterpretation());
  facts.type = static_cast<trBandType>(band.GetRasterDataType());
  facts.width = band.GetXSize();
  facts.height = band.GetYSize();
  int hasValue = 0;
  facts.noData = band.GetNoDataValue(&hasValue);
  facts.hasNoData = hasValue != 0;
  const GDALColorTable* const table = band.GetColorTable();
  if (!table) return facts;
  facts.hasPalette = true;
  const GDALPaletteInterp kind = table->GetPaletteInterpretation();
  facts.isPaletteOfColours = kind == GPI_Gray || kind == GPI_RGB;
  for (int i = 0; i < table->GetColorEntryCount(); ++i) {
    const GDALColorEntry& entry = *table->GetColorEntry(i);
    facts.palette.push_back({entry.c1, entry.c2, entry.c3, entry.c4});
  }
  return facts;
}

void GdalGeoRaster::ReadReference() {
  const OGRSpatialReference* const told = file_->GetSpatialRef();
  if (!told || told->IsEmpty()) return;
  info_.hasReference = true;
  reference_ = *told;
  reference_.StripVertical();
  reference_.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  info_.isProjected = reference_.IsProjected() != 0;
  OGRErr failed = OGRERR_NONE;
  const double radius = reference_.GetSemiMajor(&failed);
  if (failed == OGRERR_NONE && std::isfinite(radius)) info_.semiMajor = radius;
  char* text = nullptr;
  if (reference_.exportToPrettyWkt(&text, FALSE) == OGRERR_NONE && text) info_.referenceText = text;
  CPLFree(text);
}

std::unique_ptr<trGeoTransformation> GdalGeoRaster::Way(bool isToDegrees) const {
  if (!info_.hasReference) return nullptr;
  const GdalScope scope;
  try {
    const std::unique_ptr<OGRSpatialReference> degrees(reference_.CloneGeogCS());
    if (!degrees) return nullptr;
    degrees->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const double unit = degrees->GetAngularUnits() / kDegreesToRadians;
    if (!(unit > 0)) return nullptr;
    // Degrees from Greenwich are what is asked for.
    if (reference_.IsGeographic() && std::fabs(unit - 1) < 1e-12 && degrees->GetPrimeMeridian() == 0)
      return nullptr;
    std::unique_ptr<OGRCoordinateTransformation> way(
        isToDegrees ? OGRCreateCoordinateTransformation(&reference_, degrees.get())
                    : OGRCreateCoordinateTransformation(degrees.get(), &reference_));
    if (!way) return nullptr;
    return std::make_unique<GdalTransformation>(std::move(way), unit, degrees->GetPrimeMeridian(),
                                                isToDegrees);
  } catch (const GdalGaveUp&) {
    return nullptr;
  } catch (const std::exception&) {
    return nullptr;
  }
}

bool GdalGeoRaster::ReadRows(int band, int row, int rows, double* out, trString& problem) {
  const GdalScope scope;
  try {
    GDALRasterBand* const from = file_->GetRasterBand(band);
    const bool isRead = from && from->RasterIO(GF_Read, 0, row, info_.width, rows, out, info_.width, rows,
                                               GDT_Float64, 0, 0, nullptr) == CE_None;
    if (isRead && !scope.HasFailed()) return true;
    problem = scope.Problem("its pixels can't be read: it is cut off, or lies about its size");
  } catch (const GdalGaveUp& gaveUp) {
    isBroken_ = true;
    problem = gaveUp.text;
  } catch (const std::exception& error) {
    isBroken_ = true;
    problem = error.what();
  }
  return false;
}

GdalGeoRaster* Open(const std::string& path, bool& isFormatKnown, std::string& problem) {
  isFormatKnown = true;
  const GdalScope scope;
  try {
    const CPLStringList beside = FilesBeside(path);
    auto* opened = static_cast<GDALDataset*>(
        GDALOpenEx(path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY | GDAL_OF_VERBOSE_ERROR, RasterDrivers(),
                   nullptr, beside.List()));
    if (!opened) {
      problem = scope.Problem("");
      isFormatKnown = !problem.empty() && problem.find("not recognized") == std::string::npos;
      return nullptr;
    }
    auto raster = std::make_unique<GdalGeoRaster>(opened);
    return raster->ReadFacts(problem) ? raster.release() : nullptr;
  } catch (const GdalGaveUp& gaveUp) {
    problem = gaveUp.text;
  } catch (const std::exception& error) {
    problem = error.what();
  }
  return nullptr;
}

}  // namespace
}  // namespace ovhost

extern "C" OV_API trGeoRaster* ovOpenGeoRaster(const std::string& path, bool& isFormatKnown,
                                               std::string& problem) {
  return ovhost::Open(path, isFormatKnown, problem);
}
