// Render jobs as a library's user has them, without any file: passes, pictures, saving and going on
// elsewhere, and changes that redo no more than they must.
#include <thread>

#include "host/base/log.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/render/frame/render_job.h"
#include "host/session/session.h"
#include "tests/shading_fixture.h"

namespace {

using ovhost::Redo;
using ovhost::RenderControl;
using ovhost::RenderJob;
using ovhost::RenderOutcome;

/// Displaces a little, and counts that.
class CountingBump : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    DisplaceInput(si);
    ++displaced;
    si.P() += si.Ng() * height;
    return 1;
  }
  long Shade(trShadingInterface& si) override {
    if (cancelled && --shadesToCancel == 0) cancelled->Cancel();
    return trSurfaceShader::Shade(si);
  }
  std::atomic<long> displaced{0}, shadesToCancel{0};
  RenderControl* cancelled = nullptr;
  double height = 20;
};

/// The default project with lambert ground over a bump over its terrain.
class RenderJobs : public testing::Test {
 protected:
  RenderJobs() {
    ovhost::LoadModules();
    trFixGlobalSeed(3);
    project_ = ovhost::NewDefaultProject();
    trBase& planet = *project_->NodeByPath("Planet 01");
    bump_ = new CountingBump;
    ovhost::AttachChild(&planet, bump_, "Bump");
    trBase& ground = *planet.CreateChild("lambert_shader");
    ground.SetName("Ground");
    Graph::Link(*bump_, "input_node", *project_->NodeByPath("Planet 01/Compute terrain 01"));
    Graph::Link(ground, "input_node", *bump_);
    Graph::Link(planet, "surface_shader", ground);
    project_->NodeByPath("Render")->SetParam("detail", 0.25, trWhoSystem);
    settings_.width = 80;
    settings_.height = 48;
    settings_.samples = 20;
    settings_.threads = 2;
    settings_.sceneKey = 11;
  }
  trBase& Node(const char* path) const { return *project_->NodeByPath(path); }
  static void Finish(RenderJob& job) {
    while (!job.IsDone()) ASSERT_EQ(job.RunPass(), RenderOutcome::kDone);
  }
  /// The pixels of a job from scratch.
  std::vector<float> Fresh() {
    RenderControl control;
    RenderJob job(*project_, settings_, control);
    Finish(job);
    return job.Image().pixels;
  }
  static std::string Saved(RenderJob& job) {
    std::string bytes;
    EXPECT_TRUE(job.Save([&bytes](const void* data, std::uint64_t size) {
      bytes.append(static_cast<const char*>(data), size);
      return true;
    }));
    return bytes;
  }
  static RenderJob::Resumed Resume(RenderJob& job, const std::string& bytes) {
    size_t at = 0;
    return job.Resume([&](void* data, std::uint64_t size) {
      if (size > bytes.size() - at) return false;
      bytes.copy(static_cast<char*>(data), size, at);
      at += size;
      return true;
    });
  }

  std::unique_ptr<juProject> project_;
  CountingBump* bump_;
  ovhost::RenderJobSettings settings_;
};

TEST_F(RenderJobs, GivePicturesAfterEveryPass) {
  settings_.layers = {"depth", "normal"};
  RenderControl control;
  RenderJob job(*project_, settings_, control);
  EXPECT_TRUE(job.Image().pixels.empty());
  EXPECT_FALSE(job.IsDone());
  ASSERT_EQ(job.Prepare(), RenderOutcome::kDone);
  EXPECT_EQ(job.FractionDone(), 0);
  double before = 0;
  for (const int samples : {1, 16, 20}) {
    ASSERT_EQ(job.RunPass(), RenderOutcome::kDone);
    EXPECT_EQ(job.Statistics().samplesDone, samples);
    EXPECT_GT(job.FractionDone(), before);
    before = job.FractionDone();
  }
  EXPECT_TRUE(job.IsDone());
  EXPECT_EQ(before, 1);
  EXPECT_EQ(job.Statistics().cameraRays, 80u * 48 * 20);

  const ovhost::Picture all = job.Image(), beauty = job.Layer("beauty"), normal = job.Layer("normal");
  EXPECT_EQ(beauty.channels, (std::vector<std::string>{"R", "G", "B", "A"}));
  EXPECT_EQ(normal.channels, (std::vector<std::string>{"normal.X", "normal.Y", "normal.Z"}));
  EXPECT_TRUE(job.Layer("albedo").pixels.empty());
  const size_t pixel = 47 * 80 + 40, stride = all.channels.size();
  for (size_t c = 0; c < 3; ++c) {
    EXPECT_EQ(beauty.pixels[pixel * 4 + c], all.pixels[pixel * stride + c]);
    EXPECT_EQ(normal.pixels[pixel * 3 + c], all.pixels[pixel * stride + 5 + c]);
    const ovhost::Picture shown = Displayed(beauty, job.Transform());
    EXPECT_EQ(shown.pixels[pixel * 4 + c],
              ovhost::DisplayValue(beauty.pixels[pixel * 4 + c], job.Transform()));
  }
}

