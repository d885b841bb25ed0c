// Reads elevation files into a heightfield.
#include "host/raster/heightfield_load.h"

#include <unordered_set>

#include "core/idioms.h"
#include "core/messages.h"
#include "host/base/memory.h"
#include "host/node/node_data.h"
#include "host/raster/fill_missing.h"

namespace {

/// Metres of the menu of vertical units; 0 stands for what the file says.
constexpr double kMetresOfUnit[] = {0, 1, 0.3048, 1200.0 / 3937, 1000, 0.1, 0.01};
constexpr long kUnits = std::size(kMetresOfUnit);

constexpr long kFillWithValue = 1;

constexpr char kStopped[] = "stopped";

}  // namespace

trHeightfieldLoad::trHeightfieldLoad() {
  HfSetFollowsInputs(false);
  filenameHint_.SetIsHeightfieldFile(true);
  filenameHint_.AddFileFilter("Heightfield files", "*.ovh");
  filenameHint_.AddFileFilter("TIFF or GeoTIFF", "*.tif;*.tiff");
  filenameHint_.AddFileFilter("SRTM heights", "*.hgt");
  filenameHint_.AddFileFilter("ASCII grids", "*.asc");
  filenameHint_.AddFileFilter("Pictures", "*.png;*.exr;*.bmp;*.tga;*.jpg");
  SetRange(bandHint_, this, {.min = 1, .max = 16});
  SetRange(shrinkHint_, this, {.min = 1, .max = 64});
  SetMenu(unitsHint_, this,
          {{"As the file says", 0},
           {"Metres", 1},
           {"Feet", 2},
           {"US survey feet", 3},
           {"Kilometres", 4},
           {"Decimetres", 5},
           {"Centimetres", 6}});
  SetMenu(fillHint_, this, {{"By interpolation", 0}, {"By a height", 1}});
  SetMenu(georeferenceHint_, this,
          {{"Ignore", 0},
           {"Scale only", 1},
           {"As the file says", 2},
           {"Latitude and longitude, whatever the file says", 3}});

  SetAbout(this, "input_node", "Of no use here: the heights come from the file.");
  Param(filename_, "filename", "", &filenameHint_)
      .About(
          "Elevation file: .ovh, GeoTIFF, SRTM .hgt, ASCII grid, or a picture whose brightness is the "
          "height.");
  GuiTab("Part of the file", "part_tab");
  Param(band_, "band", 1, &bandHint_).About("Which band of the file holds the heights, counted from 1.");
  Param(readPart_, "read_part", 0)
      .Display("Read a part only")
      .About("Reads only the rectangle between the two corners below: for a part of a large file.");
  Param(bottomLeft_, "bottom_left", {0, 0})
      .About(
          "South-western point of the part, in points of the file counted from its south-western one at 0, "
          "0.");
  Param(topRight_, "top_right", {999, 999}).About("North-eastern point of the part, itself included.");
  Param(shrink_, "down-sample", 1, &shrinkHint_)
      .Display("Down-sample by")
      .About("Makes one point of a square of this many points by this many. Saves memory with large files.");
  GuiTab("Heights", "heights_tab");
  Param(units_, "vertical_units", 0, &unitsHint_)
      .About("Unit of the file's numbers, where the file does not say it or says it wrongly.");
  Param(verticalScale_, "vertical_scale", 1.0)
      .About("Factor of all heights: above 1 exaggerates the relief.");
  Param(verticalOffset_, "vertical_offset", 0.0)
      .Display("Vertical offset in metres")
      .About("Added to all heights after their scale, to bring a file to the scene's level.");
  Param(setMissing_, "set_missing_value", 0)
      .About("Takes the number below for points without a height, besides what the file itself declares.");
  Param(missingValue_, "missing_value", -9999.0)
      .About("Number in the file that stands for no height; -9999 is usual.");
  Param(fill_, "fill_missing", 0, &fillHint_)
      .About("What points without a height get: a height interpolated from around them, or a fixed one.");
  Param(fillValue_, "fill_height", 0.0)
      .Display("Fill height in metres")
      .About("Height of missing points, where they are filled by a height.");
  GuiTab("Location", "location_tab");
  Param(georeference_, "georeference", 2, &georeferenceHint_)
      .About(
          "What is taken of the file's place on the map: nothing, the size of its cells, or its corners as "
          "well.");
  Param(setScale_, "set_metres_per_pixel", 0).About("Takes the cell size below in place of the file's.");
  Param(metresPerPixel_, "metres_per_pixel", {10, 10})
      .About("Distance of neighbouring points from west to east and from south to north, metres.");
  AddGuiAction({"read_part"}, {"bottom_left", "top_right"}, 2);
  AddGuiAction({"set_missing_value"}, {"missing_value"}, 2);
  UpdateDerived();
}

