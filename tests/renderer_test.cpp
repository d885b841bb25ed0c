// Rendering: the same bytes for any number of threads and after a stop, crops, and light against its formula.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/image.h"
#include "host/project/camera.h"
#include "host/project/project_file.h"
#include "host/render/engine/path.h"
#include "host/render/frame/world.h"
#include "host/session/render_frame.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::RenderOutcome;

/// Leaves everything to its input, and asks for a stop after so many shadings.
class StopAfter : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    if (--left == 0 && control) {
      if (isTime) control->timeUp = true;
      control->stop = true;
    }
    return trSurfaceShader::Shade(si);
  }
  std::atomic<long> left{0};
  ovhost::RenderControl* control = nullptr;
  bool isTime = false;  ///< as if the time were up
};

/// A ridge 1500 m high that runs north to south, `east` metres from the origin.
class Ridge : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    const double t = (si.Pt().x - east) / 300;
    si.P() += si.Ng() * (1500 * std::exp(-t * t));
    return 1;
  }
  double east = 0;
};

/// The default project, small.
class Render : public testing::Test {
 protected:
  Render() {
    if (!ovhost::FindClass("planet")) ovhost::LoadPlugins();
    project_ = ovhost::NewDefaultProject();
    Set("Render", "image_width", 96);
    Set("Render", "image_height", 64);
    Set("Render", "samples", 3);
    Set("Render", "detail", 0.5);
  }

  void Set(const char* node, const char* param, const trParamValue& value) {
    trBase* found = project_->NodeByPath(node);
    ASSERT_TRUE(found && found->SetParam(param, value, trWhoSystem)) << node << "." << param;
  }
  /// Lambert ground under a black sky.
  void MakeBare(float albedo) {
    trBase* planet = project_->NodeByPath("Planet 01");
    trBase* ground = planet->CreateChild("lambert_shader");
    ASSERT_TRUE(ground->SetParam("diffuse_colour", trRgbLinear709(albedo), trWhoSystem));
    Graph::Link(*planet, "surface_shader", *ground);
    ASSERT_TRUE(planet->SetParam("atmosphere_shader", "", trWhoSystem));
    Set("Camera", "position", trVector(0, 2000, 0));
    Set("Camera", "rotation", trVector(-90, 0, 0));
    Set("Camera", "field_of_view", 1.0);
    Set("Render", "max_bounces", 0);
  }

  ovhost::RenderSettings Settings(const std::string& name) const {
    ovhost::RenderSettings settings;
    settings.output = TempFile(name);
    settings.sceneKey = 7;
    settings.threads = 2;
    return settings;
  }
  RenderOutcome Run(const ovhost::RenderSettings& settings) {
    ovhost::RenderControl control;
    return ovhost::RenderFrame(*project_, settings, control);
  }
  static std::string Bytes(const std::string& path) {
    std::stringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
  }
  /// The samples of a picture's pixels, without files; those of a pixel `together` at once.
  std::vector<ovhost::CameraSample> Trace(int width, int height, int samples = 1, int together = 16) {
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    settings.view = dynamic_cast<trCameraNode&>(*project_->NodeByPath("Camera")).View(width, height);
    ovhost::World world(*project_, settings, stop);
    std::vector<ovhost::CameraSample> result;
    EXPECT_TRUE(world.Build());
    ovhost::PathSettings path;
    path.maxBounces = 1;
    ovhost::PathTracer tracer(world, path);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        std::vector<ovhost::CameraSample> pixel(samples);
        for (int i = 0; i < samples; i += together)
          tracer.SamplePixel(x, y, i, std::min(i + together, samples), &pixel[i]);
        result.insert(result.end(), pixel.begin(), pixel.end());
      }
    return result;
  }

  std::unique_ptr<juProject> project_;
};

TEST_F(Render, SameBytesForAnyNumberOfThreads) {
  std::string first;
  for (const int threads : {1, 2, 7}) {
    ovhost::RenderSettings settings = Settings("threads.exr");
    settings.threads = threads;
    settings.layers = {"all"};
    ASSERT_EQ(Run(settings), RenderOutcome::kDone);
    const std::string bytes = Bytes(settings.output);
    ASSERT_GT(bytes.size(), 10000u);
    if (first.empty()) first = bytes;
    EXPECT_TRUE(bytes == first) << threads << " threads";
  }
}

