// Painting from outside: pictures of all directions, strokes told from what they were painted on, files, and
// what a viewpoint sees.
#include <cmath>
#include <numbers>

#include "core/atmosphere.h"
#include "host/project/project_file.h"
#include "host/session/sky_paint_edit.h"
#include "host/session/sky_paint_files.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::Picture;
using ovhost::SessionError;
using ovhost::SkyFaces;
using ovhost::SkyPaintEdit;

/// A picture whose pixels are what a function makes of their place, from the top left, 0 to 1.
template <typename Function>
Picture Made(int width, int height, Function colourAt) {
  Picture picture;
  picture.width = width;
  picture.height = height;
  picture.channels = {"R", "G", "B"};
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const trFCol c = colourAt((x + 0.5) / width, (y + 0.5) / height);
      picture.pixels.insert(picture.pixels.end(), {c.r, c.g, c.b});
    }
  return picture;
}

const float* PixelOf(const Picture& picture, int x, int y) {
  return &picture.pixels[(static_cast<std::size_t>(y) * picture.width + x) * picture.channels.size()];
}

/// Paint that differs in all directions and bends nowhere.
trFCol SmoothPaint(const trVector& direction) {
  const trVector d = Normalised(direction);
  return {static_cast<float>(0.5 + 0.3 * d.x + 0.2 * d.y), static_cast<float>(0.5 - 0.4 * d.z), 0};
}

/// North in the middle, east to the right, the zenith at the top.
trVector PanoramaDirection(double x, double y) {
  const double heading = (2 * x - 1) * std::numbers::pi, elevation = (0.5 - y) * std::numbers::pi;
  return {std::sin(heading) * std::cos(elevation), std::sin(elevation),
          std::cos(heading) * std::cos(elevation)};
}

SkyFaces SmoothFaces(int side) {
  SkyFaces faces;
  for (int f = 0; f < kSkyPaintFaces; ++f)
    faces[f] = Made(side, side, [f](double x, double y) {
      return SmoothPaint(trSkyPaintDirection(
          {static_cast<trSkyPaintFace>(f), static_cast<float>(x), static_cast<float>(1 - y)}));
    });
  return faces;
}

void ExpectSame(const Picture& a, const Picture& b, double tolerance) {
  ASSERT_EQ(a.width, b.width);
  ASSERT_EQ(a.height, b.height);
  double worst = 0;
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      for (int c = 0; c < 3; ++c)
        worst = std::max(worst, std::fabs(static_cast<double>(PixelOf(a, x, y)[c]) - PixelOf(b, x, y)[c]));
  EXPECT_LE(worst, tolerance);
}

TEST(SkyPictures, PanoramasAndFacesShowTheSameDirections) {
  const Picture panorama =
      Made(256, 128, [](double x, double y) { return SmoothPaint(PanoramaDirection(x, y)); });
  ExpectSame(ovhost::PanoramaOf(SmoothFaces(96), 256), panorama, 0.01);
  const SkyFaces faces = ovhost::FacesOf(panorama, 64), smooth = SmoothFaces(64);
  for (int f = 0; f < kSkyPaintFaces; ++f) ExpectSame(faces[f], smooth[f], 0.01);
}

TEST(SkyPictures, StrokesAreTheSharesOfRedAndGreenThatCoverTheSky) {
  const struct {
    trFCol sky;
    float red, green;
  } cases[] = {{{0.2f, 0.4f, 0.8f}, 0, 0},         {{0.2f, 0.4f, 0.8f}, 1, 0}, {{0.2f, 0.4f, 0.8f}, 0, 0.5f},
               {{0.9f, 0.9f, 0.9f}, 0.3f, 0.6f},   {{0, 0, 0}, 0.25f, 0.125f}, {{0.8f, 0.3f, 0.1f}, 0.5f, 0},
               {{0.02f, 0.03f, 0.05f}, 0.5f, 0.5f}};
  for (const auto& c : cases) {
    const trFCol painted = c.sky * (1 - c.red - c.green) + trFCol(c.red, c.green, 0);
    const auto even = [](const trFCol& colour) { return Made(2, 1, [&](double, double) { return colour; }); };
    double odd = 1;
    const Picture strokes = ovhost::StrokesOn(even(c.sky), even(painted), odd);
    EXPECT_NEAR(PixelOf(strokes, 1, 0)[0], c.red, 1e-4);
    EXPECT_NEAR(PixelOf(strokes, 1, 0)[1], c.green, 1e-4);
    EXPECT_NEAR(PixelOf(strokes, 1, 0)[3], c.red + c.green, 1e-4);
    EXPECT_EQ(odd, 0);
    ovhost::StrokesOn(even(c.sky), even({0.1f, 0.1f, 1}), odd);
    EXPECT_EQ(odd, 1) << "blue is neither";
  }
}

