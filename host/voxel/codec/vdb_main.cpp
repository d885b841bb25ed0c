// The reader and writer of VDB files: a process of its own, which may die of a damaged file.
#include <openvdb/openvdb.h>
#include <openvdb/tools/Count.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>

#include "host/base/child_limits.h"
#include "host/voxel/codec/vdb_protocol.h"

namespace {

using ovhost::VdbAnswer;
using ovhost::VdbBrick;
using ovhost::VdbRequest;

constexpr int kEdge = ovhost::kVdbBrickEdge, kCells = ovhost::kVdbBrickCells;

struct Failure {
  std::string text;
};

bool ReadAll(void* data, size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = read(0, at, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    at += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

void WriteAll(const void* data, size_t size) {
  const auto* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = write(1, at, size);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) _exit(1);
    at += put;
    size -= static_cast<size_t>(put);
  }
}

/// A grid of the file by its name; the only float grid where none is named so.
template <typename Grid>
typename Grid::Ptr CastGrid(const openvdb::GridBase::Ptr& grid) {
  return openvdb::gridPtrCast<Grid>(grid);
}

openvdb::GridBase::Ptr OpenGrid(const char* path, const std::string& name) {
  // Delayed loading would find damage when nobody expects it any more.
  openvdb::io::File file(path);
  file.open(false);
  std::string names;
  bool isThere = false;
  for (auto i = file.beginName(); i != file.endName(); ++i) {
    names += (names.empty() ? "" : ", ") + i.gridName();
    isThere = isThere || i.gridName() == name;
  }
  if (!isThere)
    throw Failure{"it has no grid '" + name + "'" +
                  (names.empty() ? ", nor any other" : "; its grids: " + names)};
  openvdb::GridBase::Ptr grid = file.readGrid(name);
  if (!grid) throw Failure{"its grid '" + name + "' can't be read"};
  return grid;
}

/// A tile of one value is as many bricks as it is large; they are counted before they are sent.
template <typename Grid, typename Take>
void ForBricks(const Grid& grid, const Take& take) {
  for (auto leaf = grid.tree().cbeginLeaf(); leaf; ++leaf) {
    const openvdb::Coord origin = leaf->origin();
    float values[kCells];
    for (int z = 0; z < kEdge; ++z)
      for (int y = 0; y < kEdge; ++y)
        for (int x = 0; x < kEdge; ++x) {
          const double value = leaf->getValue(openvdb::Coord(x, y, z));
          values[(z * kEdge + y) * kEdge + x] = std::isfinite(value) ? static_cast<float>(value) : 0.0f;
        }
    take(origin, values, values[0]);
  }
  for (auto i = grid.tree().cbeginValueOn(); i; ++i) {
    if (i.isVoxelValue()) continue;
    openvdb::CoordBBox box;
    i.getBoundingBox(box);
    const double value = static_cast<double>(*i);
    openvdb::Coord at;
    for (at[2] = box.min()[2]; at[2] <= box.max()[2]; at[2] += kEdge)
      for (at[1] = box.min()[1]; at[1] <= box.max()[1]; at[1] += kEdge)
        for (at[0] = box.min()[0]; at[0] <= box.max()[0]; at[0] += kEdge)
          take(at, nullptr, std::isfinite(value) ? static_cast<float>(value) : 0.0f);
  }
}

template <typename Grid>
void SendGrid(const Grid& grid, const VdbRequest& request, VdbAnswer& answer) {
  static_assert(Grid::TreeType::LeafNodeType::DIM == kEdge);
  if (grid.getGridClass() == openvdb::GRID_LEVEL_SET)
    throw Failure{"its grid '" + std::string(request.grid) + "' is a level set, not a density"};
  const openvdb::math::Transform& transform = grid.transform();
  if (!transform.isLinear())
    throw Failure{"its grid '" + std::string(request.grid) + "' is bent or narrows; only boxes can be read"};
  const openvdb::Mat4d matrix = transform.baseMap()->getAffineMap()->getMat4();
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) answer.toWorld[row * 4 + column] = matrix(column, row);
  answer.background = std::isfinite(grid.background()) ? static_cast<float>(grid.background()) : 0.0f;
  answer.isHalf = grid.saveFloatAsHalf();
  answer.activeCells = static_cast<std::int64_t>(grid.activeVoxelCount());

