// Checkpoint files: saved render jobs beside the picture that they are to become.
#pragma once

#include <string>

#include "host/render/frame/render_job.h"

namespace ovhost {

/// The file beside an output.
OV_API std::string CheckpointPath(const std::string& output);
/// Writes atomically; empty, or why it failed.
OV_API std::string WriteCheckpoint(const std::string& path, RenderJob& job);

enum class CheckpointState {
  kNone,
  kLoaded,
  kOther,   ///< of another scene, program or frame
  kDamaged  ///< or no plain file
};
/// Takes up the job from the file where it is its own.
OV_API CheckpointState ReadCheckpoint(const std::string& path, RenderJob& job);
/// Removes the file where it is the job's.
OV_API void RemoveCheckpoint(const std::string& path, const RenderJob& job);

}  // namespace ovhost