// ---------------------------------------------------------------------------------------------------------------

class SkyPaintFiles : public testing::Test {
 protected:
  SkyPaintFiles() : node_(*graph_.project.CreateChild("sky_paint")), paint_(node_) {}
  Graph graph_;
  trBase& node_;
  SkyPaintEdit paint_;
};

TEST_F(SkyPaintFiles, ViewpointsComeAndGo) {
  EXPECT_TRUE(paint_.Viewpoints().empty());
  for (int number = 1; number <= 10; ++number) EXPECT_EQ(paint_.Add({1234567.0 * number, 0.1, -3}), number);
  EXPECT_THROW(paint_.Add({}), SessionError);
  paint_.Remove(4);
  EXPECT_THROW(paint_.Remove(4), SessionError);
  EXPECT_THROW(paint_.PositionOf(11), SessionError);
  EXPECT_EQ(paint_.PositionOf(5), trVector(6172840, 0.1, -3)) << "six digits, as projects keep them";
  EXPECT_EQ(paint_.Add({}), 4);
  // Green on the upper face alone is a sixth of all directions.
  SkyFaces faces;
  faces[static_cast<int>(trSkyPaintFace::kUp)] =
      Made(16, 16, [](double, double) { return trFCol(0, 0.5f, 0); });
  paint_.SetFaces(4, faces);
  const auto list = paint_.Viewpoints();
  ASSERT_EQ(list.size(), 10u);
  EXPECT_EQ(list[3].side, 16);
  EXPECT_NEAR(list[3].added, 0.5 / 6, 1e-3);
  EXPECT_EQ(list[3].removed, 0);
  EXPECT_EQ(list[0].added, 0);
  EXPECT_THROW(SkyPaintEdit(graph_.project), SessionError);
}

TEST_F(SkyPaintFiles, PaintGoesThroughFilesOfAllKinds) {
  const int number = paint_.Add({0, 100, 0});
  const SkyFaces smooth = SmoothFaces(48);
  const struct {
    const char* name;
    double accuracy;
  } kinds[] = {{"paint.png", 0.5 / 255}, {"paint.tif", 1e-4}, {"paint.exr", 3e-4}};
  for (const auto& kind : kinds)
    for (const bool isFaces : {true, false}) {
      SCOPED_TRACE(kind.name);
      const ovhost::SkyFiles files{TempFile(kind.name), isFaces};
      ovhost::WritePaint(files, smooth, 192);
      paint_.Remove(number);
      ASSERT_EQ(paint_.Add({0, 100, 0}), number);
      ovhost::ImportPaint(paint_, number, {files, "", 48});
      const SkyFaces back = paint_.Faces(number);
      for (int f = 0; f < kSkyPaintFaces; ++f)
        ExpectSame(back[f], smooth[f], kind.accuracy + (isFaces ? 1e-6 : 0.02));
    }
  // A direction whose paint is looked up finds it.
  trShadingInterface si;
  si.P() = {300, 50, 400};
  trFCol colour;
  static_cast<SkyPaintBase&>(node_).Sample(colour, si, number - 1);
  EXPECT_NEAR(colour.g, SmoothPaint({300, -50, 400}).g, 0.03);
}

