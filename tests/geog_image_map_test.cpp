// Georeferenced rasters on a planet: where pixels lie, what stands for missing values, and bad files.
#include <cmath>

#include "host/base/log.h"
#include "imagemap/packed_nodata.h"
#include "tests/raster_files.h"
#include "tests/shading_fixture.h"

namespace {

using Ranges = std::vector<GeogPackedNODATA::Range>;

GeogPackedNODATA SetOf(const std::vector<std::uint64_t>& pixels) {
  GeogPackedNODATA set;
  for (const auto pixel : pixels) set.Add(pixel);
  return set;
}

TEST(PackedNoData, KeepsRuns) {
  EXPECT_EQ(SetOf({5, 6, 7, 9}).Ranges(), (Ranges{{5, 7}, {9, 9}}));
  EXPECT_EQ(SetOf({5, 6, 7, 9}).Count(), 4);
  EXPECT_EQ(SetOf({5, 6, 7, 9}).Dump(), "GeogPackedNODATA size=4\nRanges (2):\n5-7\n9-9\n");
  std::uint64_t pixel;
  GeogPackedNODATA set;
  EXPECT_FALSE(set.Next(pixel));
  set = SetOf({5, 6, 7, 9});
  std::vector<std::uint64_t> walked;
  while (set.Next(pixel)) walked.push_back(pixel);
  EXPECT_EQ(walked, (std::vector<std::uint64_t>{5, 6, 7, 9}));
  EXPECT_FALSE(set.Next(pixel)) << "and stays over";

  const struct {
    std::vector<std::uint64_t> a, b;
    Ranges merged;
  } rows[] = {{{1, 2, 3}, {4, 5, 6}, {{1, 6}}},
              {{4, 5}, {1, 2}, {{1, 2}, {4, 5}}},
              {{1, 2, 3, 4}, {2, 3}, {{1, 4}}},
              {{1, 3, 5}, {2, 4}, {{1, 5}}},
              {{}, {7}, {{7, 7}}},
              {{7}, {}, {{7, 7}}},
              {{0, 9}, {0, 1, 9}, {{0, 1}, {9, 9}}}};
  for (const auto& row : rows) {
    GeogPackedNODATA merged = SetOf(row.a);
    merged.Merge(SetOf(row.b));
    EXPECT_EQ(merged.Ranges(), row.merged);
    std::int64_t count = 0;
    for (const auto& range : row.merged) count += static_cast<std::int64_t>(range.last - range.first) + 1;
    EXPECT_EQ(merged.Count(), count);
  }
}

/// Writes bytes of bands, one after the other, as an ENVI raster with more lines of its header.
std::string PutEnvi(const std::string& path, int width, int height, int bands, const std::string& bytes,
                    const std::string& more, int type = 1) {
  Put(path, bytes);
  Put(path + ".hdr", "ENVI\nsamples = " + std::to_string(width) + "\nlines = " + std::to_string(height) +
                         "\nbands = " + std::to_string(bands) +
                         "\nheader offset = 0\nfile type = ENVI Standard\ndata type = " +
                         std::to_string(type) + "\ninterleave = bsq\nbyte order = 0\n" + more);
  return path;
}

/// Columns in red and rows in green, from 0 on.
std::string ColumnsAndRows(int width, int height) {
  std::string bytes;
  for (int band = 0; band < 3; ++band)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) bytes += static_cast<char>(band == 0 ? x : band == 1 ? y : 7);
  return bytes;
}

