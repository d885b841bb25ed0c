// Images in memory and on surfaces: what files hold, lookups, projections against closed formulas, effects.
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>

#include "core/image.h"
#include "core/ocio.h"
#include "host/image/image_reader.h"
#include "host/image/picture.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

/// A float picture of four channels, every value told by its place.
std::string WriteTestImage(const std::string& name, int width, int height,
                           const std::function<float(int, int, int)>& value) {
  ovhost::Picture picture;
  picture.width = width;
  picture.height = height;
  picture.channels = {"R", "G", "B", "A"};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 4; ++c) picture.pixels.push_back(value(x, y, c));
  const std::string path = TempFile(name);
  EXPECT_EQ(ovhost::WritePicture(path, picture, {}, true), "");
  return path;
}

float Told(int x, int y, int c) { return 0.1f * x + 0.01f * y + 0.25f * c; }

TEST(Image, FilesComeAsTheyAreAndAreSharedWhileInUse) {
  const std::string path = WriteTestImage("told.exr", 5, 3, Told);
  trImage image, again;
  ASSERT_TRUE(image.ReadFile(path, nullptr));
  EXPECT_EQ(image.width, 5);
  EXPECT_EQ(image.height, 3);
  EXPECT_EQ(image.pixelSize, 16);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 5; ++x) {
      const trF4Col c = image.F4ColFromPixel(image.pixels + image.pixelSize * (x + y * image.width));
      EXPECT_FLOAT_EQ(c.r, Told(x, 2 - y, 0)) << "the bottom row first";
      EXPECT_FLOAT_EQ(c.b, Told(x, 2 - y, 2));
      EXPECT_FLOAT_EQ(c.a, Told(x, 2 - y, 3));
    }
  const auto before = ovhost::ImageMemoryInUse();
  ASSERT_TRUE(again.ReadFile(path, nullptr));
  EXPECT_EQ(again.pixels, image.pixels);
  EXPECT_EQ(ovhost::ImageMemoryInUse(), before);
  image.Cleanup();
  again.Cleanup();
  EXPECT_EQ(ovhost::ImageMemoryInUse(), before - 5 * 3 * 16);

  const std::string framed = WriteTestImage("frame_0042.exr", 2, 2, Told);
  const int frame = 42;
  EXPECT_TRUE(image.ReadFile(TempFile("frame_####.exr"), &frame));
}

TEST(Image, DisplayWindowsTellWherePixelsLie) {
  struct Row {
    const char* what;
    int width, height, originX, originY, fullWidth, fullHeight;
  };
  const Row rows[] = {{"cropped", 5, 3, 2, 4, 9, 8},
                      {"with a rim", 12, 10, -2, -1, 9, 8},
                      {"half outside", 6, 6, 5, -3, 9, 8},
                      {"elsewhere", 2, 2, 20, 20, 9, 8}};
  for (const Row& row : rows) {
    ovhost::Picture picture{row.width,   row.height,    {"R", "G", "B", "A"}, {}, row.originX,
                            row.originY, row.fullWidth, row.fullHeight,       {}};
    for (int i = 0; i < row.width * row.height * 4; ++i)
      picture.pixels.push_back(Told(i / 4 % row.width, i / 4 / row.width, i % 4));
    const std::string path = TempFile("window.exr");
    ASSERT_EQ(ovhost::WritePicture(path, picture, {}, true), "");
    trImage image;
    ASSERT_TRUE(image.ReadFile(path, nullptr)) << row.what;
    ASSERT_EQ(image.width, row.fullWidth) << row.what;
    ASSERT_EQ(image.height, row.fullHeight) << row.what;
    for (int y = 0; y < row.fullHeight; ++y)
      for (int x = 0; x < row.fullWidth; ++x) {
        const int dataX = x - row.originX, dataY = row.fullHeight - 1 - y - row.originY;
        const bool isThere = dataX >= 0 && dataX < row.width && dataY >= 0 && dataY < row.height;
        const trF4Col c = image.F4ColFromPixel(image.PixelAt(x, y));
        EXPECT_EQ(c.g, isThere ? Told(dataX, dataY, 1) : 0) << row.what << ' ' << x << ' ' << y;
        EXPECT_EQ(c.a, isThere ? Told(dataX, dataY, 3) : 0) << row.what << ' ' << x << ' ' << y;
      }
  }
}