/// A sky with a red stroke over it, taken back: red there, and the old paint everywhere else.
TEST_F(SkyPaintFiles, StrokesOnASkyGoOverTheOldPaint) {
  const int number = paint_.Add({});
  SkyFaces old = SmoothFaces(32);
  paint_.SetFaces(number, old);
  const auto sky = [](double x, double y) {
    return trFCol(static_cast<float>(0.2 + 0.1 * x), 0.4f, static_cast<float>(0.9 - 0.3 * y));
  };
  // Half red over the upper left quarter of the south-eastern sky.
  const auto isPainted = [](double x, double y) { return x > 0.7 && x < 0.8 && y < 0.4 && y > 0.3; };
  const ovhost::ViewTransform plain{.exposureStops = 0, .softClip = false};
  for (const bool isPainting : {false, true})
    ASSERT_EQ(ovhost::WritePicture(
                  TempFile(isPainting ? "painted.png" : "sky.png"),
                  Made(256, 128,
                       [&](double x, double y) {
                         const trFCol c = sky(x, y);
                         const auto linear = [](float v) { return std::pow((v + 0.055f) / 1.055f, 2.4f); };
                         const trFCol shown =
                             isPainting && isPainted(x, y) ? c * 0.5f + trFCol(0.5f, 0, 0) : c;
                         return trFCol(linear(shown.r), linear(shown.g), linear(shown.b));
                       }),
                  plain),
              "");
  ovhost::ImportPaint(paint_, number, {{TempFile("painted.png"), false}, TempFile("sky.png"), 0});
  const SkyFaces faces = paint_.Faces(number);
  trShadingInterface si;
  for (const auto& [x, y] : {std::pair(0.75, 0.35), std::pair(0.6, 0.35), std::pair(0.2, 0.8)}) {
    si.P() = PanoramaDirection(x, y) * 1000;
    trFCol colour;
    static_cast<SkyPaintBase&>(node_).Sample(colour, si, number - 1);
    const trFCol was = SmoothPaint(si.P());
    const float share = isPainted(x, y) ? 0.5f : 0;
    EXPECT_NEAR(colour.r, was.r * (1 - share) + share, 0.03) << x;
    EXPECT_NEAR(colour.g, was.g * (1 - share), 0.03) << x;
  }
  // Pictures that don't fit, or aren't there.
  const std::string wide = TempFile("wide.png");
  ASSERT_EQ(ovhost::WritePicture(wide, Made(30, 10, sky), plain), "");
  EXPECT_THROW(ovhost::ImportPaint(paint_, number, {{wide, false}, "", 0}), SessionError);
  EXPECT_THROW(ovhost::ImportPaint(paint_, number, {{TempFile("none.png"), true}, "", 0}), SessionError);
  const std::string small = TempFile("small.png");
  ASSERT_EQ(ovhost::WritePicture(small, Made(64, 32, sky), plain), "");
  EXPECT_THROW(ovhost::ImportPaint(paint_, number, {{small, false}, TempFile("sky.png"), 0}), SessionError);
  for (int f = 0; f < kSkyPaintFaces; ++f) ExpectSame(paint_.Faces(number)[f], faces[f], 0);
}

/// A fog right round the eye that shines in every direction by that direction's own colour.
class CompassFog : public trAtmosShader {
 public:
  static constexpr trVector kEye{0, 8e6, 0};
  static trFCol ColourOf(const trVector& d) {
    return {static_cast<float>(0.5 + 0.5 * d.x), static_cast<float>(0.5 + 0.5 * d.y),
            static_cast<float>(0.5 + 0.5 * d.z)};
  }
  long AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*&) override {
    const trRenderState::Ray& ray = state.CurrentRay();
    integrator.AddSample(this, ray.origin + Normalised(ray.end - ray.origin) * 10);
    return 1;
  }
  long EvaluateRaySample(trRenderState&, trAtmosSample& sample) override {
    sample.colourDirect = ColourOf(Normalised(sample.position - kEye));
    sample.opacityDirect = sample.opacityEnviro = trFCol(1.0f);
    return 1;
  }
};

TEST(SkyView, ShowsEveryDirectionInItsPlace) {
  Graph graph;
  trBase& planet = *graph.project.CreateChild("planet");
  auto* fog = new CompassFog;
  ovhost::AttachChild(&planet, fog, "Fog");
  Graph::Link(planet, "atmosphere_shader", *fog);
  ovhost::RenderJobSettings settings;
  settings.samples = 4;
  settings.engine = ovhost::Engine::kStandard;
  const long children = graph.project.NumChildren();
  ovhost::RenderControl control;
  ovhost::SkyView sky;
  ASSERT_EQ(ovhost::RenderSky(graph.project, CompassFog::kEye, settings, 32, control, sky),
            ovhost::RenderOutcome::kDone);
  EXPECT_EQ(graph.project.NumChildren(), children) << "a camera was left behind";
  for (int f = 0; f < kSkyPaintFaces; ++f)
    ExpectSame(
        sky.faces[f],
        Made(32, 32,
             [f](double x, double y) {
               return CompassFog::ColourOf(Normalised(trSkyPaintDirection(
                   {static_cast<trSkyPaintFace>(f), static_cast<float>(x), static_cast<float>(1 - y)})));
             }),
        0.04);
}

}  // namespace
