// Shaders that move, turn and scale the texture point for what they run, and put it back.
#pragma once

#include "core/shader.h"

/// Texture spaces that a transform can start from; the numbers are stored in projects.
enum trTextureSpace : long {
  kTexOriginalUndisplaced = 101,
  kTexObject = 200,
  kTexObjectUndisplaced = 201,
  kTexObjectSticky = 202,
  kTexWorld = 900,
  kTexWorldUndisplaced = 901,
  kTexWorldSticky = 902,
  kTexInstanceAnchor = 1900,
  kTexInstancePosition = 1910,
  kTexInstanceCentre = 1920
};

/// The parameters of both forms, the legacy switches among them, and the transform itself. The merge form
/// has a shader of its own to transform; the input form transforms its input.
class TransformShaderBase : public trSurfaceShader {
 public:
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;

 protected:
  explicit TransformShaderBase(bool isMergeForm);
  /// Replaces the texture point and scales the filter footprint.
  void ApplyTransform(trShadingInterface& si) const;
  trShader* MergedShader() const { return LinkedShader(shader_); }

 private:
  struct LegacySwitch {
    unsigned char* member;
    const char* name;
    long space;
  };
  void DeclareSpaces();
  void DeclareTransform(bool isMergeForm);
  void MendSpace();
  void KeepLegacyInStep();
  void UpdateSaved();
  void OnLegacyChanged(const LegacySwitch& legacy, long index, trBase* who);
  void SetIfDifferent(const char* name, long value);

  trShaderLink shader_;
  unsigned char useCurrentTextureSpace_, useResetSpace_;
  long resetSpace_;
  unsigned char useWorldSpace_ = 0, useUndisplacedSpace_ = 0, useStickyWorldSpace_ = 0;
  unsigned char translate_, rotate_, scale_;
  trVector translateBy_, rotateBy_, scaleBy_;
  trIntHint spaceHint_;
  const LegacySwitch legacy_[3] = {
      {&useWorldSpace_, "use_world_space", kTexWorld},
      {&useUndisplacedSpace_, "use_undisplaced_space", kTexWorldUndisplaced},
      {&useStickyWorldSpace_, "use_sticky_world_space", kTexWorldSticky},
  };
  bool isCoupling_ = false;
};

/// transform_input_shader.
class TransformInputShader : public TransformShaderBase {
 public:
  TransformInputShader() : TransformShaderBase(false) {}
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override;
  unsigned char HasShade() override;
};

/// transform_merge_shader, and transform_shader.
class TransformMergeShader : public TransformShaderBase {
 public:
  TransformMergeShader() : TransformShaderBase(true) {}
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override;
  unsigned char HasShade() override;
};