struct MapRig {
  MapRig() : planet(*graph.project.CreateChild("planet")), map(graph.Shader("geog_image_map_shader")) {
    planet.SetParam("centre", trVector(0, -6378000, 0), trWhoSystem);
    for (const char* name : {"smooth_interpolation", "convert_to_linear"}) Set(name, 0);
  }
  void Set(const char* name, const trParamValue& to) {
    ASSERT_TRUE(map.SetParam(name, to, trWhoSystem)) << name;
  }
  tr2Vector Pair(const char* name) const {
    tr2Vector pair(NAN, NAN);
    EXPECT_TRUE(map.GetParam(name, pair)) << name;
    return pair;
  }
  trString Text(const char* name) const {
    trString text;
    EXPECT_TRUE(map.GetParam(name, text)) << name;
    return text;
  }
  /// Colour of a place, 0 to 255, and what it lets show: -1 where nothing is mapped.
  std::array<int, 3> ColourAt(double latitude, double longitude) {
    tr2Vector apex;
    planet.GetParam("lat_long_at_apex", apex);
    const double d = M_PI / 180, a = apex.x * d, b = latitude * d, l = (longitude - apex.y) * d;
    // Earth's axes: x towards the apex's meridian, z north.
    const trVector e(std::cos(b) * std::cos(l), std::cos(b) * std::sin(l), std::sin(b));
    const trVector up(std::cos(a), 0, std::sin(a)), north(-std::sin(a), 0, std::cos(a));
    return ColourAtPoint(trVector(0, -6378000, 0) + trVector(e.y, Dot(e, up), Dot(e, north)) * 6378000);
  }
  std::array<int, 3> ColourAtPoint(const trVector& point) {
    Sample sample(point);
    sample.si.Cutil() = trFCol(-1.0f / 255);
    map.ShadeTS(sample.si);
    std::array<int, 3> bytes;
    for (int i = 0; i < 3; ++i)
      bytes[static_cast<size_t>(i)] = static_cast<int>(std::lround(sample.si.Cutil()[i] * 255));
    return bytes;
  }
  Graph graph;
  trBase& planet;
  trShader& map;
};
constexpr std::array<int, 3> kNothing = {-1, -1, -1};

// Places of pixels' centres as another program of the coordinate systems' has them.
constexpr struct {
  const char* name;
  double x, y, size;
  const char* system;
  double at[3][2];  ///< longitude and latitude of the pixels (3, 7), (50, 50), (98, 12)
} kSystems[] = {
    {"Web Mercator",
     1500000.5,
     6000000.5,
     30,
     R"(PROJCS["WGS_1984_Web_Mercator_Auxiliary_Sphere",GEOGCS["GCS_WGS_1984",DATUM["D_WGS_1984",SPHEROID["WGS_1984",6378137.0,298.257223563]],PRIMEM["Greenwich",0.0],UNIT["Degree",0.0174532925199433]],PROJECTION["Mercator_Auxiliary_Sphere"],PARAMETER["False_Easting",0.0],PARAMETER["False_Northing",0.0],PARAMETER["Central_Meridian",0.0],PARAMETER["Standard_Parallel_1",0.0],PARAMETER["Auxiliary_Sphere_Type",0.0],UNIT["Meter",1.0]])",
     {{13.4622022551558, 47.36146659649},
      {13.4748685006619, 47.3536164579517},
      {13.4878042407532, 47.3605538496897}}},
    {"UTM 33",
     500300,
     5200100,
     30,
     R"(PROJCS["WGS_1984_UTM_Zone_33N",GEOGCS["GCS_WGS_1984",DATUM["D_WGS_1984",SPHEROID["WGS_1984",6378137.0,298.257223563]],PRIMEM["Greenwich",0.0],UNIT["Degree",0.0174532925199433]],PROJECTION["Transverse_Mercator"],PARAMETER["False_Easting",500000.0],PARAMETER["False_Northing",0.0],PARAMETER["Central_Meridian",15.0],PARAMETER["Scale_Factor",0.9996],PARAMETER["Latitude_Of_Origin",0.0],UNIT["Meter",1.0]])",
     {{14.9856061070962, 46.9659016854706},
      {15.0041398134961, 46.954294028583},
      {15.023069083095, 46.9645504434594}}},
    {"Polar stereographic",
     300000,
     -1500000,
     500,
     R"(PROJCS["WGS_1984_NSIDC_Sea_Ice_Polar_Stereographic_North",GEOGCS["GCS_WGS_1984",DATUM["D_WGS_1984",SPHEROID["WGS_1984",6378137.0,298.257223563]],PRIMEM["Greenwich",0.0],UNIT["Degree",0.0174532925199433]],PROJECTION["Stereographic_North_Pole"],PARAMETER["False_Easting",0.0],PARAMETER["False_Northing",0.0],PARAMETER["Central_Meridian",-45.0],PARAMETER["Standard_Parallel_1",70.0],UNIT["Meter",1.0]])",
     {{-34.3996458809626, 76.1769665299845},
      {-33.6827233256082, 75.9442079370288},
      {-32.6525495952534, 76.0686524186275}}},
    {"Lambert 93",
     700000,
     6600000,
     100,
     R"(PROJCS["RGF_1993_Lambert_93",GEOGCS["GCS_RGF_1993",DATUM["D_RGF_1993",SPHEROID["GRS_1980",6378137.0,298.257222101]],PRIMEM["Greenwich",0.0],UNIT["Degree",0.0174532925199433]],PROJECTION["Lambert_Conformal_Conic"],PARAMETER["False_Easting",700000.0],PARAMETER["False_Northing",6600000.0],PARAMETER["Central_Meridian",3.0],PARAMETER["Standard_Parallel_1",49.0],PARAMETER["Standard_Parallel_2",44.0],PARAMETER["Latitude_Of_Origin",46.5],UNIT["Meter",1.0]])",
     {{2.93932351126208, 46.5382529044751},
      {3.00065197221027, 46.4995497731975},
      {3.0632810004391, 46.5337492714515}}}};

