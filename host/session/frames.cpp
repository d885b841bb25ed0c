// Frame ranges, and picture names with frame numbers.
#include "host/session/frames.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "core/project.h"
#include "host/session/session_error.h"

namespace ovhost {
namespace {

constexpr size_t kMaxFrames = 1000000;
constexpr long kMaxFrame = 100000000;

/// Reads a whole number at `at` and steps over it; false where there is none.
bool TakeNumber(const char*& at, const char* end, long& value) {
  const auto [next, error] = std::from_chars(at, end, value);
  if (error != std::errc() || std::abs(value) > kMaxFrame) return false;
  at = next;
  return true;
}

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// One item, FIRST, FIRST-LAST or FIRST-LASTxSTEP, onto `frames`; ".." does for the dash.
bool AddFrames(const std::string& item, std::vector<long>& frames) {
  const char* at = item.data();
  const char* const end = at + item.size();
  long first = 0, last = 0, step = 1;
  if (!TakeNumber(at, end, first)) return false;
  last = first;
  const bool isDotted = end - at >= 2 && at[0] == '.' && at[1] == '.';
  if (isDotted) ++at;
  if (at < end && (isDotted || *at == '-') && !TakeNumber(++at, end, last)) return false;
  if (at < end && *at == 'x' && (!TakeNumber(++at, end, step) || step < 1)) return false;
  if (at != end || static_cast<size_t>(std::abs(last - first) / step) >= kMaxFrames - frames.size())
    return false;
  if (last >= first)
    for (long frame = first; frame <= last; frame += step) frames.push_back(frame);
  else
    for (long frame = first; frame >= last; frame -= step) frames.push_back(frame);
  return true;
}

struct Place {
  size_t begin = 0, length = 0;
  int digits = 0;
};

/// The first place for a frame number from `from` on; length 0 where there is none.
Place FindPlace(const std::string& path, size_t from) {
  for (size_t i = from; i < path.size(); ++i) {
    if (path[i] == '#') {
      size_t end = path.find_first_not_of('#', i);
      if (end == std::string::npos) end = path.size();
      return {i, end - i, static_cast<int>(end - i)};
    }
    if (path[i] != '%') continue;
    size_t at = i + 1;
    int digits = 0;
    while (at < path.size() && path[at] >= '0' && path[at] <= '9' && digits < 10)
      digits = digits * 10 + (path[at++] - '0');
    if (at < path.size() && path[at] == 'd' && digits <= 20) return {i, at + 1 - i, digits};
  }
  return {};
}

size_t FileNameBegin(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}

}  // namespace

std::vector<long> ParseFrames(const std::string& text) {
  std::vector<long> frames;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find(',', begin), text.size());
    if (!AddFrames(Trimmed(text.substr(begin, end - begin)), frames))
      throw SessionError(SessionError::kBadRequest,
                         "\"" + text + "\" is not a list of frames such as 1-10,20-40x5");
    begin = end + 1;
  }
  std::set<long> seen;
  std::erase_if(frames, [&seen](long frame) { return !seen.insert(frame).second; });
  return frames;
}

std::vector<long> ProjectFrames(const juProject& project) {
  double first = 0, last = 0;
  project.GetParam("start_frame", first);
  project.GetParam("end_frame", last);
  if (!(first <= last && std::abs(first) <= kMaxFrame && last - first < kMaxFrames))
    throw SessionError(SessionError::kBadRequest,
                       "the project's frames, " + std::to_string(std::lround(first)) + " to " +
                           std::to_string(std::lround(last)) + ", are none or over a million");
  std::vector<long> frames;
  for (long frame = std::lround(first); frame <= last; ++frame) frames.push_back(frame);
  return frames;
}

bool HasFramePlace(const std::string& path) { return FindPlace(path, FileNameBegin(path)).length > 0; }

std::string FramePath(const std::string& path, long frame) {
  std::string out = path;
  size_t from = FileNameBegin(path);
  for (Place place = FindPlace(out, from); place.length > 0; place = FindPlace(out, from)) {
    char number[48];
    std::snprintf(number, sizeof number, "%0*ld", place.digits, frame);
    out.replace(place.begin, place.length, number);
    from = place.begin + std::string(number).size();
  }
  return out;
}

}  // namespace ovhost
