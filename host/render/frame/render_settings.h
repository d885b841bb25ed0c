// What a render is asked for, and what it tells of itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ovhost {

/// A rectangle of pixels, x1 and y1 excluded; y counts from the top.
struct PixelRect {
  int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool operator==(const PixelRect&) const = default;
};

enum class Engine { kStandard, kPath };

/// What is said over the render node's own settings. Unset ones come from the node.
struct RenderJobSettings {
  std::string renderNode, camera;  ///< paths or names; empty takes the project's first
  std::optional<Engine> engine;
  std::optional<int> width, height, samples;
  std::optional<PixelRect> crop;  ///< in pixels of the full picture
  double frame = 1;
  std::uint64_t seed = 0;
  int threads = 0;                ///< 0: as many as the session takes
  std::uint64_t memoryBytes = 0;  ///< budget; 0: three quarters of what is free
  /// Noise, as a share of brightness, at which a part of the picture takes no more samples; 0 for never.
  std::optional<double> noiseLimit;
  /// Smooths what noise is left, guided by the layers albedo and normal, which are then made as well.
  std::optional<bool> denoise;
  std::vector<std::string> layers;  ///< besides beauty and alpha; {"all"} for all
  /// Samples of depth that a pixel has at most; 0 for a flat picture. A deep one has no further layers and
  /// isn't denoised.
  int deepSamples = 0;
  /// Stands for all that the picture is made from. What was saved of another scene isn't gone on with.
  std::uint64_t sceneKey = 0;
};

enum class RenderOutcome {
  kDone,
  kFailed,        ///< a message told why
  kOutputFailed,  ///< a file could not be written; a message told why
  kMemoryLimit,   ///< the budget is too small even for the coarsest dicing
  kStopped,       ///< a stop was asked for
  kTimeLimit      ///< the time limit ended the frame early
};

struct RenderStatistics {
  double seconds = 0, firstPictureSeconds = 0, diceSeconds = 0;
  std::uint64_t vertices = 0, displacements = 0, cameraRays = 0, shadowRays = 0, bounceRays = 0,
                volumeSamples = 0;
  std::uint64_t gridBytes = 0, peakBytes = 0;
  std::uint64_t deepSamples = 0;  ///< that the deep picture has so far
  int samplesDone = 0;            ///< that all pixels have which take more
};

/// Asks of a running render. Set from signal handlers or other threads.
struct RenderControl {
  std::atomic<bool> stop{false};      ///< end long work soon; what is done is kept
  std::atomic<bool> pause{false};     ///< end the pass in hand soon, to go on with it later
  std::atomic<bool> writeNow{false};  ///< write the picture so far and go on
  std::atomic<bool> timeUp{false};    ///< it is a time limit that has set `stop`
  std::atomic<bool> cancelled{false};

  // Safe in signal handlers.
  /// A stop that outlasts time limits.
  void Cancel() {
    cancelled = true;
    stop = true;
  }
  void WriteNow() {
    writeNow = true;
    pause = true;
  }
};

}  // namespace ovhost
