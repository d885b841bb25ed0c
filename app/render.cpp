// `ov render`: renders frames of a project to picture files.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "app/app.h"
#include "app/json.h"
#include "app/progress.h"
#include "app/project_options.h"
#include "app/signals.h"
#include "app/units.h"
#include "core/messages.h"
#include "host/base/log.h"
#include "host/base/memory.h"
#include "host/image/picture.h"
#include "host/node/graph_check.h"
#include "host/node/node_data.h"
#include "host/project/project_file.h"
#include "host/raster/heightfield_run.h"
#include "host/render/frame/film.h"
#include "host/render/frame/population_claims.h"
#include "host/session/frames.h"
#include "host/session/render_frame.h"

namespace ovapp {
namespace {

/// What rendering takes of the time, in that of a quick heightfield operator.
constexpr double kRendering = 40;

struct Options {
  ProjectOptions project;
  std::string output, renderNode, camera, engine, frames, tile, memory, time, resume = "auto";
  std::vector<int> crop;
  std::optional<int> width, height, samples;
  std::optional<double> noise;
  std::vector<std::string> layers;
  std::optional<bool> denoise;
  bool overwrite = false, skipExisting = false, dryRun = false, json = false, allowMissing = false;
};

/// One picture to make.
struct Job {
  long frame = 0;
  std::string path;
};

// --- From the command line to jobs and settings

std::vector<Job> PlanJobs(const Options& options, juProject& project) {
  std::vector<long> frames = {std::lround(project.GetCurrentFrame())};
  if (options.frames == "all")
    frames = ovhost::ProjectFrames(project);
  else if (!options.frames.empty())
    frames = ovhost::ParseFrames(options.frames);
  if (frames.size() > 1 && !ovhost::HasFramePlace(options.output))
    throw Failure{kBadUsage,
                  options.output + ": several frames need a place for their number, such as out_####.png"};
  std::vector<Job> jobs;
  for (const long frame : frames) jobs.push_back({frame, ovhost::FramePath(options.output, frame)});
  return jobs;
}

/// Finds out before hours of work what can't be written after them.
void CheckOutputs(const std::vector<Job>& jobs) {
  for (const Job& job : jobs) {
    if (!ovhost::IsPicturePath(job.path))
      throw Failure{kBadUsage, job.path + ": pictures are exr, png, tif, tiff, jpg or jpeg"};
    std::filesystem::path folder = std::filesystem::path(job.path).parent_path();
    if (folder.empty()) folder = ".";
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
      throw Failure{kOutputFailed, job.path + ": can't be written: there is no folder " + folder.string()};
    if (access(folder.c_str(), W_OK | X_OK) != 0)
      throw Failure{kOutputFailed, job.path + ": can't be written: no permission in " + folder.string()};
    if (std::filesystem::is_directory(job.path, error))
      throw Failure{kOutputFailed, job.path + ": can't be written: it is a folder"};
  }
}

/// The rows of tile i of n, from the top, within `whole`.
ovhost::PixelRect TileRows(const std::string& text, ovhost::PixelRect whole) {
  const Tile tile = ParseTile(text);
  const long rows = whole.y1 - whole.y0;
  if (tile.count > rows) throw Failure{kBadUsage, "--tile: more tiles than rows of pixels"};
  const int top = whole.y0;
  whole.y0 = top + static_cast<int>(rows * (tile.number - 1) / tile.count);
  whole.y1 = top + static_cast<int>(rows * tile.number / tile.count);
  return whole;
}

/// A network that feeds itself has no picture.
void CheckRings(juProject& project) {
  if (!ovhost::HasShaderRing(&project)) return;
  ovhost::ReportShaderRings(&project, trWarning);
  throw Failure{kInvalidProject, ""};
}

/// A picture without what a link was meant to lead to must not be taken for the real one.
void CheckLinks(juProject& project, const Options& options) {
  if (!options.allowMissing && ovhost::ReportBrokenLinks(&project, trError))
    throw Failure{kInvalidProject,
                  options.project.path + ": links lead nowhere; --allow-missing renders without"};
}

/// Nor one without what a missing module makes.
void CheckClasses(const Session& session, const Options& options) {
  const std::vector<std::string> classes = session.MissingClasses();
  if (classes.empty() || options.allowMissing) return;
  throw Failure{kInvalidProject, options.project.path + ": " + std::to_string(classes.size()) +
                                     (classes.size() == 1 ? " class is" : " classes are") +
                                     " missing, the first " + classes.front() +
                                     "; --allow-missing renders without"};
}

trBase* RenderNode(const Options& options, const Session& session) {
  if (!options.renderNode.empty()) return &session.Find(options.renderNode);
  const std::vector<trBase*> nodes = session.NodesWithFact("is_render");
  return nodes.empty() ? nullptr : nodes[0];
}

/// Size of the full picture: the command line's, else the render node's.
void PictureSize(const trBase* renderNode, const Options& options, int& width, int& height) {
  long nodeWidth = 0, nodeHeight = 0;
  if (renderNode) {
    renderNode->GetParam("image_width", nodeWidth);
    renderNode->GetParam("image_height", nodeHeight);
  }
  width = options.width.value_or(static_cast<int>(nodeWidth));
  height = options.height.value_or(static_cast<int>(nodeHeight));
}

std::optional<ovhost::PixelRect> Crop(const trBase* renderNode, const Options& options) {
  if (options.crop.empty() && options.tile.empty()) return std::nullopt;
  ovhost::PixelRect rect;
  PictureSize(renderNode, options, rect.x1, rect.y1);
  if (!options.crop.empty()) {
    const std::vector<int>& c = options.crop;
    if (c[0] < 0 || c[1] < 0 || c[2] <= c[0] || c[3] <= c[1] || c[2] > rect.x1 || c[3] > rect.y1)
      throw Failure{kBadUsage, "--crop: x0 y0 x1 y1 must be a rectangle within the picture's " +
                                   std::to_string(rect.x1) + " x " + std::to_string(rect.y1) + " pixels"};
    rect = {c[0], c[1], c[2], c[3]};
  }
  return options.tile.empty() ? rect : TileRows(options.tile, rect);
}

/// When a file was last written, as pictures' metadata has it; `otherwise` where that can't be told.
std::string TimeOfChange(const std::string& path, const std::string& otherwise) {
  struct stat info;
  std::tm date;
  char text[32];
  if (stat(path.c_str(), &info) != 0 || !gmtime_r(&info.st_mtime, &date)) return otherwise;
  return std::string(text, std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &date));
}

/// Formats have limits too.
void CheckSize(const std::vector<Job>& jobs, const trBase* renderNode, const Options& options,
               const ovhost::RenderSettings& settings) {
  ovhost::PixelRect rect;
  PictureSize(renderNode, options, rect.x1, rect.y1);
  rect = settings.crop.value_or(rect);
  if (rect.x1 <= rect.x0 || rect.y1 <= rect.y0) return;
  for (const Job& job : jobs) {
    const std::string problem = ovhost::PictureSizeProblem(job.path, rect.x1 - rect.x0, rect.y1 - rect.y0);
    if (!problem.empty()) throw Failure{kBadUsage, problem};
  }
}

ovhost::RenderSettings Settings(Program& program, const Options& options, Session& session) {
  ovhost::RenderSettings settings;
  settings.renderNode = options.renderNode;
  settings.camera = options.camera;
  if (!options.engine.empty())
    settings.engine = options.engine == "path" ? ovhost::Engine::kPath : ovhost::Engine::kStandard;
  settings.width = options.width;
  settings.height = options.height;
  settings.samples = options.samples;
  settings.crop = Crop(RenderNode(options, session), options);
  settings.seed = program.common.seed.value_or(0);
  settings.threads = program.common.threads.value_or(0);
  if (!options.memory.empty()) settings.memoryBytes = ParseBytes(options.memory);
  if (!options.time.empty()) settings.timeLimitSeconds = ParseSeconds(options.time);
  settings.noiseLimit = options.noise;
  settings.denoise = options.denoise;
  settings.resume = options.resume == "never"     ? ovhost::ResumeMode::kNever
                    : options.resume == "require" ? ovhost::ResumeMode::kRequire
                                                  : ovhost::ResumeMode::kAuto;
  settings.sceneName = std::filesystem::path(options.project.path).filename().string();
  settings.sceneTime = TimeOfChange(options.project.path, settings.sceneTime);
  settings.layers = options.layers;
  if (!options.layers.empty() && !ovhost::HoldsLayers(options.output))
    throw Failure{kBadUsage, "--layers: " + options.output + " can't hold them; EXR files can"};
  for (const std::string& layer : options.layers) {
    const auto& known = ovhost::LayerNames();
    if (layer != "all" && std::find(known.begin(), known.end(), layer) == known.end()) {
      std::string names = "all";
      for (const std::string& name : known) names += ", " + name;
      throw Failure{kBadUsage, "--layers: there is no layer \"" + layer + "\"; there are " + names};
    }
  }
  return settings;
}

// --- Rendering

int CodeOfOutcome(ovhost::RenderOutcome outcome) {
  switch (outcome) {
    case ovhost::RenderOutcome::kDone:
      return kDone;
    case ovhost::RenderOutcome::kFailed:
      return kFailed;
    case ovhost::RenderOutcome::kOutputFailed:
      return kOutputFailed;
    case ovhost::RenderOutcome::kMemoryLimit:
    case ovhost::RenderOutcome::kTimeLimit:
      return kLimitReached;
    case ovhost::RenderOutcome::kStopped:
      return kResumable;  // the checkpoint is written
  }
  return kFailed;
}

void Report(const Job& job, ovhost::RenderOutcome outcome, const ovhost::RenderStatistics& statistics) {
  if (outcome == ovhost::RenderOutcome::kStopped) {
    trPrintMessage(job.path + ": stopped; the same command goes on from here");
    return;
  }
  if (outcome == ovhost::RenderOutcome::kTimeLimit)
    trWarning(job.path + (statistics.samplesDone > 0
                              ? ": the time limit ended the frame early; the same command goes on from here"
                              : ": the time limit ended the frame before its first picture"));
  if (outcome != ovhost::RenderOutcome::kDone && outcome != ovhost::RenderOutcome::kTimeLimit) return;
  std::string text = job.path + ": " + Counted(statistics.samplesDone, "sample") + " a pixel in " +
                     DurationText(statistics.seconds);
  if (statistics.peakBytes) text += ", " + std::to_string(statistics.peakBytes >> 20) + " MB";
  trPrintMessage(text);
  const auto rate = [&statistics](std::uint64_t count) {
    return std::to_string(count) + " (" +
           std::to_string(
               static_cast<std::uint64_t>(static_cast<double>(count) / std::max(statistics.seconds, 1e-3))) +
           "/s)";
  };
  trPrintDebugMessage("first picture after " + DurationText(statistics.firstPictureSeconds) + ", dicing " +
                      DurationText(statistics.diceSeconds) + ", " +
                      std::to_string(statistics.gridBytes >> 20) + " MB of grids");
  trPrintDebugMessage("vertices " + std::to_string(statistics.vertices) + ", displacements " +
                      std::to_string(statistics.displacements) + ", camera rays " +
                      rate(statistics.cameraRays) + ", shadow rays " + rate(statistics.shadowRays) +
                      ", bounces " + rate(statistics.bounceRays) + ", volume samples " +
                      rate(statistics.volumeSamples));
}

/// What would be rendered, and what its populations take, which is found out by populating.
struct DryRun {
  std::vector<ovhost::PopulationClaim> claims;
  std::uint64_t budget = 0;
  bool fits = true;
  int code = kDone;
};

DryRun FindOut(Program& program, const std::vector<Job>& jobs, juProject& project,
               const ovhost::RenderSettings& settings) {
  DryRun found;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  const Progress progress(program.common, &control.stop);
  if (!jobs.empty()) {
    project.SetParam("current_frame", jobs[0].frame, trWhoSystem);
    ovhost::UpdateAnimation(&project, static_cast<double>(jobs[0].frame));
  }
  found.budget = settings.memoryBytes ? settings.memoryBytes : ovhost::FreeMemory() / 4 * 3;
  bool isRefused = false;
  if (!ovhost::FindClaims(project, found.budget, found.claims, isRefused))
    found.code = isRefused ? kLimitReached : kFailed;
  found.fits = !isRefused;
  if (control.stop) found.code = 128 + StopSignal();
  return found;
}

void PrintPlan(const std::vector<Job>& jobs, const Options& options, const trBase* renderNode,
               const ovhost::RenderSettings& settings, const DryRun& found) {
  int width = 0, height = 0;
  PictureSize(renderNode, options, width, height);
  const ovhost::PixelRect rect = settings.crop.value_or(ovhost::PixelRect{0, 0, width, height});
  Json frames = Json::array(), populations = Json::array();
  for (const Job& job : jobs) {
    const bool isSkipped = options.skipExisting && ovhost::IsFinishedPicture(job.path);
    if (!options.json)
      std::printf("frame %ld -> %s, %d x %d pixels, rows %d to %d, columns %d to %d%s\n", job.frame,
                  job.path.c_str(), width, height, rect.y0, rect.y1, rect.x0, rect.x1,
                  isSkipped ? ", skipped" : "");
    frames.push_back({{"frame", job.frame},
                      {"path", job.path},
                      {"width", width},
                      {"height", height},
                      {"rows", {rect.y0, rect.y1}},
                      {"columns", {rect.x0, rect.x1}},
                      {"skipped", isSkipped}});
  }
  for (const ovhost::PopulationClaim& claim : found.claims) {
    if (!options.json)
      std::printf("%s: %s\n", claim.node->Name().c_str(),
                  ovhost::CopiesText(claim.copies, claim.bytes, found.budget).c_str());
    populations.push_back(
        {{"node", claim.node->NameAndPath()}, {"copies", claim.copies}, {"bytes", claim.bytes}});
  }
  if (options.json)
    std::fputs(JsonText({{"frames", frames},
                         {"populations", populations},
                         {"budget", found.budget},
                         {"fits", found.fits}})
                   .c_str(),
               stdout);
}

int Run(Program& program, const Options& options) {
  const auto begin = std::chrono::steady_clock::now();
  const std::unique_ptr<Session> opened = OpenSession(options.project);
  Session& session = *opened;
  juProject& project = session.Project();
  const std::vector<Job> jobs = PlanJobs(options, project);
  ovhost::RenderSettings settings = Settings(program, options, session);
  CheckOutputs(jobs);
  CheckSize(jobs, RenderNode(options, session), options, settings);
  CheckClasses(session, options);
  CheckLinks(project, options);
  CheckRings(project);
  if (options.dryRun) {
    const DryRun found = FindOut(program, jobs, project, settings);
    PrintPlan(jobs, options, RenderNode(options, session), settings, found);
    return found.code;
  }
  settings.sceneKey = session.SceneKey();

  const double timeLimit = settings.timeLimitSeconds;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  Progress progress(program.common, &control.stop);
  int code = kDone;
  for (size_t i = 0; i < jobs.size(); ++i) {
    const Job& job = jobs[i];
    if (options.skipExisting && ovhost::IsFinishedPicture(job.path)) {
      trPrintMessage(job.path + ": is finished, skipped");
      continue;
    }
    progress.SetPart(jobs.size() > 1 ? "frame " + std::to_string(job.frame) : "", i, jobs.size());
    project.SetParam("current_frame", job.frame, trWhoSystem);
    ovhost::UpdateAnimation(&project, static_cast<double>(job.frame));
    std::vector<Progress::Stage> stages;
    for (const ovhost::HeightfieldStage& stage : ovhost::PendingHeightfields(&project))
      stages.push_back({stage.node, stage.weight});
    stages.push_back({nullptr, kRendering});
    progress.SetStages(std::move(stages));
    settings.output = job.path;
    // The first frame's time has run since the project was opened.
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
    settings.timeLimitSeconds =
        timeLimit > 0 && i == 0 ? std::max(timeLimit - spent.count(), 1e-3) : timeLimit;
    settings.frame = static_cast<double>(job.frame);
    ovhost::RenderStatistics statistics;
    const ovhost::ErrorWatch errors;
    const ovhost::RenderOutcome outcome = ovhost::RenderFrame(project, settings, control, &statistics);
    progress.Pause();
    Report(job, outcome, statistics);
    ovhost::TellLeftOut();
    // A frame that failed doesn't keep the others from being made, but the end tells of it; a stop ends them
    // all.
    if (outcome != ovhost::RenderOutcome::kDone && code == kDone) code = CodeOfOutcome(outcome);
    if (code == kDone || code == kFailed) code = std::max<int>(code, CodeOf(errors));
    if (outcome == ovhost::RenderOutcome::kStopped) return kResumable;
    if (control.cancelled && i + 1 < jobs.size()) {
      trPrintMessage("stopped; " + std::to_string(jobs.size() - i - 1) + " frames are left");
      return 128 + StopSignal();
    }
  }
  return code;
}

}  // namespace

