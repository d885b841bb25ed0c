// `ov heightfield`: makes a heightfield and writes it to elevation files and pictures.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "app/app.h"
#include "app/json.h"
#include "app/progress.h"
#include "app/project_options.h"
#include "app/signals.h"
#include "core/messages.h"
#include "host/base/log.h"
#include "host/node/node_data.h"
#include "host/raster/heightfield_run.h"
#include "host/raster/raster_write.h"
#include "host/raster/relief.h"

namespace ovapp {
namespace {

using ovhost::HeightfieldRun;
using ovhost::HeightGrid;

/// What writing a file takes of the time, in those of a quick operator.
constexpr double kWriting = 2;

struct Options {
  ProjectOptions project;
  std::string node, output, hillshade, slope;
  int bits = 0;
  std::optional<double> exaggeration;
  bool stats = false, json = false, inDegrees = false;
};

/// In small letters, with its dot.
std::string ExtensionOf(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension;
}

void CheckFolder(const std::string& path) {
  std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty()) folder = ".";
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error))
    throw Failure{kOutputFailed, path + ": can't be written: there is no folder " + folder.string()};
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    throw Failure{kOutputFailed, path + ": can't be written: no permission in " + folder.string()};
  if (std::filesystem::is_directory(path, error))
    throw Failure{kOutputFailed, path + ": can't be written: it is a folder"};
}

/// Finds out before hours of work what can't be written after them.
void CheckOutputs(const Options& options) {
  if (options.output.empty() && options.hillshade.empty() && options.slope.empty() && !options.stats &&
      !options.json)
    throw Failure{kBadUsage, "nothing is asked for: -o, --hillshade, --slope, --stats or --json"};
  if (!options.output.empty() && !ovhost::IsHeightfieldPath(options.output))
    throw Failure{kBadUsage, options.output + ": heightfields are tif, tiff, exr, png, asc, ovh or lwo"};
  const std::string extension = ExtensionOf(options.output);
  if (options.bits == 32 && extension == ".png")
    throw Failure{kBadUsage, options.output + ": a PNG has 16 bits"};
  if (options.bits == 16 && extension != ".png" && extension != ".tif" && extension != ".tiff")
    throw Failure{kBadUsage, options.output + ": 16 bits are for png and tif"};
  for (const std::string& picture : {options.hillshade, options.slope})
    if (!picture.empty() && ExtensionOf(picture) != ".png")
      throw Failure{kBadUsage, picture + ": reliefs and slopes are png"};
  for (const std::string& path : {options.output, options.hillshade, options.slope})
    if (!path.empty()) CheckFolder(path);
}

/// The jobs of writing, which follow one another on one scale of progress.
class Writer {
 public:
  Writer(const Options& options, Progress& progress, const std::atomic<bool>& stop)
      : options_(options), progress_(progress), stop_(stop) {
    write_.threads = trNumCoresToUse();
    write_.bits = options.bits;
    write_.progress = {
        [](void* self, double fraction) { return static_cast<Writer*>(self)->Report(fraction); }, this};
  }

  void WriteHeights(trHeightfield& heightfield, const std::string& path) {
    progress_.NextStage();
    what_ = "Writing " + path;
    std::string note;
    HeightGrid grid = ovhost::GridOf(heightfield);
    if (options_.inDegrees) grid.map.reset();
    Check(ExtensionOf(path) == ".lwo" ? ovhost::ExportLwo(heightfield, path)
                                      : ovhost::WriteHeightfield(path, grid, write_, note));
    Tell(path + ": written" + (note.empty() ? "" : "; " + note));
  }

  void WritePictures(const HeightGrid& grid) {
    if (!options_.hillshade.empty()) {
      progress_.NextStage();
      what_ = "Writing " + options_.hillshade;
      const double exaggeration = options_.exaggeration.value_or(ovhost::ReliefExaggeration(grid));
      Check(ovhost::WriteHillshade(options_.hillshade, grid, exaggeration, write_.threads, write_.progress));
      char text[64] = "";
      if (exaggeration != 1)
        std::snprintf(text, sizeof text, "; heights are exaggerated %.3g times", exaggeration);
      Tell(options_.hillshade + ": written" + text);
    }
    if (options_.slope.empty()) return;
    progress_.NextStage();
    what_ = "Writing " + options_.slope;
    Check(ovhost::WriteSlope(options_.slope, grid, write_.threads, write_.progress));
    Tell(options_.slope + ": written");
  }

