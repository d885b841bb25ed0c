// The camera node.
#pragma once

#include "core/node.h"
#include "core/render_state.h"

/// A perspective camera. It looks at a point or along a rotation; its angle is a field of view or follows
/// from a lens.
class OV_API trCameraNode : public trBase {
 public:
  trCameraNode();
  void UpdateDerived() override;
  /// "view": the trView of the project's picture, valid until the next call. Main thread only.
  void* RequestMember(const char* name) override;

  /// The view of a picture of this size, pixels square. A target at the camera's own place, or straight above
  /// or below, still gives a proper frame.
  trView View(int width, int height) const;
  /// Whether it should look at a point that is its own place, and so can't.
  bool IsAtItsTarget() const;
  const trVector& Position() const { return position_; }

 private:
  trIntHint lensHint_;
  trDoubleHint angleHint_;
  trVector position_, target_, rotation_;
  unsigned char useTarget_;
  long lensMode_;
  double fieldOfView_, focalLength_, filmAperture_, nearClip_;
  trView view_;
};
