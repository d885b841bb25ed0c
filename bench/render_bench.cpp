// Rays and dicing: our tracing beside Embree alone on the same diced grid, over a view most of whose rays
// hit, and vertices a second.
#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <random>

#include "host/base/parallel.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/render/dice/dicer.h"
#include "host/render/trace/accel.h"

namespace {

/// A planet of true size under a 16-octave power fractal, the eye 1500 m up.
struct Ground {
  Ground() {
    static const int refused = ovhost::LoadPlugins();
    (void)refused;
    scene.Init();
    scene.SetTransform(trTranslate({0, -6378000, 0}) * trScale(6378000, 6378000, 6378000));
    sphere = dynamic_cast<trGeometryShader*>(ovhost::CreateNode("sphere_geometry_shader", &root, ""));
    fractal = dynamic_cast<trShader*>(ovhost::CreateNode("power_fractal_shader_v3", &root, ""));
    if (!sphere || !fractal) return;
    sphere->SetObjectTransform(scene.GetTransform());
    fractal->SetParam("seed", 7, trWhoUser);
    fractal->SetParam("feature_scale", 8000.0, trWhoUser);
    fractal->SetParam("lead-in_scale", 30000.0, trWhoUser);
    fractal->SetParam("noise_octaves", 16, trWhoUser);
    fractal->SetParam("displacement_amplitude", 1500.0, trWhoUser);
    material = trMaterial(sphere, fractal, nullptr, 1);
    scene.AddPolySphere({0, 0, 0}, {1, 1, 1}, 8, 4, scene.AddMaterial(material));
    mesh.scene = &scene;
    mesh.material = &material;
    for (long i = 1; i < scene.NumTris(); i += 2) {
      const trTri &a = *scene.GetPTri(i), &b = *scene.GetPTri(i + 1);
      for (const auto corner : {a.point[0], b.point[2], a.point[2], a.point[1]})
        mesh.quadCorners.push_back(scene.GetPPoint(corner)->position);
    }
    settings.view.eye = {0, 3500, 0};
    settings.view.forward = Normalised(trVector(0, -0.3, -1));
    settings.view.right = {-1, 0, 0};
    settings.view.up = Cross(settings.view.forward, settings.view.right);
    settings.view.width = 960;
    settings.view.height = 540;
    settings.view.tanHalfHorizontal = 0.577;
    settings.view.tanHalfVertical = 0.325;
  }
  bool Dice() {
    mesh.patches.clear();
    mesh.vertices.clear();
    statistics = {};
    return sphere && fractal && ovhost::Dice(mesh, settings, services, statistics);
  }

  trBase root;
  trScene scene;
  trGeometryShader* sphere = nullptr;
  trShader* fractal = nullptr;
  trMaterial material;
  ovhost::GridMesh mesh;
  ovhost::DiceSettings settings;
  ovhost::DiceStatistics statistics;
  trNoRenderServices services;
};

Ground& DicedGround() {
  static auto ground = std::make_unique<Ground>();
  static const bool diced = ground->Dice();
  (void)diced;
  return *ground;
}

trVector CameraDirection(const trView& view, long i, double within) {
  const double x = (i % 960 + within) / 960 * 2 - 1, y = 1 - (i / 960 % 540 + within) / 540 * 2;
  return Normalised(view.forward + view.right * (x * view.tanHalfHorizontal) +
                    view.up * (y * view.tanHalfVertical));
}

void DisplacedVertices(benchmark::State& state) {
  Ground ground;
  std::uint64_t displaced = 0;
  for (auto _ : state) {
    bool done = false;
    ovhost::WithThreads(static_cast<int>(state.range(0)), [&] { done = ground.Dice(); });
    if (!done) state.SkipWithError("nothing to dice");
    displaced += ground.statistics.displacements;
  }
  state.counters["vertices/s"] =
      benchmark::Counter(static_cast<double>(displaced), benchmark::Counter::kIsRate);
}
BENCHMARK(DisplacedVertices)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// --- Rays: our queries beside Embree called bare, in turns over the same rays, by the thread's own clock.

/// Embree's scene over the same grids, as anybody would make it.
class BareScene {
 public:
  explicit BareScene(const ovhost::GridMesh& mesh) : device_(rtcNewDevice("")), scene_(rtcNewScene(device_)) {
    rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
    RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_GRID);
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, mesh.vertices.data(),
                               0, sizeof(ovhost::GridVertex), mesh.vertices.size());
    auto* grids = static_cast<RTCGrid*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_GRID, 0, RTC_FORMAT_GRID, sizeof(RTCGrid), mesh.patches.size()));
    for (size_t k = 0; k < mesh.patches.size(); ++k)
      grids[k] = {static_cast<unsigned>(k * ovhost::kPatchVertices), ovhost::kPatchStride,
                  ovhost::kPatchStride, ovhost::kPatchStride};
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene_, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene_);
  }
  ~BareScene() {
    rtcReleaseScene(scene_);
    rtcReleaseDevice(device_);
  }
  bool Intersect(const RTCRay& ray) const {
    RTCRayHit query;
    query.ray = ray;
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rtcIntersect1(scene_, &context, &query);
    return query.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  bool Occluded(RTCRay ray) const {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rtcOccluded1(scene_, &context, &ray);
    return ray.tfar < 0;
  }

 private:
  RTCDevice device_;
  RTCScene scene_;
};

struct TestRay {
  trVector origin, direction;
  double nearest;
  RTCRay bare;
};