TEST(GeogImageMap, PixelsLieWhereTheirSystemPutsThem) {
  const RasterFolder folder;
  const int pixels[3][2] = {{3, 7}, {50, 50}, {98, 12}};
  for (const auto& system : kSystems) {
    MapRig rig;
    rig.planet.SetParam("lat_long_at_apex", tr2Vector(40, 10), trWhoSystem);
    const std::string step = std::to_string(system.size);
    rig.Set("image_filename",
            PutEnvi(folder / "raster.img", 100, 100, 3, ColumnsAndRows(100, 100),
                    "map info = {Some Projection, 1, 1, " + std::to_string(system.x - 50 * system.size) +
                        ", " + std::to_string(system.y + 50 * system.size) + ", " + step + ", " + step +
                        ", WGS-84, units=Meters}\ncoordinate system string = {" + system.system + "}\n"));
    rig.Set("reproject_on_the_fly", 1);
    for (int i = 0; i < 3; ++i)
      EXPECT_EQ(rig.ColourAt(system.at[i][1], system.at[i][0]),
                (std::array<int, 3>{pixels[i][0], pixels[i][1], 7}))
          << system.name << " " << i;
    EXPECT_EQ(rig.ColourAt(system.at[1][1] + 8, system.at[1][0]), kNothing) << system.name;
    EXPECT_EQ(rig.Pair("xy_size"), tr2Vector(100 * system.size, 100 * system.size));
    EXPECT_NE(rig.Text("projection_info").find("Num. raster bands: 3"), trString::npos);
  }
}

/// A raster of 36 by 18 pixels over the globe, from a longitude eastwards.
std::string PutWorld(const RasterFolder& folder, double west, const std::string& more = "") {
  return PutEnvi(folder / "world.img", 36, 18, 3, ColumnsAndRows(36, 18),
                 "map info = {Geographic Lat/Lon, 1, 1, " + std::to_string(west) +
                     ", 90, 10, 10, WGS-84, units=Degrees}\n" + more);
}

TEST(GeogImageMap, DegreesLieByTheirCorners) {
  const RasterFolder folder;
  for (const double west : {-180.0, 0.0})
    for (const int reprojects : {0, 1}) {
      MapRig rig;
      rig.Set("image_filename", PutWorld(folder, west));
      rig.Set("reproject_on_the_fly", reprojects);
      EXPECT_EQ(rig.Pair("NW_corner_lat_long"), tr2Vector(90, west));
      EXPECT_EQ(rig.Pair("SE_corner_lat_long"), tr2Vector(-90, west + 360));
      for (const double longitude : {-175.0, -95.0, 5.0, 175.0})
        for (const double latitude : {-85.0, 15.0, 85.0}) {
          const int column = static_cast<int>(std::floor(std::fmod(longitude - west + 360, 360.0) / 10));
          EXPECT_EQ(rig.ColourAt(latitude, longitude),
                    (std::array<int, 3>{column, static_cast<int>((90 - latitude) / 10), 7}))
              << west << " " << longitude << " " << latitude << " " << reprojects;
        }
    }
}