TEST_F(Render, ACropIsThatPartOfTheWhole) {
  const auto render = [this](const char* name, std::optional<ovhost::PixelRect> crop, trImage& picture) {
    ovhost::RenderSettings settings = Settings(name);
    settings.crop = crop;
    ASSERT_EQ(Run(settings), RenderOutcome::kDone);
    ASSERT_EQ(picture.ReadFile(settings.output, nullptr), 1);
  };
  trImage whole;
  render("uncropped.exr", std::nullopt, whole);
  ASSERT_EQ(whole.width, 96);
  int number = 0;
  for (const ovhost::PixelRect rect : {ovhost::PixelRect{37, 5, 81, 40}, {0, 33, 96, 34}, {95, 63, 96, 64}}) {
    trImage part;
    render(("part" + std::to_string(++number) + ".exr").c_str(), rect, part);
    // The display window of a crop is that of the whole: its pixels lie where they lie there, with nothing
    // about.
    ASSERT_EQ(part.width, whole.width);
    ASSERT_EQ(part.height, whole.height);
    ASSERT_EQ(part.pixelSize, whole.pixelSize);
    const std::vector<unsigned char> nothing(whole.pixelSize, 0);
    int different = 0;
    for (int y = 0; y < part.height; ++y)
      for (int x = 0; x < part.width; ++x) {
        const int row = whole.height - 1 - y;
        const bool isInside = x >= rect.x0 && x < rect.x1 && row >= rect.y0 && row < rect.y1;
        different += std::memcmp(part.PixelAt(x, y), isInside ? whole.PixelAt(x, y) : nothing.data(),
                                 static_cast<size_t>(whole.pixelSize)) != 0;
      }
    EXPECT_EQ(different, 0) << "crop " << number;
  }
}

TEST_F(Render, ThinLimbsAreSmooth) {
  // From far outside an atmosphere is thinner than a pixel: samples of a pixel must not share it.
  Set("Camera", "position", trVector(0, -6378000, -3e7));
  Set("Camera", "rotation", trVector(0, 0, 0));
  Set("Camera", "field_of_view", 40.0);
  Set("Render", "max_bounces", 0);
  for (const bool isAlone : {true, false}) {
    if (!isAlone) {
      // Air that has no one centre.
      trBase* moon = project_->CreateChild("planet");
      trBase* air = moon->CreateChild("planet_atmosphere");
      for (trBase* node : {moon, air}) {
        ASSERT_TRUE(node->SetParam("centre", trVector(2e7, 0, 0), trWhoSystem));
        ASSERT_TRUE(node->SetParam("radius", 2e6, trWhoSystem));
      }
      Graph::Link(*moon, "atmosphere_shader", *air);
    }
    const auto together = Trace(48, 32, 16), apart = Trace(48, 32, 16, 1);
    double sum = 0, difference = 0;
    for (size_t i = 0; i < together.size(); ++i) {
      sum += apart[i].atmosphere.b;
      difference += std::fabs(together[i].atmosphere.b - apart[i].atmosphere.b);
    }
    ASSERT_GT(sum, 0);
    EXPECT_LT(difference, 0.01 * sum) << isAlone;
  }
}

TEST_F(Render, NoisyPartsTakeMoreSamples) {
  // The sky is clean after the first pass; the ground takes more, the same for any number of threads.
  std::string first;
  for (const int threads : {1, 4}) {
    ovhost::RenderSettings settings = Settings("adaptive.exr");
    settings.threads = threads;
    settings.samples = 96;
    settings.noiseLimit = 0.02;
    settings.layers = {"samples"};
    ASSERT_EQ(Run(settings), RenderOutcome::kDone);
    const std::string bytes = Bytes(settings.output);
    if (first.empty()) first = bytes;
    EXPECT_TRUE(bytes == first) << threads << " threads";
  }
  ovhost::RenderSettings settings = Settings("adaptive.exr");
  ovhost::RenderControl control;
  ovhost::RenderStatistics statistics;
  settings.samples = 96;
  settings.noiseLimit = 0.02;
  ASSERT_EQ(ovhost::RenderFrame(*project_, settings, control, &statistics), RenderOutcome::kDone);
  EXPECT_GT(statistics.cameraRays, 96u * 64 * 16);
  EXPECT_LT(statistics.cameraRays, 96u * 64 * 96);
}

