#include "host/voxel/vdb_export.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>

#include "core/voxel.h"
#include "host/base/memory.h"
#include "host/base/parallel.h"
#include "host/voxel/vdb_file.h"

namespace ovhost {
namespace {

using Clock = std::chrono::steady_clock;

double Since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// The cells of the file: straight ones, of the buffer's edges at its middle. A grid that is bent round a
/// planet needs more of them to lie in a box.
struct Cells {
  int size[3];
  trMatrix4x4<double> toWorld;  ///< from coordinates in which a cell's centre is an integer
  double edge[3];
};

bool StraightCells(const trVoxelBuffer& buffer, Cells& cells, std::string& problem) {
  const trVoxelProjector& projector = *buffer.Projector();
  const trTransform<double> frame = projector.GetTransformLocalToWorld();
  const int size[3] = {buffer.SizeX(), buffer.SizeY(), buffer.SizeZ()};
  // The box of the grid in the frame, from points all over its boundary and inside.
  trBoundingBox box({0, 0, 0}, {1, 1, 1});
  if (!projector.IsLinear()) {
    constexpr int kPoints = 17;
    box = trBoundingBox();
    for (int i = 0; i < kPoints * kPoints * kPoints; ++i) {
      trVector world;
      projector.MapLocalToWorld(
          trVector(i % kPoints, i / kPoints % kPoints, i / kPoints / kPoints) / (kPoints - 1.0), world);
      box.Union(frame.inverse.Point(world));
    }
  }
  double total = 1;
  trVector unit;
  for (int axis = 0; axis < 3; ++axis) {
    const double count = std::ceil(box.Size()[axis] * size[axis] - 1e-6);
    if (!(count >= 1) || !std::isfinite(count)) return problem = "its grid has no size", false;
    total *= count;
    if (total > 2147483648.0) break;
    cells.size[axis] = static_cast<int>(count);
    unit[axis] = 1.0 / size[axis];
  }
  if (total > 2147483648.0) {
    problem = "its grid has " + std::to_string(static_cast<long long>(total / 1e6)) +
              " million cells; up to 2147 million can be exported";
    return false;
  }
  const trTransform<double> steps =
      frame * trTranslate(box.min) * trScale(unit.x, unit.y, unit.z) * trTranslate({0.5, 0.5, 0.5});
  cells.toWorld = steps.forward;
  for (int axis = 0; axis < 3; ++axis) {
    trVector along;
    along[axis] = 1;
    cells.edge[axis] = steps.Direction(along).Length();
    if (!(cells.edge[axis] > 0) || !std::isfinite(cells.edge[axis]))
      return problem = "its grid has no size", false;
  }
  return true;
}

/// Ends the server with the export.
class Server {
 public:
  explicit Server(trBase& node)
      : node_(node),
        server_(static_cast<trVoxelServer*>(node.RequestMember("begin voxel server for export"))) {}
  ~Server() {
    if (server_) node_.RequestMember("end voxel server");
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  trVoxelServer* operator->() const { return server_; }
  explicit operator bool() const { return server_ != nullptr; }

 private:
  trBase& node_;
  trVoxelServer* server_;
};

class Bake {
 public:
  Bake(const Cells& cells, std::vector<trVoxelServerThread*> threads, const VdbExportOptions& options)
      : cells_(cells), threads_(std::move(threads)), options_(options), budget_(FreeMemory() / 2) {
    for (int axis = 0; axis < 3; ++axis) bricks_[axis] = (cells.size[axis] - 1) / SparseGrid::kEdge + 1;
  }

  std::string Run(int threads) {
    const size_t rows = size_t(bricks_[1]) * bricks_[2];
    found_.resize(rows);
    WithThreads(threads, [&] { ParallelFor(rows, [&](size_t row) { BakeRow(row); }); });
    if (IsStopped()) return "stopped; what stood there is as it was";
    if (isFull_)
      return "its cells with something in them take more than " + std::to_string(budget_ / 1000000) +
             " MB, half of the memory that is free";
    return {};
  }

  /// In the order of rows, whoever baked them.
  std::vector<std::unique_ptr<VdbBrickValues>> Take() {
    std::vector<std::unique_ptr<VdbBrickValues>> all;
    for (auto& row : found_) std::move(row.begin(), row.end(), std::back_inserter(all));
    return all;
  }

 private:
  bool IsStopped() const { return options_.stop && *options_.stop; }

