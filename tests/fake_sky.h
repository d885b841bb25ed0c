// A render without a renderer for tests and benches of volumes: one sun, an even sky, and counts of what was
// asked.
#pragma once

#include "core/atmosphere.h"

struct FakeSun : trLightState {
  trVector direction{0, 1, 0};
  trFCol colour{1.0f};
  bool isEnviro = false, shadows = true, keepsRay = true;
  mutable int asked = 0;
  mutable trRenderState::Ray rayWhenAsked;

  trVector Dir() const override { return direction; }
  trVector Dir(const trVector&) const override { return direction; }
  trVector TracePos(const trVector& point, double& distance) const override {
    distance = 1e12;
    return point + direction * distance;
  }
  double AngularRadiusInRadians(const trVector&) const override { return 0.00465; }
  double SoftShadowAngularRadiusInRadians() const override { return 0.00465; }
  trFCol Intensity(trRenderState& state, const trVector&, const trVector&) const override {
    ++asked;
    if (keepsRay) rayWhenAsked = state.CurrentRay();
    return colour;
  }
  trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                const trVector&, const trFCol&) const override {
    return Intensity(state, point, spot);
  }
  bool IsEnviroLight() const override { return isEnviro; }
  bool DoShadowsFromAtmosphere() const override { return shadows; }
  bool DoShadowsFromSurfaces() const override { return shadows; }
  bool DoGlowInAtmosphere() const override { return true; }
  bool DoSpecularHighlights() const override { return true; }
};

struct FakeRender : trRenderServices {
  FakeSun sun;
  trFCol above{1.0f}, below{1.0f};
  int enviroAsked = 0;
  bool progressive = false, aborting = false;
  trVoxelLightingSystem* lighting = nullptr;
  trShadingInterface si;
  trRenderState state{*this, si};

  int NumLights() const override { return 1; }
  const trLightState* Light(int) const override { return &sun; }
  trFCol Trace(trRenderState&, const trVector&, const trVector&, bool) override { return {}; }
  trFCol TraceOpacity(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol DirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol IndirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  void EnviroInAtmosphere(trRenderState&, const trVector&, const trVector&, trFCol& a, trFCol& b) override {
    ++enviroAsked;
    a = above;
    b = below;
  }
  double SpotSize(const trVector&) const override { return 1; }
  bool IsPausingOrAborting() const override { return aborting; }
  bool IsProgressiveRenderer() const override { return progressive; }
  trVoxelLightingSystem* VoxelLighting() override { return lighting; }

  /// Puts a ray in hand and restarts the draws.
  void Aim(const trVector& origin, const trVector& end, int depth = 1, bool wantsColour = true,
           unsigned seed = 1) {
    trRenderState::Ray ray;
    ray.origin = origin;
    ray.end = end;
    ray.depth = depth;
    ray.wantsColour = wantsColour;
    state.CurrentRay() = ray;
    si.Random() = {seed, 0};
  }
};
