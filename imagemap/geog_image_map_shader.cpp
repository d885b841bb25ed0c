// The parameters and couplings of geog_image_map_shader.
#include "imagemap/geog_image_map_shader.h"

#include "core/messages.h"

GeogImageMapShader_UpdateNODATAButton::GeogImageMapShader_UpdateNODATAButton(GeogImageMapShader* node)
    : trGuiPushButton(node, "Update"), node_(node) {}
long GeogImageMapShader_UpdateNODATAButton::OnPressed() { return node_->Reload(); }

GeogImageMapShader_SizeFromImageButton::GeogImageMapShader_SizeFromImageButton(GeogImageMapShader* node)
    : trGuiPushButton(node, "Size from Image"), node_(node) {}
long GeogImageMapShader_SizeFromImageButton::OnPressed() {
  const tr2Vector size = node_->GroundSize();
  if (size == tr2Vector()) return 0;
  return node_->SetParam("size", size, trWhoUserIndirect);
}

GeogImageMapShader::GeogImageMapShader() : ImageMapShader(Undeclared()) {
  fileHint_.SetIsImageFile(true);
  Gui(trGuiHiddenOpen);
  DeclareProjectionMenu();
  Param(hasDispParamBug_, "has_disp_param_bug", 0);
  Gui(trGuiHiddenClose);
  Param(filename_, "image_filename", "", &fileHint_);
  SetMenu(loadMethodHint_, this, {{"GDAL", kRasterLibrary}, {"Ombrivex", kPictureLibrary}});
  Param(loadMethod_, "load_method", kRasterLibrary, &loadMethodHint_);
  DeclareLocation();
  GuiTab("Flip", "tiling_tab");
  Param(flipX_, "flip_x", 0);
  Param(flipY_, "flip_y", 0);
  DeclareNoData();
  DeclareInfo();
  DeclareColour();
  DeclareDisplacement(false);
  DeclareEffects();
  mask_.Declare(this, 1);
  Param(useOcio_, "use_ocio", 0);
  SetParam("unpremultiply", 0, trWhoSystem);
  UpdateGammaEnabling();
  fileCorners_ = place_.corners;
}

void GeogImageMapShader::DeclareLocation() {
  const GeogPlace unplaced;
  GuiTab("Location", "location_tab");
  Param(georeference_, "georeference", 1);
  Gui(trGuiIndentOpen);
  Param(autoGeoreference_, "auto_georeference_from_file", 1);
  Param(reproject_, "reproject_on_the_fly", 0);
  Param(corners_[0], "NW_corner_lat_long", unplaced.corners[0]);
  Param(corners_[1], "NE_corner_lat_long", unplaced.corners[1]);
  Param(corners_[2], "SE_corner_lat_long", unplaced.corners[2]);
  Param(corners_[3], "SW_corner_lat_long", unplaced.corners[3]);
  Gui(trGuiIndentClose);
  Param(positionExplicitly_, "position_explicitly", 0);
  Gui(trGuiIndentOpen);
  Param(positionCentre_, "position_center", 0);
  Param(positionLowerLeft_, "position_lower_left", 1);
  Param(position_, "position", trVector());
  Param(size_, "size", tr2Vector(1, 1));
  Gui(trGuiIndentClose);
  PushButton(sizeButton_, "size_from_image_button");
}

void GeogImageMapShader::DeclareNoData() {
  SetRange(alphaHint_, this, {.min = 0.0, .max = 1.0});
  SetMenu(colourModeHint_, this, {{"Channel by channel", 0}, {"Any channel", 1}});
  GuiTab("NODATA", "data_tab");
  Param(replaceNoData_, "replace_NODATA_values", 0).Display("Replace NODATA values");
  Gui(trGuiIndentOpen);
  Param(withColour_, "replace_with_colour", 1);
  Param(noDataColour_, "NODATA_colour_value", trRgbLinear709(0.0f));
  Param(noDataAlpha_, "NODATA_alpha_value", 1.0, &alphaHint_);
  Param(colourMode_, "replace_colour_mode", 0, &colourModeHint_);
  Param(withScalar_, "replace_with_scalar", 0);
  Param(noDataScalar_, "NODATA_scalar_value", 0.0);
  Param(makeTransparent_, "make_NODATA_transparent", 0);
  Gui(trGuiIndentClose);
  PushButton(updateButton_, "update_NODATA_button");
}

void GeogImageMapShader::DeclareInfo() {
  infoHint_.SetStyleFlags(trStringHint::kMultiLine);
  GuiTab("Info", "info_tab");
  Param(xySize_, "xy_size", tr2Vector()).Display("XY size (metres)");
  Param(xyPoints_, "xy_points", tr2Vector()).Display("XY size (pixels)");
  Param(projectionInfo_, "projection_info", "", &infoHint_).Display("Raster and Projection Info").NotSaved();
  for (const char* name : {"xy_size", "xy_points", "projection_info"}) SetParamGuiEnabled(name, false);
}

long GeogImageMapShader::OnFirstCreate() {
  ImageMapShader::OnFirstCreate();
  return SetParam("reproject_on_the_fly", 1, this);
}

long GeogImageMapShader::OnUserCreate() {
  trSurfaceShader::OnUserCreate();
  SetParam("reproject_on_the_fly", 1, this);
  trString path;
  if (filename_.FileStringR().empty() && juChooseFile({{"All files", {"*"}}}, path))
    SetParam("image_filename", path, trWhoUser);
  return 1;
}

bool GeogImageMapShader::IsCorner(long index) const {
  return std::any_of(corners_.begin(), corners_.end(),
                     [&](const tr2Vector& corner) { return IsParam(index, &corner); });
}

bool GeogImageMapShader::IsOutput(long index) const {
  return IsParam(index, &xySize_) || IsParam(index, &xyPoints_) || IsParam(index, &projectionInfo_);
}

void GeogImageMapShader::OnParamChanged(long index, trBase* who) {
  if (IsOutput(index)) return ImageMapShader::OnParamChanged(index, who);
  if (IsParam(index, &replaceNoData_) && loadMethod_ == kRasterLibrary && Image() &&
      (replaceNoData_ != 0) != loadedNoData_.replaces)
    Reload();
  if (IsParam(index, &loadMethod_)) {
    if (loadMethod_ == kRasterLibrary)
      Reload();
    else
      LoadImage(loadedFrame_);
  }
  if (IsCorner(index) && trIsUser(who)) {
    SetParam("auto_georeference_from_file", 0, this);
    SetParam("reproject_on_the_fly", 0, this);
  }
  planetState_.store(PlanetState::kUnread);
  ImageMapShader::OnParamChanged(index, who);
}

GeogNoDataSettings GeogImageMapShader::NoDataSettings() const {
  GeogNoDataSettings settings;
  settings.replaces = replaceNoData_ != 0;
  settings.withColour = withColour_ != 0;
  settings.anyChannel = colourMode_ == 1;
  settings.withScalar = withScalar_ != 0;
  settings.makesTransparent = makeTransparent_ != 0;
  settings.colour = noDataColour_;
  settings.alpha = noDataAlpha_;
  settings.scalar = noDataScalar_;
  return settings;
}

tr2Vector GeogImageMapShader::GroundSize() const {
  if (!Image()) return {};
  const double w = Image()->width, h = Image()->height;
  return loadMethod_ == kRasterLibrary ? tr2Vector(w * place_.pixelSize.x, h * place_.pixelSize.y)
                                       : tr2Vector(w, h);
}
