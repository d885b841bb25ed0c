// bounding_box and landmark.
#include "objects/markers.h"

BoundingBox::BoundingBox() {
  GuiTab("Box", "box_tab");
  Param(boxCentre_, "box_centre", trVector());
  Param(boxSize_, "box_size", trVector(1, 1, 1));
  DeclareObjectGeneratorTabbedParams();
}

long BoundingBox::GenerateMesh(trScene& scene, long) {
  scene.SetAllowsTriSubdivision(false);
  return 1;
}

Landmark::Landmark() {
  SetMenu(typeHint_, this,
          {{"Flag", kFlag},
           {"Arrow", kArrow},
           {"Cube", kCube},
           {"Sphere", kSphere},
           {"Donut", kDonut},
           {"Diamond", kDiamond},
           {"Pyramid", kPyramid},
           {"Teapot", kTeapot}});
  SetMenu(modeHint_, this, {{"Wireframe", 0}, {"Solid", 1}});
  styleHeading_.Declare(this, "style_separator", "Style");
  Param(type_, "type", kFlag, &typeHint_);
  Param(colour_, "colour", trManRgb(1.0f, 0.5f, 0.0f)).Alias("color");
  Param(displayMode_, "display_mode", 1, &modeHint_);
  locationHeading_.Declare(this, "location_separator", "Location");
  Param(position_, "position", trVector());
  Param(rotation_, "rotation", trVector());
}

trBoundingBox Landmark::BoundingBoxL() {
  // Flags, arrows and what stands on the ground point at their place with their foot; the others are about
  // it.
  switch (type_) {
    case kFlag:
      return {{-0.02, 0, -0.02}, {0.6, 1, 0.02}};
    case kArrow:
      return {{-0.15, 0, -0.15}, {0.15, 1, 0.15}};
    case kPyramid:
      return {{-0.5, 0, -0.5}, {0.5, 1, 0.5}};
    case kTeapot:
      return {{-0.75, 0, -0.5}, {0.85, 0.8, 0.5}};
    case kDonut:
      return {{-0.5, -0.15, -0.5}, {0.5, 0.15, 0.5}};
    default:
      return {{-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5}};
  }
}

trTransform<double> Landmark::Transform() {
  trTransform<double> transform;
  SetTransformFromParams(transform, nullptr, nullptr, position_, rotation_, {1, 1, 1});
  return transform;
}

void Landmark::MoveHandlePositionT(const trVector& delta) {
  SetParam("position", position_ + delta, trWhoUserIndirect);
}

void Landmark::MoveHandleRotationT(const trVector& deltaDegrees) {
  SetParam("rotation", rotation_ + deltaDegrees, trWhoUserIndirect);
}
