// Saved render jobs as files.
#include "host/session/checkpoint.h"

#include <unistd.h>

#include <algorithm>

#include "host/base/atomic_file.h"
#include "host/base/plain_file.h"

namespace ovhost {

std::string CheckpointPath(const std::string& output) { return output + ".ovcheckpoint"; }

std::string WriteCheckpoint(const std::string& path, RenderJob& job) {
  AtomicFile file(path);
  job.Save([&file](const void* data, std::uint64_t size) {
    file.Write(data, size);
    return file.Problem().empty();
  });
  return file.Commit();
}

CheckpointState ReadCheckpoint(const std::string& path, RenderJob& job) {
  PlainFile file(path);
  if (file.IsMissing()) return CheckpointState::kNone;
  switch (job.Resume([&file](void* data, std::uint64_t size) { return file.Read(data, size); })) {
    case RenderJob::Resumed::kLoaded:
      return CheckpointState::kLoaded;
    case RenderJob::Resumed::kOther:
      return CheckpointState::kOther;
    case RenderJob::Resumed::kDamaged:
      break;
  }
  return CheckpointState::kDamaged;
}

void RemoveCheckpoint(const std::string& path, const RenderJob& job) {
  PlainFile file(path);
  if (job.IsOfThisJob([&file](void* data, std::uint64_t size) { return file.Read(data, size); }))
    unlink(path.c_str());
}

}  // namespace ovhost