TEST_F(Render, GoesOnAfterAStopToTheSamePicture) {
  trBase& planet = *project_->NodeByPath("Planet 01");
  auto* stopper = new StopAfter;
  ovhost::AttachChild(&planet, stopper, "Stopper");
  Graph::Link(*stopper, "input_node", *project_->NodeByPath("Planet 01/Compute terrain 01"));
  Graph::Link(planet, "surface_shader", *stopper);
  ASSERT_EQ(Run(Settings("whole.exr")), RenderOutcome::kDone);

  const ovhost::RenderSettings settings = Settings("stopped.exr");
  const std::string checkpoint = settings.output + ".ovcheckpoint";
  ovhost::RenderControl control;
  stopper->control = &control;
  stopper->left = -stopper->left / 2;  // half way through the whole one
  ASSERT_EQ(ovhost::RenderFrame(*project_, settings, control), RenderOutcome::kStopped);
  stopper->control = nullptr;
  ASSERT_TRUE(std::filesystem::exists(checkpoint));

  // Another project's checkpoint, and a damaged one, are of no use.
  const std::string kept = Bytes(checkpoint);
  ovhost::RenderSettings other = settings;
  other.sceneKey = 8;
  other.resume = ovhost::ResumeMode::kRequire;
  EXPECT_EQ(Run(other), RenderOutcome::kFailed);
  other.sceneKey = settings.sceneKey;
  other.camera = "Camera";
  EXPECT_EQ(Run(other), RenderOutcome::kFailed);
  other.camera.clear();
  std::string damaged = kept;
  damaged[damaged.size() / 2] ^= 1;
  std::ofstream(checkpoint, std::ios::binary) << damaged;
  EXPECT_EQ(Run(other), RenderOutcome::kFailed);
  EXPECT_TRUE(Bytes(checkpoint) == damaged);

  std::ofstream(checkpoint, std::ios::binary) << kept;
  EXPECT_EQ(Run(other), RenderOutcome::kDone);
  EXPECT_TRUE(Bytes(settings.output) == Bytes(TempFile("whole.exr")));
  EXPECT_FALSE(std::filesystem::exists(checkpoint));
}

TEST_F(Render, EndsInTheSameBytesBySlicesOfTime) {
  trBase& planet = *project_->NodeByPath("Planet 01");
  auto* stopper = new StopAfter;
  ovhost::AttachChild(&planet, stopper, "Stopper");
  Graph::Link(*stopper, "input_node", *project_->NodeByPath("Planet 01/Compute terrain 01"));
  Graph::Link(planet, "surface_shader", *stopper);
  const auto settingsOf = [this](const char* name, int samples) {
    ovhost::RenderSettings settings = Settings(name);
    settings.samples = samples;
    // A stop gives up the tiles in hand: how many those are mustn't be a matter of chance.
    settings.threads = 1;
    return settings;
  };
  ASSERT_EQ(Run(settingsOf("unsliced.exr", 20)), RenderOutcome::kDone);
  const long all = -stopper->left;

  const ovhost::RenderSettings settings = settingsOf("sliced.exr", 20);
  const std::string checkpoint = settings.output + ".ovcheckpoint";
  ovhost::RenderControl control;
  stopper->control = &control;
  stopper->isTime = true;
  int slices = 0;
  for (RenderOutcome outcome = RenderOutcome::kTimeLimit; outcome != RenderOutcome::kDone; ++slices) {
    ASSERT_LT(slices, 40);
    stopper->left = all / 4;
    outcome = ovhost::RenderFrame(*project_, settings, control);
    ASSERT_FALSE(control.stop);
    ASSERT_EQ(std::filesystem::exists(checkpoint), outcome != RenderOutcome::kDone);
    EXPECT_EQ(ovhost::IsFinishedPicture(settings.output), outcome == RenderOutcome::kDone);
    if (slices != 1) continue;
    // Who asks for fewer samples gets those that there are, and loses none.
    stopper->left = 1000000;
    EXPECT_EQ(ovhost::RenderFrame(*project_, settingsOf("sliced.exr", 1), control), RenderOutcome::kDone);
    EXPECT_TRUE(std::filesystem::exists(checkpoint));
  }
  EXPECT_GT(slices, 3);
  EXPECT_TRUE(Bytes(settings.output) == Bytes(TempFile("unsliced.exr")));
}

