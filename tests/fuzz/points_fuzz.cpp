// Foreign bytes as a list of points to evaluate at.
#include <charconv>
#include <cmath>
#include <sstream>
#include <string>

#include "host/session/points.h"
#include "host/session/session_error.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

std::string Text(double value) {
  char text[40];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream in(InputText(data, size));
  try {
    const ovhost::PointList list = ovhost::ReadPoints(in, "fuzz");
    Check(list.points.size() <= size);
    // What was read is finite, and reads back as it is.
    std::string again;
    for (const ovhost::EvalPoint& point : list.points) {
      for (const double v : {point.position.x, point.position.y, point.position.z}) {
        Check(std::isfinite(v));
        again += Text(v) + " ";
      }
      Check(std::fabs(point.normal.Length() - 1) < 1e-9);
      again += "\n";
    }
    std::istringstream second(again);
    const ovhost::PointList reread = ovhost::ReadPoints(second, "again");
    Check(reread.points.size() == list.points.size());
    for (std::size_t i = 0; i < list.points.size(); ++i)
      Check(reread.points[i].position == list.points[i].position);
  } catch (const ovhost::SessionError& error) {
    Check(*error.what() != 0);
  }
  return 0;
}
