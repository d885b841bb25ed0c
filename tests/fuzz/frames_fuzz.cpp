// Foreign text as a range of frames, and as a picture's name with places for a frame's number.
#include <set>
#include <string>

#include "host/session/frames.h"
#include "host/session/session_error.h"
#include "tests/fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = InputText(data, size);
  Check(ovhost::FramePath(text, 7).empty() == text.empty());
  if (!ovhost::HasFramePlace(text)) Check(ovhost::FramePath(text, 7) == text);
  try {
    const std::vector<long> frames = ovhost::ParseFrames(text);
    Check(!frames.empty() && frames.size() <= 1000000);
    Check(std::set<long>(frames.begin(), frames.end()).size() == frames.size());
    if (frames.size() > 1000) return 0;
    std::string list;
    for (const long frame : frames) list += (list.empty() ? "" : ",") + std::to_string(frame);
    Check(ovhost::ParseFrames(list) == frames);
  } catch (const ovhost::SessionError& error) {
    Check(*error.what() != 0);
  }
  return 0;
}
