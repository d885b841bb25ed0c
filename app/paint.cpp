// `ov paint`: viewpoints of a sky paint, pictures to paint on, and the paint taken back from them.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "app/progress.h"
#include "app/signals.h"
#include "core/messages.h"
#include "host/project/project_file.h"
#include "host/session/sky_paint_edit.h"
#include "host/session/sky_paint_files.h"

namespace ovapp {
namespace {

using Json = nlohmann::ordered_json;
using ovhost::PaintedViewpoint;
using ovhost::Session;
using ovhost::SkyFiles;
using ovhost::SkyPaintEdit;

struct Options {
  std::string project, node, cloud, output, camera, sky, paint, import, over, engine;
  std::vector<double> add;
  std::optional<int> viewpoint, remove, size, samples;
  bool addAtCamera = false, isFaces = false, json = false;

  bool Changes() const { return !cloud.empty() || !add.empty() || addAtCamera || remove || !import.empty(); }
};

/// Finds out before minutes of work what can't be written after them.
void CheckPaths(const Options& options) {
  for (const std::string& path : {options.sky, options.paint, options.import, options.over})
    if (!path.empty() && !ovhost::IsSkyPath(path))
      throw Failure{kBadUsage, path + ": pictures to paint on are png, tif, tiff or exr"};
  if (!options.over.empty() && options.import.empty())
    throw Failure{kBadUsage, "--over says what the picture of --import was painted on"};
  for (const std::string& path : {options.sky, options.paint, options.output}) {
    std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (folder.empty()) folder = ".";
    if (!path.empty() && access(folder.c_str(), W_OK | X_OK) != 0)
      throw Failure{kOutputFailed, path + ": can't be written: no such folder, or no permission"};
  }
}

trVector PositionOfCamera(Session& session, const std::string& name) {
  trBase* camera = name.empty() ? session.Project().PActiveCameraNode() : &session.Find(name);
  trVector position;
  if (!camera || !camera->IsTrue("is_camera") || !camera->GetParam("position", position))
    throw Failure{kFailed, name.empty() ? "the project has no camera" : name + ": is no camera"};
  return position;
}

/// The viewpoint that the options speak of.
int ViewpointOf(const Options& options, const SkyPaintEdit& paint, int added) {
  if (options.viewpoint) return *options.viewpoint;
  if (added > 0) return added;
  const std::vector<PaintedViewpoint> list = paint.Viewpoints();
  if (list.size() == 1) return list[0].number;
  throw Failure{kBadUsage, list.empty() ? "the paint has no viewpoint; --add or --add-at-camera makes one"
                                        : "the paint has several viewpoints: say --viewpoint"};
}

/// Returns the number of the viewpoint that was added, or 0.
int Change(const Options& options, Session& session, SkyPaintEdit& paint) {
  if (options.remove) paint.Remove(*options.remove);
  int added = 0;
  if (!options.add.empty())
    added = paint.Add({options.add[0], options.add[1], options.add[2]});
  else if (options.addAtCamera)
    added = paint.Add(PositionOfCamera(session, options.camera));
  if (added > 0) trPrintMessage("viewpoint " + std::to_string(added) + " added");
  if (!options.import.empty())
    ovhost::ImportPaint(paint, ViewpointOf(options, paint, added),
                        {{options.import, options.isFaces}, options.over, options.size.value_or(0)});
  return added;
}

void Save(const Options& options, Session& session, const ovhost::ErrorWatch& errors) {
  const std::string& path = options.output.empty() ? options.project : options.output;
  const std::string text = ovhost::ProjectToText(session.Project());
  // What couldn't be read, or put into text, would be lost.
  if (errors.HasErrors()) throw Failure{kFailed, path + ": isn't written, since there were errors"};
  const std::string problem = ovhost::SaveProject(session.Project(), path);
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
  trPrintMessage(path + ": written");
}

/// The code to end with.
int ExportSky(Program& program, const Options& options, Session& session, const trVector& position) {
  constexpr int kPanorama = 2048, kFace = 512;
  const int size = options.size.value_or(options.isFaces ? kFace : kPanorama);
  // A face's middle has pi pixels of its side to a panorama's width.
  const int side = options.isFaces ? size : std::max(2, static_cast<int>(size / 3.14159265));
  ovhost::RenderJobSettings settings;
  settings.frame = session.Project().GetCurrentFrame();
  settings.samples = options.samples;
  settings.seed = program.common.seed.value_or(0);
  settings.threads = program.common.threads.value_or(0);
  if (!options.engine.empty())
    settings.engine = options.engine == "path" ? ovhost::Engine::kPath : ovhost::Engine::kStandard;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  Progress progress(program.common, &control.stop);
  ovhost::SkyView sky;
  const auto outcome = ovhost::RenderSky(session.Project(), position, settings, side, control, sky);
  progress.Pause();
  if (outcome == ovhost::RenderOutcome::kStopped) return 128 + StopSignal();
  if (outcome == ovhost::RenderOutcome::kMemoryLimit) return kLimitReached;
  if (outcome != ovhost::RenderOutcome::kDone) return kFailed;
  ovhost::WriteSky({options.sky, options.isFaces}, sky, size / 2 * 2);
  trPrintMessage(options.sky + ": written");
  return kDone;
}

void ExportPaint(const Options& options, const SkyPaintEdit& paint, int viewpoint) {
  const ovhost::SkyFaces faces = paint.Faces(viewpoint);
  // As many pixels as the faces have.
  const int width = options.size.value_or(std::max(512, 4 * faces[0].width));
  ovhost::WritePaint({options.paint, options.isFaces}, faces, width / 2 * 2);
  trPrintMessage(options.paint + ": written");
}

void List(const Options& options, const trBase& node, const std::vector<PaintedViewpoint>& viewpoints) {
  if (!options.json) {
    std::printf("%s: %zu of %d viewpoints\n", node.NameAndPath().c_str(), viewpoints.size(),
                trSkyPaintStore::kViewpoints);
    for (const PaintedViewpoint& v : viewpoints)
      std::printf(
          "  %2d  at %.6g %.6g %.6g m, faces of %d pixels, %.3g %% red (removed), %.3g %% green (added)\n",
          v.number, v.position.x, v.position.y, v.position.z, v.side, 100 * v.removed, 100 * v.added);
    return;
  }
  Json list = Json::array();
  for (const PaintedViewpoint& v : viewpoints)
    list.push_back({{"number", v.number},
                    {"position", {v.position.x, v.position.y, v.position.z}},
                    {"face_pixels", v.side},
                    {"removed", v.removed},
                    {"added", v.added}});
  const Json json = {{"node", node.NameAndPath()}, {"viewpoints", list}};
  std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

int Run(Program& program, const Options& options) {
  CheckPaths(options);
  const ovhost::ErrorWatch errors;
  Session session(options.project);
  trBase& node = options.cloud.empty() ? ovhost::FindSkyPaint(session, options.node)
                                       : ovhost::MakeSkyPaint(session, options.node, options.cloud);
  SkyPaintEdit paint(node);
  const int added = Change(options, session, paint);
  if (options.Changes()) Save(options, session, errors);

  int code = kDone;
  if (!options.paint.empty()) ExportPaint(options, paint, ViewpointOf(options, paint, added));
  const std::vector<PaintedViewpoint> viewpoints = paint.Viewpoints();
  if (options.json || (!options.Changes() && options.paint.empty() && options.sky.empty()))
    List(options, node, viewpoints);
  if (!options.sky.empty())
    code = ExportSky(program, options, session, paint.PositionOf(ViewpointOf(options, paint, added)));
  return code != kDone ? code : errors.HasErrors() ? kFailed : kDone;
}

void AddChanges(CLI::App& command, Options& options) {
  command.add_option(
      "--cloud", options.cloud,
      "Cloud layer that is to obey the paint: links it, and makes the paint where there is none");
  auto* add = command.add_option("--add", options.add, "Add a viewpoint at x y z, metres")->expected(3);
  command.add_flag("--add-at-camera", options.addAtCamera, "Add a viewpoint where the camera is")
      ->excludes(add);
  command.add_option("--camera", options.camera, "Name or path of that camera; the project's by default");
  command.add_option("--remove", options.remove, "Remove the viewpoint of that number, with its paint");
  command.add_option(
      "--import", options.import,
      "Take paint from a picture: with --over from what was painted on it, otherwise all of it, "
      "where black or clear is no paint, in place of the paint there was");
  command.add_option("--over", options.over, "That picture as it was before, from --export");
  command.add_option("-o,--output", options.output,
                     "Project file to write; the one that was read by default");
}

}  // namespace

void AddPaint(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add(
      "paint",
      "Paint on the sky: a cloud layer has less cloud where red is painted, and more where green is; both "
      "together change nothing",
      "ov paint scene.ovd --cloud \"Cloud layer 01\" --add-at-camera --export sky.png\n"
      "  (paint red and green on a copy, painted.png)\n"
      "  ov paint scene.ovd --import painted.png --over sky.png",
      options, Run);
  command->add_option("project", options->project, "Project file (.ovd)")->required();
  command->add_option("node", options->node,
                      "Name or path of a sky paint; the project's only one by default");
  AddChanges(*command, *options);
  command->add_option(
      "-n,--viewpoint", options->viewpoint,
      "Number of the viewpoint to import to and export from; the one that was added, or the only one");
  command->add_option(
      "--export", options->sky,
      "Render what the viewpoint sees, all directions in one picture of latitude and longitude, north "
      "in its middle: png, tif or exr");
  command->add_option("--export-paint", options->paint, "Write the paint alone: red and green on black");
  command->add_flag(
      "--faces", options->isFaces,
      "Pictures are six faces: sky.png stands for sky_n.png, _e, _s, _w, _u and _d. The south face "
      "stands on its head, the lower one is mirrored");
  command
      ->add_option(
          "--size", options->size,
          "Pixels: the width of an exported panorama, or the side of faces that are exported or taken")
      ->check(CLI::Range(16, 16384));
  command->add_option("-s,--samples", options->samples, "Samples a pixel of what is rendered")
      ->check(CLI::Range(1, 1 << 20));
  command->add_option("--engine", options->engine, "standard or path; the render node's by default")
      ->check(CLI::IsMember({"standard", "path"}));
  command->add_flag("--json", options->json, "Print the viewpoints as JSON");
}

}  // namespace ovapp