TEST(Image, DamagedAndLyingFilesCostAMessage) {
  const std::string good = WriteTestImage("whole.exr", 64, 64, Told);
  std::ifstream in(good, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  const auto write = [&](const char* name, const std::string& data) {
    std::ofstream(TempFile(name), std::ios::binary) << data;
    return TempFile(name);
  };
  std::string huge = "P6\n100000 100000\n255\n";
  const std::string paths[] = {TempFile("missing.png"),
                               TempFile(""),
                               write("empty.png", ""),
                               write("text.png", "not a picture at all, though it says so"),
                               write("half.exr", bytes.substr(0, bytes.size() / 2)),
                               write("short.exr", bytes.substr(0, 40)),
                               write("lies.ppm", huge),
                               write("none.ppm", "P6\n0 0\n255\n")};
  for (const std::string& path : paths) {
    trImage image;
    EXPECT_FALSE(image.ReadFile(path, nullptr)) << path;
    EXPECT_EQ(image.width, 0) << path;
    EXPECT_EQ(image.FColLookupSmooth(0.5, 0.5, true, false), trFCol()) << path;
  }
  // And the reader still reads.
  trImage image;
  EXPECT_TRUE(image.ReadFile(good, nullptr));
}

TEST(Image, TexelsThatAreNotFiniteReadAsZero) {
  const std::string path = WriteTestImage("nan.exr", 4, 4, [](int x, int, int c) {
    return c == 3   ? 1.0f
           : x == 1 ? std::numeric_limits<float>::quiet_NaN()
           : x == 2 ? std::numeric_limits<float>::infinity()
                    : 0.5f;
  });
  trImage image;
  ASSERT_TRUE(image.ReadFile(path, nullptr));
  for (double x = 0; x < 4; x += 0.25) {
    const float r = image.FColLookupSmooth(x, 2, false, false).r;
    EXPECT_TRUE(r >= 0 && r <= 0.5f) << x;
  }
}

TEST(Image, SmoothLookupsAreTheQuadraticSplineOfEveryStorage) {
  struct Row {
    int channels, type;
    float step;  ///< rounding of the storage
  };
  for (const Row& row : {Row{1, 2, 0}, Row{4, 2, 0}, Row{3, 0, 1 / 255.0f}, Row{4, 3, 1 / 65535.0f}}) {
    trImage image;
    ASSERT_TRUE(image.Init(0, 0, 7, 5, row.channels, row.type, 0));
    std::vector<double> value(35);
    for (int i = 0; i < 35; ++i) {
      value[i] = (i * 37 % 101) / 101.0;
      for (int c = 0; c < row.channels; ++c) {
        void* at = image.pixels + i * image.pixelSize;
        if (row.type == 2) static_cast<float*>(at)[c] = static_cast<float>(value[i]);
        if (row.type == 0)
          static_cast<unsigned char*>(at)[c] = static_cast<unsigned char>(value[i] * 255 + 0.5);
        if (row.type == 3)
          static_cast<std::uint16_t*>(at)[c] = static_cast<std::uint16_t>(value[i] * 65535 + 0.5);
      }
    }
    // The spline as its pieces over distance, summed over every pixel of the unrolled or clamped plane.
    const auto spline = [](double d) {
      d = std::fabs(d);
      return d < 0.5 ? 0.75 - d * d : d < 1.5 ? 0.5 * (1.5 - d) * (1.5 - d) : 0;
    };
    for (const bool wraps : {false, true})
      for (const auto& [x, y] : {std::pair(0.1, 0.2), {3.5, 2.5}, {6.9, 4.7}, {2.3, 1.0}, {7.0, 0.0}}) {
        double expected = 0;
        for (int j = -3; j < 9; ++j)
          for (int i = -3; i < 11; ++i) {
            const int u = wraps ? (i + 7) % 7 : std::clamp(i, 0, 6),
                      v = wraps ? (j + 5) % 5 : std::clamp(j, 0, 4);
            expected += value[v * 7 + u] * spline(x - i - 0.5) * spline(y - j - 0.5);
          }
        EXPECT_NEAR(image.FColLookupSmooth(x, y, wraps, wraps).g, expected, 1e-6 + row.step) << x << " " << y;
      }
    EXPECT_EQ(image.F4ColLookupSmooth(std::nan(""), 1e300, true, false).a,
              row.channels == 4 ? image.F4ColLookupSmooth(0, 1e9, true, false).a : 1);
  }
}

const double kWild[] = {std::nan(""), INFINITY, -INFINITY, 1e300, -1e300, 1e18, -1e18, 4.0, -0.0};

TEST(Image, EveryLookupAnswersAtAnyCoordinate) {
  for (const int type : {0, 1, 2, 3}) {
    trImage image;
    ASSERT_TRUE(image.Init(0, 0, 4, 3, 4, type, 0));
    image.Clear();
    for (const double x : kWild)
      for (const double y : {1.5, x})
        for (const int wraps : {0, 1, 2, 3}) {
          const bool u = wraps & 1, v = wraps & 2;
          EXPECT_EQ(image.FColLookupSmooth(x, y, u, v), trFCol()) << x << ' ' << wraps;
          EXPECT_EQ(image.F4ColLookupSmooth(y, x, u, v).a, 0) << x << ' ' << wraps;
          const float fx = static_cast<float>(x), fy = static_cast<float>(y);
          EXPECT_EQ(image.FColInterpolateBilinear(fx, fy, u, v), trFCol()) << x << ' ' << wraps;
        }
  }
}

/// An image map of a 4 by 4 image whose red is the column, green the row from the bottom, all told by
/// eighths.
struct Map {
  explicit Map(const std::vector<std::pair<const char*, double>>& settings = {})
      : shader(graph.Shader("image_map_shader")) {
    static const std::string path = WriteTestImage("grid.exr", 4, 4, [](int x, int y, int c) {
      return c == 0 ? x / 8.0f : c == 1 ? (3 - y) / 8.0f : c == 2 ? 0.0f : 1.0f;
    });
    shader.SetParam("image_filename", path, trWhoSystem);
    shader.SetParam("size", tr2Vector(1, 1), trWhoSystem);
    Set({{"smooth_interpolation", 0}, {"convert_to_linear", 0}});
    Set(settings);
  }
  void Set(const std::vector<std::pair<const char*, double>>& settings) {
    for (const auto& [name, value] : settings) EXPECT_TRUE(shader.SetParam(name, value, trWhoSystem)) << name;
  }
  /// The column and row shown at a point, or -1 and -1 for none.
  std::pair<int, int> At(const trVector& p) {
    Sample sample(p);
    sample.si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kOo);
    sample.si.SetMainView(view);
    sample.si.Cutil() = trFCol(-1.0f);
    shader.ShadeTS(sample.si);
    if (sample.si.Cutil().r < 0) return {-1, -1};
    return {static_cast<int>(sample.si.Cutil().r * 8 + 0.5f),
            static_cast<int>(sample.si.Cutil().g * 8 + 0.5f)};
  }
  Graph graph;
  trShader& shader;
  const trView* view = nullptr;
};

