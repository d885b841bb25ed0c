// The camera's parameters and its view.
#include "host/project/camera.h"

#include "core/idioms.h"
#include "core/transform.h"
#include "host/node/node_data.h"
#include "host/project/render_node.h"

trCameraNode::trCameraNode() {
  DeclareTrue("is_camera");
  SetRange(angleHint_, this, {.min = 1, .max = 160});
  SetMenu(lensHint_, this, {{"Field of view", 0}, {"Focal length", 1}});
  Param(position_, "position", {0, 10, 0})
      .About("Where the eye is in the world, metres: x east, y up, z north.");
  Param(useTarget_, "use_target", 0).About("On, the camera looks at the target; off, along its rotation.");
  Param(target_, "target", {0, 10, 1000})
      .About("Point of the world that is looked at, metres. Counts with \"Use target\".");
  Param(rotation_, "rotation", {0, 0, 0})
      .About(
          "Degrees: x tilts up, y turns clockwise from north, z rolls clockwise. With a target only the roll "
          "counts.");
  Param(lensMode_, "lens_mode", 0, &lensHint_)
      .About(
          "What gives the angle of view: the field of view itself, or a focal length and the width of the "
          "film.");
  Param(fieldOfView_, "field_of_view", 60.0, &angleHint_)
      .Display("Horizontal field of view")
      .About(
          "Angle from the left edge of the picture to the right one, degrees. Small brings far things near.");
  Param(focalLength_, "focal_length", 31.18)
      .Display("Focal length in mm")
      .About(
          "Focal length of the lens. Longer lenses show less of the scene, and that larger. Counts in the "
          "mode of that name.");
  Param(filmAperture_, "film_aperture", 36.0)
      .Display("Film aperture in mm")
      .About(
          "Width of the film behind the lens; 36 is a full-frame still camera. Counts in focal length mode.");
  Param(nearClip_, "near_clip", 0.1)
      .About(
          "Surfaces nearer to the eye are not seen, metres. Raise it to look past something right before the "
          "camera.");
  UpdateDerived();
}

void trCameraNode::UpdateDerived() {
  trBase::UpdateDerived();
  SetParamGuiEnabled("target", useTarget_ != 0);
  SetParamGuiEnabled("rotation", useTarget_ == 0);
  SetParamGuiEnabled("field_of_view", lensMode_ == 0);
  SetParamGuiEnabled("focal_length", lensMode_ == 1);
  SetParamGuiEnabled("film_aperture", lensMode_ == 1);
}

void* trCameraNode::RequestMember(const char* name) {
  if (trString(name) != "view") return trBase::RequestMember(name);
  view_ = View(960, 540);
  for (const trBase* node : ovhost::AllNodes(Root()))
    if (const auto* render = dynamic_cast<const trRenderNode*>(node)) {
      view_ = View(static_cast<int>(render->Width()), static_cast<int>(render->Height()));
      break;
    }
  return &view_;
}

bool trCameraNode::IsAtItsTarget() const {
  return useTarget_ && (target_ - position_).LengthSquared() < 1e-18;
}

trView trCameraNode::View(int width, int height) const {
  trView view;
  view.eye = position_;
  view.width = width;
  view.height = height;
  view.nearClip = std::clamp(nearClip_, 1e-4, 1e6);
  const double half = lensMode_ == 1
                          ? filmAperture_ * 0.5 / std::fmax(focalLength_, 1e-3)
                          : std::tan(std::clamp(fieldOfView_, 0.01, 175.0) * 0.5 * kDegreesToRadians);
  view.tanHalfHorizontal = std::clamp(half, 1e-5, 1e3);
  view.tanHalfVertical = view.tanHalfHorizontal * height / width;

  const trVector towards = target_ - position_;
  if (useTarget_ && !IsAtItsTarget()) {
    view.forward = Normalised(towards);
    const trVector vertical = std::fabs(view.forward.y) < 0.999999 ? trVector(0, 1, 0) : trVector(0, 0, 1);
    view.right = Normalised(Cross(vertical, view.forward));
    view.up = Cross(view.forward, view.right);
    const trVector right = view.right, up = view.up;
    const double roll = rotation_.z * kDegreesToRadians;
    view.right = right * std::cos(roll) - up * std::sin(roll);
    view.up = up * std::cos(roll) + right * std::sin(roll);
    return view;
  }
  const trTransform<double> turn = trRotateY(rotation_.y * kDegreesToRadians) *
                                   trRotateX(-rotation_.x * kDegreesToRadians) *
                                   trRotateZ(-rotation_.z * kDegreesToRadians);
  view.forward = turn.Direction({0, 0, 1});
  view.right = turn.Direction({1, 0, 0});
  view.up = turn.Direction({0, 1, 0});
  return view;
}
