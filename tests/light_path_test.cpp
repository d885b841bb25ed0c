// Light over surfaces whose lobes are known: balls in rooms of even light, glass of known depth, clear
// sheets, suns found by lights and by lobes.
#include "host/project/project_file.h"
#include "host/render/engine/path.h"
#include "host/render/frame/world.h"
#include "tests/made_surface.h"

namespace {

constexpr double kPi = 3.14159265358979;

/// Balls about the origin, the eye on the z axis looking at them.
class Chamber : public testing::Test {
 protected:
  Chamber() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
    ovhost::RegisterHostClasses();
    auto* sky = ovhost::CreateNode("enviro_light", &project_, "Sky");
    EXPECT_TRUE(sky);
    view_.eye = {0, 0, 4};
    view_.forward = {0, 0, -1};
    view_.width = view_.height = 9;
    view_.tanHalfHorizontal = view_.tanHalfVertical = 0.02;
    settings_.clampIndirect = 0;
    settings_.rouletteStart = 3;
  }
  MadeShader& AddBall(const char* name, double radius, std::function<void(trShadingInterface&)> make,
                      const trVector& centre = {}) {
    trBase* ball = ovhost::CreateNode("planet", &project_, name);
    ball->OnCreate();
    auto* shader = new MadeShader;
    shader->make = std::move(make);
    ovhost::AttachChild(ball, shader, "Made");
    Graph::Link(*ball, "surface_shader", *shader);
    EXPECT_TRUE(ball->SetParam("radius", radius, trWhoSystem) &&
                ball->SetParam("centre", centre, trWhoSystem));
    return *shader;
  }
  void AddSun(const trVector& direction, double diameter) {
    trBase* sun = ovhost::CreateNode("sunlight", &project_, "Sun");
    EXPECT_TRUE(sun->SetParam("heading", std::atan2(direction.x, direction.z) * 180 / kPi, trWhoSystem) &&
                sun->SetParam("elevation", std::asin(direction.y) * 180 / kPi, trWhoSystem) &&
                sun->SetParam("strength", 1.0, trWhoSystem) &&
                sun->SetParam("angular_diameter", diameter, trWhoSystem));
  }
  /// All samples of the picture.
  std::vector<ovhost::CameraSample> Trace(int samples) {
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    settings.view = view_;
    // Edges of some two centimetres on the ball, however narrow the view.
    settings.edgePixels = edge_ / view_.PixelAngularSize();
    ovhost::World world(project_, settings, stop);
    EXPECT_TRUE(world.Build());
    ovhost::PathTracer tracer(world, settings_);
    std::vector<ovhost::CameraSample> result;
    ovhost::CameraSample some[ovhost::kSamplesTogether];
    constexpr int n = ovhost::kSamplesTogether;
    for (int y = 0; y < view_.height; ++y)
      for (int x = 0; x < view_.width; ++x)
        for (int i = 0; i < samples; i += n) {
          tracer.SamplePixel(x, y, i, std::min(i + n, samples), some);
          result.insert(result.end(), some, some + std::min(n, samples - i));
        }
    return result;
  }
  static trFCol Mean(const std::vector<ovhost::CameraSample>& samples) {
    double sum[3] = {0, 0, 0};
    for (const auto& sample : samples)
      for (int c = 0; c < 3; ++c) sum[c] += sample.beauty[c];
    const double n = static_cast<double>(samples.size());
    return {static_cast<float>(sum[0] / n), static_cast<float>(sum[1] / n), static_cast<float>(sum[2] / n)};
  }
  /// Variance of samples within their pixels.
  static double Variance(const std::vector<ovhost::CameraSample>& samples, int perPixel) {
    double sum = 0;
    for (size_t p = 0; p < samples.size(); p += perPixel) {
      double mean = 0, square = 0;
      for (int i = 0; i < perPixel; ++i) {
        const double v = samples[p + i].beauty.g;
        mean += v / perPixel;
        square += v * v / perPixel;
      }
      sum += square - mean * mean;
    }
    return sum * perPixel / static_cast<double>(samples.size());
  }

  juProject project_;
  double edge_ = 0.005;  ///< wanted angle of a micropolygon's edge
  trView view_;
  ovhost::PathSettings settings_;
};