 private:
  bool Report(double fraction) {
    progress_.Report(what_, fraction);
    return !stop_;
  }
  void Check(const std::string& problem) const {
    if (problem.empty()) return;
    progress_.Pause();
    if (stop_) throw Failure{128 + StopSignal(), what_ + ": stopped; what stood there is as it was"};
    throw Failure{kOutputFailed, problem};
  }
  void Tell(const std::string& text) const {
    progress_.Pause();
    trPrintMessage(text);
  }

  const Options& options_;
  Progress& progress_;
  const std::atomic<bool>& stop_;
  ovhost::RasterWriteOptions write_;
  std::string what_;
};

/// Where a raster goes that isn't what was asked for.
std::string PartialPath(const std::string& path) {
  const std::filesystem::path whole(path);
  return (whole.parent_path() / (whole.stem().string() + ".partial" + whole.extension().string())).string();
}

/// A cancelled operator keeps what it has done: that is written under a name of its own, so that nobody takes
/// it for the whole.
[[noreturn]] void EndStopped(const HeightfieldRun& run, const Options& options, Writer& writer) {
  const int code = 128 + StopSignal();
  std::string text = run.last->NameAndPath() + ": stopped; ";
  if (run.leavesRaster && !options.output.empty() && ExtensionOf(options.output) != ".lwo") {
    const std::string partial = PartialPath(options.output);
    // Which may take a while.
    trPrintMessage(text + "what was done goes to " + partial + "; another Ctrl-C leaves it");
    writer.WriteHeights(*run.last, partial);
    text += partial + " holds its heights as far as they had come";
  } else {
    text += "nothing was written";
  }
  throw Failure{code, text};
}

/// Heights are no finer than floats of metres.
double Rounded(double metres) { return static_cast<float>(metres); }

Json Describe(const trHeightfield& node, const HeightGrid& grid, const Options& options) {
  Json json = {{"node", node.NameAndPath()},
               {"size_in_points", {grid.width, grid.height}},
               {"metres_per_interval", {grid.xScale, grid.yScale}},
               {"metres_per_raster_unit", grid.zScale},
               {"lowest", Rounded(node.HfMinHeight())},
               {"highest", Rounded(node.HfMaxHeight())}};
  if (grid.hasCorners)
    json["corners"] = {{"south", grid.corners.south},
                       {"west", grid.corners.west},
                       {"north", grid.corners.north},
                       {"east", grid.corners.east}};
  if (!options.stats) return json;
  const ovhost::HeightStatistics s = ovhost::MeasureHeights(grid, trNumCoresToUse());
  json["statistics"] = {{"mean", s.mean},
                        {"standard_deviation", s.deviation},
                        {"median", s.median},
                        {"mean_slope_degrees", s.meanSlope},
                        {"steepest_slope_degrees", s.steepest},
                        {"points_without_height", s.missing}};
  return json;
}

void PrintText(const Json& json) {
  const auto number = [](const Json& v) { return v.get<double>(); };
  std::printf("%s\n", json["node"].get<std::string>().c_str());
  std::printf("  size      %ld x %ld points\n", json["size_in_points"][0].get<long>(),
              json["size_in_points"][1].get<long>());
  std::printf("  spacing   %.10g x %.10g m\n", number(json["metres_per_interval"][0]),
              number(json["metres_per_interval"][1]));
  std::printf("  unit      %.10g m\n", number(json["metres_per_raster_unit"]));
  std::printf("  heights   %.10g to %.10g m\n", number(json["lowest"]), number(json["highest"]));
  if (json.contains("corners")) {
    const Json& c = json["corners"];
    std::printf("  corners   latitude %.10g to %.10g, longitude %.10g to %.10g\n", number(c["south"]),
                number(c["north"]), number(c["west"]), number(c["east"]));
  }
  if (!json.contains("statistics")) return;
  const Json& s = json["statistics"];
  std::printf("  mean      %.10g m, standard deviation %.10g m, median %.10g m\n", number(s["mean"]),
              number(s["standard_deviation"]), number(s["median"]));
  std::printf("  slope     mean %.6g degrees, steepest %.6g degrees\n", number(s["mean_slope_degrees"]),
              number(s["steepest_slope_degrees"]));
  if (const long missing = s["points_without_height"].get<long>())
    std::printf("  missing   %ld points\n", missing);
}

