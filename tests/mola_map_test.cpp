// Planet-wide elevation grids: quarters that meet without seam, the date line, the poles, and PDS labels.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>

#include "host/base/log.h"
#include "host/project/host_classes.h"
#include "host/raster/raster_open.h"
#include "imagemap/mola_map_shader.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

constexpr double kRad = 3.14159265358979 / 180;

/// A relief that is smooth over the whole globe, and looks the same from no two sides.
double Relief(double latitude, double longitude) {
  const double c = std::cos(latitude * kRad), x = c * std::cos(longitude * kRad),
               y = c * std::sin(longitude * kRad), z = std::sin(latitude * kRad);
  return 3000 * x * y + 1000 * z + 700 * x - 400 * y * z;
}

/// Points at the middles of pixels of `perDegree` to a degree.
class Quarter : public trHeightfield {
 public:
  void Make(double south, double west, double north, double east, double perDegree) {
    const int w = static_cast<int>(std::lround((east - west) * perDegree)),
              h = static_cast<int>(std::lround((north - south) * perDegree));
    ASSERT_TRUE(Init(0, 0, w, h));
    const double half = 0.5 / perDegree;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        HfScanlineRaw(y)[x] =
            static_cast<float>(Relief(south + half + y / perDegree, west + half + x / perDegree) / 2);
    HfSetScaleEnabled(1);
    HfSetScale(1, 1, 2);
    HfSetLatLongEnabled(1);
    HfSetLatLongCorners({south + half, west + half, north - half, east - half});
    HfFindZRange();
    HfValidate();
  }
};

TEST(GlobeGrid, QuartersMeetAndGoRoundTheGlobe) {
  Quarter part[4];
  GlobeGrid globe;
  const double corner[4][4] = {{-90, 0, 0, 180}, {0, 0, 90, 180}, {-90, 180, 0, 360}, {0, 180, 90, 360}};
  for (int i = 0; i < 4; ++i) {
    part[i].Make(corner[i][0], corner[i][1], corner[i][2], corner[i][3], 2);
    ASSERT_TRUE(globe.Add(part[i]));
  }
  const struct {
    long interpolation;
    double error;
  } rows[] = {{GlobeGrid::kNearest, 40}, {GlobeGrid::kLinear, 0.5}, {GlobeGrid::kCubic, 0.1}};
  for (const auto& row : rows)
    for (double latitude = -90; latitude <= 90; latitude += 0.37)
      for (const double longitude :
           {-540.1, -180.0, -179.9, -0.1, 0.0, 0.1, 77.7, 179.95, 180.2, 359.9, 360.0}) {
        double height = std::nan("");
        ASSERT_TRUE(globe.HeightAt(latitude, longitude, row.interpolation, height));
        EXPECT_NEAR(height, Relief(latitude, longitude), row.error) << latitude << " " << longitude;
      }
}

TEST(GlobeGrid, WhatNoGridCoversHasNoHeight) {
  Quarter part, odd;
  part.Make(10, 20, 30, 60, 4);
  odd.Make(0, 0, 10, 10, 3);
  GlobeGrid globe;
  ASSERT_TRUE(globe.Add(part));
  EXPECT_FALSE(globe.Add(odd)) << "another lattice";
  double height = 0;
  EXPECT_TRUE(globe.HeightAt(29.95, 20.02, GlobeGrid::kCubic, height));
  EXPECT_NEAR(height, Relief(29.95, 20.02), 20);
  EXPECT_FALSE(globe.HeightAt(31, 40, GlobeGrid::kCubic, height));
  EXPECT_FALSE(globe.HeightAt(-20, 40, GlobeGrid::kLinear, height));
  EXPECT_FALSE(globe.HeightAt(std::nan(""), 40, GlobeGrid::kLinear, height));
}

struct Label {
  int lines = 180, samples = 180;
  double firstLongitude = 0;  ///< of the western edge
  std::string image, projection = "SIMPLE CYLINDRICAL";
};

