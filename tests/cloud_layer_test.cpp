// Cloud layers: parameters that follow one another, names of older projects, and what tells the host of them.
#include "tests/cloud_fixture.h"

#include "atmosphere/atmosphere_medium.h"
#include "host/base/session_context.h"

namespace {

using CloudLayerV2Test = CloudTest<CloudLayerV2>;
using CloudLayerV3Test = CloudTest<CloudLayerV3>;

double Steps(double sharpness, double density, double depth) {
  return std::sqrt(std::sqrt(sharpness) * density * depth) * 12 + 6;
}

TEST_F(CloudLayerV2Test, AltitudesOfMiddleBaseAndHandleAreOne) {
  // The layer is declared with its handle in its middle.
  ExpectNear(Vector("local_sphere_centre"), {0, 1750, 0}, 1e-6, "at creation");
  struct {
    const char* name;
    trParamValue value;
    double middle, base;
  } const cases[] = {{"cloud_altitude", 3000.0, 3000, 2750},
                     {"cloud_depth", 1000.0, 3000, 2500},
                     {"cloud_base_altitude", 2000.0, 2500, 2000},
                     {"local_sphere_centre", trVector(0, 4000, 0), 4000, 3500}};
  for (const auto& c : cases) {
    Set(c.name, c.value, trWhoUser);
    EXPECT_NEAR(Number("cloud_altitude"), c.middle, 1e-6) << c.name;
    EXPECT_NEAR(Number("cloud_base_altitude"), c.base, 1e-6) << c.name;
    ExpectNear(Vector("local_sphere_centre"), {0, c.middle, 0}, 1e-5, c.name);
  }
  // Round the planet the handle keeps its direction.
  const trVector centre(0, -6378000, 0), away = Normalised(trVector(1, 1, 0));
  Set("local_sphere_centre", centre + away * 6380000, trWhoUser);
  EXPECT_NEAR(Number("cloud_altitude"), 2000, 1e-3);
  Set("radius", 6380000.0);
  ExpectNear(Vector("local_sphere_centre"), centre + away * 6382000, 1e-3, "a larger planet");
}

TEST_F(CloudLayerV2Test, StepsFollowQualityAndOpticalThickness) {
  struct {
    const char* name;
    double value;
    double steps;
  } const cases[] = {{"quality", 1.0, Steps(1, 0.01, 500)},
                     {"cloud_depth", 2000.0, Steps(1, 0.01, 2000)},
                     {"edge_sharpness", 16.0, Steps(16, 0.01, 2000)},
                     {"cloud_density", 0.04, Steps(16, 0.04, 2000)},
                     {"quality", 0.5, 0.5 * Steps(16, 0.04, 2000)}};
  for (const auto& c : cases) {
    Set(c.name, c.value, trWhoUser);
    EXPECT_DOUBLE_EQ(Number("number_of_samples"), std::ceil(c.steps)) << c.name << " " << c.value;
  }
  Set("number_of_samples", 40, trWhoUser);
  EXPECT_DOUBLE_EQ(Number("quality"), 40 / Steps(16, 0.04, 2000));
  EXPECT_DOUBLE_EQ(Number("number_of_samples"), 40);
  // A project's values come one by one and stay what they are.
  Set("quality", 0.1, trWhoSystem);
  EXPECT_DOUBLE_EQ(Number("number_of_samples"), 40);
}

TEST_F(CloudLayerV2Test, VoxelsFollowTheBoxAndTheirNumber) {
  Set("local_sphere_radius", 4000.0);
  Set("cloud_depth", 1000.0);
  Set("millions_of_voxels", 8.0, trWhoUser);
  const trVector cells = Vector("voxel_buffer_resolution");
  EXPECT_NEAR(cells.x * cells.y * cells.z, 8e6, 0.05 * 8e6);
  EXPECT_NEAR(cells.x / cells.y, 8, 0.1);  // the box is 8000 by 1000 by 8000 m
  EXPECT_DOUBLE_EQ(cells.x, cells.z);
  Set("voxel_buffer_resolution", trVector(100.7, 10, 50), trWhoUser);
  EXPECT_DOUBLE_EQ(Number("millions_of_voxels"), 0.05);
  ExpectNear(Vector("voxel_buffer_resolution"), {100.7, 10, 50}, 0);
}

TEST_F(CloudLayerV2Test, ModelsColoursAndSwitches) {
  Set("improved_lighting_model", 1, trWhoUser);
  Set("light_propagation_mix", 0.5);
  Set("improved_lighting_model", 0, trWhoUser);
  EXPECT_DOUBLE_EQ(Number("light_propagation"), 0.875);
  EXPECT_DOUBLE_EQ(Number("light_propagation_mix"), 0.125);
  Set("cloud_colour", trManRgb(0.1f, 0.2f, 0.15f), trWhoUser);
  trString info;
  EXPECT_TRUE(cloud_.GetParam("colour_info_0", info));
  EXPECT_EQ(info, "Max albedo = 20%");
  const auto index = [this](const char* name) {
    long found = -1;
    EXPECT_TRUE(cloud_.FindParam(found, name)) << name;
    return found;
  };
  EXPECT_FALSE(cloud_.ParamShouldBeSaved(index("cloud_base_altitude")));
  EXPECT_FALSE(cloud_.ParamShouldBeSaved(index("colour_info_0")));
  EXPECT_TRUE(cloud_.ParamShouldBeSaved(index("cloud_altitude")));
  Set("sun_glow_amount", 0.0);
  EXPECT_FALSE(cloud_.IsParamGuiEnabled(index("sun_glow_power")));
  graph_.Add<trSurfaceShader>("Box").DeclareTrue("is_object");
  Set("export_bounds", "Box", trWhoUser);
  EXPECT_DOUBLE_EQ(Number("set_export_bounds"), 1);
}

TEST_F(CloudLayerV2Test, OldNames) {
  struct {
    const char *name, *value, *parameter;
    double expected;
  } const cases[] = {{"softer_base", "0.5", "base_softness", 0.5},
                     {"wispy_base", "0.25", "base_wispiness", 0.25},
                     {"local_texture_offset", "1", "move_textures_with_cloud", 1},
                     {"ray_fuzziness", "0", "base_softness", 0.5},
                     {"acceleration_cache", "0", "base_softness", 0.5}};
  ovhost::SessionContext session;
  const ovhost::SessionScope scope(session);
  for (const auto& c : cases) {
    EXPECT_TRUE(cloud_.SetParamFromString(c.name, c.value, trWhoSystem)) << c.name;
    EXPECT_DOUBLE_EQ(Number(c.parameter), c.expected) << c.name;
  }
  EXPECT_EQ(session.warnings.load(), 0);
  EXPECT_TRUE(cloud_.SetParamFromString("ray_fuzziness", "0.5", trWhoSystem));
  EXPECT_TRUE(cloud_.SetParamFromString("acceleration_cache", "1", trWhoSystem));
  EXPECT_EQ(session.warnings.load(), 2);
  EXPECT_TRUE(cloud_.SetParamFromString("center", "0 -7000000 0", trWhoSystem));
  EXPECT_TRUE(cloud_.SetParamFromString("cloud_color", "0.1 0.1 0.1", trWhoSystem));
  ExpectNear(Vector("centre"), {0, -7000000, 0}, 0);
  EXPECT_FALSE(cloud_.SetParamFromString("no_such_name", "1", trWhoSystem));
}

TEST_F(CloudLayerV2Test, ShapeAndCounters) {
  const trVolumeShape shape = cloud_.Shape();
  EXPECT_FALSE(shape.isSymmetric);
  EXPECT_DOUBLE_EQ(shape.innerRadius, 6378000 + 1500);
  EXPECT_DOUBLE_EQ(shape.outerRadius, 6378000 + 2000);
  const unsigned long before = cloud_.ChangeCounter();
  Set("enable", 1);
  EXPECT_EQ(cloud_.ChangeCounter(), before);
  Set("cloud_density", 0.02);
  EXPECT_EQ(cloud_.ChangeCounter(), before + 1);
  Set("cloud_altitude", 2500.0);
  EXPECT_EQ(cloud_.ChangeCounter(), before + 2);  // what follows isn't counted
}

TEST_F(CloudLayerV2Test, PhaseFunctionIsNormalised) {
  for (const double amount : {0.0, 1.0, 2.0, 4.0}) {
    Set("sun_glow_amount", amount);
    Set("improved_lighting_model", 1);
    double sum = 0;
    constexpr int kAngles = 20000;
    for (int i = 0; i < kAngles; ++i) {
      const double angle = (i + 0.5) * M_PI / kAngles;
      sum += cloud_.PhaseFunction(std::cos(angle)) * 0.5 * std::sin(angle) * M_PI / kAngles;
    }
    EXPECT_NEAR(sum, 1, 2e-3) << amount;
  }
}

TEST_F(CloudLayerV3Test, IsLocalisedAndHasVoxels) {
  Set("use_voxel_buffer", 0, trWhoUser);
  EXPECT_DOUBLE_EQ(Number("use_voxel_buffer"), 1);
  EXPECT_DOUBLE_EQ(Number("local_sphere"), 1);
  EXPECT_DOUBLE_EQ(Number("local_sphere_radius"), 50000);
  for (const char* missing : {"scattering_colour", "step_optimisation", "view_from_space_shading_model",
                              "anisotropic_enviro_light"}) {
    long index;
    EXPECT_FALSE(cloud_.FindParam(index, missing)) << missing;
  }
}

}  // namespace
