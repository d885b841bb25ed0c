// crater_shader: one impact crater with a bowl, a rim and a skirt of ejecta.
#pragma once

#include "fractal/displacement_effect.h"

class CraterShader : public DisplacementEffect {
 public:
  CraterShader();
  long Displace(trShadingInterface& si) override;

 private:
  /// How far the ground rises along the geometric normal, metres, and how much of the rim shader shows.
  struct Profile {
    double rise = 0, rimWeight = 0;
  };
  Profile ProfileAt(double distanceSquared) const;

  trVector centre_;
  double diameter_, depth_, rimHeight_, rimSkirt_, rimSoftness_, rimTightness_;
  trShaderLink rimShader_;
  trDoubleHint lengthHint_, tightnessHint_;
};