/// A half of the globe, a pixel a degree, as laser altimeter maps have it; heights are value * 0.5 + 100.
std::string LabelText(const Label& label) {
  std::string text = "PDS_VERSION_ID = PDS3\r\nRECORD_TYPE = FIXED_LENGTH\r\n";
  text += "RECORD_BYTES = " + std::to_string(2 * label.samples) +
          "\r\nFILE_RECORDS = " + std::to_string(label.lines);
  text +=
      "\r\n^IMAGE = \"" + label.image + "\"\r\nOBJECT = IMAGE\r\n  LINES = " + std::to_string(label.lines);
  text += "\r\n  LINE_SAMPLES = " + std::to_string(label.samples);
  text +=
      "\r\n  SAMPLE_TYPE = MSB_INTEGER\r\n  SAMPLE_BITS = 16\r\n  UNIT = METER\r\n  SCALING_FACTOR = 0.5\r\n"
      "  OFFSET = 100\r\nEND_OBJECT = IMAGE\r\nOBJECT = IMAGE_MAP_PROJECTION\r\n  MAP_PROJECTION_TYPE = \"" +
      label.projection +
      "\"\r\n  A_AXIS_RADIUS = 3396.0 <KM>\r\n  B_AXIS_RADIUS = 3396.0 <KM>\r\n  C_AXIS_RADIUS = 3396.0 "
      "<KM>\r\n"
      "  CENTER_LATITUDE = 0.0 <DEGREE>\r\n  CENTER_LONGITUDE = 180.0 <DEGREE>\r\n"
      "  MAP_RESOLUTION = 1.0 <PIXEL/DEGREE>\r\n  MAP_SCALE = 59.271 <KM/PIXEL>\r\n"
      "  LINE_PROJECTION_OFFSET = 90.5\r\n  SAMPLE_PROJECTION_OFFSET = " +
      std::to_string(180.5 - label.firstLongitude) +
      "\r\n  MAXIMUM_LATITUDE = 90.0 <DEGREE>\r\n  MINIMUM_LATITUDE = -90.0 <DEGREE>\r\n"
      "  COORDINATE_SYSTEM_NAME = PLANETOCENTRIC\r\n  POSITIVE_LONGITUDE_DIRECTION = \"EAST\"\r\n"
      "END_OBJECT = IMAGE_MAP_PROJECTION\r\nEND\r\n";
  return text;
}

void WriteImage(const std::string& path, const Label& label) {
  std::ofstream file(path, std::ios::binary);
  for (int y = 0; y < label.lines; ++y)
    for (int x = 0; x < label.samples; ++x) {
      const double height = Relief(89.5 - y, label.firstLongitude + 0.5 + x);
      const auto value = static_cast<std::int16_t>(std::lround((height - 100) / 0.5));
      file.put(static_cast<char>(value >> 8));
      file.put(static_cast<char>(value & 255));
    }
}

TEST(MolaMap, ReadsAFolderOfLabelledHalves) {
  ovhost::RegisterHostClasses();
  const std::string folder = TempFile("mola");
  std::filesystem::create_directories(folder);
  for (const double west : {0.0, 180.0}) {
    const std::string name = "half" + std::to_string(static_cast<int>(west));
    const Label label = {180, 180, west, name + ".img"};
    std::ofstream(folder + "/" + name + ".lbl", std::ios::binary) << LabelText(label);
    WriteImage(folder + "/" + name + ".img", label);
  }
  Graph graph;
  trBase& planet = *graph.project.CreateChild("planet");
  planet.SetParam("radius", 3.396e6, trWhoUser);
  planet.SetParam("centre", trVector(0, -3.396e6, 0), trWhoUser);
  planet.SetParam("lat_long_at_apex", tr2Vector(30, 170), trWhoUser);
  graph.project.SetActiveShadableObject(&planet);
  auto& shader = graph.Add<MOLAMapShader>("Mars");
  shader.SetParam("filename", folder, trWhoUser);
  shader.SetParam("displacement_multiplier", 2.0, trWhoUser);
  trPlanetGeography geography;
  ASSERT_TRUE(geography.Read(&shader));
  for (int i = 0; i < 60; ++i) {
    const trVector up = Normalised(trVector(std::sin(i * 1.3), 1.2 * std::cos(i * 0.4), std::cos(i * 1.3)));
    const trVector ground = geography.centre + up * geography.radius;
    Sample sample(ground, up);
    if (i == 0) {
      trRenderingInterface rendering(sample.state, 1, nullptr, trRenderContext::kFinal);
      shader.StartRender(rendering);
    }
    shader.DisplaceTS(sample.si);
    const tr2Vector place = geography.LatLong(ground);
    EXPECT_NEAR(Dot(sample.si.P() - ground, up), 2 * Relief(place.x, place.y), 8)
        << place.x << " " << place.y;
  }
}

TEST(MolaMap, LabelsThatLieAreRefused) {
  const std::string folder = TempFile("lies");
  std::filesystem::create_directories(folder + "/below");
  Label label = {180, 180, 0, "true.img"};
  WriteImage(folder + "/true.img", label);
  WriteImage(folder + "/below/hidden.img", label);
  const struct {
    const char* name;
    int lines, samples;
    const char* image;
  } rows[] = {{"long", 1800, 180, "true.img"},       {"huge", 2000000000, 2000000000, "true.img"},
              {"negative", -4, 180, "true.img"},     {"elsewhere", 180, 180, "below/hidden.img"},
              {"absolute", 180, 180, "/etc/passwd"}, {"net", 180, 180, "/vsicurl/http://localhost/x.img"},
              {"nothing", 180, 180, "absent.img"}};
  for (const auto& row : rows) {
    label.lines = row.lines;
    label.samples = row.samples;
    label.image = row.image;
    const std::string path = folder + "/" + row.name + ".lbl";
    std::ofstream(path, std::ios::binary) << LabelText(label);
    std::string problem;
    EXPECT_FALSE(ovhost::OpenRaster(path, 1, problem)) << row.name;
    EXPECT_FALSE(problem.empty()) << row.name;
  }
}

}  // namespace
