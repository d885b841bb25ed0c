// MOLA_map_shader.
#include "imagemap/mola_map_shader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

bool GlobeGrid::Add(const trHeightfield& grid) {
  trLatLongCorners corners;
  if (!grid.HfLatLongCorners(&corners) || grid.HfXPnts() < 2 || grid.HfYPnts() < 2) return false;
  // A grid whose east ends behind its west goes over the date line.
  double across = corners.east - corners.west;
  if (across <= 0) across += 360;
  const double perX = static_cast<double>(grid.HfXSize()) / across,
               perY = static_cast<double>(grid.HfYSize()) / (corners.north - corners.south);
  if (!(perX > 1e-3 && perX < 1e6 && perY > 1e-3 && perY < 1e6)) return false;
  if (tiles_.empty()) {
    west_ = corners.west;
    south_ = corners.south;
    // The steps of the lattice go round the globe a whole number of times.
    around_ = std::lround(360 * perX);
    perDegreeX_ = static_cast<double>(around_) / 360;
    perDegreeY_ = std::fabs(perY - perDegreeX_) < 1e-3 * perX ? perDegreeX_ : perY;
    southSum_ = std::lround(2 * (-90 - south_) * perDegreeY_);
    northSum_ = std::lround(2 * (90 - south_) * perDegreeY_);
  }
  const double column = (corners.west - west_) * perDegreeX_, row = (corners.south - south_) * perDegreeY_;
  const auto isOff = [](double x) { return std::fabs(x - std::round(x)) > 0.1; };
  if (std::fabs(perX - perDegreeX_) * across > 0.2 || isOff(column) || isOff(row)) return false;
  const long first = std::lround(column) % around_;
  tiles_.push_back({&grid, first < 0 ? first + around_ : first, std::lround(row), grid.HfZScale()});
  return true;
}

const float* GlobeGrid::PointAt(long column, long row, double& metres) const {
  for (const Tile& tile : tiles_) {
    long x = column - tile.column;
    if (x < 0) x += around_;
    const long y = row - tile.row;
    if (x >= tile.grid->HfXPnts() || y < 0 || y >= tile.grid->HfYPnts()) continue;
    metres = tile.metres;
    return tile.grid->HfScanlineRaw(static_cast<int>(y)) + x;
  }
  return nullptr;
}

double GlobeGrid::Point(long column, long row, double otherwise) const {
  // Beyond a pole rows come back half way round.
  if (2 * row < southSum_ || 2 * row > northSum_) {
    row = (2 * row < southSum_ ? southSum_ : northSum_) - row;
    column += around_ / 2;
  }
  column %= around_;
  if (column < 0) column += around_;
  double metres;
  const float* const at = PointAt(column, row, metres);
  return at && std::isfinite(*at) ? *at * metres : otherwise;
}

bool GlobeGrid::HeightAt(double latitude, double longitude, long interpolation, double& height) const {
  const double x = (longitude - west_) * perDegreeX_, y = (latitude - south_) * perDegreeY_;
  if (!(std::fabs(x) < 1e12 && std::fabs(y) < 1e12)) return false;
  height = Point(std::lround(x), std::lround(y), std::nan(""));
  if (std::isnan(height)) return false;
  if (interpolation == kNearest) return true;
  const double fx = std::floor(x), fy = std::floor(y), u = x - fx, v = y - fy;
  const long column = static_cast<long>(fx), row = static_cast<long>(fy);
  const int taps = interpolation == kLinear ? 2 : 4, first = interpolation == kLinear ? 0 : -1;
  const auto weights = [&](double t, double(&w)[4]) {
    if (taps == 2) {
      w[0] = 1 - t, w[1] = t;
      return;
    }
    // Catmull and Rom 1974.
    w[0] = ((-0.5 * t + 1.0) * t - 0.5) * t;
    w[1] = (1.5 * t - 2.5) * t * t + 1.0;
    w[2] = ((-1.5 * t + 2.0) * t + 0.5) * t;
    w[3] = (0.5 * t - 0.5) * t * t;
  };
  double wx[4], wy[4], sum = 0;
  weights(u, wx);
  weights(v, wy);
  for (int j = 0; j < taps; ++j)
    for (int i = 0; i < taps; ++i) sum += wx[i] * wy[j] * Point(column + first + i, row + first + j, height);
  height = sum;
  return true;
}