void trHeightfieldLoad::UpdateDerived() {
  trHeightfield::UpdateDerived();
  SetParamGuiEnabled("fill_height", fill_ == kFillWithValue);
}

ovhost::RasterRequest trHeightfieldLoad::Request() const {
  ovhost::RasterRequest request;
  request.band = static_cast<int>(std::clamp(band_, 0L, 1L << 20));
  request.useWindow = readPart_ != 0;
  request.windowX0 = bottomLeft_.x;
  request.windowY0 = bottomLeft_.y;
  request.windowX1 = topRight_.x;
  request.windowY1 = topRight_.y;
  request.shrink = std::clamp(shrink_, 1L, 1L << 20);
  request.metresPerHeight = units_ > 0 && units_ < kUnits ? kMetresOfUnit[units_] : 0;
  request.verticalScale = verticalScale_;
  request.verticalOffset = verticalOffset_;
  request.hasMissingValue = setMissing_ != 0;
  request.missingValue = missingValue_;
  request.fillsWithValue = fill_ == kFillWithValue;
  request.fillHeight = fillValue_;
  request.georeference = static_cast<ovhost::RasterRequest::Georeference>(std::clamp(georeference_, 0L, 3L));
  request.setsScale = setScale_ != 0;
  request.metresPerPixelX = metresPerPixel_.x;
  request.metresPerPixelY = metresPerPixel_.y;
  return request;
}

void trHeightfieldLoad::MakeFlat() {
  map_.reset();
  HfSetLatLongEnabled(0);
  HfSetScaleEnabled(1);
  HfSetScale(metresPerPixel_.x, metresPerPixel_.y, 1);
  if (Init(0, 0, 2, 2)) Fill(0);
  HfFindZRange();
}

long trHeightfieldLoad::HfOperate() {
  if (HfIsValid()) return 1;
  const std::string path = filename_.FullPath();
  if (path.empty()) {
    MakeFlat();
    HfValidate();
    return 1;
  }
  const std::string problem = ReadFile(path);
  if (!problem.empty()) {
    Cleanup();
    HfSetLatLongEnabled(0);
    if (problem != kStopped) ReportFile(path, problem);
    return 0;
  }
  HfValidate();
  return 1;
}

void trHeightfieldLoad::ReportFile(const std::string& path, const std::string& problem) const {
  trErrorWarningData data{"filename", path};
  const trString prefix = path + ": ";  // which some libraries put there themselves
  trError(problem.rfind(prefix, 0) == 0 ? problem : prefix + problem, &data);
}

std::unique_ptr<ovhost::RasterSource> trHeightfieldLoad::Open(const std::string& path,
                                                              ovhost::RasterPlan& plan,
                                                              std::string& problem) const {
  const ovhost::RasterRequest request = Request();
  auto source = ovhost::OpenRaster(path, request.band, problem);
  if (source) problem = ovhost::PlanRaster(source->Info(), request, plan);
  if (!problem.empty()) return nullptr;
  for (const std::string& warning : plan.warnings) trWarning(path + ": " + warning);
  return source;
}

void trHeightfieldLoad::CheckFile() const {
  const std::string path = filename_.FullPath();
  ovhost::RasterPlan plan;
  std::string problem;
  if (!path.empty() && !Open(path, plan, problem)) ReportFile(path, problem);
}

