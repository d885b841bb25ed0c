// heightfield_shader: a heightfield laid on a surface, as displacement and colour; and its predecessor.
#pragma once

#include <atomic>
#include <mutex>

#include "core/geography.h"
#include "core/heightfield.h"
#include "core/idioms.h"
#include "core/preview.h"
#include "heightfield/fractal_detail.h"

class HeightfieldShaderBase;

/// "View heightfield".
class HeightfieldShader_ViewButton : public trGuiPushButton {
 public:
  explicit HeightfieldShader_ViewButton(HeightfieldShaderBase* node);
  long OnPressed() override;

 private:
  HeightfieldShaderBase* node_;
};

/// The box of the field in the 3D preview, and its handle.
class HeightfieldShader_PreviewHandler : public juPreviewHandler {
 public:
  explicit HeightfieldShader_PreviewHandler(HeightfieldShaderBase* node) : node_(node) {}
  unsigned char IsPreviewEnabled() override;
  trBoundingBox BoundingBoxL() override;
  trVector HandlePositionL() override;
  trVector HandleRotation() override;
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;

 private:
  HeightfieldShaderBase* node_;
};

/// Settings and evaluation that both classes share.
class HeightfieldShaderBase : public trSurfaceShader {
 public:
  long OnUserCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  trPreviewHandler* PreviewHandler() override { return &preview_; }
  void* RequestMember(const char* name) override;
  long StartRender(trRenderingInterface& rendering) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return applyColour_; }

  /// The field linked; who declares to be a heightfield is one.
  trHeightfield* Field() const;
  /// Whether the mask by heightfield is on and leads nowhere.
  bool LacksMask() const { return blendByHeightfield_ && !MaskField(); }

 protected:
  HeightfieldShaderBase();
  void DeclareMasks();
  /// Makes a loader beside this node, linked, and lets the user choose its file.
  long CreateLoader();

 private:
  friend class HeightfieldShader;
  friend class HeightfieldDisplacementShader;
  friend class HeightfieldShader_PreviewHandler;

  enum Direction : long { kVertical = 0, kNormal = 1, kYAxis = 2 };
  enum Space : long { kTexture = 0, kUndisplaced = 1, kWorld = 2 };
  enum Flatten : long { kToUndisplaced = 0, kToTexture = 1, kToZero = 2 };
  enum Interpolation : long { kStepped, kLinear, kCubic, kCatmullRom, kOverSmooth };

  /// A shading point on the field: where, in grid points, and how much of the field shows there.
  struct Place {
    const trHeightfield* field = nullptr;
    double x = 0, y = 0, weight = 0;
  };
  /// Derived from the settings and the project, under the lock, at first use after a change.
  struct Derived {
    FractalDetail detail;
    bool hasPlanet = false;
    trPlanetGeography planet;
  };

  trHeightfield* MaskField() const;
  const Derived& Current();
  /// False where nothing can be done.
  bool Find(trShadingInterface& si, Place& place);
  bool FindOnPlanet(const trVector& q, const trLatLongCorners& corners, Place& place);
  bool FindFlat(const trVector& q, Place& place) const;
  /// 1 inside, fading to 0 across the border; 0 outside.
  double BorderWeight(const Place& place) const;
  tr2Vector FlowDetail(const Derived& derived, const Place& place) const;
  double Height(const Place& place) const;

  trHeightfieldLink heightfield_, blendingHeightfield_;
  unsigned char flipX_, flipY_, positionCentre_, positionLowerLeft_, blendByHeightfield_;

  // The deprecated class has these as they are: it doesn't declare them.
  unsigned char showBox_ = 1, positionUpperLeft_ = 0;
  tr2Vector position_;
  double rotation_ = 0;
  long space_ = kWorld;
  double borderBlending_ = 0;
  unsigned char stitchable_ = 0;

  unsigned char applyColour_ = 0, shadeByLight_ = 1, shadeByHeight_ = 0;
  trManRgb diffuseColour_{1, 1, 1}, ambientColour_;

  long direction_ = kYAxis, flattenTo_ = kToZero, interpolation_ = kCatmullRom;
  double heightMultiplier_ = 1;
  unsigned char flattenFirst_ = 0;

  unsigned char addDetail_ = 0;
  double detailScale_ = 4, flowFactor_ = 0;
  FractalDetail::Settings detail_{0.5, 1.5, 1};
  trMask mask_;

  HeightfieldShader_ViewButton viewButton_{this};
  HeightfieldShader_PreviewHandler preview_{this};
  std::atomic<bool> isDirty_{true};
  std::mutex mutex_;
  Derived derived_;
};

class HeightfieldShader : public HeightfieldShaderBase {
 public:
  HeightfieldShader();
  long OnFirstCreate() override;

 private:
  void DeclareLocation();
  void DeclareColour();
  void DeclareDisplacement();
  void DeclareDetail();

  trDoubleHint rotationHint_, tenHint_, detailScaleHint_;
  trIntHint spaceHint_, directionHint_, flattenHint_, interpolationHint_;
};

/// The form of old projects: flat, along the normal, without border, detail or colour.
class HeightfieldDisplacementShader : public HeightfieldShaderBase {
 public:
  HeightfieldDisplacementShader();
  long OnFirstCreate() override;
};
