// How fast pictures of a project become clean, and whether the engines agree:
//   convergence_bench noise PROJECT [WIDTH] [CLAMP]    the path engine's error by samples, and by strategies
//   convergence_bench engines PROJECT [WIDTH] [CLAMP]  error by user CPU time, both engines beside references
//   convergence_bench agree PROJECT [WIDTH] [CLAMP]    brightness of each object, standard engine over path
// CLAMP stands in for the render node's clamp of indirect light; 0 is none. Errors are root mean squares of
// linear red, green and blue. Scenes are built once; the times are those of tracing alone, on all cores.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/base/parallel.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/camera.h"
#include "host/project/project_file.h"
#include "host/render/engine/engine_settings.h"
#include "host/render/engine/standard.h"
#include "host/render/frame/world.h"

namespace {

using Lights = ovhost::PathSettings::Lights;

/// Samples of references are numbered from here on, so that no other picture shares them.
constexpr std::uint32_t kReferenceSamples = 1 << 20;
constexpr std::uint64_t kCacheMemory = std::uint64_t(4) << 30;

double UserSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec) + 1e-6 * static_cast<double>(usage.ru_utime.tv_usec);
}

struct TracedPicture {
  std::vector<trFCol> pixels;
  std::vector<int> objects;  ///< seen by a pixel's first sample
  double seconds = 0;        ///< user CPU time of tracing
};

double Error(const TracedPicture& picture, const TracedPicture& reference) {
  double sum = 0;
  for (size_t i = 0; i < picture.pixels.size(); ++i)
    for (int c = 0; c < 3; ++c) {
      const double off = picture.pixels[i][c] - reference.pixels[i][c];
      sum += off * off;
    }
  return std::sqrt(sum / (3 * static_cast<double>(picture.pixels.size())));
}

double Mean(const TracedPicture& picture) {
  double sum = 0;
  for (const trFCol& pixel : picture.pixels) sum += pixel.r + pixel.g + pixel.b;
  return sum / (3 * static_cast<double>(picture.pixels.size()));
}

/// A project's scene, ready to be traced.
class TracedProject {
 public:
  TracedProject(const char* path, int width, const char* clamp) : project_(ovhost::LoadProject(path)) {
    if (!project_) std::exit(1);
    const trRenderNode* render = nullptr;
    for (trBase* node : ovhost::AllNodes(project_.get()))
      if (!render) render = dynamic_cast<trRenderNode*>(node);
    const auto* camera = dynamic_cast<const trCameraNode*>(project_->PActiveCameraNode());
    if (!render || !camera) {
      std::fprintf(stderr, "%s: needs a camera and a render node\n", path);
      std::exit(1);
    }
    const int height = std::max(1, static_cast<int>(width * render->Height() / render->Width()));
    const double pixels = static_cast<double>(width) * height;
    settings = ovhost::SettingsOf(*render, pixels);
    if (clamp) settings.path.clampIndirect = std::strtof(clamp, nullptr);
    ovhost::WorldSettings world;
    world.view = camera->View(width, height);
    world.edgePixels = settings.edgePixels;
    world.pictureVertices = settings.pictureVertices;
    world.threads = trNumCoresToUse();
    project_->SetParam("current_frame", 1.0, trWhoSystem);
    world_ = std::make_unique<ovhost::World>(*project_, world, stop_);
    const double before = UserSeconds();
    if (!world_->Build()) std::exit(1);
    std::printf("%s, %d x %d, clamp %g: scene built in %.1f s of user time\n", path, width, height,
                static_cast<double>(settings.path.clampIndirect), UserSeconds() - before);
  }

  TracedPicture ByPaths(int samples, bool isReference = false) {
    return Trace(samples, isReference,
                 [this] { return std::make_unique<ovhost::PathTracer>(*world_, settings.path); });
  }
  TracedPicture ByStandard(int samples, bool isReference = false) {
    const std::unique_ptr<ovhost::LightCache> cache = ovhost::MakeLightCache(Pixels(), kCacheMemory);
    return Trace(samples, isReference, [&] {
      return std::make_unique<ovhost::StandardTracer>(*world_, settings.path, settings.indirect,
                                                      settings.trace, *cache);
    });
  }
  /// The standard engine with less left to chance and to blending.
  TracedPicture StandardReference(int samples) {
    const ovhost::EngineSettings kept = settings;
    settings.indirect.rays *= 8;
    settings.indirect.spacing /= 2;
    settings.trace.leastImportance /= 4;
    TracedPicture picture = ByStandard(samples, true);
    settings = kept;
    return picture;
  }
  std::string NameOf(int object) const {
    int number = 0;
    for (trBase* node : ovhost::AllNodes(project_.get()))
      if (dynamic_cast<trSceneMaker*>(node) && ++number == object) return std::string(node->Name());
    return std::to_string(object);
  }

  ovhost::EngineSettings settings;