/// A BMP of 24 bits with column and row in red and green, its upper row first for who reads it.
std::string PutBmp(const std::string& path, int width, int height) {
  const int stride = (width * 3 + 3) / 4 * 4;
  std::string bytes = "BM";
  const auto number = [&](int value, int size) {
    for (int i = 0; i < size; ++i) bytes += static_cast<char>(value >> 8 * i);
  };
  for (const int value : {54 + stride * height, 0, 54, 40, width, height}) number(value, 4);
  number(1, 2);
  number(24, 2);
  for (const int value : {0, stride * height, 0, 0, 0, 0}) number(value, 4);
  for (int y = height - 1; y >= 0; --y) {
    std::string row;
    for (int x = 0; x < width; ++x) row += {7, static_cast<char>(y), static_cast<char>(x)};
    row.resize(static_cast<size_t>(stride));
    bytes += row;
  }
  Put(path, bytes);
  return path;
}

TEST(GeogImageMap, WorldFilesTurnAndMirrorPictures) {
  const RasterFolder folder;
  // Degrees of longitude and latitude a column and a row, and the centre of the first pixel.
  const struct {
    double column[2], row[2], first[2];
  } rows[] = {{{1, 0}, {0, -1}, {10, 40}},
              {{1, 0.5}, {0.5, -1}, {10, 40}},
              {{1, 0}, {0, 1}, {-3, 40}},
              {{0, 2}, {2, 0}, {100, -10}}};
  for (const auto& r : rows) {
    const std::string path = PutBmp(folder / "turned.bmp", 5, 4);
    std::string world;
    for (const double number : {r.column[0], r.column[1], r.row[0], r.row[1], r.first[0], r.first[1]})
      world += std::to_string(number) + "\n";
    Put(folder / "turned.bpw", world);
    MapRig rig;
    rig.planet.SetParam("lat_long_at_apex", tr2Vector(30, 20), trWhoSystem);
    rig.Set("image_filename", path);
    rig.Set("reproject_on_the_fly", 1);
    for (int y = 0; y < 4; ++y)
      for (int x = 0; x < 5; ++x)
        EXPECT_EQ(rig.ColourAt(r.first[1] + r.column[1] * x + r.row[1] * y,
                               r.first[0] + r.column[0] * x + r.row[0] * y),
                  (std::array<int, 3>{x, y, 7}))
            << &r - rows << " " << x << " " << y;
    // The corners' latitudes have the longitude in the place of the column.
    const double x0 = r.first[0] - 0.5 * (r.column[0] + r.row[0]),
                 y0 = r.first[1] - 0.5 * (r.column[1] + r.row[1]);
    const double x = x0 + 5 * r.column[0] + 4 * r.row[0], y = y0 + r.column[1] * x + 4 * r.row[1];
    if (std::fabs(y) > 90) continue;
    EXPECT_NEAR(rig.Pair("SE_corner_lat_long").x, y, 1e-9);
    EXPECT_NEAR(rig.Pair("SE_corner_lat_long").y, x, 1e-9);
  }
}

TEST(GeogImageMap, CornersByHandAndByPosition) {
  const RasterFolder folder;
  MapRig rig;
  rig.Set("image_filename", PutWorld(folder, -180));
  rig.Set("reproject_on_the_fly", 1);
  const std::pair<const char*, tr2Vector> corners[] = {{"NW_corner_lat_long", {18, 0}},
                                                       {"NE_corner_lat_long", {18, 36}},
                                                       {"SE_corner_lat_long", {0, 36}},
                                                       {"SW_corner_lat_long", {0, 0}}};
  for (const auto& [name, corner] : corners) ASSERT_TRUE(rig.map.SetParam(name, corner, trWhoUser));
  for (const char* name : {"auto_georeference_from_file", "reproject_on_the_fly"}) {
    long isOn = 1;
    EXPECT_TRUE(rig.map.GetParam(name, isOn) && !isOn) << name;
  }
  EXPECT_EQ(rig.ColourAt(17.5, 0.5), (std::array<int, 3>{0, 0, 7}));
  EXPECT_EQ(rig.ColourAt(0.5, 35.5), (std::array<int, 3>{35, 17, 7}));
  EXPECT_EQ(rig.ColourAt(-0.5, 35.5), kNothing);
  rig.Set("flip_x", 1);
  EXPECT_EQ(rig.ColourAt(17.5, 0.5), (std::array<int, 3>{35, 0, 7}));
  rig.Set("georeference", 0);
  rig.Set("position", trVector(100, 0, 200));
  rig.Set("size", tr2Vector(72, 36));
  EXPECT_EQ(rig.ColourAtPoint({101, 5, 235}), (std::array<int, 3>{35, 0, 7}));
  rig.Set("flip_y", 1);
  EXPECT_EQ(rig.ColourAtPoint({101, 5, 235}), (std::array<int, 3>{35, 17, 7}));
  EXPECT_EQ(rig.ColourAtPoint({99, 5, 235}), kNothing);
}

