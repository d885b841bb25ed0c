// What signals mean while a picture is rendered, or other long work is under way.
#pragma once

#include "host/render/frame/render.h"

namespace ovapp {

/// While it lives, USR1 asks `control` for the picture so far, INT and TERM ask it to stop; a second INT or
/// TERM ends the program at once. One at a time; main thread only.
class RenderSignals {
 public:
  explicit RenderSignals(ovhost::RenderControl& control);
  ~RenderSignals();
  RenderSignals(const RenderSignals&) = delete;
  RenderSignals& operator=(const RenderSignals&) = delete;
};

/// The signal that asked to stop last, or 0.
int StopSignal();

}  // namespace ovapp
