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
  Param(hasDispParamBug_, "has_disp_param_bug", 0)
      .About("Kept for old projects: displacement uses the settings of the colour.");
  Gui(trGuiHiddenClose);
  Param(filename_, "image_filename", "", &fileHint_)
      .About("The raster: a GeoTIFF, or any other format that tells where on the globe it lies.");
  SetMenu(loadMethodHint_, this, {{"GDAL", kRasterLibrary}, {"Ombrivex", kPictureLibrary}});
  Param(loadMethod_, "load_method", kRasterLibrary, &loadMethodHint_)
      .About(
          "GDAL reads rasters with their place and missing values; Ombrivex reads pictures as the plain "
          "image map does.");
  DeclareLocation();
  GuiTab("Flip", "tiling_tab");
  Param(flipX_, "flip_x", 0).About("Mirrors the picture from left to right.");
  Param(flipY_, "flip_y", 0).About("Mirrors the picture upside down.");
  DeclareNoData();
  DeclareInfo();
  DeclareColour();
  DeclareDisplacement(false);
  DeclareEffects();
  mask_.Declare(this, 1);
  Param(useOcio_, "use_ocio", 0)
      .About("Converts colours by the project's colour management instead of the gamma.");
  SetParam("unpremultiply", 0, trWhoSystem);
  UpdateGammaEnabling();
  fileCorners_ = place_.corners;
}

void GeogImageMapShader::DeclareLocation() {
  const GeogPlace unplaced;
  GuiTab("Location", "location_tab");
  Param(georeference_, "georeference", 1)
      .About(
          "Places the picture on the planet by latitude and longitude. Off, it lies at a position of the "
          "plane.");
  Gui(trGuiIndentOpen);
  Param(autoGeoreference_, "auto_georeference_from_file", 1)
      .About("Sets the corners from the file whenever it is loaded. A corner set by hand turns it off.");
  Param(reproject_, "reproject_on_the_fly", 0)
      .About(
          "Finds each point in the file's own coordinate system: exact for map projections and turned "
          "rasters.");
  Param(corners_[0], "NW_corner_lat_long", unplaced.corners[0])
      .About("Latitude and longitude of the north-western corner, degrees.");
  Param(corners_[1], "NE_corner_lat_long", unplaced.corners[1])
      .About("Latitude and longitude of the north-eastern corner, degrees.");
  Param(corners_[2], "SE_corner_lat_long", unplaced.corners[2])
      .About("Latitude and longitude of the south-eastern corner, degrees.");
  Param(corners_[3], "SW_corner_lat_long", unplaced.corners[3])
      .About("Latitude and longitude of the south-western corner, degrees.");
  Gui(trGuiIndentClose);
  Param(positionExplicitly_, "position_explicitly", 0)
      .About("Shows that the picture is placed by position and size instead of by its corners.");
  Gui(trGuiIndentOpen);
  Param(positionCentre_, "position_center", 0).About("The position is that of the picture's middle.");
  Param(positionLowerLeft_, "position_lower_left", 1)
      .About("The position is that of the picture's lower left corner.");
  Param(position_, "position", trVector())
      .About("Where the picture lies in texture space when it isn't georeferenced, metres.");
  Param(size_, "size", tr2Vector(1, 1))
      .About("Width and height of the picture on the ground when it isn't georeferenced, metres.");
  Gui(trGuiIndentClose);
  PushButton(sizeButton_, "size_from_image_button");
}

void GeogImageMapShader::DeclareNoData() {
  SetRange(alphaHint_, this, {.min = 0.0, .max = 1.0});
  SetMenu(colourModeHint_, this, {{"Channel by channel", 0}, {"Any channel", 1}});
  GuiTab("NODATA", "data_tab");
  Param(replaceNoData_, "replace_NODATA_values", 0)
      .Display("Replace NODATA values")
      .About("Replaces pixels that the file marks as missing. Switching it reads the file again.");
  Gui(trGuiIndentOpen);
  Param(withColour_, "replace_with_colour", 1).About("Gives missing pixels the NODATA colour and alpha.");
  Param(noDataColour_, "NODATA_colour_value", trRgbLinear709(0.0f)).About("Colour of missing pixels.");
  Param(noDataAlpha_, "NODATA_alpha_value", 1.0, &alphaHint_)
      .About("Alpha of missing pixels, 0 to 1. Below 1 the picture gets an alpha channel.");
  Param(colourMode_, "replace_colour_mode", 0, &colourModeHint_)
      .About("Whether a channel that is missing is replaced alone, or the whole pixel with it.");
  Param(withScalar_, "replace_with_scalar", 0).About("Gives missing channels a number instead of a colour.");
  Param(noDataScalar_, "NODATA_scalar_value", 0.0).About("The number for missing channels, 0 to 255.");
  Param(makeTransparent_, "make_NODATA_transparent", 0)
      .About("Makes missing pixels black with alpha 0, where no colour or number replaces them.");
  Gui(trGuiIndentClose);
  PushButton(updateButton_, "update_NODATA_button");
}

void GeogImageMapShader::DeclareInfo() {
  infoHint_.SetStyleFlags(trStringHint::kMultiLine);
  GuiTab("Info", "info_tab");
  Param(xySize_, "xy_size", tr2Vector())
      .Display("XY size (metres)")
      .About("Width and height of the raster on the ground, metres. Shown only.");
  Param(xyPoints_, "xy_points", tr2Vector())
      .Display("XY size (pixels)")
      .About("Width and height of the raster, pixels. Shown only.");
  Param(projectionInfo_, "projection_info", "", &infoHint_)
      .Display("Raster and Projection Info")
      .NotSaved()
      .About("The raster's coordinate system, bands and missing values. Shown only.");
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
