// Writes GeoTIFFs with GDAL.
#include <cpl_string.h>
#include <gdal.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <latch>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "core/api.h"
#include "host/raster/codec/codec.h"
#include "host/raster/codec/gdal_scope.h"

namespace ovhost {
namespace {

constexpr int kTile = 256;
constexpr double kGreatestShort = 65535;

/// The wished number, or 1 where so many can't be made: GDAL waits for ever for threads that it couldn't
/// make.
int ThreadsToUse(int wished) {
  std::latch mayEnd(1);
  std::vector<std::jthread> made;
  int threads = std::max(wished, 1);
  try {
    for (int i = 0; threads > 1 && i < threads; ++i) made.emplace_back([&] { mayEnd.wait(); });
  } catch (const std::system_error&) {
    threads = 1;
  }
  mayEnd.count_down();
  return threads;
}

CPLStringList CreationOptions(const GeoTiffJob& job) {
  CPLStringList options;
  const bool isTiled = job.width >= kTile && job.height >= kTile;
  if (isTiled) {
    options.SetNameValue("TILED", "YES");
    options.SetNameValue("BLOCKXSIZE", std::to_string(kTile).c_str());
    options.SetNameValue("BLOCKYSIZE", std::to_string(kTile).c_str());
  }
  options.SetNameValue("COMPRESS", "DEFLATE");
  options.SetNameValue("PREDICTOR", job.bits == 32 ? "3" : "2");
  options.SetNameValue("ZLEVEL", "4");
  options.SetNameValue("NUM_THREADS", std::to_string(ThreadsToUse(job.threads)).c_str());
  options.SetNameValue("BIGTIFF", "IF_SAFER");
  return options;
}

/// Points lie in the middle of their pixels, the northern row first.
bool Describe(GDALDataset& file, const GeoTiffJob& job) {
  double transform[6] = {job.west - 0.5 * job.stepX,  job.stepX, 0,
                         job.north + 0.5 * job.stepY, 0,         -job.stepY};
  OGRSpatialReference reference;
  reference.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  if (!job.reference.empty()) {
    if (reference.importFromWkt(job.reference.c_str()) != OGRERR_NONE) return false;
  } else if (job.isGeographic) {
    reference.SetWellKnownGeogCS("WGS84");
  } else {
    reference.SetLocalCS("Local grid");
    reference.SetLinearUnits(SRS_UL_METER, 1.0);
  }
  file.SetMetadataItem(GDALMD_AREA_OR_POINT, GDALMD_AOP_POINT);
  file.SetMetadataItem("TIFFTAG_SOFTWARE", job.software.c_str());
  GDALRasterBand* band = file.GetRasterBand(1);
  band->SetUnitType("m");
  if (job.bits == 16) {
    band->SetScale(job.scale);
    band->SetOffset(job.offset);
  }
  if (job.hasMissing) band->SetNoDataValue(job.bits == 16 ? 0.0 : std::nan(""));
  return file.SetSpatialRef(&reference) == CE_None && file.SetGeoTransform(transform) == CE_None;
}

void ConvertRow(const GeoTiffJob& job, const float* from, float* to) {
  for (std::int64_t x = 0; x < job.width; ++x) {
    const double metres = from[x] * job.metresPerValue;
    if (job.bits == 32)
      to[x] = static_cast<float>(metres);
    else if (!std::isfinite(metres))
      to[x] = 0;
    else
      to[x] = static_cast<float>(std::clamp(std::floor((metres - job.offset) / job.scale + 0.5),
                                            job.hasMissing ? 1.0 : 0.0, kGreatestShort));
  }
}

bool WriteRows(GDALDataset& file, GeoTiffJob& job) {
  std::vector<float> rows(static_cast<size_t>(job.width) * kTile);
  GDALRasterBand* band = file.GetRasterBand(1);
  for (std::int64_t top = 0; top < job.height; top += kTile) {
    if (job.progress &&
        !job.progress(job.context, static_cast<double>(top) / static_cast<double>(job.height)))
      return job.problem = "stopped", false;
    const std::int64_t count = std::min<std::int64_t>(kTile, job.height - top);
    for (std::int64_t j = 0; j < count; ++j)
      ConvertRow(job, job.values + (job.height - 1 - top - j) * job.width, rows.data() + j * job.width);
    if (band->RasterIO(GF_Write, 0, static_cast<int>(top), static_cast<int>(job.width),
                       static_cast<int>(count), rows.data(), static_cast<int>(job.width),
                       static_cast<int>(count), GDT_Float32, 0, 0, nullptr) != CE_None)
      return false;
  }
  return true;
}

/// Whether the file holds row `row` from the top.
bool HoldsRow(GDALRasterBand& band, const GeoTiffJob& job, std::int64_t row) {
  std::vector<float> wanted(static_cast<size_t>(job.width)), found(wanted.size());
  ConvertRow(job, job.values + (job.height - 1 - row) * job.width, wanted.data());
  const auto width = static_cast<int>(job.width);
  if (band.RasterIO(GF_Read, 0, static_cast<int>(row), width, 1, found.data(), width, 1, GDT_Float32, 0, 0,
                    nullptr) != CE_None)
    return false;
  const auto isSame = [](float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); };
  return std::equal(wanted.begin(), wanted.end(), found.begin(), isSame);
}

/// Whether every block of the file lies within it.
bool HoldsBlocks(GDALRasterBand& band, const GeoTiffJob& job, std::uintmax_t fileBytes) {
  int width = 1, height = 1;
  band.GetBlockSize(&width, &height);
  const auto number = [&band](const std::string& item) {
    const char* text = band.GetMetadataItem(item.c_str(), "TIFF");
    return text ? std::strtoull(text, nullptr, 10) : 0ull;
  };
  for (std::int64_t y = 0; y * height < job.height; ++y)
    for (std::int64_t x = 0; x * width < job.width; ++x) {
      const std::string place = std::to_string(x) + "_" + std::to_string(y);
      const std::uint64_t offset = number("BLOCK_OFFSET_" + place), size = number("BLOCK_SIZE_" + place);
      if (offset == 0 || size == 0 || size > fileBytes || offset > fileBytes - size) return false;
    }
  return true;
}

/// Opens what was written, before it takes anybody's place: encoders have been seen to succeed on a full
/// disc.
bool IsWhole(const GeoTiffJob& job) {
  static constexpr const char* kDrivers[] = {"GTiff", nullptr};
  static constexpr const char* kNothingBeside[] = {nullptr};
  const std::unique_ptr<GDALDataset> file(GDALDataset::Open(
      job.path.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY, kDrivers, nullptr, kNothingBeside));
  if (!file || file->GetRasterXSize() != job.width || file->GetRasterYSize() != job.height ||
      file->GetRasterCount() != 1)
    return false;
  std::error_code error;
  const std::uintmax_t bytes = std::filesystem::file_size(job.path, error);
  GDALRasterBand& band = *file->GetRasterBand(1);
  return !error && HoldsBlocks(band, job, bytes) && HoldsRow(band, job, 0) &&
         HoldsRow(band, job, job.height - 1);
}

bool Write(GeoTiffJob& job) {
  const GdalScope scope;
  try {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("GTiff");
    GDALDataset* file =
        driver ? driver->Create(job.path.c_str(), static_cast<int>(job.width), static_cast<int>(job.height),
                                1, job.bits == 32 ? GDT_Float32 : GDT_UInt16, CreationOptions(job).List())
               : nullptr;
    bool isWritten = file && Describe(*file, job) && WriteRows(*file, job);
    // What doesn't fit on the disc is often told only here.
    if (file) GDALClose(GDALDataset::ToHandle(file));
    isWritten = isWritten && !scope.HasFailed();
    if (isWritten && !IsWhole(job)) {
      job.problem = scope.Problem("what was written can't be read back");
      return false;
    }
    if (!isWritten && job.problem.empty()) job.problem = scope.Problem("it can't be written");
    return isWritten;
  } catch (const GdalGaveUp& gaveUp) {
    job.problem = gaveUp.text;
  } catch (const std::exception& error) {
    job.problem = error.what();
  }
  return false;
}

}  // namespace
}  // namespace ovhost

extern "C" OV_API bool ovWriteGeoTiff(ovhost::GeoTiffJob& job) { return ovhost::Write(job); }
