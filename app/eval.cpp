// `ov eval`: evaluates a node at points, or over an area as a picture.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "app/app.h"
#include "app/project_options.h"
#include "core/messages.h"
#include "host/base/atomic_file.h"
#include "host/base/log.h"
#include "host/image/picture.h"
#include "host/session/evaluator.h"
#include "host/session/points.h"

namespace ovapp {
namespace {

using ovhost::EvalPoint;
using ovhost::EvalResult;
using ovhost::Evaluator;
using ovhost::PointList;

struct Options {
  ProjectOptions project;
  std::string node, points = "-", output;
  std::vector<double> grid;
  std::string gridValue = "colour";
  double height = 0, smoothSize = 0;
  bool json = false;
};

constexpr double kMaxGridSide = 65536;
constexpr double kMaxGridPixels = 1 << 28;

void Append(std::string& line, double value) {
  char buffer[32];
  if (!line.empty()) line += ',';
  line.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}
void Append(std::string& line, float value) {
  char buffer[32];
  if (!line.empty()) line += ',';
  line.append(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
}

std::string CsvLine(const EvalPoint& point, const EvalResult& result) {
  std::string line;
  for (int i = 0; i < 3; ++i) Append(line, point.position[i]);
  Append(line, result.displacement);
  for (int i = 0; i < 3; ++i) Append(line, result.displaced[i]);
  for (int i = 0; i < 3; ++i) Append(line, result.colour[i]);
  Append(line, result.scalar);
  for (int i = 0; i < 3; ++i) Append(line, result.vector[i]);
  return line;
}

std::string JsonLine(const EvalPoint& point, const EvalResult& result) {
  const auto list = [](const auto& v) { return nlohmann::json::array({v[0], v[1], v[2]}); };
  const nlohmann::ordered_json json = {{"point", list(point.position)},
                                       {"displacement", result.displacement},
                                       {"displaced", list(result.displaced)},
                                       {"colour", list(result.colour)},
                                       {"scalar", result.scalar},
                                       {"vector", list(result.vector)}};
  return json.dump();
}

PointList ReadInput(const Options& options) {
  if (options.points == "-") return ovhost::ReadPoints(std::cin, "standard input");
  std::ifstream in(options.points);
  if (!in) throw Failure{kInvalidProject, options.points + ": can't be read"};
  return ovhost::ReadPoints(in, options.points);
}

void PrintResults(const PointList& input, const std::vector<EvalResult>& results, const Options& options) {
  std::string text;
  const bool asJson = options.json || input.isJson;
  if (!asJson)
    text = "x,y,z,displacement,displaced_x,displaced_y,displaced_z,r,g,b,scalar,vector_x,vector_y,vector_z\n";
  for (size_t i = 0; i < results.size(); ++i)
    text += (asJson ? JsonLine(input.points[i], results[i]) : CsvLine(input.points[i], results[i])) + "\n";
  if (options.output.empty() || options.output == "-") {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return;
  }
  const std::string problem = ovhost::WriteFileAtomically(options.output, text.data(), text.size());
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
}

/// The centres of a raster's pixels over the area, rows from low to high z, at one height.
std::vector<EvalPoint> GridPoints(const Options& options, int width, int height) {
  const double x0 = options.grid[0], z0 = options.grid[1], x1 = options.grid[2], z1 = options.grid[3];
  std::vector<EvalPoint> points;
  points.reserve(static_cast<size_t>(width) * height);
  for (int row = 0; row < height; ++row)
    for (int column = 0; column < width; ++column)
      points.push_back(
          {{x0 + (x1 - x0) * (column + 0.5) / width, options.height, z0 + (z1 - z0) * (row + 0.5) / height}});
  return points;
}

ovhost::Picture GridPicture(const std::vector<EvalResult>& results, int width, int height,
                            const std::string& what) {
  ovhost::Picture picture;
  picture.width = width;
  picture.height = height;
  picture.channels = {"R", "G", "B"};
  picture.pixels.reserve(results.size() * 3);
  for (const EvalResult& result : results)
    for (int c = 0; c < 3; ++c) {
      double value = result.colour[c];
      if (what == "displacement") value = result.displacement;
      if (what == "scalar") value = result.scalar;
      if (what == "vector") value = result.vector[c];
      picture.pixels.push_back(static_cast<float>(value));
    }
  return picture;
}

void EvaluateGrid(Evaluator& evaluator, const Options& options) {
  const double columns = options.grid[4], rows = options.grid[5];
  for (const double number : options.grid)
    if (!std::isfinite(number)) throw Failure{kBadUsage, "eval: --grid takes finite numbers"};
  if (columns != std::floor(columns) || rows != std::floor(rows) || columns < 1 || rows < 1 ||
      columns > kMaxGridSide || rows > kMaxGridSide || columns * rows > kMaxGridPixels)
    throw Failure{kBadUsage,
                  "eval: --grid takes a width and a height from 1 to 65536, together at most 2^28 pixels"};
  if (options.output.empty()) throw Failure{kBadUsage, "eval: --grid needs a picture to write: -o FILE"};
  if (!ovhost::IsPicturePath(options.output))
    throw Failure{kBadUsage, options.output + ": pictures are exr, png, tif, tiff, jpg or jpeg"};

  const int width = static_cast<int>(columns), height = static_cast<int>(rows);
  if (const std::string problem = ovhost::PictureSizeProblem(options.output, width, height); !problem.empty())
    throw Failure{kBadUsage, problem};
  if (const std::string problem = ovhost::LoadPictureEncoder(); !problem.empty())
    throw Failure{kOutputFailed, options.output + ": " + problem};
  const auto results = evaluator.Evaluate(GridPoints(options, width, height));
  ovhost::ViewTransform straight;
  straight.softClip = false;
  const std::string problem = ovhost::WritePicture(
      options.output, GridPicture(results, width, height, options.gridValue), straight, true);
  if (!problem.empty()) throw Failure{kOutputFailed, problem};
}

int Run(Program&, const Options& options) {
  const std::unique_ptr<Session> opened = OpenSession(options.project);
  Session& session = *opened;
  trBase& node = session.Find(options.node);
  auto* shader = dynamic_cast<trShader*>(&node);
  if (!shader) throw Failure{kFailed, node.NameAndPath() + ": not a shader, so it has nothing to evaluate"};

  const ovhost::ErrorWatch errors;
  Evaluator evaluator(session.Project(), *shader, options.smoothSize);
  if (!options.grid.empty()) {
    EvaluateGrid(evaluator, options);
  } else {
    const PointList input = ReadInput(options);
    PrintResults(input, evaluator.Evaluate(input.points), options);
  }
  return CodeOf(errors);
}

}  // namespace

void AddEval(Program& program) {
  auto options = std::make_shared<Options>();
  CLI::App* command = program.Add("eval", "Evaluate a node at points, or over an area as a picture",
                                  "echo 100 0 250 | ov eval scene.ovd \"Fractal terrain 01\"", options, Run);
  AddProjectOptions(*command, options->project);
  command->add_option("node", options->node, "Name or path of a shader")->required();
  command->add_option("points", options->points,
                      "File of points x y z [nx ny nz], as CSV or JSON lines; - is standard input");
  command
      ->add_option("--grid", options->grid,
                   "Evaluate over an area: x0 z0 x1 z1 WIDTH HEIGHT, in metres and pixels")
      ->expected(6);
  command
      ->add_option("--value", options->gridValue,
                   "What the picture of --grid shows; EXR holds it as it is, in metres")
      ->check(CLI::IsMember({"colour", "displacement", "scalar", "vector"}))
      ->capture_default_str();
  command->add_option("--y", options->height, "Height of the points of --grid, metres")
      ->capture_default_str();
  command
      ->add_option("--smooth-size", options->smoothSize,
                   "Filter footprint of a sample, metres; 0 filters nothing")
      ->check(CLI::Range(0.0, 1e9));
  command->add_option("-o,--output", options->output, "File to write; - is standard output");
  command->add_flag("--json", options->json, "Print JSON lines whatever the input");
}

}  // namespace ovapp