void AddRender(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add(
      "render", "Render frames of a project to picture files",
      "ov render scene.ovd -o out_####.png --frames 1-48x2 --set \"Camera 01.fov=40\"", options, Run);
  AddProjectOptions(*command, options->project);
  command
      ->add_option("-o,--output", options->output, "Picture file; #### or %04d stands for the frame number")
      ->required();
  command->add_option("-f,--frames", options->frames,
                      "Frames, such as 1-10,20-40x5, or all; the project's current one by default");
  command->add_option("--render-node", options->renderNode,
                      "Name or path of the render node; the first by default");
  command->add_option("--camera", options->camera,
                      "Name or path of the camera; the render node's by default");
  command
      ->add_option(
          "--engine", options->engine,
          "standard: clean pictures soon; path: follows light as far as it goes; the render node's by "
          "default")
      ->check(CLI::IsMember({"standard", "path"}));
  command->add_option("--width", options->width, "Width in pixels")->check(CLI::Range(1, 1 << 20));
  command->add_option("--height", options->height, "Height in pixels")->check(CLI::Range(1, 1 << 20));
  command->add_option("-s,--samples", options->samples, "Samples a pixel")->check(CLI::Range(1, 1 << 20));
  command
      ->add_option("--crop", options->crop, "Render only the pixels x0 y0 x1 y1, counted from the top left")
      ->expected(4);
  command->add_option("--tile", options->tile, "Render only the i-th of n bands of rows: i/n");
  command->add_option("--layers", options->layers, "Further layers of an EXR, with commas between, or all")
      ->delimiter(',')
      ->expected(1)
      ->take_all();
  command->add_option("--memory", options->memory,
                      "Memory budget, such as 4G; three quarters of what is free by default");
  command->add_option("--time", options->time,
                      "Longest time for a frame, such as 90s or 5m; what is done then is written");
  command->add_flag("--denoise,!--no-denoise", options->denoise,
                    "Smooth what noise is left, along the scene's features");
  command
      ->add_option("--noise", options->noise,
                   "Take no more samples where noise is below this share of the brightness; 0 for never")
      ->check(CLI::Range(0.0, 1e6));
  auto* overwrite =
      command->add_flag("--overwrite", options->overwrite, "Write over pictures that exist (the default)");
  command->add_flag("--skip-existing", options->skipExisting, "Leave out frames whose picture is finished")
      ->excludes(overwrite);
  command
      ->add_option("--resume", options->resume,
                   "Go on from a checkpoint: if there is one, never, or only then")
      ->check(CLI::IsMember({"auto", "never", "require"}))
      ->capture_default_str();
  command->add_flag("--allow-missing", options->allowMissing,
                    "Render without the nodes whose classes no module has, and links that lead nowhere");
  auto* dryRun =
      command->add_flag("--dry-run", options->dryRun,
                        "Check everything, list the pictures, and tell what populations will take");
  command->add_flag("--json", options->json, "With --dry-run: answer in JSON")->needs(dryRun);
}

}  // namespace ovapp
