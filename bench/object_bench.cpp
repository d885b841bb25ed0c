// Rates of generators of meshes, triangles a second.
#include <benchmark/benchmark.h>

#include "objects/grass_clump.h"
#include "objects/poly_sphere.h"
#include "objects/rock.h"

namespace {

void Make(benchmark::State& state, juObjectGenerator& node) {
  long triangles = 0;
  for (auto _ : state) {
    trScene scene;
    if (!node.GenerateMesh(scene, 0)) state.SkipWithError("the mesh isn't made");
    triangles += scene.NumTris();
    benchmark::DoNotOptimize(scene);
  }
  state.SetItemsProcessed(triangles);
}

void SubdividedRock(benchmark::State& state) {
  Rock rock;
  rock.SetParam("seed", 8, trWhoSystem);
  rock.SetParam("subdivide_mesh", state.range(0) > 0, trWhoSystem);
  rock.SetParam("subdivision_level", state.range(0), trWhoSystem);
  Make(state, rock);
}

void ShatteredRock(benchmark::State& state) {
  Rock rock;
  rock.SetParam("seed", 8, trWhoSystem);
  rock.SetParam("shatter", 1, trWhoSystem);
  rock.SetParam("number_of_shatter_planes", state.range(0), trWhoSystem);
  Make(state, rock);
}

void Grass(benchmark::State& state) {
  GrassClump grass;
  Make(state, grass);
}

void Ball(benchmark::State& state) {
  PolySphere ball;
  ball.SetParam("divisions_x", 600, trWhoSystem);
  ball.SetParam("divisions_y", 300, trWhoSystem);
  Make(state, ball);
}

BENCHMARK(SubdividedRock)->Arg(0)->Arg(3)->Arg(5)->Arg(7);
BENCHMARK(ShatteredRock)->Arg(1)->Arg(6);
BENCHMARK(Grass);
BENCHMARK(Ball);

}  // namespace

BENCHMARK_MAIN();
