// fractal_warp_shader: warps texture space in the horizontal plane by octaves of noise.
#pragma once

#include <atomic>
#include <mutex>

#include "core/idioms.h"

class FractalWarpShader : public trSurfaceShader {
 public:
  FractalWarpShader();
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;

 private:
  static constexpr int kMaxOctaves = 32;
  /// How far behind an octave's own noise offset that of its second noise stands.
  static constexpr int kSecondOffset = 5;
  /// What one sample's loop over the octaves works with. Lengths in units of `scale`.
  struct Loop {
    double mask;       ///< above 0, normally up to 1
    double footprint;  ///< 0 or less where nothing smooths
    double modulator;  ///< of the octaves' reach; negative without a scale filter
  };
  void Warp(trShadingInterface& si) const;
  tr2Vector WarpOffset(double x, double z, const Loop& loop) const;
  double Weight(int octave, double frequency, const Loop& loop) const;
  /// What the walk over the octaves is scaled by, and its sum divided by: nothing to divide by is left out.
  double Variation() const { return std::max(variation_, 1e-6); }
  void BuildTables() const;

  double scale_, warpAmount_, variation_, roughness_;
  long seed_;
  trShaderLink scaleFilter_;
  unsigned char obeySmoothingFilter_;
  trMask mask_;
  trRandomSeedGuiPushButton randomiseButton_{this};
  trDoubleHint scaleHint_, upToTwoHint_;

  mutable double warpStep_[kMaxOctaves] = {}, warpWeight_[kMaxOctaves] = {};
  mutable trVector noiseOffset_[kMaxOctaves + kSecondOffset];
  mutable std::atomic<bool> tablesDirty_{true};
  mutable std::mutex tablesMutex_;
};