TEST_F(Chamber, WhiteBallsVanishInEvenLight) {
  AddBall("Room", 60, Glow(1));
  MadeShader& ball = AddBall("Ball", 1, {});
  ball.make = [](trShadingInterface& si) { si.Bsdf().AddLambert(trFCol(1.0f)); };
  EXPECT_EQ(Trace(1)[0].nodeId, 2);  // the ball, after the room
  EXPECT_NEAR(Mean(Trace(16)).g, 1, 1e-4);
  // Across the whole ball, so that grazing views count.
  view_.tanHalfHorizontal = view_.tanHalfVertical = 0.24;
  for (const int model : {0, 1, 2, 3})
    for (const float roughness : {0.0f, 0.1f, 0.4f, 1.0f}) {
      ball.make = [=](trShadingInterface& si) { si.Bsdf().AddLobe(Mirror(si, model, roughness)); };
      const float mean = Mean(Trace(64)).g;
      EXPECT_LT(mean, 1.003f) << model << " " << roughness;
      EXPECT_GT(mean, roughness < 0.2f   ? 0.95f
                      : roughness < 0.5f ? 0.75f
                                         : 0.38f)
          << model << " " << roughness;
    }
}

TEST_F(Chamber, LobesThatSubtractNeverGiveLessThanNothing) {
  AddBall("Room", 60, Glow(1));
  MadeShader& ball = AddBall("Ball", 1, {});
  ball.make = [](trShadingInterface& si) {
    si.Bsdf().AddLambert({0.5f, 0.5f, 0.2f});
    si.Bsdf().AddLambert({-0.2f, -0.5f, -0.4f});
  };
  const trFCol diffuse = Mean(Trace(16));
  EXPECT_NEAR(diffuse.r, 0.3, 1e-3);
  EXPECT_EQ(diffuse.g, 0);
  EXPECT_EQ(diffuse.b, 0);
  ball.make = [](trShadingInterface& si) {
    si.Bsdf().AddLobe(Mirror(si, 3, 0, 0.5f));
    si.Bsdf().AddLobe(Mirror(si, 3, 0, -0.2f));
    si.Bsdf().Emission() = trFCol(-3);
  };
  EXPECT_NEAR(Mean(Trace(16)).g, 0.3, 1e-3);
}

TEST_F(Chamber, AbsorptionInsideFollowsItsLaw) {
  AddBall("Room", 60, Glow(1));
  MadeShader& ball = AddBall("Ball", 1, {});
  view_.tanHalfHorizontal = view_.tanHalfVertical = 1e-4;
  for (const double decay : {0.5, 2.0, 10.0}) {
    const trFCol tint(0.9f, 0.5f, 0.25f);
    ball.make = [=](trShadingInterface& si) {
      trMedium inside;
      inside.decayDistance = decay;
      inside.decayTint = tint;
      AddClearBorder(si, inside);
    };
    const trFCol seen = Mean(Trace(4));
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(seen[c], std::exp(-2 * 2.0 / (tint[c] * decay)), 2e-3) << decay << " " << c;
  }
}

TEST_F(Chamber, WhiteMediaLoseNoLightButToAbsorption) {
  // All that is scattered inside comes out again where almost nothing is absorbed.
  AddBall("Room", 60, Glow(1));
  MadeShader& ball = AddBall("Ball", 1, {});
  ball.make = [=](trShadingInterface& si) {
    trMedium inside;
    inside.decayDistance = 1000;
    inside.decayTint = trFCol(1e6f);
    inside.volumeDensity = 2000;
    inside.volumeColour = trFCol(1.0f);
    inside.method = 2;
    AddClearBorder(si, inside);
  };
  settings_.maxSpecularBounces = 64;
  EXPECT_NEAR(Mean(Trace(64)).g, 1, 0.02);
}

TEST_F(Chamber, OpacityLetsLightAndViewThrough) {
  AddBall("Room", 60, Glow(1));
  AddBall("Ball", 1, [](trShadingInterface& si) { si.Oo_surf() = trFCol(0.25f, 0.5f, 1.0f); });
  const trFCol seen = Mean(Trace(1024));
  // Both sides of the ball.
  EXPECT_NEAR(seen.r, 0.75 * 0.75, 0.02);
  EXPECT_NEAR(seen.g, 0.25, 0.02);
  EXPECT_EQ(seen.b, 0);
}

TEST_F(Chamber, ClearThingsThrowColouredShadows) {
  AddSun({0, 1, 0}, 0);
  AddBall("Ground", 1000, [](trShadingInterface& si) { si.Bsdf().AddLambert(trFCol(1.0f)); }, {0, -1000, 0});
  AddBall("Ball", 1,
          [](trShadingInterface& si) {
            trLobe sheet = trBsdf::Lambert(trLobe::kSpecularTransmission, {0.5f, 0.8f, 0});
            sheet.base = sheet.edge = sheet.colour;
            sheet.normal = si.N();
            sheet.thin = 1;
            si.Bsdf().AddLobe(sheet);
          },
          {0, 5, 0});
  view_.eye = {0, 1, 1};
  view_.forward = Normalised(trVector(0, -1, -1));
  view_.up = Normalised(trVector(0, 1, -1));
  settings_.maxBounces = 0;
  const trFCol ground = Mean(Trace(4));
  EXPECT_NEAR(ground.r, 0.25, 2e-3);
  EXPECT_NEAR(ground.g, 0.64, 2e-3);
  EXPECT_EQ(ground.b, 0);
}

