// What tests of cloud layers share: a layer over an analytic density, and a render without a renderer whose
// sun asks the layer what it lets through.
#pragma once

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "atmosphere/cloud_layer_v3.h"
#include "tests/fake_sky.h"
#include "tests/shading_fixture.h"

/// A density told by a function of the world's points.
struct DensityShader : trSurfaceShader {
  long Shade(trShadingInterface& si) override {
    ++asked;
    si.Cutil() = colour(si.P());
    return 1;
  }
  std::function<trFCol(const trVector&)> colour = [](const trVector&) { return trFCol(1.0f); };
  int asked = 0;
};

/// A sun that a volume dims.
struct DimmedSun : FakeSun {
  trAtmosShader* volume = nullptr;
  trFCol Intensity(trRenderState& state, const trVector& point, const trVector& spot) const override {
    FakeSun::Intensity(state, point, spot);
    return volume ? colour * volume->TransmittanceTowards(state, *this, point, spot) : colour;
  }
};

struct CloudRender : FakeRender {
  DimmedSun dimmed;
  const trLightState* Light(int) const override { return &dimmed; }
};

template <typename Layer>
class CloudTest : public testing::Test {
 protected:
  CloudTest() : cloud_(graph_.Add<Layer>("Cloud")), density_(graph_.Add<DensityShader>("Density")) {
    cloud_.OnCreate();
    Set("density_shader", "Density");
    render_.dimmed.volume = &cloud_;
  }
  ~CloudTest() override { integrator_.FreeRayData(); }

  void Set(const char* name, const trParamValue& value, trBase* who = trWhoSystem) {
    EXPECT_TRUE(cloud_.SetParam(name, value, who)) << name;
  }
  double Number(const char* name) {
    double value = NAN;
    EXPECT_TRUE(cloud_.GetParam(name, value)) << name;
    return value;
  }
  trVector Vector(const char* name) {
    trVector value;
    EXPECT_TRUE(cloud_.GetParam(name, value)) << name;
    return value;
  }
  void Prepare(trCloudSteps steps = trCloudSteps::kTrueLengths) {
    trRenderingInterface rendering(render_.state, 1, nullptr, trRenderContext::kFinal);
    rendering.SetCloudSteps(steps);
    cloud_.PrepareAtmosphere(rendering);
  }
  trAtomicIntegrator::Result Run() { return integrator_.Integrate(render_.state, {&cloud_}); }
  /// A shadow ray straight up from a point.
  trFCol Upwards(const trVector& point) {
    render_.Aim({0, 0, 0}, {0, 1, 0});
    return cloud_.TransmittanceTowards(render_.state, render_.dimmed, point, {});
  }
  /// A homogeneous layer between 1000 and 2000 m of 0.001 per metre, marched without chance.
  void MakeEven() {
    Set("cloud_altitude", 1500.0);
    Set("cloud_depth", 1000.0);
    Set("cloud_density", 0.001);
    Set("taper_top_and_base", 0);
    Set("sample_jitter", 0.0);
    Set("number_of_samples", 32);
  }

  Graph graph_;
  Layer& cloud_;
  DensityShader& density_;
  CloudRender render_;
  trAtomicIntegrator integrator_;
};
