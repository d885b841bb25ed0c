// Points to evaluate a node at, read from CSV or JSON lines.
#pragma once

#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "core/api.h"
#include "core/vector.h"

namespace ovhost {

struct EvalPoint {
  trVector position;         ///< world, metres
  trVector normal{0, 1, 0};  ///< unit
};

struct PointList {
  std::vector<EvalPoint> points;
  bool isJson = false;  ///< the input was JSON lines
};

/// Reads lines of `x y z [nx ny nz]`, numbers separated by commas, semicolons or blanks, or JSON lines of
/// arrays of such numbers or of objects {"point": [x, y, z], "normal": [x, y, z]} or {"x": x, "y": y, "z": z,
/// "nx": x, "ny": y, "nz": z}. Empty lines, lines that begin with '#' and a heading are passed over. Throws a
/// SessionError that names the line. Thread-safe.
OV_API PointList ReadPoints(std::istream& in, const std::string& name);

}  // namespace ovhost
