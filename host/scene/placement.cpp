// Placing a scene maker other than by its position: by angles seen from the origin, and by a motion file.
#include <charconv>
#include <sstream>
#include <string>

#include "core/guarded.h"
#include "core/scene_maker.h"
#include "host/base/plain_file.h"

void juSceneMaker::DeclareAngularPositionParams() {
  hasAngularPosition_ = true;
  Param(angularHeading_, "angular_heading", 0.0)
      .Display("Heading")
      .NotSaved()
      .About(
          "Compass direction of the object seen from the world's origin, degrees. Follows the position, and "
          "sets it.");
  Param(angularElevation_, "angular_elevation", 0.0)
      .Display("Elevation")
      .NotSaved()
      .About(
          "Height of the object over the horizon of the world's origin, degrees. Follows the position, and "
          "sets it.");
  Param(angularDistance_, "angular_distance", 0.0)
      .Display("Distance")
      .NotSaved()
      .About("Distance from the world's origin, metres. Follows the position, and sets it.");
}

void juSceneMaker::CoupleAngularPosition(long index, const char* positionParam) {
  if (!hasAngularPosition_ || isCoupling_) return;
  long positionIndex;
  trVector position;
  if (!FindParam(positionIndex, positionParam) || !GetParam(positionIndex, position)) return;

  isCoupling_ = true;
  if (index == positionIndex) {
    const double distance = position.Length();
    const double sine = std::clamp(GuardedDivide(position.y, distance), -1.0, 1.0);
    SetParam("angular_heading", std::atan2(position.x, position.z) * kRadiansToDegrees, this);
    SetParam("angular_elevation", std::asin(sine) * kRadiansToDegrees, this);
    SetParam("angular_distance", distance, this);
  } else if (IsParam(index, &angularHeading_) || IsParam(index, &angularElevation_) ||
             IsParam(index, &angularDistance_)) {
    const double heading = angularHeading_ * kDegreesToRadians;
    const double elevation = angularElevation_ * kDegreesToRadians;
    const trVector direction(std::cos(elevation) * std::sin(heading), std::sin(elevation),
                             std::cos(elevation) * std::cos(heading));
    SetParam(positionIndex, direction * angularDistance_, this);
  }
  isCoupling_ = false;
}

void juSceneMaker::DeclareImportMotionFileParams(bool withTransform) {
  importsRotation_ = withTransform;
  Param(motionFile_, "motion_file", "")
      .About(
          "Text file of an object's path: a frame, a position and perhaps a rotation a line. Its button "
          "makes keys of it.");
  Gui(trGuiButtonRowOpen);
  Gui(trGuiRowOpen);
  PushButton(motionButton_, "import_motion");
  Gui(trGuiButtonRowClose);
}

namespace {

/// In bytes: a day of frames, several times over.
constexpr std::uint64_t kLongestMotionFile = 256 << 20;

struct MotionLine {
  double frame;
  trVector position, rotation;
};

/// Reads the numbers of a line: the frame, a position, and a rotation that may be left out.
bool ParseMotionLine(const std::string& line, MotionLine& out) {
  double numbers[7] = {};
  int count = 0;
  const char* at = line.data();
  const char* const end = at + line.size();
  for (;;) {
    while (at < end && (*at == ' ' || *at == '\t' || *at == ',' || *at == '\r')) ++at;
    if (at == end) break;
    if (count == 7) return false;
    const auto [rest, error] = std::from_chars(at, end, numbers[count]);
    if (error != std::errc() || !std::isfinite(numbers[count])) return false;
    ++count;
    at = rest;
  }
  out = {numbers[0], {numbers[1], numbers[2], numbers[3]}, {numbers[4], numbers[5], numbers[6]}};
  return count == 4 || count == 7;
}

}  // namespace

long juSceneMaker::ImportMotion(const char* positionParam, const char* rotationParam) {
  const trScopedErrorsWarningsContext context(this);
  const trString path = motionFile_.FullPath();
  std::string whole, problem;
  if (path.empty() || !ovhost::ReadPlainFile(path, kLongestMotionFile, whole, problem)) {
    trError(path.empty() ? trString("No motion file is set.")
                         : path + ": the motion file can't be read: " + problem);
    return 0;
  }
  std::istringstream in(whole);

  // The whole file is read before anything is keyed, so that a bad line costs nothing.
  std::vector<MotionLine> lines;
  std::string text;
  for (long number = 1; std::getline(in, text); ++number) {
    if (text.find_first_not_of(" \t\r") == std::string::npos || text[0] == '#') continue;
    MotionLine line;
    if (!ParseMotionLine(text, line)) {
      trError(path + ", line " + std::to_string(number) +
              ": expected a frame, a position and perhaps a rotation, as 4 or 7 numbers.");
      return 0;
    }
    lines.push_back(line);
  }
  if (lines.empty()) {
    trError(path + ": the motion file has no frames.");
    return 0;
  }

  const auto key = [&](const char* param, const trVector& value, double frame) {
    long index;
    if (!FindParam(index, param) || !SetParam(index, value, this)) return;
    for (int component = 0; component < 3; ++component)
      SetParamKey(index, component, frame, static_cast<int>(trAnimationInterpolationMode::kLinear));
  };
  for (const MotionLine& line : lines) {
    key(positionParam, line.position, line.frame);
    if (importsRotation_) key(rotationParam, line.rotation, line.frame);
  }
  return 1;
}
