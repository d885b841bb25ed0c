// Elevation files of other programs: headers that belong to other files, claims that don't hold, precision,
// units, maps.
#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/node/class_pool.h"
#include "host/raster/raster_read.h"
#include "host/raster/raster_write.h"
#include "tests/raster_files.h"

namespace {

using namespace ovhost;

template <typename Number>
std::string Little(Number value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}
template <typename Number>
std::string Big(Number value) {
  const std::string bytes = Little(value);
  return {bytes.rbegin(), bytes.rend()};
}

/// 4 by 3 heights of 100 to 111, the north-western one first.
constexpr int kWidth = 4, kRows = 3;
float Height(int x, int row) { return static_cast<float>(100 + x + kWidth * row); }

template <typename Text>
std::string AllHeights(const Text& text, bool isSouthFirst = false) {
  std::string all;
  for (int row = 0; row < kRows; ++row)
    for (int x = 0; x < kWidth; ++x) all += text(x, isSouthFirst ? kRows - 1 - row : row);
  return all;
}

std::string Gtx() {
  std::string file;
  for (const double v : {46.0, 7.0, 0.5, 0.5}) file += Big(v);
  return file + Big(kRows) + Big(kWidth) +
         AllHeights([](int x, int row) { return Big(Height(x, row)); }, true);
}
std::string Surfer() {
  return "DSAA\n4 3\n0 3\n0 2\n100 111\n" +
         AllHeights([](int x, int row) { return std::to_string(Height(x, row)) + " "; }, true) + "\n";
}
std::string Xyz() {
  return AllHeights([](int x, int row) {
    return std::to_string(x) + " " + std::to_string(-row) + " " + std::to_string(Height(x, row)) + "\n";
  });
}
std::string TgaHead(int type, int width, int height) {
  std::string head(18, '\0');
  head[2] = static_cast<char>(type);
  head.replace(12, 4, Little(static_cast<std::uint16_t>(width)) + Little(static_cast<std::uint16_t>(height)));
  head[16] = 8;     // bits
  head[17] = 0x20;  // from the top
  return head;
}
std::string Bytes() {
  return AllHeights([](int x, int row) { return std::string(1, static_cast<char>(Height(x, row))); });
}
std::string Ascii() {
  return "ncols 4\nnrows 3\nxllcorner 0\nyllcorner 0\ncellsize 1\n" +
         AllHeights([](int x, int row) { return std::to_string(Height(x, row)) + " "; }) + "\n";
}

struct Header {
  const char *extension, *text;
};
/// Of the three formats whose pixels are in a file of any name: whole numbers of a byte, 4 by 3.
constexpr Header kHeaders[] = {
    {".hdr", "NROWS 3\nNCOLS 4\nNBITS 8\nLAYOUT BIL\n"},
    {".HDR", "ENVI\nsamples = 4\nlines = 3\nbands = 1\nheader offset = 0\ndata type = 1\ninterleave = bsq\n"},
    {".hdr",
     "BANDS:      1\nROWS:   3\nCOLS: 4\nINTERLEAVING: BSQ\nDATATYPE: U8\nBYTE_ORDER: NA\nUL_X_COORDINATE: "
     "0\n"
     "UL_Y_COORDINATE: 2\nLR_X_COORDINATE: 3\nLR_Y_COORDINATE: 0\nPROJ_CODE: 0\nPIXEL_WIDTH: 1\n"
     "PIXEL_HEIGHT: 1\n"}};

TEST(ForeignRasters, AHeaderOfAnotherFileIsLeftAlone) {
  const RasterFolder folder;
  const std::pair<const char*, std::string> files[] = {{"a.gtx", Gtx()},
                                                       {"a.grd", Surfer()},
                                                       {"a.xyz", Xyz()},
                                                       {"A.TGA", TgaHead(3, kWidth, kRows) + Bytes()},
                                                       {"A.ASC", Ascii()}};
  for (const auto& [name, bytes] : files)
    for (const Header& header : kHeaders) {
      SCOPED_TRACE(std::string(name) + " beside " + header.text);
      const std::filesystem::path path = folder / name;
      const std::string beside = std::filesystem::path(path).replace_extension(header.extension);
      Put(path, bytes);
      Put(beside, header.text);
      const LoadedRaster loaded = Load(path);
      ASSERT_EQ(loaded.problem, "");
      ASSERT_EQ(loaded.values.size(), 12u);
      EXPECT_NEAR(loaded.Metres(0, 2), 100, 1e-4);
      EXPECT_NEAR(loaded.Metres(3, 0), 111, 1e-4);
      std::filesystem::remove(beside);
    }
  // Its own header still is what such a file is read by.
  for (const Header& header : kHeaders) {
    SCOPED_TRACE(header.text);
    Put(folder / "b.BIL", Bytes());
    Put(folder / (std::string("b") + header.extension), header.text);
    const LoadedRaster loaded = Load(folder / "b.BIL");
    EXPECT_EQ(loaded.problem, "");
    EXPECT_NEAR(loaded.Metres(3, 0), 111, 1e-4);
    std::filesystem::remove(folder / (std::string("b") + header.extension));
  }
}

/// A TIFF of one band in strips: what isn't given is left out of the file.
struct Tiff {
  std::uint32_t width = kWidth, height = kRows, rowsOfStrip = kRows;
  std::uint16_t bits = 32, format = 3;  // 1: unsigned, 2: signed, 3: floats
  std::vector<std::string> strips;      // an empty one is absent
  std::string metadata;

