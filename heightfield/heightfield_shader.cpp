// The parameters, couplings, button and preview of heightfield_shader.
#include "heightfield/heightfield_shader.h"

#include "core/messages.h"

// --- Button and preview

HeightfieldShader_ViewButton::HeightfieldShader_ViewButton(HeightfieldShaderBase* node)
    : trGuiPushButton(node, "View heightfield"), node_(node) {}

long HeightfieldShader_ViewButton::OnPressed() {
  trHeightfield* const field = node_->Field();
  juProject* const project = juProject::Of(node_);
  if (!field || !project || node_->LacksMask()) {
    trWarning("No heightfield data!");
    return 0;
  }
  project->OpenHfView(field);
  return 1;
}

unsigned char HeightfieldShader_PreviewHandler::IsPreviewEnabled() { return node_->showBox_; }

trBoundingBox HeightfieldShader_PreviewHandler::BoundingBoxL() {
  const trHeightfield* const field = node_->Field();
  if (!field || field->HfXPnts() == 0) return {};
  const trVector corner = HandlePositionL();
  const double w = field->HfScaledXSize(), h = field->HfScaledYSize();
  const trVector low = node_->positionCentre_      ? trVector(corner.x - w / 2, 0, corner.z - h / 2)
                       : node_->positionUpperLeft_ ? trVector(corner.x, 0, corner.z - h)
                                                   : corner;
  trBoundingBox box;
  box.Union({low.x, field->HfMinHeight() * node_->heightMultiplier_, low.z});
  box.Union({low.x + w, field->HfMaxHeight() * node_->heightMultiplier_, low.z + h});
  return box;
}

trVector HeightfieldShader_PreviewHandler::HandlePositionL() {
  const trHeightfield* const field = node_->Field();
  if (!field) return {};
  trLatLongCorners corners;
  if (field->HfLatLongCorners(&corners))
    return {0.5 * corners.west + 0.5 * corners.east, 0, 0.5 * corners.south + 0.5 * corners.north};
  return {node_->position_.x, 0, node_->position_.y};
}

trVector HeightfieldShader_PreviewHandler::HandleRotation() { return {0, node_->rotation_, 0}; }

void HeightfieldShader_PreviewHandler::MoveHandlePositionT(const trVector& delta) {
  node_->SetParam("position", node_->position_ + tr2Vector(delta.x, delta.z), trWhoUserIndirect);
}

void HeightfieldShader_PreviewHandler::MoveHandleRotationT(const trVector& deltaDegrees) {
  node_->SetParam("rotation", node_->rotation_ + deltaDegrees.y, trWhoUserIndirect);
}

// --- Both classes

HeightfieldShaderBase::HeightfieldShaderBase() = default;

trHeightfield* HeightfieldShaderBase::Field() const {
  return static_cast<trHeightfield*>(heightfield_.LinkedNode());
}

trHeightfield* HeightfieldShaderBase::MaskField() const {
  return static_cast<trHeightfield*>(blendingHeightfield_.LinkedNode());
}

void HeightfieldShaderBase::DeclareMasks() {
  Param(blendByHeightfield_, "blend_by_heightfield", 0)
      .Display("Mask by heightfield")
      .About("Lets another heightfield say where this one counts. Linking or cutting the mask switches it.");
  Param(blendingHeightfield_, "blending_heightfield", "")
      .Display("Mask heightfield")
      .About("Mask: its lowest point is 0, its highest 1.");
  AddGuiAction({"blend_by_heightfield"}, {"blending_heightfield"}, 3);
  mask_.Declare(this, 1);
}

long HeightfieldShaderBase::CreateLoader() {
  if (!heightfield_.FileStringR().empty()) return 1;
  trBase* const loader = Parent() ? Parent()->CreateChild("heightfield_load") : nullptr;
  if (!loader) return 1;
  loader->SetBundledWith(this);
  SetParam("heightfield", loader->Name(), this);
  trString path;
  if (juChooseFile({{"Ombrivex Heightfield Files", {"ovh"}},
                    {"Windows or OS/2 Bitmap", {"bmp"}},
                    {"TIFF or GeoTIFF", {"tif", "tiff"}},
                    {"Truevision Targa", {"tga", "targa"}},
                    {"All files", {"*"}}},
                   path))
    loader->SetParam("filename", path, trWhoUser);
  return 1;
}