TEST_F(Chamber, LowSunsReachTheGroundUnderWater) {
  // At 25 degrees above the horizon: a line that isn't bent meets the surface from below past the angle of
  // total reflection.
  const double elevation = 25 * kPi / 180, index = 1.33;
  AddSun({std::cos(elevation), std::sin(elevation), 0}, 0);
  AddBall("Ground", 1000, [](trShadingInterface& si) { si.Bsdf().AddLambert(trFCol(0.5f)); }, {0, -1000, 0});
  AddBall("Water", 1000.2, {}, {0, -1000, 0});
  trBase* glass = ovhost::CreateNode("glass_shader", &project_, "Glass");
  Graph::Link(*project_.NodeByPath("Water"), "surface_shader", *glass);
  EXPECT_TRUE(glass->SetParam("double-sided_surface", 0, trWhoSystem) &&
              glass->SetParam("index_of_refraction", index, trWhoSystem) &&
              glass->SetParam("specular_roughness", 0.0, trWhoSystem) &&
              glass->SetParam("transparency", trRgbLinear709(1.0f), trWhoSystem) &&
              glass->SetParam("decay_distance", 1e6, trWhoSystem));
  view_.eye = {0, 2, 0};
  view_.forward = {0, -1, 0};
  view_.right = {1, 0, 0};
  view_.up = {0, 0, 1};
  settings_.maxBounces = 0;
  const auto transmitted = [index](double cosine) {
    const double inside = std::sqrt(1 - (1 - cosine * cosine) / (index * index));
    const double s = (cosine - index * inside) / (cosine + index * inside),
                 p = (index * cosine - inside) / (index * cosine + inside);
    return 1 - (s * s + p * p) / 2;
  };
  const double expected = 0.5 * std::sin(elevation) * transmitted(std::sin(elevation)) * transmitted(1);
  EXPECT_NEAR(Mean(Trace(64)).g, expected, 0.03 * expected);
}

TEST_F(Chamber, SunsAreFoundByLightsAndByLobesAlike) {
  // The ball's front mirrors the sun into the eye; its disc is so wide that either way finds it.
  AddSun(Normalised(trVector(0.1, 0.1, 1)), 20);
  trBase& sun = *project_.NodeByPath("Sun");
  MadeShader& ball = AddBall("Ball", 1, {});
  view_.tanHalfHorizontal = view_.tanHalfVertical = 0.1;
  using Lights = ovhost::PathSettings::Lights;
  const struct {
    double diameter;
    float roughness;
  } rows[] = {{20, 0.02f}, {20, 0.1f}, {20, 0.5f}, {4, 0.05f}, {4, 0.2f}, {60, 0.05f}, {60, 0.5f}};
  for (const auto& [diameter, roughness] : rows) {
    ASSERT_TRUE(sun.SetParam("angular_diameter", diameter, trWhoSystem));
    const float rough = roughness;
    ball.make = [rough](trShadingInterface& si) { si.Bsdf().AddLobe(Mirror(si, 3, rough)); };
    trFCol mean[3];
    double variance[3];
    for (const Lights lights : {Lights::kBoth, Lights::kLightsOnly, Lights::kLobesOnly}) {
      settings_.lights = lights;
      const auto samples = Trace(256);
      mean[static_cast<int>(lights)] = Mean(samples);
      variance[static_cast<int>(lights)] = Variance(samples, 256);
    }
    ASSERT_GT(mean[0].g, 0.1) << diameter << " " << roughness;
    const double n = 256.0 * view_.width * view_.height;
    for (int way : {1, 2})
      EXPECT_NEAR(mean[way].g, mean[0].g, 4 * std::sqrt((variance[way] + variance[0]) / n))
          << diameter << " " << roughness;
    // Root mean square errors go as the root of the variance.
    EXPECT_LE(variance[0], 1.21 * std::min(variance[1], variance[2])) << diameter << " " << roughness;
  }
}

