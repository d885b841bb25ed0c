// Light of cloud layers beside light that is followed from scattering to scattering:
//   cloud_bench truth [CLASS]         an even slab of a layer of CLASS (default cloud_layer_v3)
//   cloud_bench truth PROJECT NODE    a project's cloud: its lit side, its base, its dark side
//   cloud_bench rates PROJECT NODE    draws of null collisions, looks at surroundings, rays of the layer's
//   own
// Under one sun, in clear air over black ground. `own` is the mean radiance that the layer's samples give,
// `paths` that of paths through its matter, with its standard error; radiance in units of a white surface
// that faces the sun. The optical depth is the layer's depth times its density.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/voxel.h"
#include "host/base/parallel.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/render/engine/matter_paths.h"
#include "host/render/frame/world.h"

namespace {

constexpr double kPi = 3.14159265358979;
constexpr double kElevations[] = {5, 30, 90}, kDepths[] = {1, 3, 10, 30, 100};
/// Rays at a time, at most, and the standard error that is good enough, as a share of the mean.
constexpr int kBatch = 2048, kMostRays = 16 * kBatch, kMostOwnRays = 2 * kBatch;
constexpr double kGoodError = 0.01;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Where to look from, and which way; `draw` numbers the rays.
struct Look {
  const char* name;
  trVector eye;  ///< that details are smoothed for
  std::function<void(int draw, trVector& origin, trVector& direction)> ray;
};

/// A mean of radiances, grey.
struct Mean {
  double sum = 0, squares = 0, count = 0;
  void Add(double x) {
    sum += x;
    squares += x * x;
    ++count;
  }
  double Value() const { return count > 0 ? sum / count : 0; }
  double Error() const {
    return count > 1 ? std::sqrt(std::fmax(squares / count - Value() * Value(), 0) / count) : 0;
  }
};

/// A project with nothing in it but a sun and a cloud.
class TruthScene {
 public:
  /// An even slab.
  explicit TruthScene(const std::string& className) : project_(ovhost::NewDefaultProject()) {
    trBase* planet = Strip();
    cloud_ = planet->CreateChild(className.c_str());
    if (!cloud_) Fail("there is no class " + className);
    Set("density_shader", "");
    Set("taper_top_and_base", 0);
    Set("local_sphere_falloff", 0.0);
    Set("local_sphere_radius", 5000.0);
    Set("millions_of_voxels", 0.5);
    Set("cloud_depth", 500.0);
    Set("cloud_altitude", 2000.0);
    Attach(planet);
  }
  TruthScene(const std::string& path, const std::string& node) : project_(ovhost::LoadProject(path)) {
    if (!project_) std::exit(1);
    trBase* planet = Strip();
    cloud_ = project_->NodeByPath(node);
    if (!cloud_) Fail("there is no node " + node);
    Attach(planet);
  }

  void Set(const char* name, const trParamValue& value) {
    if (!cloud_->SetParam(name, value, trWhoUser)) std::printf("# %s can't be set\n", name);
  }
  double Number(const char* name) const {
    double value = 0;
    cloud_->GetParam(name, value);
    return value;
  }
  trVector Point(const char* name) const {
    trVector value;
    cloud_->GetParam(name, value);
    return value;
  }
  void SetDepth(double depth) { Set("cloud_density", depth / Number("cloud_depth")); }
  void SetSun(double elevation) {
    for (trBase* node : ovhost::AllNodes(project_.get()))
      if (node->ClassName() == "sunlight") {
        node->SetParam("elevation", elevation, trWhoSystem);
        node->SetParam("colour", trManRgb(1, 1, 1), trWhoSystem);
        node->SetParam("strength", 1.0, trWhoSystem);
      }
  }

  /// Calls use(world) for the scene as seen from `eye`.
  template <typename Use>
  void InWorld(const trVector& eye, const Use& use) {
    std::atomic<bool> stop{false};
    ovhost::WorldSettings settings;
    settings.view.eye = eye;
    settings.view.width = 960;
    settings.view.height = 540;
    settings.edgePixels = 50;
    settings.threads = trNumCoresToUse();
    ovhost::WithThreads(settings.threads, [&] {
      ovhost::World world(*project_, settings, stop);
      if (!world.Build()) Fail("the scene can't be built");
      use(world);
    });
  }

 private:
  [[noreturn]] static void Fail(const std::string& why) {
    std::fprintf(stderr, "cloud_bench: %s\n", why.c_str());
    std::exit(1);
  }
  trBase* Strip() {
    trBase* planet = nullptr;
    for (trBase* node : ovhost::AllNodes(project_.get())) {
      if (node->ClassName() != "planet") continue;
      if (!planet) planet = node;
      node->SetParam("render_surface", node == planet, trWhoSystem);
      node->SetParam("atmosphere_shader", "", trWhoSystem);
    }
    if (!planet) Fail("the project has no planet");
    trBase* black = planet->CreateChild("lambert_shader");
    black->SetParam("diffuse_colour", trManRgb(), trWhoSystem);
    planet->SetParam("surface_shader", black->NameAndPath(), trWhoSystem);
    return planet;
  }
  void Attach(trBase* planet) {
    Set("input_node", "");
    planet->SetParam("atmosphere_shader", cloud_->NameAndPath(), trWhoSystem);
  }

