// Sets GDAL up once, and collects what it has to say.
#include "host/raster/codec/gdal_scope.h"

#include <cpl_conv.h>
#include <cpl_error.h>
#include <gdal.h>
#include <gdal_frmts.h>
#include <ogr_srs_api.h>

#include <mutex>
#include <utility>
#include <vector>

namespace ovhost {

namespace {

/// Only these: whatever GDAL opens on its own account is then one of them as well. They are asked in this
/// order: first those that know a file by its beginning, then by its name; last those that take any file that
/// has a header beside it, which may be another file's.
constexpr std::pair<const char*, void (*)()> kDrivers[] = {
    {"GTiff", GDALRegister_GTiff},     {"PNG", GDALRegister_PNG},
    {"BMP", GDALRegister_BMP},         {"PNM", GDALRegister_PNM},
    {"JPEG", GDALRegister_JPEG},       {"SRTMHGT", GDALRegister_SRTMHGT},
    {"AAIGrid", GDALRegister_AAIGrid}, {"GRASSASCIIGrid", GDALRegister_GRASSASCIIGrid},
    {"ISG", GDALRegister_ISG},         {"BT", GDALRegister_BT},
    {"DTED", GDALRegister_DTED},       {"USGSDEM", GDALRegister_USGSDEM},
    {"GSAG", GDALRegister_GSAG},       {"GSBG", GDALRegister_GSBG},
    {"GS7BG", GDALRegister_GS7BG},     {"XYZ", GDALRegister_XYZ},
    {"NTv2", GDALRegister_NTv2},       {"GTX", GDALRegister_GTX},
    {"PDS", GDALRegister_PDS},         {"TGA", GDALRegister_TGA},
    {"ENVI", GDALRegister_ENVI},       {"EHdr", GDALRegister_EHdr},
    {"GenBin", GDALRegister_GenBin}};

/// Block cache: a few rows of tiles of a wide raster.
constexpr GIntBig kCacheBytes = 96ll << 20;

/// No side files that name data sets (PAM, overviews), no half pictures, and no threads but those asked for.
constexpr std::pair<const char*, const char*> kOptions[] = {{"GDAL_PAM_ENABLED", "NO"},
                                                            {"GDAL_ERROR_ON_LIBJPEG_WARNING", "TRUE"},
                                                            {"GTIFF_DIRECT_IO", "YES"},
                                                            {"GDAL_NUM_THREADS", "1"}};

void SetUp() {
  CPLSetConfigOption("CPL_VSIL_CURL_ALLOWED_FILENAME", "none");
  OSRSetPROJEnableNetwork(false);
  GDALSetCacheMax64(kCacheBytes);
  for (const auto& [name, add] : kDrivers) add();
}

}  // namespace

const char* const* RasterDrivers() {
  static const std::vector<const char*> names = [] {
    std::vector<const char*> all;
    for (const auto& [name, add] : kDrivers) all.push_back(name);
    all.push_back(nullptr);
    return all;
  }();
  return names.data();
}

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
