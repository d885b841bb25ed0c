// Voxel grids: mapping, interpolation, filling on demand from many threads, background light.
#include "core/voxel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>

#include "tests/fake_sky.h"

namespace {

const trBoundingBox kBox({-10, 6.4e6, 5}, {30, 6.4e6 + 20, 15});

struct Counted {
  std::atomic<int> fills{0};
  bool stops = false;
};

/// A linear field, in box-sized units.
double Field(const trVector& p) { return 0.1 * p.x + 0.2 * (p.y - 6.4e6) - 0.3 * p.z; }

bool FillLinear(void* owner, trRenderState&, const trVoxelBuffer&, const trVector& world, unsigned,
                trFCol& value) {
  Counted& counted = *static_cast<Counted*>(owner);
  ++counted.fills;
  value = trFCol(static_cast<float>(Field(world)));
  return !counted.stops;
}

bool FillFromSeed(void* owner, trRenderState&, const trVoxelBuffer&, const trVector&, unsigned seed,
                  trF4Col& value) {
  ++static_cast<Counted*>(owner)->fills;
  const float x = static_cast<float>(seed) * 0x1p-32f;
  value = {x, x * x, 1 - x, 1};
  return true;
}

TEST(VoxelBuffer, MapsThereAndBack) {
  trVoxelBoxProjector projector;
  projector.Init(kBox);
  trVoxelBuffer buffer;
  trVector voxel, world;
  EXPECT_FALSE(buffer.MapWorldToVoxel({0, 0, 0}, voxel));
  ASSERT_TRUE(buffer.SetDimensions(&projector, 40, 10, 5));
  ASSERT_TRUE(buffer.MapWorldToVoxel({-9.5, 6.4e6 + 3, 12}, voxel));
  EXPECT_NEAR(voxel.x, 0.5, 1e-6);
  EXPECT_NEAR(voxel.y, 1.5, 1e-6);
  EXPECT_NEAR(voxel.z, 3.5, 1e-6);
  buffer.MapVoxelToWorld(voxel, world);
  EXPECT_NEAR((world - trVector(-9.5, 6.4e6 + 3, 12)).Length(), 0, 1e-6);
  EXPECT_NEAR((projector.GetTransformLocalToWorld().Point({0.0125, 0.15, 0.7}) - world).Length(), 0, 1e-6);
  EXPECT_FALSE(buffer.MapWorldToVoxel({-10.1, 6.4e6 + 3, 12}, voxel));
  EXPECT_FALSE(buffer.MapWorldToVoxel({std::nan(""), 6.4e6 + 3, 12}, voxel));
  EXPECT_NEAR(buffer.MinVoxelEdgeLength_WrongIfRotated({}), 1, 1e-9);
  const trBoundingBox range = buffer.CalculateBoundingBoxOfVoxelRange(1, 2, 3, 3, 4, 5);
  EXPECT_NEAR((range.min - trVector(-9, 6.4e6 + 4, 11)).Length(), 0, 1e-6);
  EXPECT_NEAR((range.max - trVector(-7, 6.4e6 + 8, 15)).Length(), 0, 1e-6);
  EXPECT_FALSE(buffer.SetDimensions(&projector, 1 << 20, 1 << 20, 2));
  EXPECT_TRUE(buffer.IsEmpty());
}

TEST(VoxelBuffer, IdealSizeKeepsProportions) {
  int n[3];
  trVoxelBuffer::GetIdealSizeFromBoundingBox(kBox, 8000, n[0], n[1], n[2]);
  EXPECT_EQ(n[0], 40);
  EXPECT_EQ(n[1], 20);
  EXPECT_EQ(n[2], 10);
  trVoxelBuffer::GetIdealSizeFromBoundingBox({}, 8000, n[0], n[1], n[2]);
  for (int size : n) EXPECT_EQ(size, 1);
}

/// World points of a limb grid: exactly reversible in whatever direction from the planet's centre it lies,
/// heights and compass directions as told, and wide enough for the ball about its middle.
TEST(VoxelProjector, BentGridsAreReversibleEverywhere) {
  constexpr double kRadius = 6.4e6, kAltitude = 2000;
  const trVector centre(7e5, -kRadius, 3e5);
  for (const trVector& towards :
       {trVector(0, 1, 0), trVector(1, 0, 0), trVector(0, -1, 0), trVector(-0.3, 0.2, -0.9),
        trVector(0.5, -0.8, 0.3), trVector(1e-9, -1, 1e-9)}) {
    const trVector up = Normalised(towards), local = centre + up * (kRadius + kAltitude);
    for (const double width : {1e3, 5e4, 3e6}) {
      trVoxelPlanetLimbProjector projector;
      projector.Init({local - trVector(width, 250, width), local + trVector(width, 250, width)}, local,
                     centre, kRadius, kRadius + kAltitude - 250);
      double worst = 0;
      for (int i = 0; i < 200; ++i) {
        const trVector cell(std::fmod(0.618 * i, 1.0), std::fmod(0.755 * i, 1.0), std::fmod(0.57 * i, 1.0));
        trVector world, back, again;
        projector.MapLocalToWorld(cell, world);
        EXPECT_NEAR((world - centre).Length(), kRadius + kAltitude + 500 * (cell.y - 0.5), 1e-5);
        projector.MapWorldToLocal(world, back);
        projector.MapLocalToWorld(back, again);
        worst = std::max(worst, (world - again).Length());
        EXPECT_NEAR((back - cell).Length(), 0, 1e-9);
        // A chord's length is kept: the ball about the middle lies inside.
        if (cell.y == 0.5) continue;
        const trVector flat((cell.x - 0.5) * 2 * width, 0, (cell.z - 0.5) * 2 * width);
        const trVector onSphere = centre + Normalised(world - centre) * (kRadius + kAltitude);
        EXPECT_NEAR((onSphere - local).Length(), flat.Length(), 1e-6 * width);
      }
      EXPECT_LT(worst, 1e-6) << "metres";
      trVector middle;
      projector.MapLocalToWorld({0.5, 0.5, 0.5}, middle);
      EXPECT_NEAR((projector.GetTransformLocalToWorld().Point({0.5, 0.5, 0.5}) - middle).Length(), 0, 1e-6);
      const trVector along = projector.GetTransformLocalToWorld().Direction({0, 1, 0});
      EXPECT_NEAR(Dot(along, up), 500, 1e-6);
    }
  }
}

TEST(VoxelProjector, TurnedBoxes) {
  const trTransform<double> turn = trTranslate({5, 6, 7}) * trRotateY(0.7) * trScale(2, 3, 4);
  const trVoxelProjector_TransformedBox projector({{-1, -1, -1}, {1, 1, 1}}, turn.forward, turn.inverse);
  trVector world, local;
  projector.MapLocalToWorld({1, 0.5, 0.5}, world);
  EXPECT_NEAR((world - turn.Point({1, 0, 0})).Length(), 0, 1e-12);
  projector.MapWorldToLocal(world, local);
  EXPECT_NEAR((local - trVector(1, 0.5, 0.5)).Length(), 0, 1e-12);
  EXPECT_NEAR((projector.ScalingIfAffine() - trVector(4, 6, 8)).Length(), 0, 1e-12);
}

bool FillBall(void*, trRenderState&, const trVoxelBuffer& buffer, const trVector& world, unsigned seed,
              trF4Col& value) {
  trVector voxel;
  buffer.MapWorldToVoxel(world, voxel);
  const double distance = (voxel - trVector(10, 10, 10)).Length();
  const float density = distance < 6 ? 0.3f + static_cast<float>(seed % 97) : 0.0f;
  value = {density, density * 0.5f, density * 0.25f, density > 0 ? 1.0f : 0.0f};
  return true;
}

bool FarFromBall(void* owner, trRenderState&, const trVoxelBuffer&, const int first[3], const int[3]) {
  ++static_cast<Counted*>(owner)->fills;
  return first[0] >= 16 || first[1] >= 16 || first[2] >= 16;
}

TEST(VoxelBricks, BlocksHoldWhatLookupsFindAndEmptySpaceCostsNothing) {
  trVoxelBoxProjector projector;
  projector.Init({{0, 0, 0}, {100, 100, 100}});
  FakeRender render;
  Counted asked;
  trVoxelCache<trF4Col> baked, lazy;
  for (auto* cache : {&baked, &lazy})
    ASSERT_TRUE(cache->InitVoxelBuffer(&projector, 100, 100, 100, 1, "density"));
  const std::uint64_t table = baked.MemoryInUse();
  // Blocks that don't end at bricks, the whole in two orders.
  for (int start : {24, 0, 48, 72, 96})
    for (int y = 0; y < 100; y += 20)
      ASSERT_TRUE(
          baked.FillBlock(start, y, 0, start + 24, y + 20, 100, FillBall, &asked, render.state, FarFromBall));
  for (int i = 0; i < 3000; ++i) {
    const trVector voxel(std::fmod(0.618 * i * 20, 20.0), std::fmod(0.755 * i * 20, 20.0),
                         std::fmod(0.57 * i * 20, 20.0));
    trF4Col a, b;
    ASSERT_TRUE(baked.CanUseFinalLookupLinear(voxel, a, 1));
    ASSERT_TRUE(lazy.LookupLinear(b, voxel, 1, FillBall, &asked, render.state));
    EXPECT_EQ(a.r, b.r);
    EXPECT_EQ(a.a, b.a);
    trVector world;
    baked.MapVoxelToWorld({std::floor(voxel.x) + 0.5, std::floor(voxel.y) + 0.5, std::floor(voxel.z) + 0.5},
                          world);
    const unsigned number = static_cast<unsigned>((int(voxel.z) * 100 + int(voxel.y)) * 100 + int(voxel.x));
    trF4Col direct, kept;
    FillBall(nullptr, render.state, baked, world, number, direct);
    ASSERT_TRUE(baked.CellValue(int(voxel.x), int(voxel.y), int(voxel.z), kept));
    EXPECT_NEAR(kept.r, direct.r, direct.r / 2048);
    EXPECT_EQ(kept.a, direct.a);
  }
  // Eight bricks have cloud in them, of 13 by 13 by 13.
  EXPECT_LT(baked.MemoryInUse() - table, 8u * 512 * 9 + 2200u * 100);
  EXPECT_GT(asked.fills, 0);
}

class VoxelCache : public testing::Test {
 protected:
  VoxelCache() {
    projector_.Init(kBox);
    EXPECT_TRUE(cache_.InitVoxelBuffer(&projector_, 8, 8, 8, 4, "cache"));
  }
  FakeRender render_;
  trVoxelBoxProjector projector_;
  trVoxelCache<trFCol> cache_;
  Counted counted_;
};

TEST_F(VoxelCache, FillsWhatALookupNeedsAndNoMore) {
  trFCol value;
  const trVector voxel(3.3, 4.7, 2.1);
  EXPECT_FALSE(cache_.CanUseFinalLookupLinear(voxel, value, 1));
  ASSERT_TRUE(cache_.LookupLinear(value, voxel, 1, FillLinear, &counted_, render_.state));
  EXPECT_EQ(counted_.fills, 8);
  EXPECT_TRUE(cache_.CanUseFinalLookupLinear(voxel, value, 1));
  EXPECT_FALSE(cache_.CanUseFinalLookupSmooth(voxel, value));
  cache_.LookupLinear(value, voxel, 1, FillLinear, &counted_, render_.state);
  EXPECT_EQ(counted_.fills, 8);
  ASSERT_TRUE(cache_.LookupSmooth(value, voxel, FillLinear, &counted_, render_.state));
  EXPECT_EQ(counted_.fills, 27);
  cache_.LookupLinear(value, voxel, 1, FillLinear, &counted_, render_.state, 100);
  EXPECT_EQ(counted_.fills, 27 + 8 * 3) << "refining stops at the resolution";
}

TEST_F(VoxelCache, InterpolationReproducesALinearField) {
  for (int i = 0; i < 50; ++i) {
    const trVector voxel(2 + 0.08 * i, 5.9 - 0.07 * i, 2 + std::fmod(0.37 * i, 3.9));
    trVector world;
    cache_.MapVoxelToWorld(voxel, world);
    trFCol linear, smooth, coarse;
    cache_.LookupLinear(linear, voxel, 1, FillLinear, &counted_, render_.state);
    cache_.LookupSmooth(smooth, voxel, FillLinear, &counted_, render_.state);
    EXPECT_NEAR(linear.r, Field(world), 1e-5);
    EXPECT_NEAR(smooth.g, Field(world), 1e-5);
    // A coarse cell is read at the middle fine one, half a fine cell off.
    cache_.LookupLinear(coarse, voxel, 2, FillLinear, &counted_, render_.state);
    EXPECT_NEAR(coarse.b, Field(world), 0.5 * (0.1 * 5 + 0.2 * 2.5 + 0.3 * 1.25) + 1e-5);
  }
}

TEST_F(VoxelCache, StoppedFillsAndBadPointsGiveNothing) {
  trFCol value(7.0f);
  counted_.stops = true;
  EXPECT_FALSE(cache_.LookupLinear(value, {1, 1, 1}, 1, FillLinear, &counted_, render_.state));
  EXPECT_TRUE(value.IsBlack());
  EXPECT_FALSE(cache_.CanUseFinalLookupLinear({1, 1, 1}, value, 1));
  counted_.stops = false;
  EXPECT_FALSE(cache_.LookupSmooth(value, {std::nan(""), 1, 1}, FillLinear, &counted_, render_.state));
  EXPECT_TRUE(cache_.LookupLinear(value, {1e300, -1e300, 1}, 1 << 30, FillLinear, &counted_, render_.state));
  cache_.Cleanup();
  EXPECT_FALSE(cache_.LookupLinear(value, {1, 1, 1}, 1, FillLinear, &counted_, render_.state));
}

/// Every cell, read by threads in different orders, over three passes that ask for more each.
std::vector<float> Filled(int threads) {
  trVoxelBoxProjector projector;
  projector.Init(kBox);
  trVoxelCache<trF4Col> cache;
  cache.InitVoxelBuffer(&projector, 6, 6, 6, 100, "cache");
  Counted counted;
  for (int samples : {2, 5, 9}) {
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
      pool.emplace_back([&, t] {
        FakeRender render;
        for (int i = 0; i < 216; ++i) {
          const int cell = (i * (2 * t + 5)) % 216;
          trF4Col value;
          cache.LookupSmooth(value, {cell % 6 + 0.4, cell / 6 % 6 + 0.1, cell / 36 + 0.9}, FillFromSeed,
                             &counted, render.state, samples);
        }
      });
    for (std::thread& thread : pool) thread.join();
  }
  std::vector<float> values;
  for (int cell = 0; cell < 216; ++cell) {
    trF4Col v;
    EXPECT_TRUE(cache.CanUseFinalLookupLinear({cell % 6 + 0.5, cell / 6 % 6 + 0.5, cell / 36 + 0.5}, v, 1));
    for (float x : {v.r, v.g, v.b, v.a}) values.push_back(x);
  }
  return values;
}

TEST(VoxelCacheThreads, SameBitsForAnyNumber) {
  const std::vector<float> one = Filled(1);
  EXPECT_EQ(one, Filled(4));
  double mean = 0;
  for (size_t i = 0; i < one.size(); i += 4) mean += one[i] / 216;
  EXPECT_NEAR(mean, 0.5, 0.03) << "samples of different cells and numbers are independent";
}

class Background : public trVoxelLightingSystem {
 public:
  trFCol BackgroundFunction(trRenderState& state, const trVector& point, const trVector& direction) override {
    EXPECT_NEAR(direction.Length(), 1, 1e-12);
    if (recursing) nested = LookupBackground(state, point, direction);
    return {1.0f, static_cast<float>(direction.z > 0), static_cast<float>(3 * direction.x * direction.x)};
  }
  int SamplesPerCell() const override { return 400; }
  bool recursing = false;
  trFCol nested{9.0f};
};

TEST(VoxelLighting, MeanOverTheSphereWithoutDisturbingTheDraws) {
  trVoxelBoxProjector projector;
  projector.Init(kBox);
  trVoxelCache<trFCol> cache;
  cache.InitVoxelBuffer(&projector, 4, 4, 4, 10000, "light");
  FakeRender render;
  Background background;
  render.Aim({}, {1, 0, 0});
  background.recursing = true;
  const trFCol mean = background.LookupIsotropicBackgroundProgressive(cache, render.state, kBox.Centre());
  EXPECT_EQ(render.si.Random().drawn, 0u);
  EXPECT_FLOAT_EQ(mean.r, 1);
  EXPECT_NEAR(mean.g, 0.5, 0.03);
  EXPECT_NEAR(mean.b, 1, 0.06);
  EXPECT_TRUE(background.nested.IsBlack()) << "a lookup inside a fill";
  EXPECT_EQ(trVoxelLightingSystem::sIsDuringLookup(), 0);

  background.recursing = false;
  EXPECT_EQ(background.LookupBackground(render.state, {}, {0, 0, 1}).g, 1);
  render.state.CurrentRay().depth = 3;
  EXPECT_TRUE(background.LookupBackground(render.state, {}, {0, 0, 1}).IsBlack());
  EXPECT_TRUE(background.LookupIsotropicBackgroundProgressive(cache, render.state, {0, 0, 0}).IsBlack());
  cache.InitVoxelBuffer(&projector, 4, 4, 4, 10000, "light");
  render.aborting = true;
  EXPECT_TRUE(background.LookupIsotropicBackgroundProgressive(cache, render.state, kBox.Centre()).IsBlack());
}

}  // namespace
