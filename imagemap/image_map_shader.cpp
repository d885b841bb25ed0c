// The parameters and couplings of image_map_shader, and its image.
#include "imagemap/image_map_shader.h"

#include "core/messages.h"
#include "core/project.h"

ImageMapShader::ImageMapShader() {
  fileHint_.SetIsImageFile(true);
  Param(filename_, "image_filename", "", &fileHint_)
      .About("The image file. #### in its name is the frame's number, for sequences.");
  DeclareProjection();
  DeclareColour();
  DeclareDisplacement(true);
  DeclareEffects();
  mask_.Declare(this, 1);
  Param(useOcio_, "use_ocio", 0)
      .About(
          "Says that the colour configuration converts the image; without effect but that sheets grey the "
          "gamma out.");
  UpdateGammaEnabling();
}

void ImageMapShader::DeclareProjectionMenu() {
  SetMenu(projectionHint_, this,
          {{"Plan Y (edges = XZ)", kPlanY},
           {"Side X (edges = YZ)", kSideX},
           {"Side Z (edges = XY)", kSideZ},
           {"Through camera", kCamera},
           {"Object UV (if available)", kObjectUV},
           {"Cylindrical", kCylindrical},
           {"Spherical", kSpherical}});
}

void ImageMapShader::DeclareProjection() {
  DeclareProjectionMenu();
  GuiTab("Projection, Location", "projection_tab");
  Param(projection_, "projection_type", kPlanY, &projectionHint_)
      .About(
          "From where the image is laid on: above, a side, a camera, the object's own UVs, or round about an "
          "axis.");
  Param(camera_, "projection_camera", "")
      .About("Camera that the image is projected through. Left empty, it is the one that renders.");
  Param(positionCentre_, "position_center", 0).About("The position is that of the image's middle.");
  Param(positionLowerLeft_, "position_lower_left", 1)
      .About("The position is that of the image's lower left corner.");
  Param(position_, "position", trVector())
      .About("Where the image lies, metres; through cameras and on UVs from 0 to 1.");
  Param(size_, "size", tr2Vector(1, 1))
      .About(
          "Width and height: metres, or shares of the picture, the UVs or the turn about the axis, where 1 "
          "is all.");
  Param(lockAspect_, "lock_size_to_image_aspect_ratio", 1).About("Kept with the project; without effect.");
  Param(sizeInfo_, "image_size_info", "0 x 0", &sizeInfoHint_)
      .Display("Image size (pixels):")
      .About("Pixels of the loaded image. Told, not set.");
  SetParamGuiEnabled("image_size_info", false);
  GuiTab("Flip, Repeat", "tiling_tab");
  Param(flipX_, "flip_x", 0).About("Mirrors the image from left to right.");
  Param(flipY_, "flip_y", 0).About("Mirrors the image from bottom to top.");
  Param(repeatX_, "repeat_x", 0).About("Repeats the image sideways. Off, there is nothing beyond its edges.");
  Param(repeatY_, "repeat_y", 0).About("Repeats the image upwards. Off, there is nothing beyond its edges.");
}

void ImageMapShader::DeclareColour() {
  SetRange(gammaHint_, this, {.min = 1.0, .max = 3.4});
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1).ColourOnly().About("Colours the surface by the image.");
  Param(smooth_, "smooth_interpolation", 1).About("Blends neighbouring pixels. Off, each shows as a square.");
  Param(unpremultiply_, "unpremultiply", 0)
      .ColourOnly()
      .About("Divides colours by alpha, where they were stored multiplied: no dark rims.");
  Param(toLinear_, "convert_to_linear", 1)
      .About("Turns the file's values into light, as photographs need. Off for masks and data.");
  Param(isLinear_, "data_is_linear", 0)
      .About("Says that the file's values are light or data already. Turns the conversion off.");
  Param(gamma_, "conversion_gamma", 2.2, &gammaHint_)
      .About("Gamma of that conversion: 2.2 suits most pictures. Not with a colour configuration.");
  Param(multiply_, "multiply_RGB", 0).About("Multiplies the colour by the factors beside it.");
  Param(multiplier_, "RGB_multiplier", trVector(1, 1, 1))
      .Display("RGB mult.")
      .About("Factors of red, green and blue.");
  Param(offset_, "offset_RGB", 0).About("Adds the values beside it to the colour.");
  Param(offsetValue_, "RGB_offset_value", trVector())
      .Display("RGB offset")
      .About("What is added to red, green and blue.");
}