TEST(ImageMap, ProjectionsFollowTheirFormulas) {
  Map map;
  map.shader.SetParam("size", tr2Vector(8, 8), trWhoSystem);
  const std::pair<int, int> none(-1, -1);
  EXPECT_EQ(map.At({1, 99, 7}), std::pair(0, 3));
  EXPECT_EQ(map.At({8, 0, 1}), none) << "the far edge is outside";
  EXPECT_EQ(map.At({-0.1, 0, 1}), none);
  map.Set({{"projection_type", 1}});
  EXPECT_EQ(map.At({99, 3, 5}), std::pair(1, 2));
  map.Set({{"projection_type", 2}});
  EXPECT_EQ(map.At({3, 5, 99}), std::pair(1, 2));
  map.Set({{"position_center", 1}});
  EXPECT_EQ(map.At({-3.9, 3.9, 0}), std::pair(0, 3));
  map.Set({{"flip_x", 1}, {"flip_y", 1}});
  EXPECT_EQ(map.At({-3.9, 3.9, 0}), std::pair(3, 0));
  map.Set({{"flip_x", 0}, {"flip_y", 0}, {"repeat_x", 1}});
  EXPECT_EQ(map.At({8 - 3.9, 3.9, 0}), std::pair(0, 3));
  EXPECT_EQ(map.At({0, 4.1, 0}), none);

  // Round the y axis: +x is a quarter turn back, -z half a turn.
  map.Set({{"projection_type", 6}, {"repeat_x", 0}, {"position_lower_left", 1}});
  map.shader.SetParam("size", tr2Vector(1, 1), trWhoSystem);
  for (double longitude = 5; longitude < 360; longitude += 30)
    for (const double latitude : {-80.0, -20.0, 30.0, 75.0}) {
      const double a = longitude * 0.017453292519943, b = latitude * 0.017453292519943;
      const trVector p(-std::sin(a) * std::cos(b), std::sin(b), std::cos(a) * std::cos(b));
      EXPECT_EQ(map.At(p * 3.0),
                std::pair(static_cast<int>(longitude / 90), static_cast<int>((latitude + 90) / 45)))
          << longitude << " " << latitude;
    }
  map.Set({{"projection_type", 5}});
  EXPECT_EQ(map.At({0, 0.6, 0}), std::pair(0, 2)) << "on the axis";

  trView view;
  view.tanHalfHorizontal = view.tanHalfVertical = 1;
  map.Set({{"projection_type", 3}, {"position_center", 0}, {"position_lower_left", 0}});
  EXPECT_EQ(map.At({0, 0, 5}), none) << "no camera and no view";
  map.view = &view;
  EXPECT_EQ(map.At({-4, 4, 5}), std::pair(0, 3)) << "the picture's left upper corner";
  EXPECT_EQ(map.At({4, -4, 5}), std::pair(3, 0));
  EXPECT_EQ(map.At({0, 0, -5}), none) << "behind the eye";
}

