// Sets GDAL up once, and collects what it has to say.
#include "host/raster/codec/gdal_scope.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>
#include <gdal_frmts.h>
#include <ogr_srs_api.h>

#include <mutex>
#include <utility>

namespace ovhost {

const char* const kRasterDrivers[] = {
    "GTiff", "SRTMHGT", "AAIGrid", "GRASSASCIIGrid", "ISG",   "ENVI", "EHdr", "GenBin", "BT",
    "DTED",  "USGSDEM", "GSAG",    "GSBG",           "GS7BG", "XYZ",  "GTX",  "NTv2",   "PNG",
    "BMP",   "TGA",     "PNM",     "JPEG",           nullptr};

namespace {

/// Block cache: a few rows of tiles of a wide raster.
constexpr GIntBig kCacheBytes = 96ll << 20;

/// No side files that name data sets (PAM, overviews), and no half pictures.
constexpr std::pair<const char*, const char*> kOptions[] = {
    {"GDAL_PAM_ENABLED", "NO"}, {"GDAL_ERROR_ON_LIBJPEG_WARNING", "TRUE"}, {"GTIFF_DIRECT_IO", "YES"}};

void SetUp() {
  CPLSetConfigOption("CPL_VSIL_CURL_ALLOWED_FILENAME", "none");
  OSRSetPROJEnableNetwork(false);
  GDALSetCacheMax64(kCacheBytes);
  // Only these: whatever GDAL opens on its own account is then one of them as well. They are asked in this
  // order: first those that know a file by its beginning, for others take any file with a header beside it.
  for (void (*add)() :
       {GDALRegister_GTiff, GDALRegister_PNG,     GDALRegister_BMP,     GDALRegister_PNM,
        GDALRegister_JPEG,  GDALRegister_SRTMHGT, GDALRegister_AAIGrid, GDALRegister_GRASSASCIIGrid,
        GDALRegister_ISG,   GDALRegister_ENVI,    GDALRegister_EHdr,    GDALRegister_GenBin,
        GDALRegister_BT,    GDALRegister_DTED,    GDALRegister_USGSDEM, GDALRegister_GSAG,
        GDALRegister_GSBG,  GDALRegister_GS7BG,   GDALRegister_XYZ,     GDALRegister_GTX,
        GDALRegister_NTv2,  GDALRegister_TGA})
    add();
}

}  // namespace

GdalScope::GdalScope() {
  static std::once_flag once;
  std::call_once(once, SetUp);
  CPLPushErrorHandlerEx(
      [](CPLErr severity, CPLErrorNum code, const char* text) { Collect(severity, code, text); }, this);
  CPLErrorReset();
  for (const auto& [name, value] : kOptions) CPLSetThreadLocalConfigOption(name, value);
}

GdalScope::~GdalScope() {
  for (const auto& [name, value] : kOptions) CPLSetThreadLocalConfigOption(name, nullptr);
  CPLPopErrorHandler();
}

void GdalScope::Collect(int severity, int, const char* text) {
  auto* scope = static_cast<GdalScope*>(CPLGetErrorHandlerUserData());
  if (severity < CE_Failure) return;
  scope->hasFailed_ = true;
  if (scope->first_.empty()) scope->first_ = text;
  // GDAL calls abort() next. Unwinding leaks what it holds, and the program lives.
  if (severity == CE_Fatal) throw GdalGaveUp{text};
}

std::string GdalScope::Problem(const std::string& otherwise) const {
  return first_.empty() ? otherwise : first_;
}

}  // namespace ovhost
