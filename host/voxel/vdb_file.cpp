#include "host/voxel/vdb_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <tuple>

#include "host/base/atomic_file.h"
#include "host/base/child_process.h"
#include "host/base/memory.h"
#include "host/voxel/codec/vdb_protocol.h"

namespace ovhost {
namespace {

constexpr int kMostLevels = 16;

std::string FillRequest(VdbRequest& request, const std::string& path, const std::string& grid) {
  if (path.size() >= sizeof request.path) return "the path is too long";
  if (grid.size() >= sizeof request.grid) return "the grid's name is too long";
  std::memcpy(request.magic, kVdbMagic, sizeof request.magic);
  std::memcpy(request.path, path.data(), path.size());
  std::memcpy(request.grid, grid.data(), grid.size());
  request.freeMemory = FreeMemory();
  return {};
}

bool IsAnswer(const VdbAnswer& answer) {
  return std::memcmp(answer.magic, kVdbMagic, sizeof answer.magic) == 0;
}

std::string ProblemOf(VdbAnswer& answer) {
  answer.problem[sizeof answer.problem - 1] = 0;
  return answer.problem[0] ? answer.problem : "it can't be read";
}

trTransform<double> TransformOf(const double rows[16]) {
  trMatrix4x4<double> matrix;
  for (int i = 0; i < 16; ++i) matrix.m[i / 4][i % 4] = rows[i];
  return trTransform<double>(matrix);
}

/// The bricks that follow an answer.
bool ReceiveBricks(ChildProcess& child, const VdbAnswer& answer, SparseGrid& grid) {
  struct Kept {
    VdbBrick head;
    size_t values;
  };
  std::vector<Kept> bricks;
  std::vector<float> values;
  std::int64_t least[3] = {INT32_MAX, INT32_MAX, INT32_MAX}, most[3] = {INT32_MIN, INT32_MIN, INT32_MIN};
  if (answer.bricks < 0 || answer.bricks > 2 * kMostVdbBricks) return false;
  for (std::int64_t i = 0; i < answer.bricks; ++i) {
    Kept kept{{}, values.size()};
    if (!child.Receive(&kept.head, sizeof kept.head)) return false;
    if (kept.head.hasValues) {
      values.resize(values.size() + kVdbBrickCells);
      if (!child.Receive(values.data() + kept.values, sizeof(float) * kVdbBrickCells)) return false;
    }
    for (int axis = 0; axis < 3; ++axis) {
      least[axis] = std::min<std::int64_t>(least[axis], kept.head.brick[axis]);
      most[axis] = std::max<std::int64_t>(most[axis], kept.head.brick[axis]);
    }
    bricks.push_back(kept);
  }
  int first[3] = {0, 0, 0}, count[3] = {0, 0, 0};
  double span = 1;
  for (int axis = 0; axis < 3 && !bricks.empty(); ++axis) {
    span *= static_cast<double>(most[axis] - least[axis] + 1);
    if (span > static_cast<double>(kMostVdbBricks)) return false;
    first[axis] = static_cast<int>(least[axis]);
    count[axis] = static_cast<int>(most[axis] - least[axis] + 1);
  }
  grid.Init(first, count, answer.background);
  for (const Kept& kept : bricks)
    grid.SetBrick(kept.head.brick, kept.head.hasValues ? values.data() + kept.values : nullptr,
                  kept.head.value);
  return true;
}

std::shared_ptr<const PlacedGrid> ReadAnew(const std::string& path, const std::string& name,
                                           std::string& problem) {
  VdbRequest request;
  ChildProcess child("ovvdb");
  problem = FillRequest(request, path, name);
  if (problem.empty()) problem = child.Start();
  if (!problem.empty()) return nullptr;
  VdbAnswer answer;
  auto placed = std::make_shared<PlacedGrid>();
  const char* const damaged = "the file is damaged in a way that its reader doesn't survive";
  if (!child.Send(&request, sizeof request) || !child.Receive(&answer, sizeof answer) || !IsAnswer(answer))
    return problem = damaged, nullptr;
  if (!answer.isDone) return problem = ProblemOf(answer), nullptr;
  placed->levels.resize(1);
  if (!ReceiveBricks(child, answer, placed->levels[0])) return problem = damaged, nullptr;
  placed->toWorld = TransformOf(answer.toWorld);
  placed->activeCells = answer.activeCells;
  double edge = 1e300;
  for (int axis = 0; axis < 3; ++axis) {
    trVector unit;
    unit[axis] = 1;
    edge = std::min(edge, placed->toWorld.Direction(unit).Length());
  }
  if (!(edge > 1e-12) || !std::isfinite(edge)) return problem = "its voxels have no size", nullptr;
  placed->edge = edge;
  while (placed->levels.size() < kMostLevels) {
    const SparseGrid& last = placed->levels.back();
    if (last.IsEmpty() || (last.NumBricks(0) <= 1 && last.NumBricks(1) <= 1 && last.NumBricks(2) <= 1)) break;
    placed->levels.push_back(last.Halved());
  }
  return placed;
}

}  // namespace

std::shared_ptr<const PlacedGrid> ReadVdb(const std::string& path, const std::string& grid,
                                          std::string& problem) {
  using Key = std::tuple<dev_t, ino_t, off_t, std::int64_t, std::string>;
  static std::mutex mutex;
  static std::map<Key, std::weak_ptr<const PlacedGrid>> known;
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return problem = std::strerror(errno), nullptr;
  if (!S_ISREG(status.st_mode)) return problem = "it isn't a file", nullptr;
  const Key key{status.st_dev, status.st_ino, status.st_size,
                status.st_mtim.tv_sec * 1000000000LL + status.st_mtim.tv_nsec, grid};
  const std::lock_guard lock(mutex);
  std::erase_if(known, [](const auto& entry) { return entry.second.expired(); });
  if (const auto entry = known.find(key); entry != known.end())
    if (auto placed = entry->second.lock()) return placed;
  auto placed = ReadAnew(path, grid, problem);
  if (placed) known[key] = placed;
  return placed;
}

std::string WriteVdb(const std::string& path, const std::string& grid, const trMatrix4x4<double>& toWorld,
                     const std::vector<std::unique_ptr<VdbBrickValues>>& bricks, bool isHalf,
                     VdbWritten& written) {
  AtomicFile file(path);
  if (!file.Problem().empty()) return file.Problem();
  VdbRequest request;
  ChildProcess child("ovvdb");
  std::string problem = FillRequest(request, file.TemporaryPath(), grid);
  if (problem.empty()) problem = child.Start();
  if (!problem.empty()) return path + ": " + problem;
  request.isWrite = 1;
  request.isHalf = isHalf;
  request.bricks = static_cast<std::int64_t>(bricks.size());
  std::strncpy(request.creator, "ovstd", sizeof request.creator - 1);
  for (int i = 0; i < 16; ++i) request.toWorld[i] = toWorld.m[i / 4][i % 4];
  bool isSent = child.Send(&request, sizeof request);
  for (size_t i = 0; i < bricks.size() && isSent; ++i) {
    VdbBrick head;
    std::copy(bricks[i]->brick, bricks[i]->brick + 3, head.brick);
    head.hasValues = 1;
    isSent = child.Send(&head, sizeof head) && child.Send(bricks[i]->values, sizeof bricks[i]->values);
  }
  VdbAnswer answer;
  if (!child.Receive(&answer, sizeof answer) || !IsAnswer(answer))
    return path + ": can't be written: its writer ended early";
  if (!answer.isDone) return path + ": can't be written: " + ProblemOf(answer);
  written = {answer.activeCells, answer.bytes};
  file.Adopt();
  return file.Commit();
}

}  // namespace ovhost
