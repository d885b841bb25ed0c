// Writes GeoTIFFs with GDAL.
#include <cpl_string.h>
#include <gdal.h>
#include <gdal_priv.h>
#include <ogr_spatialref.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <vector>

#include "core/api.h"
#include "host/raster/codec/codec.h"
#include "host/raster/codec/gdal_scope.h"

namespace ovhost {
namespace {

constexpr int kTile = 256;
constexpr double kGreatestShort = 65535;

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
  options.SetNameValue("NUM_THREADS", std::to_string(std::max(job.threads, 1)).c_str());
  options.SetNameValue("BIGTIFF", "IF_SAFER");
  return options;
}

/// Points lie in the middle of their pixels, the northern row first.
bool Describe(GDALDataset& file, const GeoTiffJob& job) {
  double transform[6] = {job.west - 0.5 * job.stepX,  job.stepX, 0,
                         job.north + 0.5 * job.stepY, 0,         -job.stepY};
  OGRSpatialReference reference;
  reference.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
  if (job.isGeographic) {
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
