// Rays and dicing: our tracing beside Embree alone on the same diced grid, and vertices a second.
#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>
#include <tbb/task_arena.h>

#include <memory>

#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/render/accel.h"

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
    sphere->SetParam("centre", trVector(0, -6378000, 0), trWhoUser);
    sphere->SetParam("radius", 6378000.0, trWhoUser);
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
      for (const auto corner : {a.point[0], a.point[1], a.point[2], b.point[2]})
        mesh.quadCorners.push_back(scene.GetPPoint(corner)->position);
    }
    settings.view.eye = {0, 3500, 0};
    settings.view.forward = Normalised(trVector(0, -0.15, -1));
    settings.view.right = {1, 0, 0};
    settings.view.up = Cross(settings.view.right, settings.view.forward);
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

trVector CameraDirection(const trView& view, long i) {
  const double x = (i % 960 + 0.5) / 960 * 2 - 1, y = 1 - (i / 960 % 540 + 0.5) / 540 * 2;
  return Normalised(view.forward + view.right * (x * view.tanHalfHorizontal) +
                    view.up * (y * view.tanHalfVertical));
}

void DisplacedVertices(benchmark::State& state) {
  Ground ground;
  tbb::task_arena arena(static_cast<int>(state.range(0)));
  std::uint64_t displaced = 0;
  for (auto _ : state) {
    bool done = false;
    arena.execute([&] { done = ground.Dice(); });
    if (!done) state.SkipWithError("nothing to dice");
    displaced += ground.statistics.displacements;
  }
  state.counters["vertices/s"] =
      benchmark::Counter(static_cast<double>(displaced), benchmark::Counter::kIsRate);
}
BENCHMARK(DisplacedVertices)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void CameraRays(benchmark::State& state) {
  const Ground& ground = DicedGround();
  ovhost::Accel accel;
  accel.Add(ground.mesh);
  accel.Build();
  long i = 0, hits = 0;
  for (auto _ : state) {
    ovhost::SurfaceHit hit;
    hits += accel.Intersect({}, CameraDirection(ground.settings.view, i++), 0.01, 1e9, hit);
  }
  benchmark::DoNotOptimize(hits);
  state.counters["rays/s"] = benchmark::Counter(static_cast<double>(i), benchmark::Counter::kIsRate);
}
BENCHMARK(CameraRays);

/// The same rays and the same grid, Embree called bare.
void CameraRaysEmbreeAlone(benchmark::State& state) {
  const Ground& ground = DicedGround();
  RTCDevice device = rtcNewDevice("");
  RTCScene scene = rtcNewScene(device);
  rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_GRID);
  rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                             ground.mesh.vertices.data(), 0, sizeof(ovhost::GridVertex),
                             ground.mesh.vertices.size());
  auto* grids = static_cast<RTCGrid*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_GRID, 0, RTC_FORMAT_GRID, sizeof(RTCGrid), ground.mesh.patches.size()));
  for (size_t k = 0; k < ground.mesh.patches.size(); ++k)
    grids[k] = {static_cast<unsigned>(k * ovhost::kPatchVertices), ovhost::kPatchStride, ovhost::kPatchStride,
                ovhost::kPatchStride};
  rtcCommitGeometry(geometry);
  rtcAttachGeometry(scene, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(scene);
  long i = 0, hits = 0;
  for (auto _ : state) {
    const trVector d = CameraDirection(ground.settings.view, i++);
    RTCRayHit query{};
    query.ray.dir_x = static_cast<float>(d.x);
    query.ray.dir_y = static_cast<float>(d.y);
    query.ray.dir_z = static_cast<float>(d.z);
    query.ray.tnear = 0.01f;
    query.ray.tfar = 1e9f;
    query.ray.mask = ~0u;
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    rtcIntersect1(scene, &context, &query);
    hits += query.hit.geomID != RTC_INVALID_GEOMETRY_ID;
  }
  benchmark::DoNotOptimize(hits);
  state.counters["rays/s"] = benchmark::Counter(static_cast<double>(i), benchmark::Counter::kIsRate);
  rtcReleaseScene(scene);
  rtcReleaseDevice(device);
}
BENCHMARK(CameraRaysEmbreeAlone);

}  // namespace

BENCHMARK_MAIN();
