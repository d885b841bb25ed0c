// strata_and_outcrops_shader_v2: folds heights onto hard layers of rock, octave by octave.
#pragma once

#include "fractal/displacement_effect.h"

class StrataAndOutcropsShaderV2 : public DisplacementEffect {
 public:
  StrataAndOutcropsShaderV2();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;

 private:
  /// The mask at the state, 0 and more; false where it is on and leads nowhere.
  bool Mask(trShadingInterface& si, double& mask) const;
  /// A height folded onto the layers; `base` is the altitude of a layer there. Metres.
  double Folded(double height, double base, double depth, double mask) const;

  double altitude_, depth_, steepness_, plateauBuildup_, spacing_;
  long numOctaves_;
  unsigned char degreeFix_;
  double tiltDirection_, tiltAngle_;
  unsigned char useMask_, invertMask_;
  trShaderLink maskShader_;
  trDoubleHint altitudeHint_, lengthHint_, steepnessHint_, directionHint_, angleHint_;

  double tiltSlope_ = 0;
  trVector tiltAxis_{0, 0, 1};
};
