#include "app/export_object.h"

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/signals.h"
#include "app/units.h"
#include "core/micro_handler.h"
#include "core/scene_maker.h"
#include "host/base/log.h"
#include "host/base/memory.h"
#include "host/base/session_context.h"
#include "host/node/class_pool.h"
#include "host/render/frame/render_job.h"
#include "host/scene/object_files.h"

namespace ovapp {
namespace {

using Json = nlohmann::ordered_json;

/// Of a mesh in a scene and in a writer's hands.
constexpr double kBytesPerTriangle = 160, kBytesPerPoint = 80;

/// A scene of one group that foreign formats can hold.
void Flatten(const trScene& made, const ObjectExport& options, const trBase& node, trScene& flat) {
  const ovhost::SceneSize size = ovhost::MeasureScene(made);
  char text[200];
  std::snprintf(text, sizeof text, "%.0f copies come to %.0f triangles", size.copies, size.triangles);
  if (options.mostTriangles > 0 && size.triangles > options.mostTriangles)
    throw Failure{kLimitReached, node.NameAndPath() + ": " + text + "; --most-triangles allows " +
                                     std::to_string(static_cast<long long>(options.mostTriangles))};
  const double bytes = size.triangles * kBytesPerTriangle + size.points * kBytesPerPoint;
  const auto budget = static_cast<double>(ovhost::FreeMemory()) * 0.75;
  if (bytes > budget) {
    char need[160];
    std::snprintf(need, sizeof need, ", %.1f GB; the budget is %.1f GB", bytes / 1e9, budget / 1e9);
    throw Failure{kLimitReached, node.NameAndPath() + ": " + text + need};
  }
  ovhost::FlattenScene(made, node.Name(), flat);
}

void Print(const ObjectExport& options, const std::string& what, double points, double triangles) {
  std::error_code error;
  const auto bytes = static_cast<double>(std::filesystem::file_size(options.output, error));
  if (options.json) {
    const Json json = {{"node", what},
                       {"file", options.output},
                       {"points", static_cast<long long>(points)},
                       {"triangles", static_cast<long long>(triangles)},
                       {"bytes", static_cast<long long>(bytes)}};
    std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
    return;
  }
  char text[200];
  std::snprintf(text, sizeof text, ": written; %.0f points, %.0f triangles, %.1f MB", points, triangles,
                bytes / 1e6);
  trPrintMessage(options.output + text);
}

}  // namespace

bool IsObjectFile(const std::string& path) { return ovhost::IsObjectPath(path); }

int ExportObject(trBase& node, const ObjectExport& options) {
  auto* const maker = dynamic_cast<trSceneMaker*>(&node);
  if (!maker) throw Failure{kFailed, node.NameAndPath() + ": is no object"};
  const ovhost::ErrorWatch errors;
  const trScopedErrorsWarningsContext context(maker);
  trScene made, flat;
  if (!made.Init() || !flat.Init()) return kFailed;
  if (!maker->Make(made, trSceneMaker::kInstance)) {
    if (!errors.HasErrors()) trError("The object could not be made.");
    return kFailed;
  }
  made.PrepForRender();
  // One plain group is written as it is, all else is made one mesh.
  trScene* scene = &made;
  const bool isPlain = made.NumGroups() == 1 && made.NumTris() == 0 && made.NumParticles() == 0 &&
                       made.GetPGroup(1)->Subscene()->NumParticles() == 0 &&
                       made.GetPGroup(1)->Subscene()->NumGroups() == 0;
  if (!isPlain) {
    Flatten(made, options, node, flat);
    scene = &flat;
  }
  const trScene& mesh = *scene->GetPGroup(1)->Subscene();
  if (mesh.NumTris() == 0) throw Failure{kFailed, node.NameAndPath() + ": has no triangles to be written"};
  const auto points = static_cast<double>(mesh.NumPts()), triangles = static_cast<double>(mesh.NumTris());
  if (!ovhost::WriteSceneFile(*scene, maker, options.output, {{"ascii", options.ascii ? "1" : "0"}}))
    return kOutputFailed;
  Print(options, node.NameAndPath(), points, triangles);
  return CodeOf(errors);
}

int ExportDiced(Program& program, Session& session, const ObjectExport& options) {
  const ovhost::ErrorWatch errors;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  ovhost::RenderJobSettings settings;
  settings.camera = options.camera;
  settings.renderNode = options.renderNode;
  settings.width = options.width;
  settings.height = options.height;
  settings.frame = session.Project().GetCurrentFrame();
  settings.seed = program.common.seed.value_or(0);
  settings.threads = program.common.threads.value_or(0);
  // What the project itself has written in a render isn't asked for here.
  for (trBase* render : session.NodesWithFact("is_render"))
    render->SetParam("micro_exporter", "", trWhoSystem);
  trMicroSurface surface;
  {
    ovhost::RenderJob job(session.Project(), settings, control);
    const ovhost::RenderOutcome outcome = job.Prepare();
    if (control.stop) throw Failure{128 + StopSignal(), "stopped; nothing is written"};
    if (outcome == ovhost::RenderOutcome::kMemoryLimit) return kLimitReached;
    if (outcome != ovhost::RenderOutcome::kDone) return kFailed;
    surface = job.DicedSurface();
  }
  if (surface.triangles.empty())
    throw Failure{kFailed, "the frame has no diced surface; a single object is written by its name"};
  auto* const node = session.Project().CreateChild("micro_exporter");
  auto* const exporter = dynamic_cast<trMicroHandler*>(node);
  if (!exporter) throw Failure{kFailed, "the class micro_exporter is missing"};
  node->SetParam("filename", std::filesystem::absolute(options.output).string(), trWhoSystem);
  if (!exporter->HandleMicroSurface(surface)) return kOutputFailed;
  if (options.json)
    Print(options, "/", static_cast<double>(surface.points.size()),
          static_cast<double>(surface.triangles.size()));
  return CodeOf(errors);
}

}  // namespace ovapp
