// Object files of a million triangles, in a folder of memory where there is one: discs have rates of their
// own.
//   object_file_bench --benchmark_filter=Write
// `obj FILE` writes the mesh as FILE, for timing `ov convert FILE -o x.ovo` and other programs.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>

#include "core/object_writer.h"
#include "core/scene_maker.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"

namespace {

constexpr int kSide = 708;  // points; 999 698 triangles

struct Mesh {
  Mesh() {
    ovhost::LoadPlugins();
    scene.Init();
    scene.BeginGroup("waves");
    for (int j = 0; j < kSide; ++j)
      for (int i = 0; i < kSide; ++i) {
        scene.AddPoint({trVector(0.1 * i, std::sin(0.1 * i) * std::cos(0.13 * j), 0.1 * j)});
        scene.AddNormal({Normalised(trVector(0.1 * std::sin(0.1 * i), 1, 0.1 * std::cos(0.1 * j)))});
        scene.AddTexVert({trVector(static_cast<double>(i) / kSide, static_cast<double>(j) / kSide, 0)});
      }
    trMaterial material;
    material.name = "sand";
    scene.AddMaterial(material);
    for (int j = 0; j + 1 < kSide; ++j)
      for (int i = 0; i + 1 < kSide; ++i) {
        const int a = j * kSide + i + 1, b = a + 1, c = a + kSide, d = c + 1;
        for (const auto& corners : {std::array{a, c, b}, std::array{b, c, d}}) {
          trTri tri;
          for (int k = 0; k < 3; ++k) tri.point[k] = tri.normal[k] = tri.texVert[k] = corners[k];
          tri.material = 1;
          scene.AddTri(tri);
        }
      }
    scene.EndGroup();
    std::filesystem::create_directories(folder);
  }
  ~Mesh() { std::filesystem::remove_all(folder); }
  std::string Path(const char* extension) const { return (folder / "waves.").string() + extension; }

  std::filesystem::path folder =
      (std::filesystem::exists("/dev/shm") ? std::filesystem::path("/dev/shm")
                                           : std::filesystem::temp_directory_path()) /
      ("object_file_bench_" + std::to_string(getpid()));
  trScene scene;
};

Mesh& TheMesh() {
  static Mesh mesh;
  return mesh;
}

void Write(benchmark::State& state, const char* extension) {
  Mesh& mesh = TheMesh();
  const std::string path = mesh.Path(extension);
  for (auto _ : state)
    if (!mesh.scene.WriteObjectFile(nullptr, path.c_str(), nullptr)) state.SkipWithError("not written");
  state.SetBytesProcessed(static_cast<std::int64_t>(std::filesystem::file_size(path)) * state.iterations());
}
BENCHMARK_CAPTURE(Write, ovo, "ovo")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Write, obj, "obj")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Write, fbx, "fbx")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Write, lwo, "lwo")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Write, ply, "ply")->Unit(benchmark::kMillisecond)->UseRealTime();

void ReadOvo(benchmark::State& state) {
  Mesh& mesh = TheMesh();
  const std::string path = mesh.Path("ovo");
  mesh.scene.WriteObjectFile(nullptr, path.c_str(), nullptr);
  const std::unique_ptr<trBase, void (*)(trBase*)> node(ovhost::CreateNode("ovo_reader", nullptr, "", false),
                                                        [](trBase* made) { ovhost::DestroyNode(made); });
  auto& reader = dynamic_cast<juObjectReader&>(*node);
  for (auto _ : state) {
    trScene scene;
    scene.Init();
    if (!reader.ReadObjectFile(scene, path.c_str(), trMaterial(), false)) state.SkipWithError("not read");
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(std::filesystem::file_size(path)) * state.iterations());
}
BENCHMARK(ReadOvo)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && !std::strcmp(argv[1], "obj"))
    return TheMesh().scene.WriteObjectFile(nullptr, argv[2], nullptr) ? 0 : 1;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
