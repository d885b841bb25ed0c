// A cloud that obeys paint: a scene is painted on as an artist does, over its picture, and shows a hole where
// there was cloud and a cloud where there was none.
#include <cmath>

#include "host/project/project_file.h"
#include "host/session/sky_paint_edit.h"
#include "host/session/sky_paint_files.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::Picture;

/// Dense in the east, nothing by a margin in the west.
class EastWest : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    si.Cutil() = trFCol(si.P().x > 0 ? 0.5f : -1.0f);
    return 1;
  }
};

/// A black planet under one sun, with a level layer of cloud over half of it, seen from above.
class PaintedCloud : public testing::Test {
 protected:
  static constexpr trVector kEye{0, 6000, 0};

  PaintedCloud() {
    ovhost::RegisterHostClasses();
    trBase& planet = *graph_.project.CreateChild("planet");
    planet.SetParam("surface_shader", "", trWhoUser);
    planet.SetParam("centre", trVector(0, -6378000, 0), trWhoUser);
    cloud_ = planet.CreateChild("cloud_layer_v2");
    if (!cloud_) return;
    auto* const shape = new EastWest;
    ovhost::AttachChild(&planet, shape, "Shape");
    Graph::Link(*cloud_, "density_shader", *shape);
    Graph::Link(planet, "atmosphere_shader", *cloud_);
    const std::pair<const char*, double> numbers[] = {
        {"cloud_altitude", 2000}, {"cloud_depth", 200}, {"cloud_density", 0.005}, {"edge_sharpness", 5}};
    for (const auto& [name, value] : numbers) EXPECT_TRUE(cloud_->SetParam(name, value, trWhoUser)) << name;
    cloud_->SetParam("local_sphere", 0, trWhoUser);
    trBase& sun = *graph_.project.CreateChild("sunlight");
    sun.SetParam("elevation", 60.0, trWhoUser);
    paint_ = graph_.project.CreateChild("sky_paint");
    Graph::Link(*cloud_, "paint", *paint_);
    cloud_->SetParam("enable_paint", 1, trWhoUser);
    settings_.samples = 4;
    settings_.engine = ovhost::Engine::kStandard;
  }
  ovhost::SkyView Sky() {
    ovhost::SkyView sky;
    ovhost::RenderControl control;
    EXPECT_EQ(ovhost::RenderSky(graph_.project, kEye, settings_, 32, control, sky),
              ovhost::RenderOutcome::kDone);
    return sky;
  }
  /// Brightness in a direction of a panorama.
  static float Bright(const Picture& panorama, double heading, double elevation) {
    const int x = static_cast<int>((heading / 360 + 0.5) * panorama.width);
    const int y = static_cast<int>((0.5 - elevation / 180) * panorama.height);
    return panorama.pixels[(static_cast<std::size_t>(y) * panorama.width + x) * panorama.channels.size() + 1];
  }

  Graph graph_;
  trBase* cloud_ = nullptr;
  trBase* paint_ = nullptr;
  ovhost::RenderJobSettings settings_;
};

TEST_F(PaintedCloud, HasAHoleWhereRedIsAndCloudWhereGreenIs) {
  ASSERT_TRUE(cloud_);
  const ovhost::SkyView before = Sky();
  const std::string sky = TempFile("sky.exr"), painted = TempFile("painted.exr");
  ovhost::WriteSky({sky, false}, before, 128);
  // Strokes of 20 degrees: red in the eastern cloud, green in the western clear sky.
  Picture picture = ovhost::PanoramaOf(before.faces, 128);
  const Picture was = picture;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 128; ++x) {
      const double heading = ((x + 0.5) / 128 - 0.5) * 360, elevation = (0.5 - (y + 0.5) / 64) * 180;
      const auto isNear = [&](double h) { return std::hypot((heading - h) * 0.7, elevation + 45) < 10; };
      float* const pixel = &picture.pixels[(static_cast<std::size_t>(y) * 128 + x) * 3];
      if (isNear(90)) pixel[0] = 1, pixel[1] = pixel[2] = 0;
      if (isNear(-90)) pixel[1] = 1, pixel[0] = pixel[2] = 0;
    }
  ASSERT_EQ(ovhost::WritePicture(painted, picture, {}), "");
  ovhost::SkyPaintEdit edit(*paint_);
  ovhost::ImportPaint(edit, edit.Add(kEye), {{painted, false}, sky, 64});

  const Picture after = ovhost::PanoramaOf(Sky().faces, 128);
  const float cloudy = Bright(was, 60, -45), clear = Bright(was, -60, -45);
  EXPECT_GT(cloudy, 4 * clear);
  EXPECT_LT(Bright(after, 90, -45), 0.1 * cloudy + 0.9 * clear) << "no hole";
  EXPECT_GT(Bright(after, -90, -45), 0.4 * cloudy) << "no cloud";
  EXPECT_NEAR(Bright(after, 40, -45), Bright(was, 40, -45), 0.05 * cloudy);
  EXPECT_NEAR(Bright(after, -40, -45), clear, 0.05 * cloudy);
}

}  // namespace
