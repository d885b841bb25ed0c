// bounding_box and landmark.
#include "objects/markers.h"

BoundingBox::BoundingBox() {
  GuiTab("Box", "box_tab");
  Param(boxCentre_, "box_centre", trVector())
      .About("Middle of the box about the object's own origin, in metres.");
  Param(boxSize_, "box_size", trVector(1, 1, 1))
      .About("Lengths of the box's edges in metres, before the object's scale.");
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
  Param(type_, "type", kFlag, &typeHint_)
      .About(
          "Shape of the mark in the preview. Flags, arrows, pyramids and teapots stand on their position.");
  Param(colour_, "colour", trManRgb(1.0f, 0.5f, 0.0f))
      .Alias("color")
      .About("Colour of the mark in the preview. Renders don't show marks.");
  Param(displayMode_, "display_mode", 1, &modeHint_)
      .About("Whether the preview draws the mark as lines or as a solid.");
  locationHeading_.Declare(this, "location_separator", "Location");
  Param(position_, "position", trVector()).About("Where the mark stands in the world, in metres.");
  Param(rotation_, "rotation", trVector()).About("Rotation of the mark in degrees about x, then y, then z.");
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
