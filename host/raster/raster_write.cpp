// Writes elevation files of the other formats: GeoTIFF, EXR, 16-bit PNG, ASCII grid.
#include "host/raster/raster_write.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

#include "host/base/atomic_file.h"
#include "host/raster/codec_library.h"
#include "host/raster/float_exr.h"
#include "host/raster/grey_png.h"
#include "host/raster/heightfield_load.h"
#include "host/raster/ovh_writer.h"

namespace ovhost {
namespace {

constexpr double kGreatestShort = 65535;
constexpr const char* kMissingInAscii = "-9999";
constexpr const char* kWgs84 =
    "GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_1984\",6378137.0,298.257223563]],"
    "PRIMEM[\"Greenwich\",0.0],UNIT[\"Degree\",0.0174532925199433]]";
constexpr const char* kLocalGrid = "LOCAL_CS[\"Local grid\",UNIT[\"Meter\",1.0]]";

std::string Extension(const std::string& path) {
  const std::size_t dot = path.find_last_of("./");
  if (dot == std::string::npos || path[dot] == '/') return {};
  std::string extension = path.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension;
}

template <typename T>
std::string Text(T value) {
  char text[64];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

double MetresOf(const HeightGrid& grid, float value) { return value * grid.zScale; }

bool HasMissing(const HeightGrid& grid) {
  return !std::all_of(grid.values, grid.values + grid.width * grid.height,
                      [](float v) { return std::isfinite(v); });
}

/// The grid's south-western and north-eastern points and its steps, in the units of its georeference.
struct Ground {
  double west, south, east, north, stepX, stepY;
};
Ground GroundOf(const HeightGrid& grid) {
  const auto intervalsX = static_cast<double>(grid.width - 1),
             intervalsY = static_cast<double>(grid.height - 1);
  if (grid.map) {
    const MapPlacement& map = *grid.map;
    return {
        map.west, map.north - intervalsY * map.stepY, map.west + intervalsX * map.stepX, map.north, map.stepX,
        map.stepY};
  }
  if (!grid.hasCorners)
    return {0, 0, intervalsX * grid.xScale, intervalsY * grid.yScale, grid.xScale, grid.yScale};
  const trLatLongCorners& c = grid.corners;
  return {c.west,
          c.south,
          c.east,
          c.north,
          (c.east - c.west) / std::max(intervalsX, 1.0),
          (c.north - c.south) / std::max(intervalsY, 1.0)};
}

/// What 16 bits stand for: height = value * scale + offset, `first` being the lowest.
struct ShortHeights {
  double scale, offset, first;
  explicit ShortHeights(const HeightGrid& grid) : first(HasMissing(grid) ? 1 : 0) {
    const double low = MetresOf(grid, grid.lowest), high = MetresOf(grid, grid.highest);
    scale = high > low ? (high - low) / (kGreatestShort - first) : 1;
    offset = low - first * scale;
  }
  std::uint16_t Value(double metres) const {
    if (!std::isfinite(metres)) return 0;
    return static_cast<std::uint16_t>(
        std::clamp(std::floor((metres - offset) / scale + 0.5), first, kGreatestShort));
  }
  std::string ScaleText(const HeightGrid& grid) const {
    return "heights from " + Text(static_cast<float>(MetresOf(grid, grid.lowest))) + " to " +
           Text(static_cast<float>(MetresOf(grid, grid.highest))) + " m are " +
           Text(static_cast<int>(first)) + " to 65535" + (first > 0 ? ", missing ones 0" : "");
  }
};

std::string WriteGeoTiff(const std::string& path, const HeightGrid& grid, const RasterWriteOptions& options,
                         std::string& note) {
  const RasterCodec& codec = LoadRasterCodec();
  if (!codec.writeGeoTiff) return path + ": " + codec.problem;
  AtomicFile file(path);
  if (!file.Problem().empty()) return file.Problem();
  const Ground ground = GroundOf(grid);
  GeoTiffJob job;
  job.path = file.TemporaryPath();
  job.width = grid.width;
  job.height = grid.height;
  job.values = grid.values;
  job.metresPerValue = grid.zScale;
  job.bits = options.bits == 16 ? 16 : 32;
  const ShortHeights heights(grid);
  job.scale = heights.scale;
  job.offset = heights.offset;
  job.hasMissing = heights.first > 0;
  job.west = ground.west;
  job.north = ground.north;
  job.stepX = ground.stepX;
  job.stepY = ground.stepY;
  job.isGeographic = grid.hasCorners;
  if (grid.map) job.reference = grid.map->reference;
  job.software = "ov " OV_VERSION;
  job.threads = options.threads;
  job.progress = options.progress.report;
  job.context = options.progress.context;
  if (!codec.writeGeoTiff(job)) return path + ": can't be written: " + job.problem;
  if (job.bits == 16) note = heights.ScaleText(grid);
  file.Adopt();
  return file.Commit();
}

std::string WritePng(const std::string& path, const HeightGrid& grid, const RasterWriteOptions& options,
                     std::string& note) {
  const ShortHeights heights(grid);
  GreyPng picture;
  picture.width = grid.width;
  picture.height = grid.height;
  picture.bits = 16;
  // The reader of elevation files looks for the first two.
  picture.texts = {{"height_scale", Text(heights.scale)},
                   {"height_offset", Text(heights.offset)},
                   {"metres_per_pixel", Text(grid.xScale) + " " + Text(grid.yScale)},
                   {"Software", "ov " OV_VERSION}};
  picture.row = [&](std::int64_t y, std::uint16_t* row) {
    const float* values = grid.Row(grid.height - 1 - y);
    for (std::int64_t x = 0; x < grid.width; ++x) row[x] = heights.Value(MetresOf(grid, values[x]));
  };
  note = heights.ScaleText(grid);
  return WriteGreyPng(path, picture, options.threads, options.progress);
}

std::string WriteExr(const std::string& path, const HeightGrid& grid, const RasterWriteOptions& options) {
  FloatExr picture;
  picture.width = grid.width;
  picture.height = grid.height;
  picture.channel = "Y";
  picture.attributes = {{"metres_per_pixel", Text(grid.xScale) + " " + Text(grid.yScale)},
                        {"Software", "ov " OV_VERSION}};
  if (grid.hasCorners)
    picture.attributes.push_back(
        {"south_west_north_east", Text(grid.corners.south) + " " + Text(grid.corners.west) + " " +
                                      Text(grid.corners.north) + " " + Text(grid.corners.east)});
  picture.row = [&](std::int64_t y, float* row) {
    const float* values = grid.Row(grid.height - 1 - y);
    for (std::int64_t x = 0; x < grid.width; ++x) row[x] = static_cast<float>(MetresOf(grid, values[x]));
  };
  return WriteFloatExr(path, picture, options.threads, options.progress);
}

std::string AsciiHead(const HeightGrid& grid) {
  const Ground ground = GroundOf(grid);
  std::string head = "ncols " + Text(grid.width) + "\nnrows " + Text(grid.height) + "\n";
  head += "xllcorner " + Text(ground.west - ground.stepX / 2) + "\nyllcorner " +
          Text(ground.south - ground.stepY / 2) + "\n";
  if (std::fabs(ground.stepX - ground.stepY) <= 1e-12 * std::fabs(ground.stepX))
    head += "cellsize " + Text(ground.stepX) + "\n";
  else
    head += "dx " + Text(ground.stepX) + "\ndy " + Text(ground.stepY) + "\n";
  return head + "NODATA_value " + kMissingInAscii + "\n";
}

/// The grid, and beside it what its coordinates are.
std::string WriteAscii(const std::string& path, const HeightGrid& grid, const RasterWriteOptions& options) {
  AtomicFile file(path), reference(path.substr(0, path.size() - 4) + ".prj");
  file.Write(AsciiHead(grid));
  std::string line;
  for (std::int64_t y = grid.height - 1; y >= 0 && file.Problem().empty(); --y) {
    if (!options.progress.Report(1 - static_cast<double>(y) / static_cast<double>(grid.height)))
      return path + ": stopped";
    line.clear();
    const float* row = grid.Row(y);
    for (std::int64_t x = 0; x < grid.width; ++x) {
      line += std::isfinite(row[x]) ? Text(static_cast<float>(MetresOf(grid, row[x]))) : kMissingInAscii;
      line += x + 1 < grid.width ? ' ' : '\n';
    }
    file.Write(line);
  }
  reference.Write(grid.map ? grid.map->esriReference : grid.hasCorners ? kWgs84 : kLocalGrid);
  const std::string problem = reference.Problem().empty() ? file.Commit() : reference.Problem();
  return problem.empty() ? reference.Commit() : problem;
}

}  // namespace

bool IsHeightfieldPath(const std::string& path) {
  const std::string e = Extension(path);
  return e == "tif" || e == "tiff" || e == "exr" || e == "png" || e == "asc" || e == "ovh" || e == "lwo";
}

std::string WriteHeightfield(const std::string& path, const HeightGrid& grid,
                             const RasterWriteOptions& options, std::string& note) {
  if (grid.width < 1 || grid.height < 1) return path + ": there are no points to write";
  const std::string extension = Extension(path);
  if (extension == "tif" || extension == "tiff") return WriteGeoTiff(path, grid, options, note);
  if (extension == "png") return WritePng(path, grid, options, note);
  if (extension == "exr") return WriteExr(path, grid, options);
  if (extension == "asc") return WriteAscii(path, grid, options);
  if (extension == "ovh") return WriteOvh(path, grid, options.threads, options.progress);
  return path + ": heightfields are tif, exr, png, asc, ovh or lwo";
}

}  // namespace ovhost
