// Rendering one frame of a project to a picture file.
#pragma once

#include <optional>
#include <string>

#include "core/project.h"
#include "host/render/frame/render_settings.h"

namespace ovhost {

enum class ResumeMode { kAuto, kNever, kRequire };

/// A job's settings, and what its files need.
struct RenderSettings : RenderJobSettings {
  std::string output;           ///< picture path; its extension chooses the format
  double timeLimitSeconds = 0;  ///< 0: none; the frame is written as far as it is
  bool writeEveryPass = true;   ///< a usable file after the first pass, and every few seconds then
  /// Between checkpoints, so that no more than that can be lost; 0: one after each pass. None are written on
  /// the way where it isn't set.
  std::optional<double> checkpointSeconds = 180;
  ResumeMode resume = ResumeMode::kAuto;
  std::string sceneName;  ///< for the picture's metadata
  /// When the scene was last changed, "YYYY:MM:DD hh:mm:ss" in UTC: the picture's date. The time of rendering
  /// would give the same picture other bytes.
  std::string sceneTime = "1970:01:01 00:00:00";
};

/// Renders. A checkpoint lies beside the output while it isn't finished: every few minutes one is written,
/// and where a stop (kStopped) or the time limit (kTimeLimit) ends the render, which goes on from it to the
/// same bytes later. Messages and progress are the job's. Main thread only; uses its own workers.
OV_API RenderOutcome RenderFrame(juProject& project, const RenderSettings& settings, RenderControl& control,
                                 RenderStatistics* statistics = nullptr);

/// Whether the picture of that path is there and was finished: it says so itself, and no checkpoint lies
/// beside it.
OV_API bool IsFinishedPicture(const std::string& path);

}  // namespace ovhost
