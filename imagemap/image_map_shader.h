// image_map_shader: an image on a surface, as colour, displacement or both.
#pragma once

#include <memory>

#include "core/idioms.h"
#include "core/image.h"

class ImageMapShader : public trSurfaceShader {
 public:
  ImageMapShader();
  long OnCreate() override;
  long OnFirstCreate() override;
  long OnUserCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  long StartRender(trRenderingInterface& rendering) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return applyDisplacement_; }
  unsigned char HasShade() override { return applyColour_; }

  /// Loads the file as it is at a frame. Main thread only.
  virtual long LoadImage(long frame);
  /// Where the shading point lies on the image, in pixels, and how much of it shows there. 0 where there is
  /// nothing to map. Thread-safe.
  virtual long MapToImage(trShadingInterface& si, double& x, double& y, trFCol& mask);
  /// Writes the image's size to the sheet. Main thread only.
  virtual void UpdateImageSizeInfo();

 protected:
  const trImage* Image() const { return image_.get(); }
  /// For a class with a list of parameters of its own: nothing is declared.
  struct Undeclared {};
  explicit ImageMapShader(Undeclared) {}

  enum Projection : long { kPlanY, kSideX, kSideZ, kCamera, kObjectUV, kCylindrical, kSpherical };

  void DeclareProjection();
  void DeclareProjectionMenu();
  void DeclareColour();
  void DeclareDisplacement(bool withParamBug);
  void DeclareEffects();
  void KeepDisplacementAlike(long index);
  void OnProjectionChanged();
  void UpdateGammaEnabling();

  /// The image's plane at a point relative to the position: 0 to 1 across.
  void Project(const trVector& q, double& u, double& v) const;
  /// How much of the image shows at (u, v) for its edges.
  double BorderMask(double u, double v) const;
  trF4Col SampleColour(double x, double y) const;
  /// A texel on its way to render space.
  trFCol Converted(const trFCol& texel, float alpha) const;

  std::unique_ptr<trImage> image_;
  long loadedFrame_ = 0;
  trFile filename_;
  trLinkHint fileHint_;

  // Projection, location, tiling
  trIntHint projectionHint_;
  trStringHint sizeInfoHint_;
  long projection_;
  trCameraLink camera_;
  const trBase* heldCamera_ = nullptr;
  trView cameraView_;
  bool hasCameraView_ = false;
  unsigned char positionCentre_, positionLowerLeft_, lockAspect_ = 0;
  trVector position_;
  tr2Vector size_, projectionSize_{1, 1};
  trString sizeInfo_;
  unsigned char flipX_, flipY_, repeatX_ = 0, repeatY_ = 0;

  // Colour
  unsigned char applyColour_, smooth_, unpremultiply_, toLinear_, isLinear_;
  unsigned char multiply_, offset_, useOcio_;
  double gamma_;
  trDoubleHint gammaHint_, keyHint_;
  trVector multiplier_, offsetValue_;

  // Displacement
  unsigned char applyDisplacement_, smoothDisp_, dispToLinear_, dispIsLinear_;
  unsigned char hasDispParamBug_;
  double amplitude_, displacementOffset_, dispGamma_;

  // Effects
  unsigned char alphaAsOpacity_, alphaAsColour_, createTransparency_, invertAlpha_;
  unsigned char useAlphaDirectly_, translucent_;
  trManRgb key_, translucencyTint_;
  double keyTolerance_, translucencyAmount_, borderBlending_;
  trMask mask_;
};
