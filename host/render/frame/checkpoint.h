// Checkpoints: the film of a stopped render, so that it can go on to the same bytes.
#pragma once

#include <string>

#include "host/render/frame/film.h"

namespace ovhost {

/// What a checkpoint belongs to; a different one is refused.
struct CheckpointKey {
  std::uint64_t projectHash = 0, seed = 0;
  double frame = 0;
  std::int32_t area[4] = {0, 0, 0, 0}, fullWidth = 0, fullHeight = 0;
};

/// The file beside an output.
OV_API std::string CheckpointPath(const std::string& output);
/// Writes atomically; empty, or why it failed.
OV_API std::string WriteCheckpoint(const std::string& path, const CheckpointKey& key, const Film& film);

enum class CheckpointState { kNone, kLoaded, kOther, kDamaged };
/// Fills the film from the file where it belongs to the key.
OV_API CheckpointState ReadCheckpoint(const std::string& path, const CheckpointKey& key, Film& film);

}  // namespace ovhost