/// Leaves everything to its input, and copies a file after so many shadings, as a kill would leave it.
class CopyAfter : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    if (--left == 0) std::filesystem::copy_file(from, to);
    return trSurfaceShader::Shade(si);
  }
  std::atomic<long> left{0};
  std::string from, to;
};

TEST_F(Render, GoesOnFromACheckpointWrittenOnTheWay) {
  trBase& planet = *project_->NodeByPath("Planet 01");
  auto* copier = new CopyAfter;
  ovhost::AttachChild(&planet, copier, "Copier");
  Graph::Link(*copier, "input_node", *project_->NodeByPath("Planet 01/Compute terrain 01"));
  Graph::Link(planet, "surface_shader", *copier);
  ovhost::RenderSettings settings = Settings("timed.exr");
  settings.samples = 20;
  settings.checkpointSeconds = 0;
  ASSERT_EQ(Run(settings), RenderOutcome::kDone);
  EXPECT_FALSE(std::filesystem::exists(settings.output + ".ovcheckpoint"));
  const std::string whole = Bytes(settings.output);

  // Half of the way lies in the second pass of three.
  ovhost::RenderSettings killed = Settings("killed.exr");
  copier->left = -copier->left / 2;
  copier->from = settings.output + ".ovcheckpoint";
  copier->to = killed.output + ".ovcheckpoint";
  ASSERT_EQ(Run(settings), RenderOutcome::kDone);
  killed.samples = 20;
  killed.checkpointSeconds.reset();
  killed.resume = ovhost::ResumeMode::kRequire;
  ovhost::RenderControl control;
  ovhost::RenderStatistics statistics;
  ASSERT_EQ(ovhost::RenderFrame(*project_, killed, control, &statistics), RenderOutcome::kDone);
  EXPECT_EQ(statistics.cameraRays, 96u * 64 * 19);
  EXPECT_TRUE(Bytes(killed.output) == whole);
}

TEST_F(Render, PicturesSayWhetherTheyAreFinished) {
  for (const char* kind : {"exr", "png", "jpg", "tif"}) {
    const ovhost::RenderSettings settings = Settings((std::string("mark.") + kind).c_str());
    EXPECT_FALSE(ovhost::IsFinishedPicture(settings.output)) << kind;
    ASSERT_EQ(Run(settings), RenderOutcome::kDone);
    EXPECT_TRUE(ovhost::IsFinishedPicture(settings.output)) << kind;
    std::ofstream(settings.output + ".ovcheckpoint") << "whatever";
    EXPECT_FALSE(ovhost::IsFinishedPicture(settings.output)) << kind;
  }
}

TEST_F(Render, LambertGroundUnderASun) {
  const struct {
    double elevation, strength;
    float albedo;
  } rows[] = {{90, 2, 0.5f}, {30, 2, 0.5f}, {60, 3, 0.2f}, {5, 1, 0.8f}, {-5, 2, 0.5f}};
  for (const auto& row : rows) {
    MakeBare(row.albedo);
    Set("Sun", "elevation", row.elevation);
    Set("Sun", "strength", row.strength);
    Set("Sun", "angular_diameter", 0.0);
    Set("Sky light", "enable", 0);
    const ovhost::CameraSample centre = Trace(3, 3)[4];
    const double cosine = std::max(0.0, std::sin(row.elevation * 3.14159265358979 / 180));
    EXPECT_NEAR(centre.beauty.g, row.albedo * row.strength * cosine, 2e-3 * row.strength) << row.elevation;
    EXPECT_NEAR(centre.depth, 2000, 1);
    EXPECT_NEAR(centre.albedo.r, row.albedo, 1e-6);
    // A black sky has nothing to give, however bright the sky light is.
    Set("Sky light", "enable", 1);
    const ovhost::CameraSample lit = Trace(3, 3)[4];
    EXPECT_EQ(lit.beauty.g, lit.direct.g);
    EXPECT_EQ(lit.direct.g, centre.direct.g);
  }
}