void ImageMapShader::DeclareDisplacement(bool withParamBug) {
  GuiTab("Displacement", "displacement_tab");
  Param(applyDisplacement_, "apply_displacement", 0)
      .About("Moves the surface along its normal by the image's brightness.");
  Param(amplitude_, "displacement_amplitude", 1.0).About("Height of white, metres.");
  Param(displacementOffset_, "displacement_offset", 0.0).About("Added where the image lies, metres.");
  Param(smoothDisp_, "smooth_disp_interpolation", 1)
      .About("Blends neighbouring pixels of the displacement. Off, it has steps.");
  Param(dispToLinear_, "convert_disp_to_linear", 0)
      .About("Turns the displacement's values into light first. Seldom right for heights.");
  Param(dispIsLinear_, "disp_data_is_linear", 1)
      .About("Says that the values are heights as they are. Turns the conversion off.");
  Param(dispGamma_, "disp_conversion_gamma", 2.2, &gammaHint_).About("Gamma of that conversion.");
  if (!withParamBug) return;
  Param(hasDispParamBug_, "has_disp_param_bug", 1)
      .Display("Use settings from Colour tab (compatible with old versions)")
      .About(
          "Takes gamma and interpolation from the colour tab for displacement too, as older projects did.");
}

void ImageMapShader::DeclareEffects() {
  SetRange(keyHint_, this, {.min = 0.0, .max = 1.0, .focusPower = 2.0});
  GuiTab("Effects", "effects_tab");
  Param(alphaAsOpacity_, "alpha_as_opacity", 0)
      .ColourOnly()
      .About("Opens the surface where the image's alpha is low.");
  Param(alphaAsColour_, "alpha_as_colour", 0)
      .ColourOnly()
      .About("Shows the alpha as a grey in place of the colour: for masks.");
  Param(createTransparency_, "create_transparency", 0)
      .ColourOnly()
      .About("Opens the surface where the image has one colour.");
  Param(key_, "transparency_key", trRgbLinear709(0.0f)).ColourOnly().About("The colour that is opened.");
  Param(keyTolerance_, "key_tolerance", 0.1, &keyHint_)
      .ColourOnly()
      .About("How far, 0 to 1, each channel may be off that colour and still be opened.");
  Param(invertAlpha_, "invert_alpha", 0)
      .Display("Invert alpha/transparency")
      .ColourOnly()
      .About("Turns alpha and transparency round.");
  Param(useAlphaDirectly_, "use_alpha_directly", 0)
      .Display("Use alpha/transparency for direct blending")
      .ColourOnly()
      .About("Lets what lies beneath show through by alpha, in place of opening the surface.");
  Param(translucent_, "translucent", 0).ColourOnly().About("Kept with the project; without effect.");
  Param(translucencyAmount_, "translucency_amount", 1.0)
      .ColourOnly()
      .About("Kept with the project; without effect.");
  Param(translucencyTint_, "translucency_tint", trRgbLinear709(1.0f))
      .ColourOnly()
      .About("Kept with the project; without effect.");
  Param(borderBlending_, "border_blending", 0.0)
      .About("Share of the image, 0 to 1, over which its edges fade out where it doesn't repeat.");
}

long ImageMapShader::OnCreate() { return trSurfaceShader::OnCreate(); }

long ImageMapShader::OnFirstCreate() {
  trSurfaceShader::OnFirstCreate();
  SetParam("has_disp_param_bug", 0, this);
  SetParam("projection_type", static_cast<long>(kPlanY), this);
  SetParam("size", tr2Vector(500, 500), this);
  return 1;
}

long ImageMapShader::OnUserCreate() {
  trSurfaceShader::OnUserCreate();
  trString path;
  if (juChooseFile({{"Image files", {"exr", "hdr", "jpg", "jpeg", "png", "tif", "tiff", "tga", "bmp"}}},
                   path))
    SetParam("image_filename", path, trWhoUser);
  if (!image_) return 1;

  // The size keeps the image's aspect.
  tr2Vector size = size_;
  const double w = image_->width, h = image_->height;
  if (w > h) size.y *= h / w;
  if (h > w) size.x *= w / h;
  return SetParam("size", tr2Vector(std::floor(size.x + 0.5), std::floor(size.y + 0.5)), this);
}

