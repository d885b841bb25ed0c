// How true the light is that volumes scatter more than once: radiances of an even box of cloud by the scatter
// model, against paths that are followed to their end through the same box by formulas alone. A ray's
// radiance is its single scattering, exact, and the model's answer along it.
//
//   scatter_bench [paths a reference radiance, 40000] [cells of the box's height, 10]
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "atmosphere/atmosphere_medium.h"
#include "core/voxel.h"
#include "tests/fake_sky.h"

namespace {

constexpr double kPi = 3.14159265358979323846;
const trBoundingBox kBox({-4000, 0, -4000}, {4000, 1000, 4000});

double Glow(double cosAngle, double amount) {
  return atmosphere::GlowPhase(static_cast<float>(cosAngle), true, 0.00465f, static_cast<float>(amount), 1.0f,
                               true);
}

/// How far a ray from inside of the box goes in it.
double WayOut(const trVector& p, const trVector& d) {
  double way = 1e300;
  for (int axis = 0; axis < 3; ++axis)
    if (d[axis] != 0) way = std::min(way, ((d[axis] > 0 ? kBox.max : kBox.min)[axis] - p[axis]) / d[axis]);
  return std::max(way, 0.0);
}

/// An even box of cloud under a sun and an even background.
struct Cloud : trVoxelScatterMedium {
  double extinction = 0.01, amount = 1.5, albedo = 1, mean = 1, background = 0;
  trVector sun{0, 1, 0};

  trFCol Extinction(trRenderState&, const trVector& p) override {
    for (int axis = 0; axis < 3; ++axis)
      if (p[axis] < kBox.min[axis] || p[axis] > kBox.max[axis]) return {};
    return trFCol(static_cast<float>(extinction));
  }
  trFCol DirectLight(trRenderState&, const trVector& p) override {
    return trFCol(static_cast<float>(std::exp(-extinction * WayOut(p, sun))));
  }
  trFCol AverageBackground(trRenderState&, const trVector&) override { return {}; }
  trFCol Albedo() const override { return trFCol(static_cast<float>(albedo)); }
  float PhaseFunction(double c) const override { return static_cast<float>(Phase(c)); }
  trVector MainLightDirection() const override { return sun; }
  double GreatestExtinction() const override { return extinction; }
  bool LightOutside(trRenderState&, const trVector&, trFCol& light) override {
    light = trFCol(background > 0 ? 0.0f : 1.0f);
    return true;
  }
  bool BackgroundOutside(trRenderState&, const trVector&, const trVector&, trFCol& light) override {
    light = trFCol(static_cast<float>(background));
    return true;
  }
  double Phase(double c) const { return Glow(c, amount) / mean; }
  void Prepare() {
    mean = 1;
    double sum = 0;
    constexpr int n = 100000;
    for (int i = 0; i < n; ++i) {
      const double angle = (i + 0.5) * kPi / n;
      sum += Phase(std::cos(angle)) * 0.5 * std::sin(angle) * kPi / n;
    }
    mean = sum;
    // Angles by their share of the scattered light, for draws.
    cumulated.assign(n + 1, 0);
    for (int i = 0; i < n; ++i) {
      const double angle = (i + 0.5) * kPi / n;
      cumulated[i + 1] = cumulated[i] + Phase(std::cos(angle)) * 0.5 * std::sin(angle) * kPi / n;
    }
  }
  double DrawAngle(double u) const {
    const size_t i =
        std::upper_bound(cumulated.begin(), cumulated.end(), u * cumulated.back()) - cumulated.begin();
    return (static_cast<double>(i) - 0.5) * kPi / static_cast<double>(cumulated.size() - 1);
  }
  std::vector<double> cumulated;
};

/// Radiance along a ray from where it enters the box, by paths to their end; and its standard error.
double Truth(const Cloud& cloud, const trVector& entry, const trVector& view, int paths, double& error,
             double& single) {
  trRandomStream draws{12345, 0};
  double sum = 0, squares = 0, singles = 0;
  for (int i = 0; i < paths; ++i) {
    trVector p = entry, d = view;
    double weight = 1, path = 0;
    for (int bounce = 0; bounce < 100000; ++bounce) {
      const double way = WayOut(p, d), flight = -std::log1p(-draws.Next()) / cloud.extinction;
      if (flight >= way) {
        path += weight * cloud.background;
        break;
      }
      p = p + d * flight;
      weight *= cloud.albedo;
      if (cloud.background <= 0) {
        const double lit = weight * 0.25 * cloud.Phase(Dot(d, cloud.sun)) *
                           std::exp(-cloud.extinction * WayOut(p, cloud.sun));
        path += lit;
        if (bounce == 0) singles += lit;
      }
      if (weight < 0.05) {
        if (draws.Next() > weight * 10) break;
        weight = 0.1;
      }
      const double angle = cloud.DrawAngle(draws.Next()), azimuth = 2 * kPi * draws.Next();
      const trVector s = Normalised(Cross(std::fabs(d.x) < 0.5 ? trVector(1, 0, 0) : trVector(0, 1, 0), d));
      d = Normalised(d * std::cos(angle) +
                     (s * std::cos(azimuth) + Cross(d, s) * std::sin(azimuth)) * std::sin(angle));
    }
    sum += path;
    squares += path * path;
  }
  const double mean = sum / paths;
  error = std::sqrt(std::max(0.0, squares / paths - mean * mean) / paths);
  single = singles / paths;
  return mean;
}

struct Scene {
  FakeRender render;
  trVoxelBoxProjector projector;
  trVoxelCache<trFCol> lighting;
  trAnisoVoxelCache<trFCol> aniso;
  trVoxelScatterModelC model;
  Scene(Cloud& cloud, int cells) {
    projector.Init(kBox);
    lighting.InitVoxelBuffer(&projector, 8 * cells, cells, 8 * cells, 1, "lighting");
    aniso.InitVoxelBuffer(&projector, 5, 3, 5, 1, "aniso");
    model.Init(projector, 100000, cloud, lighting, aniso);
  }
};

/// The model's radiance along the same ray, and how much of it is single scattering.
double Modelled(const Cloud& cloud, Scene& scene, const trVector& entry, const trVector& view) {
  const double way = WayOut(entry, view), depth = cloud.extinction * way;
  const int steps = 64;
  scene.render.Aim(entry, entry + view * way);
  double sum = 0;
  // Even steps of what a ray lets through.
  const double seen = -std::expm1(-depth);
  for (int i = 0; i < steps; ++i) {
    const double at = -std::log1p(-(i + 0.5) / steps * seen) / cloud.extinction;
    const trVector p = entry + view * at;
    trFCol direct, enviro;
    scene.model.Lookup(scene.render.state, p, trFCol(1.0f), direct, enviro);
    const double lit = cloud.background > 0 ? 0.0
                                            : 0.25 * cloud.Phase(Dot(view, cloud.sun)) *
                                                  std::exp(-cloud.extinction * WayOut(p, cloud.sun));
    sum += cloud.albedo * (lit + direct.g + enviro.g) * seen / steps;
  }
  return sum + cloud.background * std::exp(-depth);
}

}  // namespace