TEST_F(RenderJobs, GoOnElsewhereToTheSameBits) {
  const std::vector<float> whole = Fresh();
  // Cancelled in the middle of a pass, from one of the workers; tiles in hand leave no trace.
  RenderControl control;
  std::string bytes;
  {
    RenderJob job(*project_, settings_, control);
    ASSERT_EQ(job.RunPass(), RenderOutcome::kDone);
    bump_->shadesToCancel = 50;
    bump_->cancelled = &control;
    EXPECT_EQ(job.RunPass(), RenderOutcome::kStopped);
    bump_->cancelled = nullptr;
    EXPECT_FALSE(job.IsDone());
    bytes = Saved(job);
    // Here as well.
    control.stop = false;
    Finish(job);
    EXPECT_TRUE(job.Image().pixels == whole);
  }
  for (const int threads : {1, 3}) {
    settings_.threads = threads;
    RenderControl other;
    RenderJob job(*project_, settings_, other);
    ASSERT_EQ(Resume(job, bytes), RenderJob::Resumed::kLoaded);
    EXPECT_GE(job.Statistics().samplesDone, 1);
    Finish(job);
    EXPECT_TRUE(job.Image().pixels == whole) << threads;
  }

  // What isn't this job's, and what is damaged, changes nothing.
  RenderControl other;
  RenderJob job(*project_, settings_, other);
  std::string damaged = bytes;
  damaged[damaged.size() / 2] ^= 4;
  EXPECT_EQ(Resume(job, damaged), RenderJob::Resumed::kDamaged);
  EXPECT_EQ(Resume(job, bytes.substr(0, bytes.size() - 9)), RenderJob::Resumed::kDamaged);
  EXPECT_EQ(Resume(job, "nonsense"), RenderJob::Resumed::kDamaged);
  settings_.sceneKey = 12;
  RenderJob stranger(*project_, settings_, other);
  EXPECT_EQ(Resume(stranger, bytes), RenderJob::Resumed::kOther);
  Finish(job);
  EXPECT_TRUE(job.Image().pixels == whole);
}

TEST_F(RenderJobs, KeepMoreSamplesThanTheyWereAskedFor) {
  RenderControl control;
  RenderJob job(*project_, settings_, control);
  Finish(job);
  const std::string bytes = Saved(job);
  const std::vector<float> all = job.Image().pixels;
  settings_.samples = 4;
  RenderJob few(*project_, settings_, control);
  ASSERT_EQ(Resume(few, bytes), RenderJob::Resumed::kLoaded);
  EXPECT_TRUE(few.IsDone());
  EXPECT_TRUE(few.HasMoreThanAsked());
  EXPECT_TRUE(few.Image().pixels == all);
  EXPECT_TRUE(Saved(few) == bytes);
}

TEST_F(RenderJobs, RedoTheLeastThatAChangeNeeds) {
  settings_.samples = 2;
  settings_.width = 40;
  settings_.height = 24;
  settings_.engine = ovhost::Engine::kStandard;  // it keeps the most between passes
  RenderControl control;
  RenderJob job(*project_, settings_, control);
  Finish(job);
  const struct {
    const char *node, *param;
    trParamValue value;
    Redo redo;
  } rows[] = {{"Render", "exposure", 1.5, Redo::kPicture},
              {"Render", "exposure", 1.5, Redo::kNothing},
              {"Render", "max_bounces", 0, Redo::kSamples},
              {"Render", "pixel_filter", 0, Redo::kSamples},
              {"Render", "exact_clouds", 1, Redo::kSamples},
              {"Render", "cloud_steps", 0, Redo::kShading},
              {"Sun", "elevation", 12.0, Redo::kShading},
              {"Planet 01/Ground", "diffuse_colour", trRgbLinear709(0.7f), Redo::kShading},
              {"Planet 01/Atmosphere 01", "haze_density", 3.0, Redo::kShading},
              {"Sky light", "enable", 0, Redo::kShading},
              {"Planet 01/Compute terrain 01", "gradient_patch_size", 50.0, Redo::kGeometry},
              {"Camera", "field_of_view", 33.0, Redo::kGeometry},
              {"Planet 01", "surface_shader", "Planet 01/Bump", Redo::kGeometry},
              {"Render", "detail", 0.3, Redo::kGeometry}};
  for (const auto& row : rows) {
    const long displaced = bump_->displaced;
    const std::uint64_t rays = job.Statistics().cameraRays;
    ASSERT_EQ(job.SetParam(Node(row.node), row.param, row.value), row.redo) << row.node << "." << row.param;
    Finish(job);
    EXPECT_EQ(bump_->displaced > displaced, row.redo == Redo::kGeometry) << row.node << "." << row.param;
    EXPECT_EQ(job.Statistics().cameraRays > rays, row.redo >= Redo::kSamples) << row.node << "." << row.param;
    EXPECT_TRUE(job.Image().pixels == Fresh()) << row.node << "." << row.param;
  }
  // Changed by other hands.
  job.Forget(Redo::kGeometry);
  bump_->height += 30;
  Finish(job);
  EXPECT_TRUE(job.Image().pixels == Fresh());
}

TEST_F(RenderJobs, TellWhatCannotBeDone) {
  RenderControl control;
  settings_.camera = "Nobody";
  RenderJob blind(*project_, settings_, control);
  EXPECT_EQ(blind.Prepare(), RenderOutcome::kFailed);
  EXPECT_EQ(blind.RunPass(), RenderOutcome::kFailed);
  settings_.camera.clear();
  settings_.memoryBytes = 1000;
  RenderJob poor(*project_, settings_, control);
  EXPECT_EQ(poor.RunPass(), RenderOutcome::kMemoryLimit);
  EXPECT_FALSE(poor.Save([](const void*, std::uint64_t) { return true; }));
}

}  // namespace