  std::string Bytes() const {
    std::string data(8, '\0'), offsets, sizes;
    for (const std::string& strip : strips) {
      offsets += Little(static_cast<std::uint32_t>(strip.empty() ? 0 : data.size()));
      sizes += Little(static_cast<std::uint32_t>(strip.size()));
      data += strip;
    }
    std::string fields;
    std::uint16_t count = 0;
    const auto field = [&](std::uint16_t tag, std::uint16_t type, std::uint32_t n, std::string value) {
      if (value.size() > 4) {
        const std::string where = Little(static_cast<std::uint32_t>(data.size()));
        data += value;
        value = where;
      }
      value.resize(4);
      fields += Little(tag) + Little(type) + Little(n) + value;
      ++count;
    };
    constexpr std::uint16_t kText = 2, kShort = 3, kLong = 4;
    field(256, kLong, 1, Little(width));
    field(257, kLong, 1, Little(height));
    field(258, kShort, 1, Little(bits));
    field(259, kShort, 1, Little(std::uint16_t{1}));
    field(262, kShort, 1, Little(std::uint16_t{1}));
    field(273, kLong, static_cast<std::uint32_t>(strips.size()), offsets);
    field(277, kShort, 1, Little(std::uint16_t{1}));
    field(278, kLong, 1, Little(rowsOfStrip));
    field(279, kLong, static_cast<std::uint32_t>(strips.size()), sizes);
    field(339, kShort, 1, Little(format));
    if (!metadata.empty())
      field(42112, kText, static_cast<std::uint32_t>(metadata.size() + 1), metadata + '\0');
    data.replace(0, 8, "II*" + std::string(1, '\0') + Little(static_cast<std::uint32_t>(data.size())));
    return data + Little(count) + fields + Little(std::uint32_t{0});
  }
};

TEST(ForeignRasters, ClaimsAreHeldAgainstTheFile) {
  const RasterFolder folder;
  const auto problemOf = [&](const std::string& name, const std::string& bytes) {
    Put(folder / name, bytes);
    return Load(folder / name).problem;
  };
  const std::string wanted = "it is cut off";
  EXPECT_EQ(problemOf("claim.tga", TgaHead(3, 65535, 65535)), wanted);
  EXPECT_EQ(problemOf("claim.tga", TgaHead(11, 65535, 65535)), wanted);
  EXPECT_EQ(problemOf("half.tga", TgaHead(3, kWidth, kRows) + Bytes().substr(0, 6)), wanted);
  // Runs of lengths: four that lie there as they are, and one packed.
  const std::string packed = TgaHead(11, 4, 2) + "\x03" + Bytes().substr(0, 4) + "\x83" + "d";
  EXPECT_EQ(problemOf("whole.tga", packed), "");
  EXPECT_EQ(problemOf("half.tga", packed.substr(0, packed.size() - 1)), wanted);
  EXPECT_EQ(problemOf("half.tga", packed.substr(0, 18 + 5)), wanted);

  std::string gtx = Gtx();
  gtx.replace(32, 8, Big(40000) + Big(40000));
  EXPECT_EQ(problemOf("a.gtx", gtx), wanted);
  EXPECT_EQ(problemOf("a.asc", "ncols 40000\nnrows 40000\nxllcorner 0\nyllcorner 0\ncellsize 1\n1 2 3\n"),
            wanted);
  for (const Header& header : kHeaders) {
    std::string text = header.text;
    for (const char* number : {"S 3", "S: 3", "S:   3", "lines = 3"})
      if (const std::size_t at = text.find(number); at != std::string::npos)
        text.replace(at, std::strlen(number), std::string(number) + "0000");
    ASSERT_NE(text, header.text);
    Put(folder / (std::string("c") + header.extension), text);
    EXPECT_EQ(problemOf("c.bil", Bytes()), wanted) << text;
    std::filesystem::remove(folder / (std::string("c") + header.extension));
  }
  // A file that names others to read, or isn't one.
  EXPECT_NE(problemOf("a.tif", "<VRTDataset rasterXSize=\"4\" rasterYSize=\"3\"></VRTDataset>"), "");
  EXPECT_NE(Load("/vsicurl/http://localhost/a.tif").problem, "");
  EXPECT_NE(problemOf("foo.hgt", std::string(1201 * 1201 * 2, '\0')).find("N46E007.hgt"), std::string::npos);
}

TEST(ForeignRasters, BlocksThatAreNotThereHaveNoHeights) {
  const RasterFolder folder;
  Tiff tiff;
  tiff.rowsOfStrip = 1;
  const std::string row = Little(5.0f) + Little(6.0f) + Little(7.0f) + Little(8.0f);
  tiff.strips = {row, "", row};
  Put(folder / "holes.tif", tiff.Bytes());
  LoadedRaster loaded = Load(folder / "holes.tif");
  ASSERT_EQ(loaded.problem, "");
  EXPECT_EQ(loaded.Metres(3, 2), 8);
  EXPECT_EQ(loaded.Metres(0, 0), 5);
  for (int x = 0; x < kWidth; ++x) EXPECT_TRUE(std::isnan(loaded.Metres(x, 1)));
  RasterRequest part;
  part.useWindow = true;
  part.windowX0 = 1, part.windowX1 = 2, part.windowY0 = 0, part.windowY1 = 1;
  loaded = Load(folder / "holes.tif", part);
  EXPECT_EQ(loaded.Metres(0, 0), 6);
  EXPECT_TRUE(std::isnan(loaded.Metres(1, 1)));

  tiff.width = tiff.height = 2000;
  tiff.rowsOfStrip = 20;
  tiff.strips.assign(100, "");
  Put(folder / "nothing.tif", tiff.Bytes());
  EXPECT_EQ(Load(folder / "nothing.tif").problem, "none of its points has a height");
  tiff.width = tiff.height = 30000;
  tiff.strips.assign(1500, "");
  Put(folder / "claim.tif", tiff.Bytes());
  EXPECT_NE(Load(folder / "claim.tif").problem.find("can't hold 30000 x 30000"), std::string::npos);
  tiff.strips[7] = std::string(30000 * 20 * 4, 'a');
  Put(folder / "hardly.tif", tiff.Bytes());
  EXPECT_NE(Load(folder / "hardly.tif").problem.find("nearly all"), std::string::npos);
}

TEST(ForeignRasters, MemoryIsAskedForBeforeItIsTaken) {
  RasterPlan plan;
  plan.width = plan.height = 50000;
  plan.fill = 0;
  EXPECT_EQ(MemoryProblem(plan, 10'000'000'000), "");
  EXPECT_NE(MemoryProblem(plan, 9'999'999'999).find("50000 x 50000 points take 10 GB"), std::string::npos);
  plan.fill = NAN;  // holes are filled, which takes a third more
  EXPECT_NE(MemoryProblem(plan, 13'000'000'000), "");
}

TEST(ForeignRasters, StoredNumbersAreExactUntilTheyAreHeights) {
  const RasterFolder folder;
  // Floats know no odd number beyond 2^24.
  constexpr int kBase = 1 << 24;
  RasterRequest request;
  request.verticalOffset = -kBase;
  request.hasMissingValue = true;
  request.missingValue = kBase + 3;
  Tiff whole, real;
  whole.format = 2;
  real.bits = 64;
  whole.strips = {AllHeights([](int x, int row) { return Little(kBase + x + 4 * row); })};
  real.strips = {AllHeights([](int x, int row) { return Little(kBase + x + 4.0 * row); })};
  Put(folder / "whole.tif", whole.Bytes());
  Put(folder / "real.tif", real.Bytes());
  std::string text = Ascii();
  text.replace(text.find("100"), std::string::npos,
               AllHeights([](int x, int row) { return std::to_string(kBase + x + 4 * row) + " "; }));
  Put(folder / "text.asc", text);
  for (const char* name : {"whole.tif", "real.tif", "text.asc"})
    for (const int shrink : {1, 2}) {
      SCOPED_TRACE(name);
      request.shrink = shrink;
      const LoadedRaster loaded = Load(folder / name, request);
      ASSERT_EQ(loaded.problem, "");
      if (shrink == 1) {
        EXPECT_EQ(loaded.Metres(1, 2), 1);
        EXPECT_EQ(loaded.Metres(2, 0), 10);
        EXPECT_TRUE(std::isnan(loaded.Metres(3, 2)));
      } else {  // the northern row is left over
        EXPECT_EQ(loaded.Metres(0, 0), (4 + 5 + 8 + 9) / 4.0);
      }
    }
}

TEST(ForeignRasters, UnitsThatNobodyKnowsAreTold) {
  const RasterFolder folder;
  const auto load = [&](const std::string& unit, const RasterRequest& request = {}) {
    Tiff tiff;
    tiff.strips = {AllHeights([](int x, int row) { return Little(Height(x, row)); })};
    tiff.metadata = "<GDALMetadata>\n<Item name=\"UNITTYPE\" sample=\"0\" role=\"unittype\">" + unit +
                    "</Item>\n</GDALMetadata>";
    Put(folder / "unit.tif", tiff.Bytes());
    return Load(folder / "unit.tif", request);
  };
  EXPECT_TRUE(Warns(load("cubits").plan, "\"cubits\" isn't known"));
  EXPECT_NEAR(load("cubits").Metres(3, 0), 111, 1e-4);
  EXPECT_FALSE(Warns(load("ft").plan, "isn't known"));
  EXPECT_NEAR(load("ft").Metres(3, 0), 111 * 0.3048, 1e-4);
  RasterRequest told;
  told.metresPerHeight = 0.5;
  EXPECT_FALSE(Warns(load("cubits", told).plan, "isn't known"));
  EXPECT_NEAR(load("cubits", told).Metres(3, 0), 55.5, 1e-4);
}

/// An uncompressed OpenEXR file of one row.
std::string Exr(int pixelType, const std::string& pixels) {
  const auto attribute = [](const char* name, const char* type, const std::string& value) {
    return std::string(name) + '\0' + type + '\0' + Little(static_cast<std::int32_t>(value.size())) + value;
  };
  const auto zeros = [](int count) { return std::string(static_cast<size_t>(count), '\0'); };
  const std::string channels = std::string("Y") + '\0' + Little(pixelType) + zeros(4) + Little(1) + Little(1);
  const std::string window = zeros(8) + Little(static_cast<std::int32_t>(pixels.size() / 4) - 1) + zeros(4);
  std::string head = "\x76\x2f\x31\x01\x02" + zeros(3);
  head +=
      attribute("channels", "chlist", channels + '\0') + attribute("compression", "compression", zeros(1));
  head += attribute("dataWindow", "box2i", window) + attribute("displayWindow", "box2i", window);
  head +=
      attribute("lineOrder", "lineOrder", zeros(1)) + attribute("pixelAspectRatio", "float", Little(1.0f));
  head += attribute("screenWindowCenter", "v2f", zeros(8));
  head += attribute("screenWindowWidth", "float", Little(1.0f)) + '\0';
  return head + Little(static_cast<std::uint64_t>(head.size() + 8)) + zeros(4) +
         Little(static_cast<std::int32_t>(pixels.size())) + pixels;
}

TEST(ForeignRasters, UnsignedChannelsOfPicturesAreRefused) {
  const RasterFolder folder;
  Put(folder / "float.exr", Exr(2, Little(5.0f) + Little(6.5f)));
  const LoadedRaster loaded = Load(folder / "float.exr");
  ASSERT_EQ(loaded.problem, "");
  EXPECT_EQ(loaded.Metres(1, 0), 6.5);
  Put(folder / "unsigned.exr", Exr(0, Little(5u) + Little(6u)));
  EXPECT_EQ(Load(folder / "unsigned.exr").problem,
            "its channel Y holds unsigned integers, which are no heights");
}

TEST(RasterPlan, MapsThatStretchLengthsAreMeasuredOnTheGround) {
  // The web's Mercator: a sphere's formulas on the ellipsoid's latitude.
  constexpr double kRadius = 6378137, kFlattening = 1 / 298.257223563, kStep = 30;
  constexpr double kDegree = M_PI / 180;
  RasterInfo info;
  info.width = 41;
  info.height = 21;
  info.hasTransform = true;
  info.reference = RasterInfo::Reference::kMetric;
  info.metresPerDegree = kRadius * kDegree;
  info.flattening = kFlattening;
  info.toLonLat = [](double* x, double* y, int count) {
    for (int i = 0; i < count; ++i) {
      x[i] /= kRadius * kDegree;
      y[i] = std::atan(std::sinh(y[i] / kRadius)) / kDegree;
    }
    return std::string();
  };
  for (const double latitude : {0.0, 47.0, -60.0}) {
    const double north = kRadius * std::asinh(std::tan(latitude * kDegree)) + 10.5 * kStep;
    const double transform[6] = {500, kStep, 0, north, 0, -kStep};
    std::copy(transform, transform + 6, info.transform);
    RasterPlan plan;
    ASSERT_EQ(PlanRaster(info, {}, plan), "");
    const double e2 = kFlattening * (2 - kFlattening), sine = std::sin(latitude * kDegree),
                 w = 1 - e2 * sine * sine;
    const double share = latitude == 0 ? 1 : std::cos(latitude * kDegree);
    EXPECT_NEAR(plan.xScale, latitude == 0 ? kStep : kStep * share / std::sqrt(w), 1e-5);
    EXPECT_NEAR(plan.yScale, latitude == 0 ? kStep : kStep * share * (1 - e2) / (w * std::sqrt(w)), 1e-5);
    EXPECT_TRUE(plan.isOnMap);
    EXPECT_EQ(plan.map.stepX, kStep);  // the map stays the map
  }
}

constexpr const char* kZone =
    "PROJCS[\"WGS_1984_UTM_Zone_32N\",GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_1984\","
    "6378137.0,298.257223563]],PRIMEM[\"Greenwich\",0.0],UNIT[\"Degree\",0.0174532925199433]],"
    "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"False_Easting\",500000.0],"
    "PARAMETER[\"False_Northing\",0.0],PARAMETER[\"Central_Meridian\",9.0],PARAMETER[\"Scale_Factor\",0.9996]"
    ","
    "PARAMETER[\"Latitude_Of_Origin\",0.0],UNIT[\"Meter\",1.0]]";

TEST(ForeignRasters, AMapProjectionIsWrittenAsItWasRead) {
  const RasterFolder folder;
  Put(folder / "a.asc", Ascii().replace(Ascii().find("xllcorner 0\nyllcorner 0\ncellsize 1"), 34,
                                        "xllcorner 500000\nyllcorner 5e6\ncellsize 25"));
  Put(folder / "a.prj", kZone);
  const LoadedRaster first = Load(folder / "a.asc");
  ASSERT_EQ(first.problem, "");
  ASSERT_TRUE(first.plan.isOnMap);
  EXPECT_EQ(first.plan.map.west, 500012.5);
  EXPECT_EQ(first.plan.map.north, 5e6 + 62.5);
  EXPECT_EQ(first.plan.map.stepY, 25);
  HeightGrid grid;
  grid.width = kWidth;
  grid.height = kRows;
  grid.values = first.values.data();
  grid.xScale = first.plan.xScale;
  grid.yScale = first.plan.yScale;
  grid.zScale = first.plan.zScale;
  grid.hasCorners = first.plan.hasCorners;
  grid.corners = first.plan.corners;
  grid.lowest = 100 / 25.f;
  grid.highest = 111 / 25.f;
  grid.map = std::make_shared<MapPlacement>(first.plan.map);
  for (const char* name : {"b.tif", "b.asc"}) {
    SCOPED_TRACE(name);
    std::string note;
    ASSERT_EQ(WriteHeightfield(folder / name, grid, {}, note), "");
    const LoadedRaster again = Load(folder / name);
    ASSERT_EQ(again.problem, "");
    ASSERT_TRUE(again.plan.isOnMap);
    EXPECT_NEAR(again.plan.map.west, first.plan.map.west, 1e-6);
    EXPECT_NEAR(again.plan.map.north, first.plan.map.north, 1e-6);
    EXPECT_EQ(again.plan.map.stepX, 25);
    EXPECT_EQ(again.plan.map.esriReference, first.plan.map.esriReference);
    EXPECT_NEAR(again.plan.corners.south, first.plan.corners.south, 1e-9);
    EXPECT_NEAR(again.Metres(3, 0), 111, 1e-4);
  }
}

}  // namespace