std::string trHeightfieldLoad::ReadFile(const std::string& path) {
  // The file, and what of it is read.
  map_.reset();
  ovhost::RasterPlan plan;
  std::string problem;
  const auto source = Open(path, plan, problem);
  if (!source) return problem;
  const ovhost::RasterRequest request = Request();

  // A raster of that size, and where it lies.
  problem = ovhost::MemoryProblem(plan, ovhost::FreeMemory());
  if (!problem.empty()) return problem;
  if (!Init(0, 0, static_cast<int>(plan.width), static_cast<int>(plan.height)))
    return "reading a part of it, or down-sampling, takes less memory";
  HfSetScaleEnabled(1);
  HfSetScale(plan.xScale, plan.yScale, plan.zScale);
  HfSetLatLongEnabled(plan.hasCorners);
  HfSetLatLongCorners(plan.corners);
  if (plan.isOnMap && source->Info().referenceText) {
    plan.map.reference = source->Info().referenceText(false);
    plan.map.esriReference = source->Info().referenceText(true);
    if (!plan.map.reference.empty()) map_ = std::make_shared<ovhost::MapPlacement>(plan.map);
  }

  // Its heights.
  struct Report {
    trBase* node;
    unsigned long token = 0;
  } report{this};
  ovhost::RasterJob job;
  job.path = path;
  job.band = request.band;
  job.source = source.get();
  job.threads = trNumCoresToUse();
  job.out = HfScanlineRaw(0);
  job.progress = {[](void* context, double fraction) {
                    auto* to = static_cast<Report*>(context);
                    return to->node->ReportProgress(to->token, "Heightfield load: Reading",
                                                    static_cast<float>(fraction), -1.0f) != 0;
                  },
                  &report};
  problem = ovhost::ReadRaster(job, plan);
  if (!problem.empty()) return problem;
  if (job.lowest <= job.highest && (std::isinf(job.lowest) || std::isinf(job.highest)))
    return "its heights are too great at that vertical scale";

  // Gaps, and the range.
  const bool hasGaps = job.hasMissing && !request.fillsWithValue;
  if (hasGaps && ovhost::FillMissing(HfScanlineRaw(0), plan.width, plan.height) == plan.width * plan.height)
    return "none of its points has a height";
  if (hasGaps || job.lowest > job.highest) {
    HfFindZRange();
  } else {
    HfSetMinZ(job.lowest);
    HfSetMaxZ(job.highest);
  }
  return {};
}

namespace ovhost {

namespace {

bool HaveSamePlaces(const trHeightfield& a, const trHeightfield& b) {
  trLatLongCorners here, there;
  if (a.HfXPnts() != b.HfXPnts() || a.HfYPnts() != b.HfYPnts() || a.HfXScale() != b.HfXScale() ||
      a.HfYScale() != b.HfYScale())
    return false;
  const bool isGeographic = a.HfLatLongCorners(&here) != 0;
  if (isGeographic != (b.HfLatLongCorners(&there) != 0)) return false;
  return !isGeographic || (here.south == there.south && here.west == there.west &&
                           here.north == there.north && here.east == there.east);
}

}  // namespace

std::shared_ptr<const MapPlacement> MapOf(const trHeightfield& heightfield) {
  std::unordered_set<const trHeightfield*> seen;
  const trHeightfield* at = &heightfield;
  for (const trHeightfield* input; !dynamic_cast<const trHeightfieldLoad*>(at); at = input) {
    input = at->HfInput();
    if (!input || !seen.insert(at).second || !HaveSamePlaces(*at, *input)) return nullptr;
  }
  return static_cast<const trHeightfieldLoad*>(at)->Map();
}

void ReportElevationFiles(trBase* root) {
  for (trBase* node : AllNodes(root)) {
    const trScopedErrorsWarningsContext context(node);
    if (const auto* loader = dynamic_cast<const trHeightfieldLoad*>(node)) loader->CheckFile();
  }
}

}  // namespace ovhost