TEST_F(Chamber, SmallSunsInMirrorBallsNeedNoLuck) {
  // A mirror ball sends a quarter of what a white surface that faces the sun does, evenly to all sides. One
  // in 200000 reflected rays meets the disc.
  AddBall("Ball", 1, [](trShadingInterface& si) { si.Bsdf().AddLobe(Mirror(si, 3, 0)); });
  view_.eye = {0, 0, 40};
  view_.tanHalfHorizontal = view_.tanHalfVertical = 1.2 / 40;
  view_.width = view_.height = 24;
  edge_ = 0.001;
  for (const trVector& towards : {trVector(0.1, 0.1, 1), trVector(1, 1, 0), trVector(0.5, 0.7, -0.5)}) {
    if (trBase* before = project_.NodeByPath("Sun")) trDestroyObject(before);
    AddSun(Normalised(towards), 0.5);
    const auto samples = Trace(64);
    const double ball = kPi * 1 / (2.4 * 2.4);
    EXPECT_NEAR(Mean(samples).g / ball, 0.25, 0.02) << towards.x << " " << towards.z;
    float brightest = 0;
    for (const auto& sample : samples) brightest = std::fmax(brightest, sample.beauty.g);
    EXPECT_LT(brightest, 1000);  // the disc has 52000
  }
}

TEST_F(Chamber, LobesSayWhatSunsCount) {
  AddSun(Normalised(trVector(0.1, 0.1, 1)), 20);
  MadeShader& ball = AddBall("Ball", 1, {});
  view_.tanHalfHorizontal = view_.tanHalfVertical = 0.1;
  for (const float roughness : {0.0f, 0.1f}) {
    float seen[2];
    for (const int gain : {1, 3}) {
      ball.make = [=](trShadingInterface& si) {
        trLobe lobe = Mirror(si, 3, roughness);
        lobe.lightGain = static_cast<float>(gain);
        si.Bsdf().AddLobe(lobe);
      };
      seen[gain / 2] = Mean(Trace(64)).g;
    }
    ASSERT_GT(seen[0], 0.1) << roughness;
    EXPECT_NEAR(seen[1], 3 * seen[0], 1e-3 * seen[0]) << roughness;
  }
}

TEST_F(Chamber, LayersAddUpToThePicture) {
  AddSun(Normalised(trVector(1, 1, 1)), 0.5);
  AddBall("Room", 60, Glow(0.5f));
  AddBall("Ball", 1, [](trShadingInterface& si) {
    trMedium inside;
    inside.decayDistance = 5;
    AddClearBorder(si, inside);
    for (int i = 0; i < si.Bsdf().NumLobes(); ++i) si.Bsdf().Lobe(i).colour = trFCol(0.3f);
    si.Bsdf().AddLobe(Mirror(si, 2, 0.2f, 0.3f));
    si.Bsdf().AddLambert({0.2f, 0.3f, 0.1f});
    si.Bsdf().Emission() = trFCol(0.1f);
  });
  trFCol sum;
  for (const auto& sample : Trace(64)) {
    ASSERT_TRUE(std::isfinite(sample.beauty.r + sample.beauty.g + sample.beauty.b));
    EXPECT_FLOAT_EQ(sample.light.emission.g, 0.1f);
    sum += {sample.light.diffuse.g, sample.light.specular.g, sample.light.transmission.g};
    const trFCol parts = sample.direct + sample.indirect + sample.atmosphere;
    EXPECT_NEAR(parts.g, sample.beauty.g, 1e-5f * (1 + parts.g));
  }
  for (int c = 0; c < 3; ++c) EXPECT_GT(sum[c], 1) << c;
}

TEST_F(Chamber, NonsenseInLobesStaysOutOfThePicture) {
  AddSun(Normalised(trVector(0.2, 0.3, 1)), 0.5);
  AddBall("Room", 60, Glow(1));
  MadeShader& ball = AddBall("Ball", 1, {});
  edge_ = 0.1;
  const float bad[] = {std::nanf(""), HUGE_VALF, -HUGE_VALF, -1, 0, 1e30f};
  for (const float x : bad)
    for (int what = 0; what < 10; ++what) {
      ball.make = [=](trShadingInterface& si) {
        trMedium inside;
        inside.decayDistance = what == 0 ? x : 1;
        inside.volumeDensity = what == 1 ? x : 1;
        inside.decayTint = trFCol(what == 2 ? x : 0.5f);
        inside.volumeColour = trFCol(what == 3 ? x : 0.5f);
        inside.method = static_cast<int>(si.RandDouble() * 3);
        AddClearBorder(si, inside);
        trLobe mirror = Mirror(si, 3, what == 4 ? x : 0.1f, what == 5 ? x : 0.5f);
        if (what == 6) mirror.index = mirror.outerIndex = x;
        if (what == 7) mirror.normal = trVector(x, x, x);
        if (what == 8) mirror.invTweak = x;
        si.Bsdf().AddLobe(mirror);
        if (what == 9) si.Bsdf().Emission() = si.Oo_surf() = trFCol(x);
      };
      for (const auto& sample : Trace(2)) {
        const trFCol c = sample.beauty;
        ASSERT_TRUE(std::isfinite(c.r + c.g + c.b)) << x << " " << what;
        ASSERT_TRUE(std::isfinite(sample.alpha) && c.g >= 0) << x << " " << what;
      }
    }
}

}  // namespace
