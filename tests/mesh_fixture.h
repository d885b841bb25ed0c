// What tests of rendered objects share: scene makers and shaders made of functions, and small pictures.
#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "host/base/parallel.h"
#include "host/project/sunlight.h"
#include "host/render/engine/path.h"
#include "host/render/frame/world.h"
#include "tests/shading_fixture.h"

/// Fills its scene by a function.
class MeshMaker : public juSceneMaker {
 public:
  long Make(trScene& scene, Context) override { return fill(scene); }
  std::function<long(trScene&)> fill;
};

/// Displaces and shades by functions. Thread-safe where they are.
class FunctionShader : public trSurfaceShader {
 public:
  long Displace(trShadingInterface& si) override {
    if (onDisplace) onDisplace(si);
    return 1;
  }
  long Shade(trShadingInterface& si) override {
    if (onShade)
      onShade(si);
    else
      si.SetShadingToConstant(colour);
    return 1;
  }
  unsigned char HasDisplacement() override { return onDisplace != nullptr; }
  std::function<void(trShadingInterface&)> onDisplace, onShade;
  trFCol colour{0.25f, 0.5f, 0.75f};
};

/// Whether a shader runs for what the camera sees. Shadow rays ask too, of copied scenes as they are made.
inline bool IsForCamera(trShadingInterface& si) { return si.RenderState().CurrentRay().depth == 1; }

/// A project of makers and shaders in a black void, and pictures of it.
struct MeshStage : Graph {
  MeshStage() { LookFrom({0, 0, 10}); }

  MeshMaker& AddMaker(const trString& name, std::function<long(trScene&)> fill) {
    auto& maker = Add<MeshMaker>(name);
    maker.fill = std::move(fill);
    return maker;
  }
  FunctionShader& AddShader(const trString& name, const trFCol& colour = {0.25f, 0.5f, 0.75f}) {
    auto& shader = Add<FunctionShader>(name);
    shader.colour = colour;
    return shader;
  }
  /// A sun of strength 1 straight above.
  trSunlightNode& AddSun() {
    auto& sun = Add<trSunlightNode>("Sun");
    sun.SetParam("elevation", 90.0, trWhoSystem);
    sun.SetParam("strength", 1.0, trWhoSystem);
    sun.SetParam("angular_diameter", 0.0, trWhoSystem);
    sun.SetParam("colour", trRgbLinear709(1.0f), trWhoSystem);
    return sun;
  }
  /// Looks south along -z, half an angle of 45 degrees to every side.
  void LookFrom(const trVector& eye) {
    settings.view = trView();
    settings.view.eye = eye;
    settings.view.forward = {0, 0, -1};
    settings.view.right = {-1, 0, 0};
    settings.view.tanHalfHorizontal = settings.view.tanHalfVertical = 1;
  }

  std::vector<ovhost::CameraSample> Picture(int size, int samples = 1, int threads = 1) {
    settings.view.width = settings.view.height = size;
    std::vector<ovhost::CameraSample> result(static_cast<size_t>(size) * size * samples);
    ovhost::WithThreads(threads, [&] {
      ovhost::World world(project, settings, stop);
      ASSERT_TRUE(world.Build());
      ovhost::ParallelFor(static_cast<size_t>(size), [&](size_t y) {
        ovhost::PathTracer tracer(world, path);
        for (int x = 0; x < size; ++x)
          tracer.SamplePixel(x, static_cast<int>(y), 0, samples, &result[(y * size + x) * samples]);
      });
    });
    return result;
  }

  ovhost::WorldSettings settings;
  ovhost::PathSettings path;
  std::atomic<bool> stop{false};
};

/// Appends a triangle with points of its own; its front is where (b - a) x (c - a) points.
inline trTri AddTriangle(trScene& scene, const trVector& a, const trVector& b, const trVector& c,
                         long material) {
  trTri tri;
  const trVector corners[3] = {a, c, b};
  for (int i = 0; i < 3; ++i) tri.point[i] = static_cast<std::int32_t>(scene.AddPoint({corners[i]}));
  tri.material = static_cast<std::int32_t>(material);
  EXPECT_TRUE(scene.AddTri(tri));
  return tri;
}

/// Largest difference of two pictures' channels and alphas.
inline float LargestDifference(const std::vector<ovhost::CameraSample>& a,
                               const std::vector<ovhost::CameraSample>& b) {
  EXPECT_EQ(a.size(), b.size());
  float largest = 0;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    const trFCol d = a[i].beauty - b[i].beauty;
    for (const float x : {d.r, d.g, d.b, a[i].alpha - b[i].alpha})
      largest = std::isfinite(x) ? std::max(largest, std::fabs(x)) : 1e30f;
  }
  return largest;
}