TEST(ImageMap, PointsThatAreNoPlaceShowAPixelOrNothing) {
  Map map({{"apply_displacement", 1}, {"border_blending", 0.1}});
  for (const int switches : {0, 1, 2, 3, 4, 5, 6, 7})
    for (long projection = 0; projection <= 6; ++projection) {
      const int smooth = switches >> 2 & 1;
      map.Set({{"repeat_x", switches & 1},
               {"repeat_y", switches >> 1 & 1},
               {"smooth_interpolation", smooth},
               {"smooth_disp_interpolation", smooth}});
      map.shader.SetParam("projection_type", projection, trWhoSystem);
      for (const double x : kWild)
        for (const trVector& p : {trVector(x, 0.5, 0.25), trVector(0.5, x, x), trVector(x, x, x)}) {
          Sample sample({0, 0, 0});
          sample.si.Pt() = p;
          map.shader.DisplaceTS(sample.si);
          map.shader.ShadeTS(sample.si);
          const trFCol c = sample.si.Cutil();
          ASSERT_TRUE(c.r >= 0 && c.r <= 0.375f && c.g >= 0 && c.g <= 0.375f) << projection << ' ' << x;
          ASSERT_TRUE(std::isfinite(sample.si.P().y)) << projection << ' ' << x;
        }
    }
}