long HeightfieldShaderBase::OnUserCreate() {
  trSurfaceShader::OnUserCreate();
  return CreateLoader();
}

void HeightfieldShaderBase::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  trSwitchFollowsLink(this, index, who, blendingHeightfield_, blendByHeightfield_, "blend_by_heightfield");
  mask_.OnParamChanged(this, index, who);
  isDirty_ = true;
}

void* HeightfieldShaderBase::RequestMember(const char* name) {
  if (trString(name) == "preview_handler") return static_cast<trPreviewHandler*>(&preview_);
  if (trString(name) == "heightfield") return static_cast<trBase*>(Field());
  return trSurfaceShader::RequestMember(name);
}

long HeightfieldShaderBase::StartRender(trRenderingInterface& rendering) {
  isDirty_ = true;  // the planet may have changed
  return trSurfaceShader::StartRender(rendering);
}

// --- heightfield_shader

HeightfieldShader::HeightfieldShader() {
  Param(showBox_, "show_b-box_in_preview", 1).About("Shows the field's extent in the preview.");
  Param(heightfield_, "heightfield", "").About("The heightfield that is laid on the surface.");
  PushButton(viewButton_, "view_button");
  DeclareLocation();
  DeclareColour();
  DeclareDisplacement();
  DeclareDetail();
  DeclareMasks();
}

void HeightfieldShader::DeclareLocation() {
  SetRange(rotationHint_, this, {.max = 360.0});
  SetMenu(spaceHint_, this,
          {{"Texture space (warpable and transformable)", kTexture},
           {"Undisplaced space", kUndisplaced},
           {"World space", kWorld}});
  GuiTab("Location", "location_tab");
  Param(flipX_, "flip_x", 0).About("Mirrors the field from west to east.");
  Param(flipY_, "flip_y", 0).About("Mirrors the field from south to north.");
  Param(positionCentre_, "position_centre", 1).About("The position is that of the field's middle.");
  Param(positionLowerLeft_, "position_lower_left", 0)
      .About("The position is that of the field's south-western corner.");
  Param(positionUpperLeft_, "position_upper_left", 0)
      .About("The position is that of the field's north-western corner.");
  const std::vector<trString> anchors = {"position_centre", "position_lower_left", "position_upper_left"};
  AddGuiAction(anchors, anchors, 1);
  Param(position_, "position", tr2Vector())
      .About(
          "Where the field lies: x and z, metres. One with latitudes and longitudes is moved so from its own "
          "place.");
  Param(rotation_, "rotation", 0.0, &rotationHint_)
      .About("Turns the field clockwise, degrees. One with latitudes and longitudes isn't turned.");
  Param(space_, "locate_in", kWorld, &spaceHint_)
      .About(
          "Points that the field is laid by: of the texture, which warps move, undisplaced ones, or the "
          "surface's.");
  Param(borderBlending_, "border_blending", 0.1)
      .About("Share of the field, 0 to 1, over which its border fades into what lies beneath.");
  Param(stitchable_, "stitchable_border", 0)
      .About("Lets the border fade half outside, so that neighbouring fields join without a seam.");
}

void HeightfieldShader::DeclareColour() {
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour_and_shade", 0)
      .ColourOnly()
      .About("Colours the surface where the field lies.");
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(1.0f))
      .ColourOnly()
      .About("Colour where the field lies.");
  Param(ambientColour_, "ambient_light_colour", trRgbLinear709(0.0f))
      .ColourOnly()
      .About("Kept for older projects; without effect.");
  Param(shadeByLight_, "shade_by_light", 1)
      .ColourOnly()
      .About("Lets the scene's light fall on that colour. Off, it shines by itself.");
  Param(shadeByHeight_, "shade_by_height", 0)
      .ColourOnly()
      .About("Darkens the colour towards the lowest point.");
}