  // What it takes is known before anything is sent, tiles by their boxes alone.
  double tiles = 0;
  openvdb::CoordBBox whole;
  std::int64_t leaves = 0;
  for (auto leaf = grid.tree().cbeginLeaf(); leaf; ++leaf, ++leaves)
    whole.expand(openvdb::CoordBBox::createCube(leaf->origin(), kEdge));
  for (auto i = grid.tree().cbeginValueOn(); i; ++i) {
    if (i.isVoxelValue()) continue;
    openvdb::CoordBBox box;
    i.getBoundingBox(box);
    whole.expand(box);
    tiles += double(box.dim()[0]) * box.dim()[1] * box.dim()[2] / kCells;
  }
  double span = 1;
  for (int axis = 0; axis < 3 && !whole.empty(); ++axis)
    span *= std::ceil((double(whole.max()[axis]) - whole.min()[axis] + 1) / kEdge);
  const double bytes = double(leaves) * kCells * 4 + tiles * 8 + span * 8;
  if (span > double(ovhost::kMostVdbBricks) || tiles > double(ovhost::kMostVdbBricks))
    throw Failure{"it spans " + std::to_string(static_cast<long long>(span * kCells / 1e6)) +
                  " million voxels; up to " + std::to_string(ovhost::kMostVdbBricks * kCells / 1000000) +
                  " million can be read"};
  if (bytes * 1.3 > double(request.freeMemory) * 0.8)
    throw Failure{"it takes " + std::to_string(static_cast<long long>(bytes * 1.3 / 1e6)) +
                  " MB of memory, and " + std::to_string(request.freeMemory / 1000000) + " MB are free"};
  answer.bricks = leaves + static_cast<std::int64_t>(tiles);
  answer.isDone = 1;
  WriteAll(&answer, sizeof answer);
  ForBricks(grid, [](const openvdb::Coord& origin, const float* values, float value) {
    VdbBrick brick;
    for (int axis = 0; axis < 3; ++axis) brick.brick[axis] = origin[axis] >> 3;
    brick.value = value;
    brick.hasValues = values ? 1 : 0;
    WriteAll(&brick, sizeof brick);
    if (values) WriteAll(values, sizeof(float) * kCells);
  });
}

void Read(const VdbRequest& request, VdbAnswer& answer) {
  const openvdb::GridBase::Ptr grid = OpenGrid(request.path, request.grid);
  if (const auto floats = CastGrid<openvdb::FloatGrid>(grid)) return SendGrid(*floats, request, answer);
  if (const auto doubles = CastGrid<openvdb::DoubleGrid>(grid)) return SendGrid(*doubles, request, answer);
  throw Failure{"its grid '" + std::string(request.grid) + "' is of type " + grid->valueType() +
                "; numbers (float, half or double) are needed"};
}

bool IsAlike(float written, float read, bool isHalf) {
  const float room = isHalf ? std::max(std::fabs(written) * 0x1.1p-11f, 0x1p-24f) : 0.0f;
  return std::fabs(written - read) <= room;
}

/// The library says nothing about a full disc: what was written is read again and compared.
void Check(const openvdb::FloatGrid& written, const VdbRequest& request) {
  const std::string problem = "the file doesn't hold what was written; is the disc full?";
  const auto read = CastGrid<openvdb::FloatGrid>(OpenGrid(request.path, request.grid));
  if (!read || read->activeVoxelCount() != written.activeVoxelCount() ||
      read->tree().leafCount() != written.tree().leafCount())
    throw Failure{problem};
  openvdb::FloatGrid::ConstAccessor accessor = read->getConstAccessor();
  for (auto i = written.cbeginValueOn(); i; ++i)
    if (!IsAlike(*i, accessor.getValue(i.getCoord()), request.isHalf != 0)) throw Failure{problem};
}

