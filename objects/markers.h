// bounding_box and landmark: objects that nobody renders, to plan a scene with.
#pragma once

#include "core/idioms.h"
#include "core/scene_maker.h"

/// An empty object that stands for a box: shown in the preview, and scattered by populators, in place of a
/// heavy one.
class BoundingBox : public juObjectGenerator {
 public:
  BoundingBox();
  /// Makes nothing.
  long GenerateMesh(trScene& scene, long materialIndex) override;
  bool HasActiveMeshDisplacer() override { return false; }
  trBoundingBox BoundingBoxL() override { return trBoundingBox::FromCentre(boxCentre_, boxSize_); }

 private:
  trVector boxCentre_, boxSize_;
};

/// A marker that shows in the preview where something is.
class Landmark : public juSceneMaker, public juPreviewHandler {
 public:
  enum Type : long { kFlag, kArrow, kCube, kSphere, kDonut, kDiamond, kPyramid, kTeapot };

  Landmark();
  trPreviewHandler* PreviewHandler() override { return this; }

  trBoundingBox BoundingBoxL() override;
  trVector HandlePositionL() override { return {}; }
  trTransform<double> Transform() override;
  void MoveHandlePositionT(const trVector& delta) override;
  void MoveHandleRotationT(const trVector& deltaDegrees) override;
  trVector HandleRotation() override { return rotation_; }
  bool ShouldUsePreviewColourForRender() override { return true; }
  trFCol GetPreviewColour() override { return colour_.ToRender(); }
  /// Whether the shape is drawn as a solid rather than as its lines.
  bool IsSolid() const { return displayMode_ != 0; }

 private:
  trHeading styleHeading_, locationHeading_;
  trIntHint typeHint_, modeHint_;
  long type_, displayMode_;
  trManRgb colour_;
  trVector position_, rotation_;
};
