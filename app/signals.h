// What signals mean, from the program's first instruction to its last.
#pragma once

#include "host/render/frame/render_settings.h"

namespace ovapp {

/// Before anything else: USR1, which asks for a picture, ends nothing where there is none.
void InstallSignals();

/// While it lives, USR1 asks `control` for the picture so far; INT, TERM, QUIT, HUP and XCPU ask it to stop,
/// and a second INT, TERM or QUIT ends the program at once. A HUP that is ignored, as under nohup, stays so.
/// What comes after its life changes nothing any more: the work is done. Without one, signals do what the
/// system has them do. One at a time; main thread only.
class RenderSignals {
 public:
  explicit RenderSignals(ovhost::RenderControl& control);
  ~RenderSignals();
  RenderSignals(const RenderSignals&) = delete;
  RenderSignals& operator=(const RenderSignals&) = delete;
};

/// The signal that asked to stop first, or 0.
int StopSignal();

}  // namespace ovapp