  void BakeRow(size_t row) {
    if (IsStopped() || isFull_) return;
    trVoxelServerThread& worker = *threads_[ThreadSlot()];
    auto brick = std::make_unique<VdbBrickValues>();
    for (int x = 0; x < bricks_[0]; ++x) {
      const int at[3] = {x, static_cast<int>(row % bricks_[1]), static_cast<int>(row / bricks_[1])};
      if (!BakeBrick(worker, at, *brick)) continue;
      if (IsStopped() || taken_.fetch_add(sizeof *brick) > budget_) {
        isFull_ = isFull_ || !IsStopped();
        return;
      }
      found_[row].push_back(std::move(brick));
      brick = std::make_unique<VdbBrickValues>();
    }
    const std::lock_guard lock(mutex_);
    if (options_.progress)
      options_.progress("Baking", static_cast<double>(++done_) / static_cast<double>(found_.size()));
  }

  /// Whether there is anything in it.
  bool BakeBrick(trVoxelServerThread& worker, const int at[3], VdbBrickValues& brick) const {
    bool hasAny = false;
    for (int i = 0; i < SparseGrid::kCells; ++i) {
      const int cell[3] = {at[0] * 8 + (i & 7), at[1] * 8 + (i >> 3 & 7), at[2] * 8 + (i >> 6)};
      brick.values[i] = 0;
      if (cell[0] >= cells_.size[0] || cell[1] >= cells_.size[1] || cell[2] >= cells_.size[2]) continue;
      const std::int64_t number =
          (std::int64_t(cell[2]) * cells_.size[1] + cell[1]) * cells_.size[0] + cell[0];
      const trFCol value = worker.ValueAt(cells_.toWorld.Point(trVector(cell[0], cell[1], cell[2])),
                                          static_cast<unsigned>(number));
      const float mean = (value.r + value.g + value.b) / 3;
      if (!std::isfinite(mean) || mean == 0) continue;
      brick.values[i] = mean;
      hasAny = true;
    }
    std::copy(at, at + 3, brick.brick);
    return hasAny;
  }

  const Cells& cells_;
  const std::vector<trVoxelServerThread*> threads_;
  const VdbExportOptions& options_;
  const std::uint64_t budget_;
  int bricks_[3];
  std::vector<std::vector<std::unique_ptr<VdbBrickValues>>> found_;  ///< by rows of bricks
  std::atomic<std::uint64_t> taken_{0};
  std::atomic<bool> isFull_{false};
  std::mutex mutex_;
  size_t done_ = 0;
};

}  // namespace

bool HasVoxelServer(trBase& node) { return node.IsTrue("has_voxel_server"); }

std::string ExportVdb(trBase& node, const std::string& path, const VdbExportOptions& options,
                      VdbExport& result) {
  const auto* buffer = static_cast<const trVoxelBuffer*>(node.RequestMember("voxel info for export"));
  if (!buffer || buffer->IsEmpty())
    return node.NameAndPath() + ": has no grid to export: too many cells, or none";
  Cells cells;
  std::string problem;
  if (!StraightCells(*buffer, cells, problem)) return node.NameAndPath() + ": " + problem;
  trNoRenderServices services;
  const Server server(node);
  if (!server) return node.NameAndPath() + ": offers no bake";
  const Clock::time_point start = Clock::now();
  const int count = std::max(1, trNumCoresToUse());
  std::vector<trVoxelServerThread*> threads;
  VdbExport made;
  // Workers are known by the slots of threads.
  const auto slots = std::max<unsigned>(static_cast<unsigned>(count), NumThreadSlots());
  for (unsigned i = 0; i < slots; ++i) {
    threads.push_back(server->NewThread(services));
    if (!threads.back()) return node.NameAndPath() + ": there is no memory for the bake";
  }
  Bake bake(cells, std::move(threads), options);
  problem = bake.Run(count);
  if (!problem.empty()) return path + ": " + problem;
  made.bakeSeconds = Since(start);
  const Clock::time_point baked = Clock::now();
  if (options.progress) options.progress("Writing " + path, 1);
  VdbWritten written;
  problem = WriteVdb(path, options.grid, cells.toWorld, bake.Take(), options.isHalf, written);
  if (!problem.empty()) return problem;
  made.writeSeconds = Since(baked);
  std::copy(cells.size, cells.size + 3, made.size);
  std::copy(cells.edge, cells.edge + 3, made.edge);
  made.cells = std::int64_t(cells.size[0]) * cells.size[1] * cells.size[2];
  made.activeCells = written.activeCells;
  made.bytes = written.bytes;
  result = made;
  return {};
}

}  // namespace ovhost
