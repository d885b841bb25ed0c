// The one-node cloud: how much there is of it, where it drifts, what its user may set.
#include "atmosphere/easy_cloud.h"

#include <random>

#include "tests/cloud_fixture.h"

namespace {

class EasyCloudTest : public testing::Test {
 protected:
  EasyCloudTest() : cloud_(graph_.Add<EasyCloud::CloudShader>("Cloud")) {
    cloud_.OnCreate();
    cloud_.OnFirstCreate();
    Set("seed", 7);
  }
  void Set(const char* name, const trParamValue& value) {
    EXPECT_TRUE(cloud_.SetParam(name, value, trWhoSystem)) << name;
  }
  double Extinction(const trVector& point) { return cloud_.MatterAt(render_.state, point).extinction.g; }
  /// Share of the sky, seen from straight below, that has cloud at any height.
  double Cover() {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(-1, 1);
    constexpr int kColumns = 300, kHeights = 10;
    int covered = 0;
    for (int i = 0; i < kColumns; ++i) {
      const double x = unit(random) * 30000, z = unit(random) * 30000;
      bool has = false;
      for (int k = 0; k < kHeights && !has; ++k)
        has = Extinction({x, 3000 + 1000 * (k + 0.5) / kHeights - (x * x + z * z) / (2 * 6378000.0), z}) > 0;
      covered += has;
    }
    return double(covered) / kColumns;
  }

  Graph graph_;
  EasyCloud::CloudShader& cloud_;
  FakeRender render_;
};

TEST_F(EasyCloudTest, CoverageIsAboutTheShareOfTheSky) {
  for (const long type : {1L, 2L, 3L}) {
    Set("easycloud_type", type);
    double before = -1;
    for (const double coverage : {0.0, 0.2, 0.5, 0.8, 1.0}) {
      Set("easycloud_coverage", coverage);
      const double cover = Cover();
      EXPECT_NEAR(cover, coverage, 0.3) << type << " " << coverage;
      EXPECT_GE(cover, before) << type << " " << coverage;
      before = cover;
    }
  }
}

TEST_F(EasyCloudTest, DriftsWithTheWind) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> unit(0, 1);
  Set("easycloud_coverage", 0.8);
  Set("drift_speed", 40.0);
  Set("drift_heading", 90.0);
  Set("frames_per_second", 10.0);
  Set("reference_frame_number", 5);
  int clouded = 0;
  for (int i = 0; i < 200; ++i) {
    // At the middle of the layer and near the apex, where the shell is as good as flat.
    const trVector at(unit(random) * 400 - 200, 3300 + unit(random) * 100, unit(random) * 400 - 200);
    Set("enable_drift", 0);
    const double still = Extinction(at);
    Set("enable_drift", 1);
    render_.si.SetFrame(15);
    const double drifted = Extinction(at + trVector(40, 0, 0));
    EXPECT_NEAR(drifted, still, 0.02 * std::max(still, 0.1)) << at.x;
    clouded += still > 0;
  }
  EXPECT_GT(clouded, 20);
}

TEST_F(EasyCloudTest, MaskOfZeroIsNoCloud) {
  auto& mask = graph_.Add<DensityShader>("Mask");
  mask.colour = [](const trVector& p) { return trFCol(p.x < 0 ? 0.0f : 1.0f); };
  Set("easycloud_coverage", 0.9);
  Set("easycloud_mask_shader", "Mask");
  Set("easycloud_enable_mask", 1);
  Set("move_textures_with_cloud", 0);
  int clouded = 0;
  for (int i = 0; i < 200; ++i) {
    const double x = 20.0 * i - 2000;
    const double extinction = Extinction({x, 3300, 100});
    if (x < 0) {
      EXPECT_EQ(extinction, 0) << x;
    }
    clouded += extinction > 0;
  }
  EXPECT_GT(clouded, 10);
}

TEST_F(EasyCloudTest, SheetFollowsTypeAndModel) {
  const auto isEnabled = [this](const char* name) {
    long index = 0;
    EXPECT_TRUE(cloud_.FindParam(index, name)) << name;
    return cloud_.IsParamGuiEnabled(index);
  };
  for (const long type : {1L, 2L, 3L})
    for (const long model : {0L, 1L}) {
      Set("easycloud_type", type);
      Set("easycloud_model", model);
      EXPECT_EQ(isEnabled("easycloud_growth"), model >= 1 && type >= 2) << type << " " << model;
    }
  double altitude = 0;
  Set("cloud_base_altitude", 2000.0);
  Set("cloud_depth", 600.0);
  EXPECT_TRUE(cloud_.GetParam("cloud_altitude", altitude));
  EXPECT_DOUBLE_EQ(altitude, 2300);
}

}  // namespace