void Write(const VdbRequest& request, VdbAnswer& answer) {
  openvdb::FloatGrid::Ptr grid = openvdb::FloatGrid::create(0.0f);
  openvdb::Mat4d matrix;
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column) matrix(column, row) = request.toWorld[row * 4 + column];
  grid->setTransform(openvdb::math::Transform::createLinearTransform(matrix));
  grid->setGridClass(openvdb::GRID_FOG_VOLUME);
  grid->setName(request.grid);
  grid->setCreator(request.creator);
  grid->setSaveFloatAsHalf(request.isHalf != 0);
  for (std::int64_t i = 0; i < request.bricks; ++i) {
    VdbBrick brick;
    float values[kCells];
    if (!ReadAll(&brick, sizeof brick) || !ReadAll(values, sizeof values))
      throw Failure{"the program stopped while the file was written"};
    auto* leaf = grid->tree().touchLeaf(
        openvdb::Coord(brick.brick[0] * kEdge, brick.brick[1] * kEdge, brick.brick[2] * kEdge));
    for (int z = 0; z < kEdge; ++z)
      for (int y = 0; y < kEdge; ++y)
        for (int x = 0; x < kEdge; ++x)
          if (const float value = values[(z * kEdge + y) * kEdge + x]; value != 0)
            leaf->setValueOn(openvdb::Coord(x, y, z), value);
  }
  {
    openvdb::io::File file(request.path);
    file.setCompression(openvdb::io::COMPRESS_ACTIVE_MASK | openvdb::io::COMPRESS_BLOSC);
    openvdb::GridPtrVec grids{grid};
    file.write(grids);
    file.close();
  }
  Check(*grid, request);
  struct stat status {};
  if (stat(request.path, &status) != 0) throw Failure{std::strerror(errno)};
  answer.activeCells = static_cast<std::int64_t>(grid->activeVoxelCount());
  answer.bytes = status.st_size;
  answer.isDone = 1;
  WriteAll(&answer, sizeof answer);
}

}  // namespace

int main() {
  VdbRequest request;
  VdbAnswer answer;
  std::memcpy(answer.magic, ovhost::kVdbMagic, sizeof answer.magic);
  if (!ReadAll(&request, sizeof request) ||
      std::memcmp(request.magic, answer.magic, sizeof answer.magic) != 0)
    return 1;
  request.path[sizeof request.path - 1] = request.grid[sizeof request.grid - 1] = 0;
  request.creator[sizeof request.creator - 1] = 0;
  // A file that claims more than there is, or than one of its length can hold, costs an exception; one that
  // leads in circles an end.
  std::uint64_t most = request.freeMemory;
  struct stat status {};
  if (!request.isWrite && stat(request.path, &status) == 0)
    most = std::min(most, (std::uint64_t(1) << 28) + 64 * static_cast<std::uint64_t>(status.st_size));
  most += std::uint64_t(3) << 29;
  ovhost::LimitChild(most, 600);
  std::string problem;
  try {
    openvdb::initialize();
    request.isWrite ? Write(request, answer) : Read(request, answer);
    return 0;
  } catch (const Failure& failure) {
    problem = failure.text;
  } catch (const std::bad_alloc&) {
    problem = "it takes more memory than there is";
  } catch (const std::exception& error) {
    problem = error.what();
  }
  answer.isDone = 0;
  answer.bricks = 0;
  std::strncpy(answer.problem, problem.c_str(), sizeof answer.problem - 1);
  WriteAll(&answer, sizeof answer);
  return 0;
}