  std::unique_ptr<juProject> project_;
  trBase* cloud_ = nullptr;
};

/// Means over rays `first` on of one look: result(state, paths, ray number) is a ray's radiance.
template <typename Radiance>
void AddBatch(ovhost::World& world, int first, const Radiance& radiance, Mean& mean) {
  struct Worker {
    explicit Worker(ovhost::World& world) : shading(world, world), paths(world, counters) {}
    ovhost::PathCounters counters;
    ovhost::ShadingContext shading;
    ovhost::MatterPaths paths;
  };
  std::vector<double> found(kBatch);
  std::vector<std::unique_ptr<Worker>> workers(ovhost::NumThreadSlots());
  ovhost::ParallelFor(kBatch, [&](size_t i) {
    std::unique_ptr<Worker>& worker = workers[ovhost::ThreadSlot()];
    if (!worker) worker = std::make_unique<Worker>(world);
    const int draw = first + static_cast<int>(i);
    worker->shading.si.Random() = {static_cast<std::uint64_t>(draw) + 1};
    found[i] = radiance(worker->shading.state, worker->paths, draw).g;
  });
  for (const double x : found) mean.Add(x);
}

struct Compared {
  Mean own, paths;
  double ownSeconds = 0, pathSeconds = 0;
};

Compared Compare(ovhost::World& world, const Look& look) {
  Compared result;
  const auto own = [&](trRenderState& state, ovhost::MatterPaths&, int draw) {
    trVector origin, direction;
    look.ray(draw, origin, direction);
    std::uint64_t samples = 0;
    return world.AirAlong(state, origin, direction, 1e6, 1, true, samples).Colour();
  };
  const auto paths = [&](trRenderState& state, ovhost::MatterPaths& matter, int draw) {
    trVector origin, direction;
    look.ray(draw, origin, direction);
    trFCol throughput(1.0f);
    ovhost::Matter::Collision collision;
    if (!matter.Collide(state, origin, direction, 1e6, throughput, collision)) return trFCol();
    return matter.Light(state, collision, direction, throughput);
  };
  const auto run = [&](const auto& radiance, int mostRays, Mean& mean) {
    const double start = Seconds();
    for (int first = 0; first < mostRays; first += kBatch) {
      AddBatch(world, first, radiance, mean);
      if (mean.Value() > 0 && mean.Error() < kGoodError * mean.Value()) break;
    }
    return Seconds() - start;
  };
  result.ownSeconds = run(own, kMostOwnRays, result.own);
  result.pathSeconds = run(paths, kMostRays, result.paths);
  return result;
}

/// A unit draw of a ray, evenly spread.
double Spread(int draw, double step) { return std::fmod(0.5 + draw * step, 1.0); }
constexpr double kGolden = 0.6180339887498949, kPlastic = 0.7548776662466927,
                 kPlasticSquared = 0.5698402909980532;

/// From above and from below, by the cosine, so that means are shares of the flux.
std::vector<Look> SlabLooks(const TruthScene& scene) {
  const double depth = scene.Number("cloud_depth"), altitude = scene.Number("cloud_altitude");
  const auto look = [](const char* name, double height, double side) {
    return Look{name, {0, height + 3000 * side, 0}, [=](int draw, trVector& origin, trVector& direction) {
                  const double mu = std::sqrt(std::fmax(Spread(draw, kGolden), 1e-4)),
                               turn = 2 * kPi * Spread(draw, kPlastic), level = std::sqrt(1 - mu * mu);
                  origin = {0, height + side, 0};
                  direction = {level * std::cos(turn), -side * mu, level * std::sin(turn)};
                }};
  };
  return {look("above", altitude + 0.5 * depth, 1), look("below", altitude - 0.5 * depth, -1)};
}

/// A cloud from its lit side, from below, and from its dark side.
std::vector<Look> CloudLooks(const TruthScene& scene, const trVector& sun) {
  const trVector centre = scene.Point("local_sphere_centre");
  const double radius = scene.Number("local_sphere_radius"), depth = scene.Number("cloud_depth");
  trVector level = trVector(sun.x, 0, sun.z);
  level = level.Length() > 1e-3 ? Normalised(level) : trVector(0, 0, 1);
  const auto look = [=](const char* name, const trVector& from) {
    const trVector towards = -Normalised(from);
    trVector side = Cross(towards, trVector(0, 1, 0));
    side = side.Length() > 1e-3 ? Normalised(side) : trVector(1, 0, 0);
    const trVector up = Cross(side, towards);
    const double high = std::fabs(towards.y) > 0.7 ? 0.5 * radius : 0.6 * depth;
    return Look{name, centre + from, [=](int draw, trVector& origin, trVector& direction) {
                  origin = centre + from + side * ((Spread(draw, kPlastic) - 0.5) * radius) +
                           up * ((Spread(draw, kPlasticSquared) * 2 - 1) * high);
                  direction = towards;
                }};
  };
  const trVector up(0, 1, 0);
  return {look("lit side", level * (1.5 * radius) + up * (0.25 * radius)), look("base", up * -(1.5 * depth)),
          look("dark side", level * (-1.5 * radius) + up * (0.1 * radius))};
}

/// A table for all suns and depths; what it says of all together is in the last line.
void PrintTruth(TruthScene& scene, bool isSlab) {
  std::printf(
      "| look | sun | optical depth | own | paths | error | own / paths | s own | s paths |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
  double worst = 0, sum = 0;
  int count = 0, numWithin = 0;
  for (const double elevation : kElevations)
    for (const double depth : kDepths) {
      scene.SetSun(elevation);
      scene.SetDepth(depth);
      trVector sun(0, std::sin(elevation * kPi / 180), std::cos(elevation * kPi / 180));
      scene.InWorld({0, 10000, 0}, [&](ovhost::World& world) { sun = world.Suns()[0]->Dir(); });
      for (const Look& look : isSlab ? SlabLooks(scene) : CloudLooks(scene, sun))
        scene.InWorld(look.eye, [&](ovhost::World& world) {
          const Compared found = Compare(world, look);
          const double ratio = found.own.Value() / found.paths.Value();
          std::printf("| %s | %g | %g | %.4f | %.4f | %.4f | %.3f | %.1f | %.1f |\n", look.name, elevation,
                      depth, found.own.Value(), found.paths.Value(), found.paths.Error(), ratio,
                      found.ownSeconds, found.pathSeconds);
          const double off = std::fabs(ratio - 1);
          worst = std::max(worst, off);
          sum += off;
          ++count;
          numWithin += off <= 0.15;
        });
    }
  std::printf("Off by %.1f %% on average, %.1f %% at most; %d of %d within 15 %%.\n", 100 * sum / count,
              100 * worst, numWithin, count);
}

int Truth(int argc, char** argv) {
  if (argc > 3) {
    TruthScene scene(argv[2], argv[3]);
    PrintTruth(scene, false);
    return 0;
  }
  for (const bool isWhite : {false, true}) {
    TruthScene scene(argc > 2 ? argv[2] : "cloud_layer_v3");
    if (isWhite) scene.Set("cloud_colour", trManRgb(1, 1, 1));
    std::printf("\nAn even slab, cloud_colour %s\n\n", isWhite ? "white" : "as it comes");
    PrintTruth(scene, true);
  }
  return 0;
}

int Rates(int argc, char** argv) {
  if (argc < 4) return 2;
  TruthScene scene(argv[2], argv[3]);
  const std::vector<Look> looks = CloudLooks(scene, {0, 0.5, 0.8});
  scene.InWorld(looks[0].eye, [&](ovhost::World& world) {
    ovhost::PathCounters counters;
    ovhost::MatterPaths paths(world, counters);
    ovhost::ShadingContext shading(world, world);
    const auto rate = [&](const char* name, int count, const auto& body) {
      const double start = Seconds();
      double sum = 0;
      for (int i = 0; i < count; ++i) {
        shading.si.Random() = {static_cast<std::uint64_t>(i) + 1};
        trVector origin, direction;
        looks[0].ray(i, origin, direction);
        sum += body(origin, direction);
      }
      const double seconds = Seconds() - start;
      std::printf("%-40s %12.0f a second (%g)\n", name, count / seconds, sum / count);
    };
    rate("own rays", 2000, [&](const trVector& origin, const trVector& direction) {
      std::uint64_t samples = 0;
      return world.AirAlong(shading.state, origin, direction, 1e6, 1, true, samples).Colour().g;
    });
    rate("matter at points", 200000, [&](const trVector& origin, const trVector& direction) {
      const trVector point = origin + direction * (scene.Number("local_sphere_radius") * 1.5);
      return world.Air().WithMatter()[0]->MatterAt(shading.state, point).extinction.g;
    });
    rate("collisions", 2000, [&](const trVector& origin, const trVector& direction) {
      trFCol throughput(1.0f);
      ovhost::Matter::Collision collision;
      return paths.Collide(shading.state, origin, direction, 1e6, throughput, collision) ? 1.0f : 0.0f;
    });
    rate("transmittances", 2000, [&](const trVector& origin, const trVector& direction) {
      return paths.Volumes().Transmittance(shading.state, {origin, direction, 1e6}).g;
    });
    rate("looks at the background", 20000, [&](const trVector& origin, const trVector& direction) {
      return world.VoxelLighting()->BackgroundFunction(shading.state, origin, direction).g;
    });
  });
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  ovhost::RegisterHostClasses();
  if (ovhost::LoadPlugins() > 0) return 1;
  int code = 2;
  if (what == "truth") code = Truth(argc, argv);
  if (what == "rates") code = Rates(argc, argv);
  if (code == 2)
    std::fprintf(stderr, "Usage: cloud_bench truth [CLASS | PROJECT NODE] | rates PROJECT NODE\n");
  return code;
}
