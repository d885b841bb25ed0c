// Rates of the node graph, for a project of as many nodes as the row's argument says: 100 to a group, each a
// sum that is linked to the one before it, so that a change has one dependent to tell.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "core/plugin.h"
#include "fractal/power_fractal_shader.h"
#include "host/node/class_pool.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"

namespace {

constexpr long kNodesOfAGroup = 100;

std::unique_ptr<juProject> ProjectOf(long count) {
  ovhost::RegisterHostClasses();
  auto project = std::make_unique<juProject>();
  trBase *group = nullptr, *before = nullptr;
  const ovhost::QuietDependents quiet;
  for (long i = 0; i < count; ++i) {
    if (i % kNodesOfAGroup == 0) group = ovhost::CreateNode("group", project.get(), "");
    trBase* const sum = ovhost::CreateNode("add", group, "");
    if (before) sum->SetParam("input_a", before->NameAndPath(), trWhoSystem);
    before = sum;
  }
  return project;
}

/// A node from the middle of the project.
trBase& Middle(juProject& project) {
  const trBase* const group = project.Child(project.NumChildren() / 2);
  return *group->Child(group->NumChildren() / 2);
}

/// What a slider does: a number is set again and again.
void ChangeANumber(benchmark::State& state) {
  const auto project = ProjectOf(state.range(0));
  trBase& node = Middle(*project);
  double value = 0;
  for (auto _ : state) node.SetParam("constant_b", value += 1, trWhoUser);
  state.SetItemsProcessed(state.iterations());
}

/// A link is led elsewhere and back.
void ChangeALink(benchmark::State& state) {
  const auto project = ProjectOf(state.range(0));
  trBase& node = Middle(*project);
  trBase* const targets[] = {project->Child(0)->Child(0), project->Child(0)->Child(1)};
  long turn = 0;
  for (auto _ : state) node.SetParam("input_b", targets[++turn % 2]->NameAndPath(), trWhoUser);
  state.SetItemsProcessed(state.iterations());
}

/// A node that another links to gets a new name.
void Rename(benchmark::State& state) {
  const auto project = ProjectOf(state.range(0));
  trBase& node = Middle(*project);
  long turn = 0;
  for (auto _ : state) node.SetName(++turn % 2 ? "One" : "Other");
  state.SetItemsProcessed(state.iterations());
}

/// Every node of a project is changed once while others are added, as a script does it.
void AddAndChange(benchmark::State& state) {
  for (auto _ : state) {
    ovhost::RegisterHostClasses();
    juProject project;
    trBase *group = nullptr, *before = nullptr;
    for (long i = 0; i < state.range(0); ++i) {
      if (i % kNodesOfAGroup == 0) group = project.CreateChild("group");
      trBase* const sum = group->CreateChild("add");
      if (before) sum->SetParam("input_a", before->NameAndPath(), trWhoUser);
      before = sum;
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Load(benchmark::State& state) {
  const std::string text = ovhost::ProjectToText(*ProjectOf(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(ovhost::ProjectFromText(text, "bench"));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// Power fractals, whose every parameter has values that derive from it.
void LoadFractals(benchmark::State& state) {
  ovhost::RegisterHostClasses();
  static const bool isRegistered =
      (ovhost::RegisterHostClass("bench", "bench_fractal", trCreateNode<PowerFractalShaderV3>, trDestroyNode),
       true);
  benchmark::DoNotOptimize(isRegistered);
  juProject project;
  for (long i = 0; i < state.range(0); ++i) ovhost::CreateNode("bench_fractal", &project, "");
  const std::string text = ovhost::ProjectToText(project);
  for (auto _ : state) benchmark::DoNotOptimize(ovhost::ProjectFromText(text, "bench"));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(ChangeANumber)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(ChangeALink)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(Rename)->Arg(100)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(AddAndChange)->Arg(1000)->Unit(benchmark::kMillisecond);
BENCHMARK(Load)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadFractals)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
