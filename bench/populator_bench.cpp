// Rates of populating, candidates a second on two threads, and what copies cost a render.
//
//   populator_bench                 rates
//   populator_bench copies [N]      a table for 10^3 to N copies (10^7): seconds to populate, insert and
//                                   build, bytes a copy, nanoseconds a camera ray
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/project.h"
#include "core/random.h"
#include "fractal/power_fractal_shader.h"
#include "host/base/log.h"
#include "host/base/parallel.h"
#include "host/node/node_data.h"
#include "host/render/frame/world.h"
#include "objects/populator.h"
#include "surface/lambert_shader.h"

namespace {

constexpr int kThreads = 2;

/// A bumpy ball of about 2000 triangles, a metre across.
class Stone : public trSceneMaker {
 public:
  long Make(trScene& scene, Context context) override {
    if (context != kInstance) return 1;
    scene.BeginGroup("stone");
    trScene& mesh = *scene.GetPGroup(1)->Subscene();
    trMaterial material(nullptr, shader, nullptr, 1.0f);
    material.useNormals = false;
    mesh.SetAllowsTriSubdivision(false);
    mesh.AddPolySphere({0, 0, 0}, {0.5, 0.35, 0.45}, 26, 13, mesh.AddMaterial(material));
    for (long i = 1; i <= mesh.NumPts(); ++i) {
      trVector& p = mesh.GetPPoint(i)->position;
      p *= 1 + 0.1 * std::sin(17 * p.x + 5 * p.y) * std::sin(13 * p.z);
    }
    scene.EndGroup();
    return 1;
  }
  trShader* shader = nullptr;
};

struct Project {
  Project() {
    ovhost::AttachChild(&root, populator, "Stones");
    ovhost::AttachChild(&root, stone, "Stone");
    ovhost::AttachChild(&root, shader, "Grey");
    stone->shader = shader;
    populator->SetParam("object_maker", "Stone", trWhoUser);
    populator->SetParam("minimum_scale", 0.5, trWhoUser);
    populator->SetParam("object_spacing", 1.0, trWhoUser);
  }
  /// So many candidates, in a square.
  void SetCount(double count) {
    const double side = std::sqrt(count);
    populator->SetParam("area_size_xz", tr2Vector(side, side), trWhoUser);
  }
  juProject root;
  Populator3* populator = new Populator3;
  Stone* stone = new Stone;
  LambertShader* shader = new LambertShader;
};

void Candidates(benchmark::State& state, int octaves) {
  Project project;
  project.SetCount(1e6);
  if (octaves) {
    auto* const terrain = new PowerFractalShaderV3;
    ovhost::AttachChild(&project.root, terrain, "Terrain");
    terrain->SetParam("noise_octaves", octaves, trWhoUser);
    project.populator->SetParam("terrain_shader", "Terrain", trWhoUser);
  }
  std::int64_t candidates = 0;
  ovhost::SetLogLevel(ovhost::LogLevel::kError);
  for (auto _ : state) {
    project.populator->SetDirty();
    ovhost::WithThreads(kThreads, [&] { project.populator->GenerateOrRead(); });
    candidates += project.populator->Instances().Count();
  }
  state.SetItemsProcessed(candidates);
}

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double ResidentBytes() {
  long pages = 0, resident = 0;
  if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(file);
  }
  return static_cast<double>(resident) * 4096;
}

void CopyTable(double most) {
  std::printf("%10s %10s %10s %10s %10s %10s\n", "copies", "populate s", "insert s", "build s", "bytes/copy",
              "ns/ray");
  for (double count = 1e3; count <= most * 1.01; count *= 10) {
    Project project;
    project.SetCount(count);
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    // From the same height over each stone, so that as many are seen.
    settings.view.eye = {0, 30, -0.4 * std::sqrt(count)};
    settings.view.forward = Normalised({0, -0.3, 1});
    settings.view.right = {1, 0, 0};
    settings.view.up = Cross(settings.view.forward, settings.view.right);
    settings.view.width = settings.view.height = 512;
    const double before = ResidentBytes();
    double times[3] = {}, start = Seconds();
    ovhost::WithThreads(kThreads, [&] {
      if (!project.populator->GenerateOrRead()) std::exit(1);
      times[0] = Seconds() - start;
      start = Seconds();
      {
        trScene scene;
        project.populator->Make(scene, trSceneMaker::kWithoutPopulating);
        times[1] = Seconds() - start;
      }
      start = Seconds();
      ovhost::World world(project.root, settings, stop);
      if (!world.Build()) std::exit(1);
      times[2] = Seconds() - start;
      const double bytes = ResidentBytes() - before;

      constexpr int kRays = 1 << 20;
      trMersenneTwister random(7);
      start = Seconds();
      int hits = 0;
      for (int i = 0; i < kRays; ++i) {
        const trVector direction =
            Normalised(settings.view.forward + settings.view.right * (random.Unit() - 0.5) +
                       settings.view.up * (random.Unit() - 0.5));
        ovhost::SurfaceHit hit;
        hits += world.Rays().Intersect({}, direction, 0, 1e9, hit);
      }
      const auto copies = static_cast<double>(project.populator->Instances().Count());
      std::printf("%10.0f %10.3f %10.3f %10.3f %10.0f %10.0f\n", copies, times[0], times[1], times[2],
                  bytes / copies, (Seconds() - start) / kRays * 1e9);
      if (hits == 0) std::printf("no ray met anything\n");
    });
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("peak %ld MB\n", usage.ru_maxrss >> 10);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "copies") == 0) {
    ovhost::SetLogLevel(ovhost::LogLevel::kError);
    CopyTable(argc > 2 ? std::atof(argv[2]) : 1e7);
    return 0;
  }
  benchmark::RegisterBenchmark("candidates/plain", Candidates, 0)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::RegisterBenchmark("candidates/terrain of 16 octaves", Candidates, 16)
      ->Unit(benchmark::kMillisecond)
      ->UseRealTime();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
