// The table of sky light for bounces, against the integrals that it stands for.
#include <gtest/gtest.h>

#include "atmosphere/planet_atmosphere.h"
#include "host/base/parallel.h"
#include "host/render/air/bounce_sky.h"
#include "tests/fake_sky.h"

namespace {

constexpr double kRadius = 6378000;

class BounceSky : public testing::Test {
 protected:
  BounceSky() {
    atmosphere_.OnFirstCreate();
    render_.sun.keepsRay = false;
    render_.sun.direction = Normalised({0.8, 0.3, 0.2});
    std::vector<trVector> places;
    for (int i = -2; i <= 2; ++i)
      for (int j = -2; j <= 2; ++j) places.push_back(Place(i * 12000.0, 700.0 * (i + 2), j * 12000.0));
    // Out of reach, and not to stretch the table.
    places.push_back(Place(9e5, 300000, 0));
    ovhost::WithThreads(1, [&] {
      sky_.Build({&atmosphere_}, render_, {}, render_.sun.direction, Place(0, 2000, 0), places);
    });
  }
  static trVector Place(double x, double height, double z) {
    return Normalised({x, kRadius, z}) * (kRadius + height);
  }
  /// The mean of many integrals along rays like a bounce's.
  trFCol Integrated(const trVector& from, const trVector& direction) {
    trAtomicIntegrator integrator;
    trFCol sum;
    constexpr int kRays = 400;
    for (int i = 0; i < kRays; ++i) {
      render_.Aim(from, from + direction * 1e9, 2, true, i + 1);
      render_.state.CurrentRay().quality = 0;
      sum += integrator.Integrate(render_.state, {&atmosphere_}).Colour();
    }
    integrator.FreeRayData();
    return sum * (1.0f / kRays);
  }

  PlanetAtmosphere atmosphere_;
  FakeRender render_;
  ovhost::BounceSky sky_;
};

TEST_F(BounceSky, IsWhatTheRaysWouldSeeOnAverage) {
  int compared = 0;
  double relative = 0;
  for (const double height : {100.0, 1300.0, 2600.0})
    for (const double sine : {0.0, 0.04, 0.3, 0.7, 0.98})
      for (int turn = 0; turn < 6; ++turn) {
        const trVector from = Place(15000, height, -7000), up = Normalised(from);
        const trVector side = Normalised(Cross(up, {0, 0, 1})), front = Cross(side, up);
        const double phi = turn + 0.4;
        const trVector direction =
            up * sine + (side * std::cos(phi) + front * std::sin(phi)) * std::sqrt(1 - sine * sine);
        // Close to the sun the table averages over more than this direction.
        if (Dot(direction, render_.sun.direction) > 0.9) continue;
        trFCol found;
        ASSERT_TRUE(sky_.Lookup(from, direction, found));
        const trFCol expected = Integrated(from, direction);
        for (int c = 0; c < 3; ++c) {
          EXPECT_NEAR(found[c], expected[c], 0.08f * expected[c]) << height << ' ' << sine << ' ' << turn;
          relative += found[c] / expected[c] - 1;
          ++compared;
        }
      }
  ASSERT_GT(compared, 200);
  EXPECT_NEAR(relative / compared, 0, 0.01) << "all directions together";
}

TEST_F(BounceSky, LeavesOutWhatItWasNotMadeFor) {
  const struct {
    trVector from, direction;
  } rows[] = {{Place(0, 50000, 0), {0, 1, 0}},
              {Place(2e6, 1000, 0), {1, 0, 0}},
              {Place(0, 1000, 0), Normalised({1, -0.2, 0})}};
  for (const auto& row : rows) {
    trFCol found;
    EXPECT_FALSE(sky_.Lookup(row.from, row.direction, found));
  }
  trFCol found;
  EXPECT_FALSE(ovhost::BounceSky().Lookup(Place(0, 1000, 0), {0, 1, 0}, found)) << "an empty table";
}

}  // namespace