/// What is made, then what is written.
std::vector<Progress::Stage> Stages(trHeightfield& heightfield, const Options& options) {
  std::vector<Progress::Stage> stages;
  for (const ovhost::HeightfieldStage& stage : ovhost::StagesOf(heightfield))
    stages.push_back({stage.node, stage.weight});
  for (const std::string& path : {options.output, options.hillshade, options.slope})
    if (!path.empty()) stages.push_back({nullptr, kWriting});
  return stages;
}

int Run(Program& program, const Options& options) {
  const std::unique_ptr<Session> opened = OpenSession(options.project);
  Session& session = *opened;
  CheckOutputs(options);
  trBase& node = session.Find(options.node);
  trHeightfield* heightfield = ovhost::HeightfieldOf(node);
  if (!heightfield) throw Failure{kFailed, node.NameAndPath() + ": is no heightfield and leads to none"};

  const ovhost::ErrorWatch errors;
  ovhost::RenderControl control;
  const RenderSignals signals(control);
  Progress progress(program.common, &control.stop);
  progress.SetStages(Stages(*heightfield, options));
  Writer writer(options, progress, control.stop);
  const HeightfieldRun run = ovhost::RunHeightfield(*heightfield, control.stop);
  progress.Pause();
  if (run.outcome == HeightfieldRun::Outcome::kStopped) {
    control.stop = false;  // for what is still to be written
    EndStopped(run, options, writer);
  }
  if (run.outcome == HeightfieldRun::Outcome::kFailed)
    throw Failure{std::max<int>(CodeOf(errors), kFailed),
                  errors.HasErrors()
                      ? ""
                      : run.last->NameAndPath() + ": has no heights: its input or its shader is missing"};

  if (!options.output.empty()) writer.WriteHeights(*heightfield, options.output);
  const HeightGrid grid = ovhost::GridOf(*heightfield);
  writer.WritePictures(grid);
  if (options.json || options.stats) {
    const Json json = Describe(*heightfield, grid, options);
    if (options.json)
      std::fputs(JsonText(json, 2).c_str(), stdout);
    else
      PrintText(json);
  }
  return CodeOf(errors);
}

}  // namespace

void AddHeightfield(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add(
      "heightfield", "Make a heightfield, whatever its automatic flags say, and write it to files",
      "ov heightfield scene.ovd \"Erode 01\" -o ridge.tif --hillshade ridge.png --stats", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_option("node", options->node, "Name or path of a heightfield, or of a node that uses one")
      ->required();
  command->add_option(
      "-o,--output", options->output,
      "Elevation file: tif (32-bit floats, metres, georeference), exr, png (16 bits), asc, ovh, lwo");
  command->add_option("--bits", options->bits, "Bits a point of a tif: 32 or 16")
      ->check(CLI::IsMember({16, 32}));
  command->add_flag("--in-degrees", options->inDegrees,
                    "Place a tif or asc by latitude and longitude, even if its file had a map projection");
  command->add_option("--hillshade", options->hillshade, "PNG of the relief in light from the north-west");
  command
      ->add_option("--exaggeration", options->exaggeration,
                   "Times that the relief raises heights; gentle ground is raised by itself")
      ->check(CLI::Range(1e-6, 1e6));
  command->add_option("--slope", options->slope, "PNG of the slope: white is level, black vertical");
  command->add_flag("--stats", options->stats, "Print size, scale, heights and slopes");
  command->add_flag("--json", options->json, "Print them as JSON");
}

}  // namespace ovapp