TEST(GeogImageMap, MissingValuesAreReplaced) {
  const RasterFolder folder;
  // Three pixels a row over the globe; the second lacks red, the third everything.
  const std::string bytes = std::string("\x0a\x09\x09") + "\x14\x15\x09" + "\x1e\x1f\x09";
  const std::string path =
      PutEnvi(folder / "holes.img", 3, 1, 3, bytes,
              "map info = {Geographic Lat/Lon, 1, 1, -180, 90, 120, 180, WGS-84, units=Degrees}\n"
              "data ignore value = 9\n");
  using Colour = std::array<int, 3>;
  const struct {
    std::vector<std::pair<const char*, double>> settings;
    Colour second, third;
  } rows[] = {
      {{}, {9, 21, 31}, {9, 9, 9}},
      {{{"replace_NODATA_values", 1}}, {100, 21, 31}, {100, 150, 200}},
      {{{"replace_NODATA_values", 1}, {"replace_colour_mode", 1}}, {100, 150, 200}, {100, 150, 200}},
      {{{"replace_NODATA_values", 1}, {"make_NODATA_transparent", 1}}, {100, 21, 31}, {100, 150, 200}},
      {{{"replace_NODATA_values", 1}, {"replace_with_scalar", 1}, {"NODATA_scalar_value", 77.9}},
       {77, 21, 31},
       {77, 77, 77}},
      {{{"replace_NODATA_values", 1}, {"replace_with_colour", 0}}, {9, 21, 31}, {9, 9, 9}},
      {{{"replace_NODATA_values", 1},
        {"replace_with_colour", 0},
        {"make_NODATA_transparent", 1},
        {"use_alpha_directly", 1}},
       kNothing,
       kNothing},
  };
  for (const auto& row : rows) {
    MapRig rig;
    rig.Set("NODATA_colour_value", trManRgb(100 / 255.0f, 150 / 255.0f, 200 / 255.0f));
    for (const auto& [name, value] : row.settings) rig.Set(name, value);
    rig.Set("image_filename", path);
    rig.Set("reproject_on_the_fly", 1);
    const std::string which = std::to_string(&row - rows);
    EXPECT_EQ(rig.ColourAt(0, -120), (Colour{10, 20, 30})) << which;
    EXPECT_EQ(rig.ColourAt(0, 0), row.second) << which;
    EXPECT_EQ(rig.ColourAt(0, 120), row.third) << which;
  }
}

TEST(GeogImageMap, BadFilesAreToldOf) {
  const RasterFolder folder;
  struct Heard {
    std::vector<trString> texts;
  } heard;
  ovhost::SetLogSink(
      [](void* self, const ovhost::LogRecord& record) {
        static_cast<Heard*>(self)->texts.push_back(record.text);
      },
      &heard);
  Put(folder / "words.tif", "not a raster at all");
  const struct {
    std::string path;
    const char* said;
  } rows[] = {{folder / "none.tif", " : Cannot locate file "},
              {folder / "words.tif", " is not a file format that can be loaded."},
              {PutEnvi(folder / "short.img", 4000, 4000, 3, "abc", ""), "short.img: "},
              {PutEnvi(folder / "five.img", 1, 1, 5, "abcde", ""), "make no picture"},
              {PutEnvi(folder / "float.img", 1, 1, 3, std::string(12, 'A'), "default bands = {1, 2, 3}\n", 4),
               "8 bits"}};
  for (const auto& row : rows) {
    MapRig rig;
    heard.texts.clear();
    rig.Set("image_filename", row.path);
    ASSERT_EQ(heard.texts.size(), 1u) << row.said;
    EXPECT_NE(heard.texts[0].find(row.said), trString::npos) << heard.texts[0];
    rig.ColourAt(0, 0);
  }
  ovhost::SetLogSink(nullptr, nullptr);
}

}  // namespace
