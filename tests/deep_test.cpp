// Deep pictures: steps added up and merged, samples made of them, renders whose samples composite to the flat
// picture, and files that another program reads.
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>

#include "host/base/log.h"
#include "host/image/half.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/render/frame/deep_stack.h"
#include "host/render/frame/render_job.h"
#include "host/session/session.h"
#include "tests/shading_fixture.h"
#include "tests/temp_file.h"

namespace {

using ovhost::DeepSample;
using ovhost::DeepStack;
using ovhost::DeepStep;
using ovhost::RenderControl;
using ovhost::RenderJob;
using ovhost::RenderOutcome;

struct Sum {
  double light[3] = {0, 0, 0}, cover = 0;
};

Sum SumOf(const std::vector<DeepStep>& steps) {
  Sum sum;
  for (const DeepStep& step : steps) {
    for (int c = 0; c < 3; ++c) sum.light[c] += step.light[c];
    sum.cover += step.cover;
  }
  return sum;
}

/// Front to back, each over what lies behind it.
Sum Composited(const std::vector<DeepSample>& samples) {
  Sum sum;
  float left = 1;
  for (const DeepSample& sample : samples) {
    for (int c = 0; c < 3; ++c) sum.light[c] += left * sample.light[c];
    left *= 1 - sample.alpha;
  }
  sum.cover = 1 - left;
  return sum;
}

template <typename Samples>
void ExpectInOrder(const Samples& samples) {
  float behind = 0;
  for (const auto& sample : samples) {
    EXPECT_GE(sample.front, behind);
    EXPECT_GE(sample.back, sample.front);
    behind = sample.back;
  }
}

/// Volumes that overlap, and surfaces in them, of a pixel that they cover by `all`.
std::vector<DeepStep> RandomSteps(std::mt19937& random, int count, double all) {
  std::uniform_real_distribution<float> draw(0, 1);
  std::vector<DeepStep> steps;
  for (int i = 0; i < count; ++i) {
    const float front = 100 + 4000 * draw(random) * draw(random);
    const float length = i % 3 ? 500 * draw(random) : 0;
    const auto cover = static_cast<float>(all / count);
    steps.push_back({front, front + length, {cover * draw(random), cover, 2 * cover * draw(random)}, cover});
  }
  return steps;
}

TEST(DeepStack, KeepsWhatStepsAddUpTo) {
  std::mt19937 random(5);
  DeepStack stack;
  for (const size_t most : {1u, 2u, 7u, 32u, 1000u})
    for (const int count : {1, 5, 60}) {
      const std::vector<DeepStep> steps = RandomSteps(random, count, 0.9);
      stack.Clear();
      stack.Add(steps);
      const std::vector<DeepStep> resolved = stack.Resolve(most);
      EXPECT_LE(resolved.size(), most);
      ExpectInOrder(resolved);
      const Sum before = SumOf(steps), after = SumOf(resolved);
      EXPECT_NEAR(after.cover, before.cover, 1e-6);
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(after.light[c], before.light[c], 1e-6);
    }
}

TEST(DeepStack, CutsVolumesWhereOthersBegin) {
  DeepStack stack;
  stack.Clear();
  stack.Add({10, 20, {1, 1, 1}, 0.4f});
  stack.Add({16, 16, {2, 0, 0}, 0.3f}, 0.5f);
  stack.Add({18, 22, {0, 0, 4}, 0.2f});
  const std::vector<DeepStep>& steps = stack.Resolve(32);
  const struct {
    float front, back, red, blue, cover;
  } expected[] = {{10, 16, 0.6f, 0.6f, 0.24f},
                  {16, 16, 1, 0, 0.15f},
                  {16, 18, 0.2f, 0.2f, 0.08f},
                  {18, 20, 0.2f, 2.2f, 0.18f},
                  {20, 22, 0, 2, 0.1f}};
  ASSERT_EQ(steps.size(), std::size(expected));
  for (size_t i = 0; i < steps.size(); ++i) {
    EXPECT_EQ(steps[i].front, expected[i].front) << i;
    EXPECT_EQ(steps[i].back, expected[i].back) << i;
    EXPECT_NEAR(steps[i].light.r, expected[i].red, 1e-6) << i;
    EXPECT_NEAR(steps[i].light.b, expected[i].blue, 1e-6) << i;
    EXPECT_NEAR(steps[i].cover, expected[i].cover, 1e-6) << i;
  }
}

TEST(DeepStack, MergesWhatShowsLeast) {
  DeepStack stack;
  stack.Clear();
  stack.Add({0, 100, trFCol(0.001f), 0.001f});  // thin air before a wall
  stack.Add({100, 100, trFCol(0.5f), 0.5f});
  stack.Add({100.5f, 100.5f, trFCol(0.1f), 0.1f});  // and a wall just behind it
  stack.Add({5000, 6000, trFCol(0.3f), 0.3f});
  const std::vector<DeepStep>& steps = stack.Resolve(2);
  ASSERT_EQ(steps.size(), 2u);
  EXPECT_TRUE(steps[0].IsSurface());
  EXPECT_NEAR(steps[0].front, 100.1, 0.1);
  EXPECT_EQ(steps[1].front, 5000);
  EXPECT_EQ(steps[1].back, 6000);
}

TEST(DeepSamples, CompositeToTheSumOfTheSteps) {
  std::mt19937 random(7);
  DeepStack stack;
  std::vector<DeepSample> samples;
  for (const double cover : {0.2, 0.97, 1.0})
    for (const bool isHalf : {false, true})
      for (int repeat = 0; repeat < 20; ++repeat) {
        stack.Clear();
        stack.Add(RandomSteps(random, 60, cover));
        // A sun behind it all, which covers nothing.
        if (repeat % 2) stack.Add({1e9f, 1e9f, {300, 200, 100}, 0});
        const std::vector<DeepStep>& steps = stack.Resolve(32);
        ovhost::SamplesOfSteps(steps, isHalf, samples);
        const Sum truth = SumOf(steps), seen = Composited(samples);
        // A half is wrong by a 2048th at most.
        const double tolerance = isHalf ? 1.0 / 2048 : 2e-6;
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(seen.light[c], truth.light[c], tolerance * truth.light[c]);
        EXPECT_NEAR(seen.cover, truth.cover, tolerance);
        if (!isHalf) continue;
        for (const DeepSample& sample : samples) {
          EXPECT_EQ(sample.alpha, ovhost::RoundedToHalf(sample.alpha));
          EXPECT_EQ(sample.light.r, ovhost::RoundedToHalf(sample.light.r));
        }
      }
  EXPECT_EQ(ovhost::RoundedToHalf(2049), 2048);
  EXPECT_EQ(ovhost::RoundedToHalf(1 + 0x1p-10f), 1 + 0x1p-10f);
  EXPECT_EQ(ovhost::RoundedToHalf(0x1p-24f * 1.6f), 0x1p-23f);
}

/// The default project with a cloud that the ground and the sky are seen through.
class DeepRender : public testing::Test {
 protected:
  DeepRender() {
    ovhost::LoadModules();
    trFixGlobalSeed(3);
    project_ = ovhost::NewDefaultProject();
    trBase& planet = *project_->NodeByPath("Planet 01");
    trBase& cloud = *planet.CreateChild("cloud_layer_v2");
    std::string atmosphere;
    EXPECT_TRUE(planet.GetParam("atmosphere_shader", atmosphere));
    EXPECT_TRUE(cloud.SetParam("input_node", atmosphere.c_str(), trWhoSystem));
    for (const auto& [name, value] :
         {std::pair{"cloud_depth", 800.0}, {"cloud_altitude", 1500.0}, {"cloud_density", 2e-4}})
      EXPECT_TRUE(cloud.SetParam(name, value, trWhoSystem));
    Graph::Link(planet, "atmosphere_shader", cloud);
    project_->NodeByPath("Render")->SetParam("detail", 0.25, trWhoSystem);
    settings_.width = 64;
    settings_.height = 40;
    settings_.samples = 18;
    settings_.threads = 2;
    settings_.deepSamples = 12;
  }
  static void Finish(RenderJob& job) {
    while (!job.IsDone()) ASSERT_EQ(job.RunPass(), RenderOutcome::kDone);
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
  ovhost::RenderJobSettings settings_;
};

TEST_F(DeepRender, CompositesToTheFlatPicture) {
  for (const auto engine : {ovhost::Engine::kPath, ovhost::Engine::kStandard}) {
    settings_.engine = engine;
    RenderControl control;
    RenderJob job(*project_, settings_, control);
    Finish(job);
    const ovhost::Picture flat = job.Image();
    settings_.deepSamples = 0;
    RenderJob plain(*project_, settings_, control);
    Finish(plain);
    settings_.deepSamples = 12;
    EXPECT_TRUE(plain.Image().pixels == flat.pixels) << "depths change nothing else";
    ASSERT_TRUE(job.Deep());
    std::vector<DeepStep> steps;
    std::vector<DeepSample> samples;
    size_t surfaces = 0, volumes = 0, most = 0;
    for (int i = 0; i < flat.width * flat.height; ++i) {
      job.Deep()->Steps(i % flat.width, i / flat.width, steps);
      most = std::max(most, steps.size());
      ExpectInOrder(steps);
      for (const DeepStep& step : steps) ++(step.IsSurface() ? surfaces : volumes);
      ovhost::SamplesOfSteps(steps, true, samples);
      const Sum seen = Composited(samples);
      const float* const pixel = &flat.pixels[static_cast<size_t>(i) * 4];
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(seen.light[c], pixel[c], pixel[c] / 1024 + 1e-6) << i;
      ASSERT_NEAR(seen.cover, pixel[3], 1.0 / 1024) << i;
    }
    EXPECT_EQ(most, 12u);
    EXPECT_GT(surfaces, flat.pixels.size() / 4 / 4);
    EXPECT_GT(volumes, flat.pixels.size() / 4);
  }
}

TEST_F(DeepRender, HangsOnNeitherThreadsNorStops) {
  RenderControl control;
  RenderJob job(*project_, settings_, control);
  ASSERT_EQ(job.RunPass(), RenderOutcome::kDone);
  const std::string early = Saved(job);
  Finish(job);
  const std::string whole = Saved(job);
  for (const int threads : {1, 7}) {
    settings_.threads = threads;
    RenderJob other(*project_, settings_, control);
    if (threads == 7) {
      ASSERT_EQ(Resume(other, early), RenderJob::Resumed::kLoaded);
    }
    Finish(other);
    EXPECT_TRUE(Saved(other) == whole) << threads;
  }
  // Damaged lists, and those of another limit.
  RenderJob other(*project_, settings_, control);
  for (const size_t back : {1u, 5000u, 20000u}) {
    std::string damaged = whole;
    damaged[damaged.size() - back] ^= 64;
    EXPECT_EQ(Resume(other, damaged), RenderJob::Resumed::kDamaged) << back;
    EXPECT_EQ(Resume(other, whole.substr(0, whole.size() - back)), RenderJob::Resumed::kDamaged) << back;
  }
  settings_.deepSamples = 8;
  RenderJob fewer(*project_, settings_, control);
  EXPECT_EQ(Resume(fewer, whole), RenderJob::Resumed::kOther);
  settings_.memoryBytes = 1 << 19;
  RenderJob poor(*project_, settings_, control);
  EXPECT_EQ(poor.Prepare(), RenderOutcome::kMemoryLimit);
}

TEST_F(DeepRender, AnotherProgramReadsIt) {
  if (std::system("/usr/bin/python3 -c 'import OpenImageIO' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "no python3-openimageio: it isn't asked";
  settings_.crop = ovhost::PixelRect{8, 4, 60, 39};
  RenderControl control;
  RenderJob job(*project_, settings_, control);
  Finish(job);
  const std::string deep = TempFile("deep.exr"), flat = TempFile("flat.exr"), script = TempFile("look.py"),
                    output = TempFile("seen");
  ovhost::Picture picture = job.Image();
  picture.metadata = {{"ov:scene", "a scene"}};
  ASSERT_EQ(WriteDeepPicture(deep, picture, *job.Deep()), "");
  ASSERT_EQ(WritePicture(flat, picture, job.Transform()), "");
  std::ofstream(script) << R"(
import OpenImageIO as o, sys
deep, flat = o.ImageBuf(sys.argv[1]), o.ImageBuf(sys.argv[2])
s = deep.spec()
both = o.ImageBufAlgo.flatten(deep)
names = list(s.channelnames)
worst = 0
for y in range(s.y, s.y + s.height):
  for x in range(s.x, s.x + s.width):
    a, b = both.getpixel(x, y), flat.getpixel(x, y)
    for c in "RGBA":
      t = b["RGBA".index(c)]
      worst = max(worst, abs(a[names.index(c)] - t) / (abs(t) + 1e-3))
most = max(deep.deep_samples(x, y) for y in range(s.y, s.y + s.height) for x in range(s.x, s.x + s.width))
print(int(s.deep), s.x, s.y, s.width, s.height, s.full_width, s.full_height, most, worst, *names)
)";
  ASSERT_EQ(std::system(("/usr/bin/python3 " + script + " " + deep + " " + flat + " > " + output).c_str()),
            0);
  std::ifstream seen(output);
  std::vector<int> numbers(8);
  for (int& number : numbers) ASSERT_TRUE(seen >> number);
  EXPECT_EQ(numbers, (std::vector<int>{1, 8, 4, 52, 35, 64, 40, 12}));
  double worst = 1;
  ASSERT_TRUE(seen >> worst);
  EXPECT_LT(worst, 1.0 / 1024);
  std::string names, name;
  while (seen >> name) names += name + " ";
  EXPECT_EQ(names, "R G B A Z ZBack ");
}

}  // namespace