TEST(ImageMap, BordersFadeAndTheMaskCovers) {
  Map map({{"border_blending", 0.25}});
  const auto cover = [&](double u, double v) {
    Sample sample({u, 0, v});
    sample.si.Cutil() = {0, 0, 1};
    map.shader.ShadeTS(sample.si);
    return 1 - sample.si.Cutil().b;  // the image has no blue
  };
  const auto step = [](double t) { return t < 0 ? 0 : t > 1 ? 1 : (3 - 2 * t) * t * t; };
  for (const auto& [u, v] : {std::pair(0.1, 0.5), {0.05, 0.9}, {0.5, 0.5}, {0.8, 0.2}})
    EXPECT_NEAR(cover(u, v), step(4 * u) * step(4 * (1 - u)) * step(4 * v) * step(4 * (1 - v)), 1e-6);
  map.Set({{"repeat_x", 1}});
  EXPECT_NEAR(cover(0.05, 0.9), step(0.4), 1e-6) << "an axis that repeats has no border";

  auto& mask = map.graph.Add<ProbeShader>("Mask");
  mask.colour = trFCol(0.5f);
  Graph::Link(map.shader, "blending_shader", mask);
  map.Set({{"blend_by_shader", 1}, {"border_blending", 0}, {"invert_blendshader", 1}});
  EXPECT_NEAR(cover(0.3, 0.6), 1 - 0.5 * (0.2125 + 0.7152 + 0.0724), 1e-6);
  EXPECT_EQ(mask.seenPt, trVector(0.3, 0, 0.6)) << "the mask is fitted to the image";
  map.shader.SetParam("blending_shader", "", trWhoSystem);
  EXPECT_EQ(cover(0.3, 0.6), 0) << "a mask that leads nowhere maps nothing";
}

TEST(ImageMap, EffectsActInTheirOrder) {
  static const std::string path = WriteTestImage("alpha.exr", 2, 1, [](int x, int, int c) {
    return c == 3 ? (x ? 0.25f : 1.0f) : c == 0 ? 0.5f : 0.125f;
  });
  Map map;
  map.shader.SetParam("image_filename", path, trWhoSystem);
  const auto shade = [&](double u) {
    Sample sample({u, 0, 0.5});
    sample.si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kOo);
    map.shader.ShadeTS(sample.si);
    return std::pair(sample.si.Cutil(), sample.si.Oo_surf());
  };
  map.Set({{"unpremultiply", 1}});
  EXPECT_FLOAT_EQ(shade(0.75).first.r, 1.0f) << "divided by the largest of alpha and channels";
  EXPECT_FLOAT_EQ(shade(0.25).first.r, 0.5f);
  map.Set({{"convert_to_linear", 1}, {"conversion_gamma", 2}, {"alpha_as_opacity", 1}});
  EXPECT_FLOAT_EQ(shade(0.75).first.g, 0.0625f);
  EXPECT_FLOAT_EQ(shade(0.75).second.g, 0.25f);
  map.Set({{"invert_alpha", 1}});
  EXPECT_FLOAT_EQ(shade(0.75).second.g, 0.75f);
  map.Set({{"invert_alpha", 0}, {"use_alpha_directly", 1}, {"alpha_as_opacity", 0}});
  EXPECT_FLOAT_EQ(shade(0.75).first.r, 0.25f);
  map.Set({{"use_alpha_directly", 0},
           {"create_transparency", 1},
           {"unpremultiply", 0},
           {"convert_to_linear", 0}});
  map.shader.SetParam("transparency_key", trManRgb(0.5f, 0.125f, 0.25f), trWhoSystem);
  map.Set({{"key_tolerance", 0.125}});
  EXPECT_EQ(shade(0.25).second, trFCol()) << "a difference equal to the tolerance keys out";
  map.Set({{"key_tolerance", 0.124}});
  EXPECT_EQ(shade(0.25).second, trFCol(1.0f));
  map.Set({{"create_transparency", 0}, {"alpha_as_colour", 1}, {"multiply_RGB", 1}, {"offset_RGB", 1}});
  map.shader.SetParam("RGB_multiplier", trVector(2, 4, 0), trWhoSystem);
  map.shader.SetParam("RGB_offset_value", trVector(0, 0, 0.5), trWhoSystem);
  EXPECT_EQ(shade(0.75).first, trFCol(0.5f, 1.0f, 0.5f));
}

