// Rendering one frame of a project to picture files.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/api.h"
#include "core/project.h"

namespace ovhost {

/// A rectangle of pixels, x1 and y1 excluded; y counts from the top.
struct PixelRect {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
};

enum class Engine { kStandard, kPath };

enum class ResumeMode { kAuto, kNever, kRequire };

/// What a command line says over the render node's own settings. Unset ones come from the node.
struct RenderSettings {
  std::string output;              ///< picture path; its extension chooses the format
  std::string renderNode, camera;  ///< paths or names; empty takes the project's first
  std::optional<Engine> engine;
  std::optional<int> width, height, samples;
  std::optional<PixelRect> crop;  ///< in pixels of the full picture
  double frame = 1;
  std::uint64_t seed = 0;
  int threads = 0;                ///< 0: all cores
  std::uint64_t memoryBytes = 0;  ///< budget; 0: three quarters of what is free
  double timeLimitSeconds = 0;    ///< 0: none; the frame is written as far as it is
  /// Noise, as a share of brightness, at which a part of the picture takes no more samples; 0 for never.
  std::optional<double> noiseLimit;
  bool writeEveryPass = true;  ///< a usable file after each pass
  ResumeMode resume = ResumeMode::kAuto;
  std::uint64_t projectHash = 0;  ///< of the project as loaded and overridden; ties checkpoints to it
  std::string sceneName;          ///< for the picture's metadata
  /// When the scene was last changed, "YYYY:MM:DD hh:mm:ss" in UTC: the picture's date. The time of rendering
  /// would give the same picture other bytes.
  std::string sceneTime = "1970:01:01 00:00:00";
  /// Smooths what noise is left, guided by the layers albedo and normal, which are then made as well.
  std::optional<bool> denoise;
  std::vector<std::string> layers;  ///< AOVs written besides beauty and alpha, EXR only; {"all"} for all
};

enum class RenderOutcome {
  kDone,
  kFailed,        ///< a message told why
  kOutputFailed,  ///< the picture could not be written
  kMemoryLimit,   ///< the budget is too small even for the coarsest dicing
  kStopped,       ///< a stop was asked for; a checkpoint lies beside the output
  kTimeLimit      ///< the time limit ended the frame early; the picture is written
};

struct RenderStatistics {
  double seconds = 0, firstPictureSeconds = 0, diceSeconds = 0;
  std::uint64_t vertices = 0, displacements = 0, cameraRays = 0, shadowRays = 0, bounceRays = 0,
                volumeSamples = 0;
  std::uint64_t gridBytes = 0, peakBytes = 0;
  int samplesDone = 0;
};

/// Asks of a running render. Set from signal handlers or other threads.
struct RenderControl {
  std::atomic<bool> stop{false};      ///< write a checkpoint and stop
  std::atomic<bool> writeNow{false};  ///< write the picture so far and go on
};

/// Renders. Messages go through trError and trWarning; progress through the progress sink with the render
/// node as context. Main thread only; uses its own workers.
OV_API RenderOutcome RenderFrame(juProject& project, const RenderSettings& settings, RenderControl& control,
                                 RenderStatistics* statistics = nullptr);

/// The layer names RenderSettings::layers may hold.
OV_API const std::vector<std::string>& LayerNames();

}  // namespace ovhost
