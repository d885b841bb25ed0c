// The parameters and couplings of image_map_shader, and its image.
#include "imagemap/image_map_shader.h"

#include "core/messages.h"
#include "core/project.h"

ImageMapShader::ImageMapShader() {
  fileHint_.SetIsImageFile(true);
  Param(filename_, "image_filename", "", &fileHint_);
  DeclareProjection();
  DeclareColour();
  DeclareDisplacement(true);
  DeclareEffects();
  mask_.Declare(this, 1);
  Param(useOcio_, "use_ocio", 0);
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
  Param(projection_, "projection_type", kPlanY, &projectionHint_);
  Param(camera_, "projection_camera", "");
  Param(positionCentre_, "position_center", 0);
  Param(positionLowerLeft_, "position_lower_left", 1);
  Param(position_, "position", trVector());
  Param(size_, "size", tr2Vector(1, 1));
  Param(lockAspect_, "lock_size_to_image_aspect_ratio", 1);
  Param(sizeInfo_, "image_size_info", "0 x 0", &sizeInfoHint_).Display("Image size (pixels):");
  SetParamGuiEnabled("image_size_info", false);
  GuiTab("Flip, Repeat", "tiling_tab");
  Param(flipX_, "flip_x", 0);
  Param(flipY_, "flip_y", 0);
  Param(repeatX_, "repeat_x", 0);
  Param(repeatY_, "repeat_y", 0);
}

void ImageMapShader::DeclareColour() {
  SetRange(gammaHint_, this, {.min = 1.0, .max = 3.4});
  GuiTab("Colour", "colour_tab");
  Param(applyColour_, "apply_colour", 1).ColourOnly();
  Param(smooth_, "smooth_interpolation", 1);
  Param(unpremultiply_, "unpremultiply", 0).ColourOnly();
  Param(toLinear_, "convert_to_linear", 1);
  Param(isLinear_, "data_is_linear", 0);
  Param(gamma_, "conversion_gamma", 2.2, &gammaHint_);
  Param(multiply_, "multiply_RGB", 0);
  Param(multiplier_, "RGB_multiplier", trVector(1, 1, 1)).Display("RGB mult.");
  Param(offset_, "offset_RGB", 0);
  Param(offsetValue_, "RGB_offset_value", trVector()).Display("RGB offset");
}

void ImageMapShader::DeclareDisplacement(bool withParamBug) {
  GuiTab("Displacement", "displacement_tab");
  Param(applyDisplacement_, "apply_displacement", 0);
  Param(amplitude_, "displacement_amplitude", 1.0);
  Param(displacementOffset_, "displacement_offset", 0.0);
  Param(smoothDisp_, "smooth_disp_interpolation", 1);
  Param(dispToLinear_, "convert_disp_to_linear", 0);
  Param(dispIsLinear_, "disp_data_is_linear", 1);
  Param(dispGamma_, "disp_conversion_gamma", 2.2, &gammaHint_);
  if (!withParamBug) return;
  Param(hasDispParamBug_, "has_disp_param_bug", 1)
      .Display("Use settings from Colour tab (compatible with old versions)");
}

void ImageMapShader::DeclareEffects() {
  SetRange(keyHint_, this, {.min = 0.0, .max = 1.0, .focusPower = 2.0});
  GuiTab("Effects", "effects_tab");
  Param(alphaAsOpacity_, "alpha_as_opacity", 0).ColourOnly();
  Param(alphaAsColour_, "alpha_as_colour", 0).ColourOnly();
  Param(createTransparency_, "create_transparency", 0).ColourOnly();
  Param(key_, "transparency_key", trRgbLinear709(0.0f)).ColourOnly();
  Param(keyTolerance_, "key_tolerance", 0.1, &keyHint_).ColourOnly();
  Param(invertAlpha_, "invert_alpha", 0).Display("Invert alpha/transparency").ColourOnly();
  Param(useAlphaDirectly_, "use_alpha_directly", 0)
      .Display("Use alpha/transparency for direct blending")
      .ColourOnly();
  Param(translucent_, "translucent", 0).ColourOnly();
  Param(translucencyAmount_, "translucency_amount", 1.0).ColourOnly();
  Param(translucencyTint_, "translucency_tint", trRgbLinear709(1.0f)).ColourOnly();
  Param(borderBlending_, "border_blending", 0.0);
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
