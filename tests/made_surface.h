// Surfaces whose lobes a test makes itself.
#pragma once

#include <functional>

#include "tests/shading_fixture.h"

/// Leaves what a function makes of the sample.
class MadeShader : public trSurfaceShader {
 public:
  long Shade(trShadingInterface& si) override {
    si.Bsdf().Clear();
    if (make) make(si);
    return 1;
  }
  std::function<void(trShadingInterface&)> make;
};

/// Light that a shader sends out by itself.
inline std::function<void(trShadingInterface&)> Glow(float radiance) {
  return [radiance](trShadingInterface& si) { si.Bsdf().Emission() = trFCol(radiance); };
}

inline trVector ToEye(trShadingInterface& si) { return Normalised(si.Eye() - si.P()); }

/// A reflection of a model: white where `edge` is not given.
inline trLobe Mirror(trShadingInterface& si, int model, float roughness, float base = 1) {
  trLobe lobe = trBsdf::Lambert(trLobe::kSpecularReflection, trFCol(base));
  lobe.base = lobe.edge = trFCol(base);
  lobe.normal = Dot(si.N(), ToEye(si)) < 0 ? -si.N() : si.N();
  lobe.roughness = roughness;
  lobe.roughness2 = roughness * roughness;
  lobe.model = static_cast<signed char>(model);
  lobe.index = lobe.outerIndex = 1.5f;
  return lobe;
}

/// A clear border of index 1: nothing is bent or reflected.
inline void AddClearBorder(trShadingInterface& si, const trMedium& inside) {
  trLobe lobe = trBsdf::Lambert(trLobe::kSpecularTransmission, trFCol(1.0f));
  const bool isFront = Dot(si.N(), ToEye(si)) >= 0;
  lobe.base = lobe.edge = trFCol(1.0f);
  lobe.reflectivity = trFCol();
  lobe.normal = isFront ? si.N() : -si.N();
  if (isFront) lobe.medium = static_cast<signed char>(si.Bsdf().AddMedium(inside));
  si.Bsdf().AddLobe(lobe);
}
