// VDB files: bakes that are driven through a node's members, round trips, an outside reader, damaged files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/voxel.h"
#include "host/voxel/vdb_export.h"
#include "host/voxel/vdb_file.h"
#include "tests/temp_file.h"

namespace {

/// A ball of cloud, densest in its middle.
double Ball(const trVector& p) { return std::max(0.0, 1.0 - (p - trVector(100, 50, -30)).Length() / 40.0); }

class BallThread : public trVoxelServerThread {
 public:
  trFCol ValueAt(const trVector& point, unsigned) override { return trFCol(static_cast<float>(Ball(point))); }
};

class BallServer : public trVoxelServer {
 public:
  trVoxelServerThread* NewThread(trRenderServices&) override {
    threads_.push_back(std::make_unique<BallThread>());
    return threads_.back().get();
  }
};

/// Offers what a cloud does for its export.
class BallNode : public trBase {
 public:
  explicit BallNode(const trVoxelProjector& projector, int size) {
    DeclareTrue("has_voxel_server");
    buffer_.SetDimensions(&projector, size, size / 2, size);
  }
  void* RequestMember(const char* name) override {
    const trString member = name;
    if (member == "voxel info for export") return &buffer_;
    if (member == "begin voxel server for export") {
      server_ = std::make_unique<BallServer>();
      return static_cast<trVoxelServer*>(server_.get());
    }
    if (member == "end voxel server") server_.reset();
    return nullptr;
  }
  bool HasServer() const { return server_ != nullptr; }

 private:
  trVoxelBuffer buffer_;
  std::unique_ptr<BallServer> server_;
};

class Vdb : public testing::Test {
 protected:
  Vdb() {
    projector_.Init({{40, 10, -90}, {160, 90, 30}});
    limb_.Init({{40, 10, -90}, {160, 90, 30}}, {100, 50, -30}, {100, -950, -30}, 1000, 1000);
  }
  std::string Export(bool isHalf, const trVoxelProjector& projector, ovhost::VdbExport& made) {
    BallNode node(projector, 48);
    ovhost::VdbExportOptions options;
    options.isHalf = isHalf;
    std::string problem = ovhost::ExportVdb(node, path_, options, made);
    EXPECT_FALSE(node.HasServer());
    return problem;
  }