TEST_F(Render, NoSunBehindARidge) {
  MakeBare(0.5f);
  trBase& planet = *project_->NodeByPath("Planet 01");
  auto* ridge = new Ridge;
  ovhost::AttachChild(&planet, ridge, "Ridge");
  Graph::Link(*ridge, "input_node", *planet.Child(planet.NumChildren() - 2));
  Graph::Link(planet, "surface_shader", *ridge);
  Set("Sun", "heading", 90);
  Set("Sun", "angular_diameter", 0.0);
  // The crest, 3 km away and out of view, stands 26.6 degrees above the point in the middle of the picture.
  const struct {
    double elevation, east;
    bool isLit;
  } rows[] = {{20, 3000, false}, {25, 3000, false}, {28, 3000, true}, {20, -3000, true}};
  for (const auto& row : rows) {
    ridge->east = row.east;
    Set("Sun", "elevation", row.elevation);
    const double sine = std::sin(row.elevation * 3.14159265358979 / 180);
    for (const auto& sample : Trace(3, 3))
      EXPECT_NEAR(sample.direct.g, row.isLit ? 0.5 * 2 * sine : 0.0, 2e-3)
          << row.elevation << " " << row.east;
  }
}

TEST_F(Render, FollowsTheSunsCurve) {
  MakeBare(0.5f);
  trBase& sun = *project_->NodeByPath("Sun");
  long elevation = -1;
  ASSERT_TRUE(sun.FindParam(elevation, "elevation"));
  sun.Data().params[elevation].curves = {{trAnimationInterpolationMode::kLinear, {{1, 10}, {3, 50}}}};
  std::string bytes[3];
  for (const double frame : {1.0, 2.0}) {
    ovhost::RenderSettings settings = Settings("frame.png");
    settings.frame = frame;
    ASSERT_EQ(Run(settings), RenderOutcome::kDone);
    double value = 0;
    ASSERT_TRUE(sun.GetParam("elevation", value));
    EXPECT_DOUBLE_EQ(value, 20 * frame - 10);
    bytes[static_cast<int>(frame)] = Bytes(settings.output);
  }
  EXPECT_FALSE(bytes[1] == bytes[2]);
}

TEST_F(Render, NeverGivesNonsense) {
  const struct {
    const char *node, *param;
    double value;
  } rows[] = {{"Planet 01/Atmosphere 01", "haze_exp_height", 0},
              {"Planet 01/Atmosphere 01", "ceiling", -16000},
              {"Planet 01/Atmosphere 01", "haze_exp_height", 1e300},
              {"Planet 01/Atmosphere 01", "enviro_light", 1e9},
              {"Planet 01/Power fractal shader v3 01", "feature_scale", 0},
              {"Planet 01/Power fractal shader v3 01", "displacement_amplitude", 1e300},
              {"Planet 01/Compute terrain 01", "gradient_patch_size", 0}};
  for (const auto& row : rows) {
    double before = 0;
    trBase* node = project_->NodeByPath(row.node);
    ASSERT_TRUE(node && node->GetParam(row.param, before)) << row.node << row.param;
    Set(row.node, row.param, row.value);
    for (const auto& sample : Trace(12, 8)) {
      const float sum = sample.beauty.r + sample.beauty.g + sample.beauty.b + sample.alpha;
      ASSERT_TRUE(std::isfinite(sum)) << row.node << " " << row.param << " " << row.value;
    }
    Set(row.node, row.param, before);
  }
}

TEST_F(Render, RefusesShadersThatFeedThemselves) {
  Graph::Link(*project_->NodeByPath("Planet 01/Power fractal shader v3 01"), "input_node",
              *project_->NodeByPath("Planet 01/Compute terrain 01"));
  EXPECT_EQ(Run(Settings("ring.exr")), RenderOutcome::kFailed);
  EXPECT_FALSE(std::filesystem::exists(TempFile("ring.exr")));
}

}  // namespace