 private:
  size_t Pixels() const {
    return static_cast<size_t>(world_->View().width) * static_cast<size_t>(world_->View().height);
  }
  template <typename MakeTracer>
  TracedPicture Trace(int samples, bool isReference, const MakeTracer& make) {
    TracedPicture picture;
    picture.pixels.resize(Pixels());
    picture.objects.resize(Pixels());
    const double before = UserSeconds();
    std::vector<std::unique_ptr<ovhost::PixelEngine>> tracers(ovhost::NumThreadSlots());
    const auto width = static_cast<size_t>(world_->View().width);
    ovhost::ParallelFor(static_cast<size_t>(world_->View().height), [&](size_t y) {
      auto& tracer = tracers[ovhost::ThreadSlot()];
      if (!tracer) tracer = make();
      ovhost::CameraSample some[ovhost::kSamplesTogether];
      for (size_t x = 0; x < width; ++x) {
        const auto first = isReference ? kReferenceSamples : 0;
        trFCol sum;
        for (int done = 0; done < samples;) {
          const int count = std::min<int>(samples - done, ovhost::kSamplesTogether);
          tracer->SamplePixel(static_cast<int>(x), static_cast<int>(y), first + done, first + done + count,
                              some);
          for (int i = 0; i < count; ++i) sum += some[i].beauty;
          if (done == 0) picture.objects[y * width + x] = static_cast<int>(some[0].nodeId);
          done += count;
        }
        picture.pixels[y * width + x] = sum * (1.0f / static_cast<float>(samples));
      }
    });
    picture.seconds = UserSeconds() - before;
    return picture;
  }

  std::unique_ptr<juProject> project_;
  std::atomic<bool> stop_{false};
  std::unique_ptr<ovhost::World> world_;
};

void Noise(TracedProject& project) {
  const TracedPicture reference = project.ByPaths(2048, true);
  std::printf("reference: 2048 samples, mean %.4f, %.0f s\n", Mean(reference), reference.seconds);
  std::printf("%8s %10s %22s %8s\n", "samples", "error", "times root of samples", "user s");
  for (const int samples : {4, 16, 64, 256}) {
    const TracedPicture picture = project.ByPaths(samples);
    const double error = Error(picture, reference);
    std::printf("%8d %10.5f %22.4f %8.1f\n", samples, error, error * std::sqrt(samples), picture.seconds);
  }
  const struct {
    Lights lights;
    const char* name;
  } strategies[] = {{Lights::kBoth, "both"}, {Lights::kLightsOnly, "lights"}, {Lights::kLobesOnly, "lobes"}};
  std::printf("%8s %10s %22s %8s  at 64 samples\n", "suns by", "error", "times root of seconds", "user s");
  for (const auto& [lights, name] : strategies) {
    project.settings.path.lights = lights;
    const TracedPicture picture = project.ByPaths(64);
    const double error = Error(picture, reference);
    std::printf("%8s %10.5f %22.4f %8.1f\n", name, error, error * std::sqrt(picture.seconds),
                picture.seconds);
  }
  project.settings.path.lights = Lights::kBoth;
}

void Engines(TracedProject& project) {
  const TracedPicture byPaths = project.ByPaths(512, true), byStandard = project.StandardReference(64);
  std::printf("references: path mean %.4f (%.0f s), standard mean %.4f (%.0f s), apart by %.5f\n",
              Mean(byPaths), byPaths.seconds, Mean(byStandard), byStandard.seconds,
              Error(byPaths, byStandard));
  std::printf("%10s %8s %8s %16s %16s %8s\n", "engine", "samples", "user s", "error to path's",
              "to standard's", "mean");
  const auto row = [&](const char* name, int samples, const TracedPicture& picture) {
    std::printf("%10s %8d %8.2f %16.5f %16.5f %8.4f\n", name, samples, picture.seconds,
                Error(picture, byPaths), Error(picture, byStandard), Mean(picture));
  };
  for (const int samples : {1, 4, 16, 64}) row("standard", samples, project.ByStandard(samples));
  for (const int samples : {1, 4, 16, 64, 256}) row("path", samples, project.ByPaths(samples));
}

void Agree(TracedProject& project) {
  const TracedPicture byPaths = project.ByPaths(512, true), byStandard = project.ByStandard(256);
  std::printf("all: standard %.4f, path %.4f, ratio %.3f\n", Mean(byStandard), Mean(byPaths),
              Mean(byStandard) / Mean(byPaths));
  struct Sums {
    double standard = 0, path = 0;
    int pixels = 0;
  };
  std::vector<Sums> objects;
  for (size_t i = 0; i < byPaths.pixels.size(); ++i) {
    const auto object = static_cast<size_t>(byPaths.objects[i]);
    if (object >= objects.size()) objects.resize(object + 1);
    const trFCol &standard = byStandard.pixels[i], &path = byPaths.pixels[i];
    objects[object].standard += standard.r + standard.g + standard.b;
    objects[object].path += path.r + path.g + path.b;
    ++objects[object].pixels;
  }
  for (size_t i = 0; i < objects.size(); ++i)
    if (objects[i].pixels > 0)
      std::printf("%6.3f  %s (%d pixels)\n", objects[i].standard / objects[i].path,
                  i ? project.NameOf(static_cast<int>(i)).c_str() : "sky", objects[i].pixels);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 2 ? argv[1] : "";
  const auto run = what == "noise" ? Noise : what == "engines" ? Engines : what == "agree" ? Agree : nullptr;
  const int width = argc > 3 ? std::atoi(argv[3]) : 240;
  if (!run || width < 1) {
    std::fprintf(stderr, "Usage: convergence_bench noise|engines|agree PROJECT [WIDTH] [CLAMP]\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  ovhost::RegisterHostClasses();
  if (ovhost::LoadPlugins() > 0) return 1;
  ovhost::WithThreads(trNumCoresToUse(), [&] {
    TracedProject project(argv[2], width, argc > 4 ? argv[4] : nullptr);
    run(project);
  });
  return 0;
}
