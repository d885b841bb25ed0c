// The data side of the 3D preview: boxes, handles, moves.
#pragma once

#include "core/colour.h"
#include "core/transform.h"

class trBase;

class OV_API trPreviewHandler {
 public:
  virtual ~trPreviewHandler() = default;
  virtual unsigned char IsPreviewEnabled() { return 1; }
};

/// The view-side interface of a node: L is local (object) space, T is world space; metres, rotations in
/// degrees. Main thread only.
class OV_API juPreviewHandler : public trPreviewHandler {
 public:
  virtual trBoundingBox BoundingBoxL() { return {}; }
  virtual trVector HandlePositionL() { return BoundingBoxL().Centre(); }
  virtual void MoveHandlePositionT(const trVector& delta) {}
  virtual void GetRotationAxes(trVector axes[3]) { UnitAxes(axes); }
  virtual void MoveHandleRotationT(const trVector& deltaDegrees) {}
  virtual void GetScaleAxes(trVector axes[3]) { UnitAxes(axes); }
  virtual trTransform<double> Transform() { return {}; }
  virtual trTransform<double> TransformForInteraction() { return Transform(); }
  virtual int GetManipMode() { return manipMode_; }
  virtual void SetManipMode(int mode) { manipMode_ = mode; }
  virtual void GetTranslationAxes(trVector axes[3]) { UnitAxes(axes); }
  virtual trBoundingBox BoundingBoxLForInteraction() { return BoundingBoxL(); }
  virtual trBoundingBox BoundingBoxTForInteraction();
  virtual trVector HandlePositionTForInteraction() {
    return TransformForInteraction().Point(HandlePositionL());
  }
  virtual trVector HandleRotation() { return {}; }
  virtual trVector HandleScale() { return {1, 1, 1}; }
  virtual void MoveHandleScaleT(const trVector& factor) {}
  virtual bool SupportsPreviewDisplayOptions() { return false; }
  virtual bool IsSelected() { return selected_; }
  virtual void SetSelected(bool on) { selected_ = on; }
  virtual bool IsHighlighted() { return highlighted_; }
  virtual void SetHighlighted(bool on) { highlighted_ = on; }
  virtual void RemoveAllHighlighting() { highlighted_ = false; }
  virtual bool ShouldUsePreviewColourForRender() { return false; }
  virtual trFCol GetPreviewColour() { return trFCol(0.5f); }
  virtual bool ShouldShowTransformPanel() { return false; }
  virtual trVector TransformPanelPositionT() { return HandlePositionTForInteraction(); }

 protected:
  static void UnitAxes(trVector axes[3]) {
    axes[0] = {1, 0, 0};
    axes[1] = {0, 1, 0};
    axes[2] = {0, 0, 1};
  }

 private:
  int manipMode_ = 0;
  bool selected_ = false, highlighted_ = false;
};
