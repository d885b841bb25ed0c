// A render for tests of reflective surfaces: lights, rays that are noted and answered by a colour, and the
// hidden children of nodes.
#pragma once

#include "surface/reflective_shader.h"
#include "tests/fake_sky.h"
#include "tests/shading_fixture.h"

struct NotedRay {
  trVector origin, direction;
  enum Kind { kFull, kQuick, kInside } kind;
};

struct ReflectionRender : trRenderServices {
  std::vector<FakeSun> suns;
  std::vector<NotedRay> rays;
  trFCol answer{1.0f};
  double insideLength = 3;  ///< metres
  bool deferred = false;
  int maxDepth = 4;
  trShadingInterface si;
  trRenderState state{*this, si};

  int NumLights() const override { return static_cast<int>(suns.size()); }
  const trLightState* Light(int i) const override { return &suns[static_cast<size_t>(i)]; }
  trFCol Trace(trRenderState&, const trVector& origin, const trVector& direction, bool quick) override {
    rays.push_back({origin, direction, quick ? NotedRay::kQuick : NotedRay::kFull});
    return answer;
  }
  trFCol TraceInside(trRenderState&, const trVector& origin, const trVector& direction,
                     double& distance) override {
    rays.push_back({origin, direction, NotedRay::kInside});
    distance = insideLength;
    return answer;
  }
  trFCol TraceOpacity(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol DirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  trFCol IndirectDiffuse(trRenderState&, const trVector&, const trVector&) override { return {}; }
  void EnviroInAtmosphere(trRenderState&, const trVector&, const trVector&, trFCol&, trFCol&) override {}
  double SpotSize(const trVector&) const override { return 0; }
  bool IsPausingOrAborting() const override { return false; }
  bool IsDeferred() const override { return deferred; }
  int MaxRayDepth() const override { return maxDepth; }

  /// A horizontal surface at `p`, seen from `angle` off the vertical (beyond pi / 2 from below), with a grey
  /// diffuse layer on it.
  void Look(double angle, const trVector& p = {5, 1, -2}) {
    si.SetSample(p, {0, 1, 0});
    si.Eye() = si.RootEye() = p + trVector(std::sin(angle), std::cos(angle), 0) * 10.0;
    si.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kCe |
                trShadingInterface::kCs | trShadingInterface::kOo);
    si.Bsdf().AddLambert(trFCol(0.5f));
    si.Random() = {17, 0};
    state.CurrentRay() = trRenderState::Ray();
    state.ShadeOutputs() = trRenderState::Outputs();
    state.TerminatorInfo() = trRenderState::Terminator();
    rays.clear();
  }
};

/// The hidden node of a class that `owner` keeps, the `index`th of it; null if there is none.
template <typename T = trShader>
T* OwnedChild(const trBase& owner, const trString& className, int index = 0) {
  for (trBase* node : owner.Data().owned)
    if (node->ClassName() == className && index-- == 0) return dynamic_cast<T*>(node);
  return nullptr;
}

inline trManRgb ColourParam(const trBase& node, const char* name) {
  trManRgb value;
  EXPECT_TRUE(node.GetParam(name, value)) << name;
  return value;
}

inline bool IsFinite(const trFCol& c) {
  return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b);
}
/// Whether nothing that a shader leaves behind is NaN or infinite.
inline bool LeavesFinite(trShadingInterface& si) {
  bool finite = IsFinite(si.Cutil()) && IsFinite(si.Oo_surf()) && IsFinite(si.Bsdf().Emission()) &&
                IsFinite(si.RenderState().ShadeOutputs().Sum());
  for (int i = 0; i < si.Bsdf().NumLobes(); ++i) {
    const trLobe& lobe = si.Bsdf().Lobe(i);
    finite = finite && IsFinite(lobe.colour) && IsFinite(lobe.base) && IsFinite(lobe.edge) &&
             std::isfinite(lobe.roughness) && std::isfinite(lobe.roughness2) && std::isfinite(lobe.index) &&
             std::isfinite(lobe.outerIndex) && std::isfinite(lobe.fresnelScale) &&
             std::isfinite(lobe.normal.Length()) && std::isfinite(lobe.invTweak);
  }
  return finite;
}