TEST(ImageMap, DisplacementReadsItsOwnOrTheColourSettings) {
  Map map({{"apply_displacement", 1}, {"displacement_amplitude", 10}, {"displacement_offset", 1}});
  const auto height = [&] {
    Sample sample({0.9, 0, 0.9});
    map.shader.DisplaceTS(sample.si);
    return sample.si.P().y;
  };
  const double plain = Luminance({3 / 8.0f, 3 / 8.0f, 0}), squared = Luminance({9 / 64.0f, 9 / 64.0f, 0});
  const double white = 0.2125 + 0.7152 + 0.0724;
  map.Set({{"smooth_disp_interpolation", 0}, {"convert_disp_to_linear", 1}, {"disp_conversion_gamma", 2}});
  EXPECT_NEAR(height(), (10 * squared + 1) * white, 1e-5);
  map.Set({{"has_disp_param_bug", 1}});
  EXPECT_NEAR(height(), (10 * plain + 1) * white, 1e-5) << "the colour's settings are in force";
}

TEST(ImageMap, CouplingsAndSheet) {
  Map map;
  trString info;
  map.shader.GetParam("image_size_info", info);
  EXPECT_EQ(info, "4 x 4");
  map.shader.SetParam("position_center", 1, trWhoUser);
  EXPECT_EQ(DoubleParam(map.shader, "position_lower_left"), 0);
  map.Set({{"convert_to_linear", 1}});
  map.Set({{"data_is_linear", 1}});
  EXPECT_EQ(DoubleParam(map.shader, "convert_to_linear"), 0);
  map.Set({{"has_disp_param_bug", 1}});
  map.Set({{"conversion_gamma", 1.8}});
  EXPECT_EQ(DoubleParam(map.shader, "disp_conversion_gamma"), 1.8);
  map.shader.SetParam("projection_type", 3, trWhoUser);
  EXPECT_EQ(VectorParam(map.shader, "position"), trVector(0.5, 0.5, 0));
  map.shader.SetParam("image_filename", "", trWhoUser);
  map.shader.GetParam("image_size_info", info);
  EXPECT_EQ(info, "0 x 0");
  EXPECT_EQ(map.At({0.5, 0, 0.5}).first, -1);
}

TEST(ColourManagement, ConvertsFromTheConfiguredSpace) {
  const std::string config = TempFile("config.ocio");
  std::ofstream(config)
      << "ocio_profile_version: 2\nroles: {default: raw, scene_linear: lin_rec709}\n"
         "file_rules: [!<Rule> {name: Default, colorspace: default}]\n"
         "displays: {d: [!<View> {name: v, colorspace: raw}]}\n"
         "colorspaces:\n  - !<ColorSpace> {name: lin_rec709}\n  - !<ColorSpace> {name: raw, isdata: true}\n"
         "  - !<ColorSpace>\n    name: halves\n    to_scene_reference: !<MatrixTransform> {matrix: "
         "[0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 1]}\n";
  trOcio settings;
  ASSERT_TRUE(settings.Set(config, "halves"));
  trFCol c(0.5f, 1.0f, 2.0f);
  settings.Apply(c);
  EXPECT_EQ(c, trFCol(0.25f, 0.5f, 1.0f));
  EXPECT_FALSE(settings.Set(config, "no such space"));
  EXPECT_FALSE(settings.IsActive());
  std::ofstream(config) << "nonsense: [";
  EXPECT_FALSE(settings.Set(config, "halves"));
  EXPECT_TRUE(settings.Set("", ""));
}

}  // namespace