void ImageMapShader::UpdateGammaEnabling() { SetParamGuiEnabled("conversion_gamma", toLinear_ && !useOcio_); }

void ImageMapShader::OnParamChanged(long index, trBase* who) {
  trSurfaceShader::OnParamChanged(index, who);
  const auto turnOff = [&](const unsigned char& changed, const char* other) {
    if (IsParam(index, &changed) && changed) SetParam(other, 0, this);
  };
  if (IsParam(index, &filename_)) {
    const trBase* const root = Root();
    LoadImage(static_cast<long>(root ? root->GetCurrentFrame() : GetCurrentFrame()));
  }
  if (IsParam(index, &useOcio_) || IsParam(index, &toLinear_)) UpdateGammaEnabling();
  turnOff(toLinear_, "data_is_linear");
  turnOff(isLinear_, "convert_to_linear");
  if (hasDispParamBug_) KeepDisplacementAlike(index);
  turnOff(dispToLinear_, "disp_data_is_linear");
  turnOff(dispIsLinear_, "convert_disp_to_linear");
  turnOff(positionCentre_, "position_lower_left");
  turnOff(positionLowerLeft_, "position_center");

  if (IsParam(index, &camera_)) {
    const trBase* const before = heldCamera_;
    heldCamera_ = camera_.LinkedNode(true);
    if (trIsUser(who) && !before && heldCamera_ && projection_ != kCamera)
      SetParam("projection_type", static_cast<long>(kCamera), who);
  }
  if (IsParam(index, &projection_) && trIsUser(who)) OnProjectionChanged();
  mask_.OnParamChanged(this, index, who);
}

/// Old versions had one set of settings for colour and displacement: the displacement's follow the colour's.
void ImageMapShader::KeepDisplacementAlike(long index) {
  if (IsParam(index, &smooth_)) SetParam("smooth_disp_interpolation", smooth_, this);
  if (IsParam(index, &toLinear_)) SetParam("convert_disp_to_linear", toLinear_, this);
  if (IsParam(index, &isLinear_)) SetParam("disp_data_is_linear", isLinear_, this);
  if (IsParam(index, &gamma_)) SetParam("disp_conversion_gamma", gamma_, this);
}

void ImageMapShader::OnProjectionChanged() {
  switch (projection_) {
    case kCamera:
      SetParam("position_center", 1, this);
      SetParam("position", trVector(0.5, 0.5, 0), this);
      SetParam("size", tr2Vector(1, 1), this);
      break;
    case kObjectUV:
      SetParam("position_lower_left", 1, this);
      SetParam("position", trVector(), this);
      SetParam("size", tr2Vector(1, 1), this);
      break;
    case kCylindrical:
      SetParam("position_center", 1, this);
      break;
    case kSpherical:
      SetParam("position_center", 1, this);
      SetParam("size", tr2Vector(1, 1), this);
      break;
    default:
      break;
  }
  projectionSize_ = size_;
}

long ImageMapShader::LoadImage(long frame) {
  image_.reset();
  UpdateImageSizeInfo();
  if (filename_.FileStringR().empty()) return 0;
  const trScopedErrorsWarningsContext context(this);
  auto image = std::make_unique<trImage>();
  const int number = static_cast<int>(frame);
  loadedFrame_ = frame;
  if (!image->ReadFile(filename_.FullPath(), &number)) return 0;
  image_ = std::move(image);
  UpdateImageSizeInfo();
  return 1;
}

void ImageMapShader::UpdateImageSizeInfo() {
  const int w = image_ ? image_->width : 0, h = image_ ? image_->height : 0;
  SetParam("image_size_info", std::to_string(w) + " x " + std::to_string(h), this);
}

long ImageMapShader::StartRender(trRenderingInterface& rendering) {
  // A sequence goes on with the frames; a single image was loaded when it was named.
  const long frame = static_cast<long>(rendering.RenderState().Shading().Frame());
  if (filename_.FileStringR().find('#') != trString::npos && frame != loadedFrame_) LoadImage(frame);
  trBase* const camera = camera_.LinkedNode(true);
  const auto* view = camera ? static_cast<const trView*>(camera->RequestMember("view")) : nullptr;
  hasCameraView_ = view != nullptr;
  if (view) cameraView_ = *view;
  if (projection_ == kCamera && IsEnabled() && !view && !rendering.PMainView())
    trWarning("The image is projected through a camera, but there is none.");
  return trSurfaceShader::StartRender(rendering);
}