MOLAMapShader::MOLAMapShader() {
  fileHint_.SetIsHeightfieldFile(true);
  fileHint_.AddFileFilter("PDS label", "lbl");
  SetMenu(interpolationHint_, this,
          {{"Nearest", GlobeGrid::kNearest}, {"Linear", GlobeGrid::kLinear}, {"Cubic", GlobeGrid::kCubic}});
  shrinkHint_.SetParam("min_value", 1.0, this, true);
  shrinkHint_.SetParam("max_value", 64.0, this, true);
  SetRange(multiplierHint_, this, {.min = -10.0, .max = 10.0});
  SetRange(offsetHint_, this, {.min = -1e5, .max = 1e5, .focusPower = 4.0});

  Param(filename_, "filename", "", &fileHint_)
      .Display("File, or folder of files")
      .About("A labelled grid of elevations (.lbl), or a folder of them that cover the globe together.");
  Param(downSample_, "down-sample", 1, &shrinkHint_)
      .Display("Down-sample by")
      .About("Takes every so many points of the files: less memory, less detail.");
  Gui(trGuiGap);
  Param(interpolation_, "interpolation", GlobeGrid::kCubic, &interpolationHint_)
      .About("How heights between grid points are found. Cubic is smooth, nearest shows the grid.");
  Param(displacementMultiplier_, "displacement_multiplier", 1.0, &multiplierHint_)
      .About("Exaggerates the relief, or flattens it; negative turns it upside down.");
  Param(displacementOffset_, "displacement_offset", 0.0, &offsetHint_)
      .About("Metres added to all heights, after the multiplier.");
  mask_.Declare(this, 0);
}

MOLAMapShader::~MOLAMapShader() = default;

void MOLAMapShader::PreDestroy() {
  Forget();
  trSurfaceShader::PreDestroy();
}

void MOLAMapShader::OnParamChanged(long index, trBase* who) {
  trShader::OnParamChanged(index, who);
  mask_.OnParamChanged(this, index, who);
  if (IsParam(index, &filename_) || IsParam(index, &downSample_)) Forget();
}

void MOLAMapShader::Forget() {
  globe_.Clear();
  for (trBase* reader : readers_) trDestroyObject(reader);
  readers_.clear();
  isLoaded_ = false;
}

std::vector<trString> MOLAMapShader::Files() const {
  namespace fs = std::filesystem;
  const trString path = filename_.FullPath();
  std::error_code error;
  if (path.empty() || !fs::is_directory(path, error))
    return path.empty() ? std::vector<trString>() : std::vector{path};
  std::vector<trString> files;
  for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
    trString extension = entry->path().extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".lbl") files.push_back(entry->path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void MOLAMapShader::Load() {
  isLoaded_ = true;
  const trScopedErrorsWarningsContext context(this);
  const std::vector<trString> files = Files();
  if (files.empty() && !filename_.FullPath().empty())
    trWarning(filename_.FullPath() + ": holds no labels (.lbl)");
  for (const trString& file : files) {
    trBase* const reader = trCreateObject("heightfield_load", this, 0);
    auto* const grid = dynamic_cast<trHeightfield*>(reader);
    if (!grid) return;
    readers_.push_back(reader);
    reader->SetParam("down-sample", std::clamp(downSample_, 1L, 64L), this);
    reader->SetParam("filename", file, this);
    // What can't be read is told by the reader.
    if (!(grid->HfOperateTS() & 1) || grid->HfXPnts() < 3) continue;
    if (!globe_.Add(*grid)) trWarning(file + ": has no place on the lattice of latitude and longitude");
  }
}

long MOLAMapShader::StartRender(trRenderingInterface& rendering) {
  if (!isLoaded_) Load();
  geography_ = trPlanetGeography();
  geography_.Read(this);
  return trSurfaceShader::StartRender(rendering);
}

long MOLAMapShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled() || globe_.IsEmpty()) return 1;
  float mask;
  if (!mask_.Evaluate(si, 1.0, mask)) return 0;
  if (mask == 0.0f) return 1;
  const tr2Vector place = geography_.LatLong(si.Pg());
  double height;
  if (!globe_.HeightAt(place.x, place.y, interpolation_, height)) return 1;
  si.P() += Normalised(si.Pg() - geography_.centre) *
            ((height * displacementMultiplier_ + displacementOffset_) * mask);
  return 1;
}
