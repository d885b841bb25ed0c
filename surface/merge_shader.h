// merge_shader: two networks, the input and `shader_A`, run apart and made one surface.
#pragma once

#include "core/idioms.h"

class MergeShader : public trShader {
 public:
  MergeShader();
  long OnFirstCreate() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return mergeDisplacement_; }
  unsigned char HasShade() override { return mergeColour_; }

 private:
  enum Mode : long {
    kMix = 0,
    kAdd,
    kSubtractA,
    kSubtractInput,
    kDifference,
    kMultiplyInput,
    kMultiplyA,
    kScreenByA,
    kScreenByInput
  };
  enum TextureSpace : long { kLegacy = 0, kCurrent = 1, kUndisplaced = 2 };
  enum Altitude : long { kAll = 0, kHighest = 1, kLowest = 2 };

  /// The networks and how much of A there is, 0 to 1 a channel as a rule.
  struct Mix {
    trShader *input, *a;
    trFCol toA;
    bool useInput = true, useA = true;
    /// With weights of exactly 0 or 1 one of the networks needn't run.
    void DropUnused();
    bool IsSingle() const { return !useInput || !useA; }
    trShader& Single() const { return useA ? *a : *input; }
  };
  /// False where a network is missing: then neither runs.
  bool FindMix(trShadingInterface& si, bool mayDrop, Mix& mix) const;
  /// Height of a network over the point, along the texture normal.
  double Height(trShadingInterface& si, trShader& network) const;
  void EnterTextureSpace(trShadingInterface& si) const;
  /// Runs both networks and merges what they left. Its states stay off the stack while a mix is asked for.
  [[gnu::noinline]] void MergeColours(trShadingInterface& si, const Mix& mix) const;

  trShaderLink shaderA_, mixController_;
  double mixToA_;
  long chooseByAltitude_, textureSpace_, colourMode_, displaceMode_;
  unsigned char mergeColour_, mergeDisplacement_;
  trIntHint altitudeHint_, spaceHint_, colourHint_, displaceHint_;
};
