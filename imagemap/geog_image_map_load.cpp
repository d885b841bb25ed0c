// Loading of geog_image_map_shader.
#include <filesystem>

#include "core/messages.h"
#include "imagemap/geog_image_map_shader.h"

namespace {

void TellFileError(const trString& text, const trString& path) {
  trErrorWarningData data;
  data.file = path;
  trError(text, &data);
}

}  // namespace

/// The file's whole path; empty, and an error, where there is none.
trString GeogImageMapShader::FoundFile() const {
  const trString path = filename_.FullPath();
  if (path.empty()) return {};
  std::error_code error;
  if (std::filesystem::exists(path, error)) return path;
  TellFileError(Name() + " : Cannot locate file " + path, path);
  return {};
}

std::unique_ptr<trGeoRaster> GeogImageMapShader::OpenRaster(const trString& path) const {
  bool isFormatKnown = true;
  trString problem;
  std::unique_ptr<trGeoRaster> raster = trOpenGeoRaster(path, isFormatKnown, problem);
  if (!raster && !isFormatKnown) TellFileError(path + " is not a file format that can be loaded.", path);
  if (!raster && isFormatKnown) TellFileError(path + ": " + problem, path);
  return raster;
}

long GeogImageMapShader::LoadImage(long frame) {
  if (loadMethod_ == kRasterLibrary) return LoadDataset(true);
  const long isLoaded = ImageMapShader::LoadImage(frame);
  place_ = GeogPlace();
  ways_.clear();
  UpdateInfo(nullptr);
  return isLoaded;
}

long GeogImageMapShader::LoadDataset(bool mayPlace) {
  image_.reset();
  const trScopedErrorsWarningsContext context(this);
  loadedNoData_ = NoDataSettings();
  const trString path = FoundFile();
  const std::unique_ptr<trGeoRaster> raster = path.empty() ? nullptr : OpenRaster(path);
  if (!raster) return UpdateInfo(nullptr), 0;

  const GeogBandMap map = GeogBandMap::Of(raster->Info());
  trString problem = "its bands make no picture: they are " + std::to_string(raster->Info().bands.size()) +
                     ", and don't say which of them are grey, a palette, or red, green and blue";
  unsigned long token = 0;
  const auto progress = [&](const trString& text, double fraction) {
    return ReportProgress(token, text, static_cast<float>(fraction), -1.0f) != 0;
  };
  if (map.format != GeogBandMap::kUnknown)
    image_ = LoadGeogImage(*raster, map, loadedNoData_, progress, problem);
  if (!image_) {
    TellFileError(path + ": " + problem, path);
    return UpdateInfo(&raster->Info()), 0;
  }
  if (mayPlace) WarnOfCutValues(raster->Info(), map);
  TakePlace(FindGeogPlace(*raster), mayPlace);
  UpdateInfo(&raster->Info());
  return 1;
}

/// Told once a file: colours have eight bits, heights need more.
void GeogImageMapShader::WarnOfCutValues(const trGeoRasterInfo& info, const GeogBandMap& map) const {
  if (map.format == GeogBandMap::kPalette) return;
  for (const int number : map.Bands())
    if (number && info.bands[static_cast<std::size_t>(number - 1)].type != trBandType::kByte)
      return trWarning(
          "Values of more than 8 bits are cut to 0 to 255 as colours. Heights are kept as they are by "
          "heightfield_load with heightfield_shader.");
}

void GeogImageMapShader::TakePlace(GeogPlace place, bool mayPlace) {
  place_ = std::move(place);
  fileCorners_ = place_.corners;
  ways_.clear();
  ways_.resize(static_cast<std::size_t>(trMaxThreads()));
  if (!mayPlace || !autoGeoreference_) return;
  static constexpr const char* kNames[] = {"NW_corner_lat_long", "NE_corner_lat_long", "SE_corner_lat_long",
                                           "SW_corner_lat_long"};
  SetParam("georeference", 1, this);
  for (std::size_t i = 0; i < 4; ++i) SetParam(kNames[i], fileCorners_[i], this);
}

void GeogImageMapShader::UpdateInfo(const trGeoRasterInfo* info) {
  trString text;
  tr2Vector points = image_ ? tr2Vector(image_->width, image_->height) : tr2Vector(), size = points;
  if (loadMethod_ != kRasterLibrary) {
    text = "No raster or projection info for Ombrivex load method";
  } else if (info) {
    text = GeogReport(*info);
    points = tr2Vector(info->width, info->height);
    size = tr2Vector(points.x * place_.pixelSize.x, points.y * place_.pixelSize.y);
  }
  SetParam("xy_size", size, this);
  SetParam("xy_points", points, this);
  SetParam("projection_info", text, this);
}