int main(int argc, char** argv) {
  const int paths = argc > 1 ? std::atoi(argv[1]) : 40000, cells = argc > 2 ? std::atoi(argv[2]) : 10;
  struct View {
    const char* name;
    trVector entry, direction;
  };
  const double s = std::sqrt(0.5);
  const View views[] = {
      {"top, from above", {0, 1000, 0}, {0, -1, 0}},  {"top, sun ahead", {0, 1000, 0}, {s, -s, 0}},
      {"top, sun behind", {0, 1000, 0}, {-s, -s, 0}}, {"base, from below", {0, 0, 0}, {0, 1, 0}},
      {"base, sun ahead", {0, 0, 0}, {s, s, 0}},      {"base, sun behind", {0, 0, 0}, {-s, s, 0}},
      {"lit side", {4000, 700, 0}, {-1, 0, 0}},       {"dark side", {-4000, 700, 0}, {1, 0, 0}}};
  std::printf("%-7s %-5s %-5s %-17s %9s %7s %8s %9s %7s\n", "albedo", "depth", "sun", "view", "truth", "+-%",
              "single%", "model", "off%");
  double off = 0, worst = 0;
  int rows = 0;
  for (const double albedo : {1.0, 0.9}) {
    for (const double depth : {1.0, 3.0, 10.0, 30.0, 100.0}) {
      double rowOff = 0;
      const auto start = std::chrono::steady_clock::now();
      double modelTime = 0;
      for (const double elevation : {5.0, 30.0, 90.0, -1.0}) {
        Cloud cloud;
        cloud.albedo = albedo;
        cloud.extinction = depth / kBox.Size().y;
        const double a = elevation * kPi / 180;
        cloud.sun = {std::cos(a), std::sin(a), 0};
        cloud.background = elevation < 0 ? 1 : 0;
        cloud.Prepare();
        Scene scene(cloud, cells);
        for (const View& view : views) {
          double error, single;
          const double truth = Truth(cloud, view.entry, view.direction, paths, error, single);
          const auto before = std::chrono::steady_clock::now();
          const double model = Modelled(cloud, scene, view.entry, view.direction);
          modelTime += std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
          const double share = 100 * (model / truth - 1);
          std::printf("%-7.2f %-5.0f %-5.0f %-17s %9.5f %7.1f %8.0f %9.5f %+7.1f\n", albedo, depth, elevation,
                      view.name, truth, 100 * error / truth, 100 * single / truth, model, share);
          off += std::fabs(share);
          rowOff += std::fabs(share);
          worst = std::max(worst, std::fabs(share));
          ++rows;
        }
      }
      std::printf("depth %.0f: off by %.1f %% on average; %.2f s, of which the model %.2f s\n", depth,
                  rowOff / 32,
                  std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), modelTime);
      std::fflush(stdout);
    }
  }
  std::printf("off by %.1f %% on average, %.1f %% at worst, over %d radiances\n", off / rows, worst, rows);
  return 0;
}