void HeightfieldShader::DeclareDisplacement() {
  SetMenu(directionHint_, this,
          {{"Vertical (normal in geometry)", kVertical}, {"Normal", kNormal}, {"Y axis", kYAxis}});
  SetMenu(flattenHint_, this,
          {{"to Undisplaced Surface", kToUndisplaced},
           {"to Computed Terrain (pos. in texture)", kToTexture},
           {"to Y = 0", kToZero}});
  SetMenu(interpolationHint_, this,
          {{"Stepped", kStepped},
           {"Linear", kLinear},
           {"Cubic", kCubic},
           {"Catmull-Rom *", kCatmullRom},
           {"Over Smooth", kOverSmooth}});
  GuiTab("Displacement", "displacement_tab");
  Param(direction_, "displacement_direction", kYAxis, &directionHint_)
      .About("Which way points are moved: up from the ground, along the surface's normal, or along y.");
  Param(heightMultiplier_, "height_multiplier", 1.0)
      .About("Factor of the heights: above 1 exaggerates the relief.");
  Param(flattenFirst_, "flatten_surface_first", 1)
      .About("Levels the ground beneath, so that heights are the field's own. Off, they are added to it.");
  Param(flattenTo_, "flatten_surface_to", kToZero, &flattenHint_)
      .About("What the ground is levelled to: the undisplaced surface, the computed terrain, or y = 0.");
  Param(interpolation_, "interpolation_method", kCatmullRom, &interpolationHint_)
      .About(
          "How heights between points are found. Catmull-Rom keeps the points sharp; linear shows facets.");
}

void HeightfieldShader::DeclareDetail() {
  SetRange(tenHint_, this, {.max = 10.0});
  SetRange(detailScaleHint_, this, {.max = 4.0});
  GuiTab("Fractal Detail", "fractal_tab");
  Param(addDetail_, "add_fractal_detail", 1)
      .About("Roughens the ground between the points, so that the grid doesn't show up close.");
  Param(detail_.amount, "fractal_amount", 0.5, &tenHint_)
      .About("How far lookups are shifted for that. More is rougher.");
  Param(detailScale_, "fractal_scale_adjust", 4.0, &detailScaleHint_)
      .About("Size of the largest detail, in distances of the field's points.");
  Param(detail_.variation, "fractal_variation", 1.5, &tenHint_)
      .About("How much fine detail stirs the coarse.");
  Param(detail_.roughness, "fractal_roughness", 1.0).About("How slowly finer detail weakens.");
  Param(flowFactor_, "fractal_flow_factor", 0.0, &tenHint_)
      .About(
          "Draws detail out along the fall of the ground, like runnels. Not with stepped or linear lookups.");
}

long HeightfieldShader::OnFirstCreate() {
  HeightfieldShaderBase::OnFirstCreate();
  SetParam("locate_in", static_cast<long>(kTexture), this);
  SetParam("stitchable_border", 1, this);
  SetParam("displacement_direction", static_cast<long>(kVertical), this);
  SetParam("flatten_surface_to", static_cast<long>(kToUndisplaced), this);
  return 1;
}

// --- heightfield_displacement_shader

HeightfieldDisplacementShader::HeightfieldDisplacementShader() {
  trWarning(
      "Heightfield displacement shader is a deprecated class which may not work in future versions of "
      "Ombrivex.");
  trWarning(
      "Heightfield displacement shader is not safe for multi-threaded rendering. Use a Heightfield shader "
      "instead.");
  direction_ = kNormal;
  positionCentre_ = 0;
  Param(heightfield_, "heightfield", "").About("The heightfield that is laid on the surface.");
  PushButton(viewButton_, "view_button");
  Param(flipX_, "flip_x", 0).About("Mirrors the field from west to east.");
  Param(flipY_, "flip_y", 0).About("Mirrors the field from south to north.");
  Param(positionCentre_, "position_center", 1).About("The position is that of the field's middle.");
  Param(positionLowerLeft_, "position_lower_left", 0)
      .About("The position is that of the field's south-western corner.");
  AddGuiAction({"position_center", "position_lower_left"}, {"position_center", "position_lower_left"}, 1);
  DeclareMasks();
}

long HeightfieldDisplacementShader::OnFirstCreate() {
  HeightfieldShaderBase::OnFirstCreate();
  return CreateLoader();
}
