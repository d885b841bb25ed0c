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
  virtual bool IsHighlighted() { return HasHighlight(kWhole); }
  virtual void SetHighlighted(bool on) { SetHighlight(kWhole, on); }
  // What of the handles the pointer is over: arrows of translation (T) and of scale (S), rings of rotation
  // (R), and what grabs all three axes at once.
  virtual bool IsTXHighlighted() { return HasHighlight(kTX); }
  virtual void SetTXHighlighted(bool on) { SetHighlight(kTX, on); }
  virtual bool IsTYHighlighted() { return HasHighlight(kTY); }
  virtual void SetTYHighlighted(bool on) { SetHighlight(kTY, on); }
  virtual bool IsTZHighlighted() { return HasHighlight(kTZ); }
  virtual void SetTZHighlighted(bool on) { SetHighlight(kTZ, on); }
  virtual bool IsRXHighlighted() { return HasHighlight(kRX); }
  virtual void SetRXHighlighted(bool on) { SetHighlight(kRX, on); }
  virtual bool IsRYHighlighted() { return HasHighlight(kRY); }
  virtual void SetRYHighlighted(bool on) { SetHighlight(kRY, on); }
  virtual bool IsRZHighlighted() { return HasHighlight(kRZ); }
  virtual void SetRZHighlighted(bool on) { SetHighlight(kRZ, on); }
  virtual bool IsRotGrabHighlighted() { return HasHighlight(kRotGrab); }
  virtual void SetRotGrabHighlighted(bool on) { SetHighlight(kRotGrab, on); }
  virtual bool IsSXHighlighted() { return HasHighlight(kSX); }
  virtual void SetSXHighlighted(bool on) { SetHighlight(kSX, on); }
  virtual bool IsSYHighlighted() { return HasHighlight(kSY); }
  virtual void SetSYHighlighted(bool on) { SetHighlight(kSY, on); }
  virtual bool IsSZHighlighted() { return HasHighlight(kSZ); }
  virtual void SetSZHighlighted(bool on) { SetHighlight(kSZ, on); }
  virtual bool IsScaleCentreGrabHighlighted() { return HasHighlight(kScaleCentreGrab); }
  virtual void SetScaleCentreGrabHighlighted(bool on) { SetHighlight(kScaleCentreGrab, on); }
  virtual void RemoveAllHighlighting() { highlighted_ = 0; }
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
  enum Highlight { kWhole, kTX, kTY, kTZ, kRX, kRY, kRZ, kRotGrab, kSX, kSY, kSZ, kScaleCentreGrab };
  bool HasHighlight(Highlight part) const { return (highlighted_ >> part & 1u) != 0; }
  void SetHighlight(Highlight part, bool on) {
    highlighted_ = on ? highlighted_ | 1u << part : highlighted_ & ~(1u << part);
  }

  int manipMode_ = 0;
  bool selected_ = false;
  unsigned highlighted_ = 0;  ///< a bit a Highlight
};