TestRay MakeRay(const trVector& origin, const trVector& direction, double nearest) {
  TestRay ray{origin, direction, nearest, {}};
  const trFVector o(origin), d(direction);
  ray.bare.org_x = o.x;
  ray.bare.org_y = o.y;
  ray.bare.org_z = o.z;
  ray.bare.dir_x = d.x;
  ray.bare.dir_y = d.y;
  ray.bare.dir_z = d.z;
  ray.bare.tnear = static_cast<float>(nearest);
  ray.bare.tfar = 1e9f;
  ray.bare.mask = ~0u;
  return ray;
}

constexpr double kFar = 1e9;

struct Traced {
  Traced() : bare(DicedGround().mesh) {
    const Ground& ground = DicedGround();
    accel.Add(ground.mesh);
    accel.Build();
    // Four rays a pixel, as a render's samples come.
    for (long pixel = 0; pixel < 960 * 540; pixel += 3)
      for (int k = 0; k < 4; ++k)
        camera.push_back(MakeRay({}, CameraDirection(ground.settings.view, pixel, 0.25 * k), 0.01));
    // From what they hit, into the half space over it, in no order.
    std::mt19937 random(5);
    std::uniform_real_distribution<double> unit(-1, 1);
    for (const TestRay& ray : camera) {
      ovhost::SurfaceHit hit;
      if (!accel.Intersect(ray.origin, ray.direction, ray.nearest, kFar, hit)) continue;
      trVector to;
      do to = {unit(random), unit(random), unit(random)};
      while (to.LengthSquared() > 1 || to.LengthSquared() < 1e-4);
      to = Normalised(to);
      if (Dot(to, hit.faceNormal) < 0) to = -to;
      const trVector at = ray.direction * hit.distance;
      shadow.push_back(MakeRay(at + hit.faceNormal * 0.02, to, 0.02));
    }
    hits = static_cast<double>(shadow.size()) / static_cast<double>(camera.size());
    std::shuffle(shadow.begin(), shadow.end(), random);
  }
  BareScene bare;
  ovhost::Accel accel;
  std::vector<TestRay> camera, shadow;
  double hits = 0;
};

const Traced& TheTraced() {
  static const Traced traced;
  return traced;
}

double ThreadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// Traces stretches of `rays` both ways in turns. Both count what they meet, and must agree.
template <typename Ours, typename Bare>
void CompareRays(benchmark::State& state, const std::vector<TestRay>& rays, Ours ours, Bare bare) {
  constexpr size_t kStretch = 4096;
  double seconds[2] = {};
  std::int64_t traced = 0, met[2] = {};
  size_t first = 0;
  for (auto _ : state) {
    if (first + kStretch > rays.size()) first = 0;
    const TestRay* stretch = &rays[first];
    first += kStretch;
    const double start = ThreadSeconds();
    met[0] += ours(stretch, kStretch);
    const double middle = ThreadSeconds();
    met[1] += bare(stretch, kStretch);
    seconds[0] += middle - start;
    seconds[1] += ThreadSeconds() - middle;
    traced += kStretch;
  }
  if (std::abs(met[0] - met[1]) > traced / 1000) state.SkipWithError("the two don't meet the same");
  const auto rate = [&](double s) { return static_cast<double>(traced) / s * 1e-6; };
  state.counters["ours_Mrays/s"] = rate(seconds[0]);
  state.counters["bare_Mrays/s"] = rate(seconds[1]);
  state.counters["ours/bare"] = seconds[1] / seconds[0];
  state.counters["met"] = static_cast<double>(met[0]) / static_cast<double>(traced);
}

std::int64_t BareCamera(const TestRay* rays, size_t n) {
  std::int64_t met = 0;
  for (size_t i = 0; i < n; ++i) met += TheTraced().bare.Intersect(rays[i].bare);
  return met;
}

std::int64_t BareShadow(const TestRay* rays, size_t n) {
  std::int64_t met = 0;
  for (size_t i = 0; i < n; ++i) met += TheTraced().bare.Occluded(rays[i].bare);
  return met;
}

void CameraRaysOneByOne(benchmark::State& state) {
  CompareRays(
      state, TheTraced().camera,
      [](const TestRay* rays, size_t n) {
        std::int64_t met = 0;
        ovhost::SurfaceHit hit;
        for (size_t i = 0; i < n; ++i)
          met += TheTraced().accel.Intersect(rays[i].origin, rays[i].direction, rays[i].nearest, kFar, hit);
        return met;
      },
      BareCamera);
}
BENCHMARK(CameraRaysOneByOne);

void CameraRaysInBundles(benchmark::State& state) {
  CompareRays(
      state, TheTraced().camera,
      [](const TestRay* rays, size_t n) {
        std::int64_t met = 0;
        ovhost::SurfaceHit hits[ovhost::RayBundle::kSize];
        ovhost::RayBundle bundle;
        for (size_t i = 0; i < n; ++i) {
          bundle.Add(rays[i].origin, rays[i].direction, rays[i].nearest);
          if (bundle.count < ovhost::RayBundle::kSize) continue;
          TheTraced().accel.Intersect(bundle, kFar, hits);
          for (const ovhost::SurfaceHit& hit : hits) met += hit.part != nullptr;
          bundle.Clear();
        }
        return met;
      },
      BareCamera);
}
BENCHMARK(CameraRaysInBundles);

void ShadowRaysOneByOne(benchmark::State& state) {
  CompareRays(
      state, TheTraced().shadow,
      [](const TestRay* rays, size_t n) {
        std::int64_t met = 0;
        for (size_t i = 0; i < n; ++i)
          met += TheTraced().accel.Occluded(rays[i].origin, rays[i].direction, rays[i].nearest, kFar);
        return met;
      },
      BareShadow);
}
BENCHMARK(ShadowRaysOneByOne);

}  // namespace

BENCHMARK_MAIN();