  const std::string path_ = TempFile("ball.vdb");
  trVoxelBoxProjector projector_;
  trVoxelPlanetLimbProjector limb_;
};

TEST_F(Vdb, RoundTripOfStraightAndBentGrids) {
  for (const bool isHalf : {true, false})
    for (const trVoxelProjector* projector :
         {static_cast<trVoxelProjector*>(&projector_), static_cast<trVoxelProjector*>(&limb_)}) {
      ovhost::VdbExport made;
      ASSERT_EQ(Export(isHalf, *projector, made), "");
      EXPECT_NEAR(made.edge[0], 2.5, 1e-9);
      EXPECT_EQ(static_cast<std::uintmax_t>(made.bytes), std::filesystem::file_size(path_));
      // The ball's share of the box, by its volume.
      const double volume =
          4.0 / 3 * 3.14159265 * 40 * 40 * 40 / (made.edge[0] * made.edge[1] * made.edge[2]);
      EXPECT_NEAR(static_cast<double>(made.activeCells), volume, 0.03 * volume);
      std::string problem;
      const auto read = ovhost::ReadVdb(path_, "density", problem);
      ASSERT_TRUE(read) << problem;
      EXPECT_EQ(read->activeCells, made.activeCells);
      using Interpolation = ovhost::SparseGrid::Interpolation;
      for (int i = 0; i < 300; ++i) {
        const trVector cell(std::floor(std::fmod(7.31 * i, 48.0)), std::floor(std::fmod(3.77 * i, 24.0)),
                            std::floor(std::fmod(5.13 * i, 48.0)));
        const trVector centre = read->toWorld.Point(cell);
        const double truth = Ball(centre);
        EXPECT_NEAR(read->Lookup(centre, Interpolation::kNearest, 0), truth,
                    isHalf ? truth / 2047 + 1e-7 : 1e-6);
        EXPECT_NEAR(read->Lookup(centre, Interpolation::kLinear, 0), truth, truth / 2047 + 1e-5);
        const trVector aside = read->toWorld.Point(cell + trVector(0.3, -0.4, 0.2));
        EXPECT_NEAR(read->Lookup(aside, Interpolation::kLinear, 0), Ball(aside), 0.04);
        EXPECT_NEAR(read->Lookup(aside, Interpolation::kQuadratic, 0), Ball(aside), 0.06);
      }
      // A footprint as wide as the ball sees a mean, and one file is read once.
      EXPECT_LT(read->Lookup({100, 50, -30}, Interpolation::kLinear, 80), 0.6);
      EXPECT_GT(read->Lookup({100, 50, -30}, Interpolation::kLinear, 80), 0.02);
      EXPECT_EQ(read, ovhost::ReadVdb(path_, "density", problem));
    }
}

TEST_F(Vdb, AnotherProgramReadsIt) {
  if (std::system("/usr/bin/python3 -c 'import pyopenvdb' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "no python3-openvdb: it isn't asked";
  ovhost::VdbExport made;
  ASSERT_EQ(Export(true, projector_, made), "");
  const std::string script = TempFile("look.py"), output = TempFile("seen");
  std::ofstream(script)
      << "import pyopenvdb as v, sys\n"
         "g = v.read(sys.argv[1], 'density')\n"
         "p = g.transform.worldToIndex((100, 50, -30))\n"
         "a = g.getConstAccessor()\n"
         "print(g.activeVoxelCount(), g.gridClass, g.saveFloatAsHalf,\n"
         "      *g.transform.indexToWorld((0, 0, 0)), a.getValue(tuple(round(x) for x in p)))\n";
  ASSERT_EQ(std::system(("/usr/bin/python3 " + script + " " + path_ + " > " + output).c_str()), 0);
  std::ifstream seen(output);
  long long active = 0;
  std::string kind, half;
  trVector origin;
  double middle = 0;
  ASSERT_TRUE(seen >> active >> kind) << "no answer";
  std::string rest;
  while (kind.find("fog") == std::string::npos && seen >> rest) kind += rest;
  ASSERT_TRUE(seen >> rest);
  if (rest == "volume") seen >> rest;
  ASSERT_TRUE(seen >> origin.x >> origin.y >> origin.z >> middle);
  EXPECT_EQ(active, made.activeCells);
  EXPECT_NEAR((origin - trVector(41.25, 10 + 80.0 / 48, -88.75)).Length(), 0, 1e-6);
  EXPECT_NEAR(middle, 1, 0.08);
}

TEST_F(Vdb, DamagedAndForeignFilesCostAMessage) {
  ovhost::VdbExport made;
  ASSERT_EQ(Export(true, projector_, made), "");
  std::ifstream whole(path_, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(whole), {}};
  std::string problem;
  EXPECT_FALSE(ovhost::ReadVdb(path_, "temperature", problem));
  EXPECT_NE(problem.find("its grids: density"), std::string::npos) << problem;
  EXPECT_FALSE(ovhost::ReadVdb(TempFile("none.vdb"), "density", problem));
  EXPECT_FALSE(ovhost::ReadVdb("/dev/null", "density", problem));
  const std::string damaged = TempFile("damaged.vdb");
  const auto read = [&](const std::string& content) {
    std::ofstream(damaged, std::ios::binary) << content;
    problem.clear();
    return ovhost::ReadVdb(damaged, "density", problem);
  };
  for (const double share : {0.0, 0.001, 0.1, 0.5, 0.9, 0.99}) {
    EXPECT_FALSE(read(bytes.substr(0, static_cast<size_t>(share * static_cast<double>(bytes.size())))))
        << share;
    EXPECT_NE(problem, "") << share;
  }
  // Bytes that lie, in the head and among the nodes: a message or values, and no end of the program.
  for (size_t i = 0; i < 16; ++i) {
    std::string lying = bytes;
    const size_t at = i < 8 ? 20 + i * 71 : i * bytes.size() / 17;
    for (size_t k = 0; k < 4 && at + k < lying.size(); ++k) lying[at + k] = static_cast<char>(0x7f + 31 * i);
    if (!read(lying)) {
      EXPECT_NE(problem, "");
    }
  }
}

TEST_F(Vdb, WhatCannotBeWrittenLeavesTheOldFile) {
  ovhost::VdbExport made;
  ASSERT_EQ(Export(false, projector_, made), "");
  const auto size = std::filesystem::file_size(path_);
  BallNode node(projector_, 48);
  std::atomic<bool> stop{true};
  ovhost::VdbExportOptions options;
  options.stop = &stop;
  EXPECT_NE(ovhost::ExportVdb(node, path_, options, made), "");
  EXPECT_EQ(std::filesystem::file_size(path_), size);
  EXPECT_NE(ovhost::ExportVdb(node, "/dev/full", {}, made), "");
  trVoxelBoxProjector flat;
  BallNode empty(flat, 0);
  EXPECT_EQ(std::filesystem::file_size(path_), size);
}

}  // namespace
