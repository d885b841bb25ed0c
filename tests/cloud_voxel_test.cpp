// What cloud layers bake: voxels, the shadow map, grids for export.
#include <cstring>

#include "tests/cloud_fixture.h"

namespace {

using CloudVoxelTest = CloudTest<CloudLayerV2>;
using CloudScatterTest = CloudTest<CloudLayerV3>;

/// Waves that no axis is special to.
float Waves(const trVector& p) {
  return static_cast<float>(std::sin(p.x / 170) + std::sin(p.z / 210) + std::sin((p.x + p.y) / 190)) * 0.5f;
}

class CloudVoxelWaves : public CloudVoxelTest {
 protected:
  CloudVoxelWaves() {
    MakeEven();
    Set("local_sphere", 1);
    Set("local_sphere_radius", 2000.0);
    Set("local_sphere_value_at_radius", -1.0);
    density_.colour = [](const trVector& p) { return trFCol(Waves(p)); };
    Set("use_voxel_buffer", 1);
    Set("millions_of_voxels", 0.05, trWhoUser);
  }
};

TEST_F(CloudVoxelWaves, VoxelsShowTheDensityTheyWereBakedFrom) {
  Set("number_of_samples", 200);
  Set("use_voxels_to_accelerate_empty_space", 0);
  const auto look = [&](double x) {
    render_.Aim({x, 0, 100}, {x, 4000, 100});
    return Run().transmittance.g;
  };
  Prepare();
  float plain[20];
  for (int i = 0; i < 20; ++i) plain[i] = look(i * 60 - 600);
  Set("visualise_voxels", 1);
  Prepare();
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(look(i * 60 - 600), plain[i], 0.03) << i;
  // Bakes are used, not the shaders; so too by shadow rays of any length.
  Set("voxel_shadow_threshold", 0.0);
  look(-600);
  density_.asked = 0;
  look(-600);
  EXPECT_EQ(density_.asked, 0);
  // Where space is told to be empty, steps are saved and the cloud stays.
  Set("visualise_voxels", 0);
  Set("use_voxels_to_accelerate_empty_space", 1);
  Prepare();
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(look(i * 60 - 600), plain[i], 0.02) << i;
}

TEST_F(CloudVoxelWaves, CellsDontHangOnWhoAskedFirst) {
  Set("visualise_voxels", 1);
  for (const trCloudSteps mode : {trCloudSteps::kAsLayersTell, trCloudSteps::kTrueLengths}) {
    const auto look = [&](double x) {
      render_.Aim({x, 0, 100}, {x + 300, 4000, 100});
      return Run().transmittance.g;
    };
    Prepare(mode);
    const float first[] = {look(-200), look(0), look(150)};
    Prepare(mode);
    Upwards({400, 1100, 0});
    const float last[] = {look(150), look(0), look(-200)};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(first[i], last[2 - i]);
  }
}

TEST_F(CloudVoxelWaves, ExportedGridsHoldTheDensity) {
  Prepare();
  Set("set_export_resolution", 1);
  Set("millions_of_voxels_for_export", 0.02);
  auto* const buffer = static_cast<trVoxelBuffer*>(cloud_.RequestMember("voxel info for export"));
  ASSERT_TRUE(buffer && !buffer->IsEmpty());
  EXPECT_NEAR(static_cast<double>(buffer->NumCells()), 2e4, 2e3);
  auto* const server = static_cast<trVoxelServer*>(cloud_.RequestMember("begin voxel server for export"));
  ASSERT_TRUE(server);
  trVoxelServerThread* const thread = server->NewThread(render_);
  int dense = 0;
  for (int i = 0; i < 200; ++i) {
    trVector world;
    buffer->MapVoxelToWorld(trVector(12.5 + i % 20, 3.5 + i / 20 % 4, 16.5 + i / 30), world);
    const trFCol value = thread->ValueAt(world, static_cast<unsigned>(i));
    const float expected = cloud_.MatterAt(render_.state, world).extinction.g / 0.001f;
    EXPECT_NEAR(value.g, expected, 1e-5);
    dense += value.g > 0;
  }
  EXPECT_TRUE(dense > 10 && dense < 190) << dense;
  EXPECT_EQ(cloud_.RequestMember("end voxel server"), nullptr);
  EXPECT_EQ(cloud_.RequestMember("no such member"), nullptr);
}

/// Paint of one colour all over the sky of one viewpoint.
struct PlainPaint final : SkyPaintBase {
  void Sample(trFCol& result, const trShadingInterface&, long) const override { result = colour; }
  std::vector<trSkyPaintViewpoint> Viewpoints() override { return {{true, {0, 100, 0}}}; }
  trFCol colour;
};

TEST_F(CloudVoxelWaves, PaintTakesCloudAwayAndAddsSome) {
  Set("use_voxel_buffer", 0);
  Set("local_sphere_value_at_radius", -0.1);
  Set("number_of_samples", 12);
  PlainPaint& paint = graph_.Add<PlainPaint>("Paint");
  const auto left = [&](const trFCol& colour) {
    paint.colour = colour;
    Set("cloud_colour", trManRgb(0.25f, 0.25f, 0.25f));  // any change, so that paint is measured anew
    Prepare();
    float sum = 0;
    for (int i = -6; i < 6; ++i) sum += Upwards({i * 100.0 + 30, 0, 50}).g / 12;
    return sum;
  };
  const float plain = left({});
  EXPECT_LT(plain, 0.95f);
  Set("paint", "Paint", trWhoUser);
  EXPECT_EQ(Number("enable_paint"), 1);
  EXPECT_NEAR(left({}), plain, 1e-3);
  EXPECT_NEAR(left({1, 0, 0}), 1.0f, 1e-5);
  EXPECT_LT(left({0, 1, 0}), plain - 0.1f);
}

struct BoxNode : trSurfaceShader {
  BoxNode() {
    DeclareTrue("is_object");
    Param(translate, "translate", trVector());
    Param(scale, "scale", trVector(1, 1, 1));
  }
  trVector translate, scale;
};

TEST_F(CloudVoxelWaves, TheExportsBoxIsFitted) {
  Set("local_sphere_value_at_radius", -0.5);
  // A ball of 400 m at (300, 1600, -200).
  density_.colour = [](const trVector& p) {
    return trFCol(static_cast<float>(1 - (p - trVector(300, 1600, -200)).Length() / 400));
  };
  Set("local_sphere_falloff", 0.001);
  Prepare();
  AnalyzeExportBoundsButton analyze(&cloud_);
  EXPECT_FALSE(analyze.OnPressed());  // nothing linked
  BoxNode& box = graph_.Add<BoxNode>("Bounds");
  Set("export_bounds", "Bounds", trWhoUser);
  EXPECT_TRUE(analyze.OnPressed());
  ExpectNear(box.translate, {300, 1600, -200}, 90);
  ExpectNear(box.scale, {800, 800, 800}, 330);
  for (int axis = 0; axis < 3; ++axis) EXPECT_GE(box.scale[axis], 790);
  ResetExportBoundsButton reset(&cloud_);
  EXPECT_TRUE(reset.OnPressed());
  ExpectNear(box.scale, {4000, 1000, 4000}, 1e-6);
}

TEST_F(CloudVoxelWaves, ShadowMapIsTheMarchSeenFromAbove) {
  Set("use_voxel_buffer", 0);
  Set("number_of_samples", 64);
  float plain[12];
  const auto at = [](int i) { return trVector(i * 110 - 600, 100, i * 70 - 400); };
  Prepare();
  for (int i = 0; i < 12; ++i) plain[i] = Upwards(at(i)).g;
  Set("use_2D_shadow_map", 1);
  Set("shadow_map_resolution", tr2Vector(128, 128));
  Set("shadow_map_blur_radius", tr2Vector(0, 0));
  Prepare();
  density_.asked = 0;
  for (int i = 0; i < 12; ++i) EXPECT_NEAR(Upwards(at(i)).g, plain[i], 0.02) << i;
  EXPECT_EQ(density_.asked, 0);
  // Blurring keeps the mean and evens out; along one axis only, the other stays.
  const auto variation = [&](double rx, double rz, const trVector& step) {
    Set("shadow_map_blur_radius", tr2Vector(rx, rz));
    Prepare();
    double sum = 0;
    for (int i = -8; i < 8; ++i)
      sum += std::fabs(Upwards(trVector(20, 100, 20) + step * (i + 1.0)).g -
                       Upwards(trVector(20, 100, 20) + step * i).g);
    return sum;
  };
  const trVector alongX(60, 0, 0), alongZ(0, 0, 60);
  const double sharp = variation(0, 0, alongZ);
  EXPECT_LT(variation(0, 20, alongZ), 0.7 * sharp);
  EXPECT_GT(variation(20, 0, alongX), 0);
  EXPECT_LT(variation(20, 0, alongX), 0.7 * variation(0, 0, alongX));
  Set("enable_secondary", 0);
  Prepare();
  EXPECT_EQ(Upwards(at(3)), trFCol(1.0f));
}

TEST_F(CloudScatterTest, LightScatteredMoreThanOnceIsAddedAndNeverGained) {
  MakeEven();
  Set("number_of_samples", 16);
  Set("local_sphere_radius", 3000.0);
  Set("local_sphere_falloff", 0.001);
  Set("millions_of_voxels", 0.01, trWhoUser);
  Set("cloud_density", 0.01);
  render_.above = render_.below = trFCol(1.0f);  // radiance 1/2 all round
  render_.dimmed.colour = trFCol();
  Prepare();
  // A white cloud in an even room of radiance 1/2 is as bright as the room.
  render_.Aim({0, 0, 0}, {0, 5000, 0});
  const trAtomicIntegrator::Result result = Run();
  EXPECT_LT(result.transmittance.g, 0.01);
  EXPECT_NEAR(result.Colour().g, 0.5, 0.05);
}

TEST_F(CloudScatterTest, TooManyVoxelsAreRefused) {
  Set("voxel_buffer_resolution", trVector(1e4, 1e4, 1e4));
  Prepare();
  render_.Aim({0, 0, 0}, {900, 4000, 100});
  EXPECT_TRUE(std::isfinite(Run().Colour().g));
}

}  // namespace
