// default_shader: parameters in the project file's order, and what follows them.
#include "surface/default_shader.h"
#include "surface/reflective_shader.h"

namespace {

/// Settings of the reflective child that this shader has no parameters for.
constexpr double kHighlightIntensity = 1.0, kCausticIntensity = 1.0, kSpecularTweak = 0.5;
/// Keeps highlights of perfectly smooth surfaces wide enough to be seen.
constexpr float kLeastRoughness = 0.005f;

}  // namespace

DefaultShader::DefaultShader() {
  imageHint_.SetIsImageFile(true);
  SetRange(unitHint_, this, {.min = 0, .max = 1});
  SetRange(indexHint_, this, {.min = 1, .max = 5, .focusPower = 2});
  SetRange(multiplierHint_, this, {.focusPower = 2});
  SetMenu(modelHint_, this, {{"Beckmann OV 2", 1}, {"Beckmann OV 4.5", 2}, {"GGX", 3}});
  SetMenu(projectionHint_, this,
          {{"Plan Y (edges = XZ)", 0},
           {"Side X (edges = YZ)", 1},
           {"Side Z (edges = XY)", 2},
           {"Through camera", 3},
           {"Object UV (if available)", 4},
           {"Cylindrical", 5},
           {"Spherical", 6}});
  images_[kMetalness].convertToLinear = 0;

  DeclareColour();
  DeclareRoughness();
  DeclareSpecular();
  DeclareDisplacement();
  DeclareOpacity();
  DeclareImages();
  SetParamGuiEnabled("convert_specular_roughness_image_to_linear", false);
  SetParamGuiEnabled("convert_displacement_image_to_linear", false);

  reflective_ = CreateReflectiveChild(this);
  if (reflective_) reflective_->SetParam("ray_traced_reflections", 0, this);
  UpdateDerived();
}

DefaultShader::~DefaultShader() {
  trDestroyObject(reflective_);
  for (ImageInput& image : images_) trDestroyObject(image.sampler);
}

void DefaultShader::DeclareColour() {
  GuiTab("Colour", "colour_tab");
  Param(diffuseColour_, "diffuse_colour", trRgbLinear709(0.5f))
      .Display("Base colour")
      .ColourOnly()
      .About("Colour of the surface, times the image and the function where there are any.");
  Param(images_[kColour].file, "colour_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that colours the surface.");
  Param(colourFunction_, "colour_function", "").ColourOnly().About("Shader that colours the surface.");
  Param(translucency_, "translucency", trRgbLinear709(0.0f))
      .ColourOnly()
      .About("Light that comes through from the other side, times the surface's colour: leaves, paper.");
  Param(images_[kTranslucency].file, "translucency_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that multiplies the translucency.");
  Param(translucencyFunction_, "translucency_function", "")
      .ColourOnly()
      .About("Shader that multiplies the translucency.");
  Param(luminosity_, "luminosity", trRgbLinear709(0.0f))
      .ColourOnly()
      .About("Light that the surface sends by itself.");
  Param(images_[kLuminosity].file, "luminosity_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that multiplies that light.");
  Param(luminosityFunction_, "luminosity_function", "")
      .ColourOnly()
      .About("Shader that multiplies that light.");
}

void DefaultShader::DeclareRoughness() {
  GuiTab("Roughness", "roughness_tab");
  Param(specularRoughness_, "specular_roughness", 0.8, &unitHint_)
      .Display("Roughness")
      .ColourOnly()
      .About("0 is polished, 1 is matt.");
  Param(images_[kRoughness].file, "specular_roughness_image", "", &imageHint_)
      .Display("Roughness image")
      .ColourOnly()
      .About("Image whose brightness multiplies the roughness.");
  Param(invertRoughnessImage_, "invert_specular_roughness_image", 0)
      .Display("Invert (gloss map)")
      .ColourOnly()
      .About("Takes the image for gloss: bright is smooth.");
  Param(remapRoughnessImage_, "remap_specular_roughness_image", 0)
      .Display("Remap ^2")
      .ColourOnly()
      .About("Squares the image's brightness before it counts as roughness.");
  Param(images_[kRoughness].convertToLinear, "convert_specular_roughness_image_to_linear", 1)
      .Display("Gamma (deprecated)")
      .ColourOnly()
      .About("Old gamma conversion of that image, kept so that older projects look as they did.");
  Param(roughnessFunction_, "specular_roughness_function", "")
      .Display("Roughness function")
      .ColourOnly()
      .About("Shader whose brightness multiplies the roughness.");
  Param(roughnessModel_, "specular_roughness_model", 1, &modelHint_)
      .ColourOnly()
      .About(
          "How roughness spreads highlights: GGX has the longest glow; Beckmann keeps older projects' look.");
}

void DefaultShader::DeclareSpecular() {
  GuiTab("Specular", "specular_tab");
  Param(metalness_, "metalness", 0.0)
      .ColourOnly()
      .About(
          "Share of the surface that is metal, 0 to 1: its colour goes into the reflection and the matt part "
          "goes.");
  Param(images_[kMetalness].file, "metalness_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that multiplies the metalness.");
  Param(metalnessFunction_, "metalness_function", "")
      .ColourOnly()
      .About("Shader that multiplies the metalness.");
  Param(reflectivity_, "reflectivity", trRgbLinear709(0.75f))
      .Display("Fresnel reflectivity")
      .ColourOnly()
      .About("Strength and colour of reflections. 1 is what the index of refraction gives; black has none.");
  Param(images_[kReflectivity].file, "reflectivity_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that multiplies the reflectivity.");
  Param(reflectivityFunction_, "reflectivity_function", "")
      .ColourOnly()
      .About("Shader that multiplies the reflectivity.");
  Param(reflectionTint_, "reflection_tint", trRgbLinear709(1.0f))
      .Display("Fresnel reflection tint")
      .ColourOnly()
      .About("Colour of reflections alone.");
  Param(indexOfRefraction_, "index_of_refraction", 1.5, &indexHint_)
      .ColourOnly()
      .About("How strongly the surface reflects where looked straight at: 1.33 is wet, 1.5 plastic.");
}

void DefaultShader::DeclareDisplacement() {
  GuiTab("Displacement", "displacement_tab");
  displacementDirection_.Declare(this);
  Param(displacementMultiplier_, "displacement_multiplier", 0.01, &multiplierHint_)
      .About("Factor of the image and the function that move the surface: metres for their value 1.");
  Param(images_[kDisplacement].file, "displacement_image", "", &imageHint_)
      .About("Image whose brightness moves the surface.");
  Param(images_[kDisplacement].convertToLinear, "convert_displacement_image_to_linear", 1)
      .Display("Gamma (deprecated)")
      .About("Old gamma conversion of that image, kept so that older projects look as they did.");
  Param(displacementFunction_, "displacement_function", "")
      .About("Shader whose brightness moves the surface.");
  Param(displacementOffset_, "displacement_offset", 0.0).About("Moves the surface everywhere, metres.");
}

void DefaultShader::DeclareOpacity() {
  GuiTab("Opacity", "opacity_tab");
  Param(opacity_, "opacity", trManRgb(1, 1, 1))
      .ColourOnly()
      .About("How much the surface hides: white all, black nothing, as for cut-out leaves.");
  Param(images_[kOpacity].file, "opacity_image", "", &imageHint_)
      .ColourOnly()
      .About("Image that multiplies the opacity.");
  Param(images_[kOpacity].alphaAsColour, "use_alpha_channel", 0)
      .ColourOnly()
      .About("Takes the opacity image's alpha in place of its colour.");
  Param(invertOpacityImage_, "invert_opacity_image", 0)
      .ColourOnly()
      .About("Turns the image round: dark hides, bright is open.");
  Param(opacityFunction_, "opacity_function", "").ColourOnly().About("Shader that multiplies the opacity.");
  Param(alphaFromColour_, "alpha_from_colour", 0)
      .ColourOnly()
      .About("Opens the surface where its texture has one colour.");
  Param(alphaKey_, "alpha_key", trRgbLinear709(0.0f)).ColourOnly().About("The colour that is opened.");
  Param(keyTolerance_, "key_tolerance", 0.1)
      .ColourOnly()
      .About("How far, 0 to 1, each channel may be off that colour and still be opened.");
}

void DefaultShader::DeclareImages() {
  GuiTab("Images", "images_tab");
  Param(imageProjection_, "image_projection", 4, &projectionHint_)
      .About("How the images lie on the object: by its own UV coordinates, or projected from a side.");
  Param(projectionCamera_, "projection_camera", "")
      .About("Camera that images are projected through, where they are.");
  Param(images_[kColour].unpremultiply, "unpremultiply_colour", 0)
      .ColourOnly()
      .About("Divides the colour image by its alpha, where it was stored multiplied: no dark rims.");
  Param(images_[kMetalness].unpremultiply, "unpremultiply_metalness", 0)
      .ColourOnly()
      .About("Divides the metalness image by its alpha.");
  Param(images_[kTranslucency].unpremultiply, "unpremultiply_translucency", 0)
      .ColourOnly()
      .About("Divides the translucency image by its alpha.");
  Param(images_[kLuminosity].unpremultiply, "unpremultiply_luminosity", 0)
      .ColourOnly()
      .About("Divides the luminosity image by its alpha.");
  Param(images_[kReflectivity].unpremultiply, "unpremultiply_reflectivity", 0)
      .ColourOnly()
      .About("Divides the reflectivity image by its alpha.");
  Param(images_[kRoughness].unpremultiply, "unpremultiply_specular_roughness", 0)
      .Display("Unpremultiply roughness")
      .ColourOnly()
      .About("Divides the roughness image by its alpha.");
}

long DefaultShader::OnFirstCreate() {
  trShader::OnFirstCreate();
  SetParam("specular_roughness_model", 3, this);
  SetParam("remap_specular_roughness_image", 1, this);
  SetParam("convert_specular_roughness_image_to_linear", 0, this);
  SetParam("convert_displacement_image_to_linear", 0, this);
  return 1;
}

long DefaultShader::SetParamFromString(const char* name, const trString& value, trBase* who) {
  const trString param = name;
  if (param == "use_ocio") {
    for (ImageInput& image : images_)
      if (image.sampler) image.sampler->SetParamFromString(name, value, who);
    return 1;
  }
  // Projects without an image have nothing that depends on the old conversions.
  if (param == "specular_roughness_image" && value.empty()) {
    SetParam("remap_specular_roughness_image", 1, who);
    SetParam("convert_specular_roughness_image_to_linear", 0, who);
  } else if (param == "displacement_image" && value.empty()) {
    SetParam("convert_displacement_image_to_linear", 0, who);
  }
  return trShader::SetParamFromString(name, value, who);
}

void DefaultShader::OnParamChanged(long index, trBase* who) {
  trShader::OnParamChanged(index, who);
  for (ImageInput& image : images_) {
    if (IsParam(index, &image.file)) return UpdateImage(image, who);
    if (IsParam(index, &image.unpremultiply))
      return SetOnSampler(image, "unpremultiply", image.unpremultiply);
    if (IsParam(index, &image.alphaAsColour))
      return SetOnSampler(image, "alpha_as_colour", image.alphaAsColour);
    if (IsParam(index, &image.convertToLinear)) {
      SetOnSampler(image, "convert_to_linear", image.convertToLinear);
      if (image.convertToLinear) SetParamGuiEnabled(index, true);
      return;
    }
  }
  if (IsParam(index, &imageProjection_)) return SetOnSamplers("projection_type", imageProjection_);
  if (IsParam(index, &projectionCamera_))
    return SetOnSamplers("projection_camera", projectionCamera_.FileStringR());
}

void DefaultShader::UpdateImage(ImageInput& image, trBase* who) {
  if (image.file.FileStringR().empty()) {
    trDestroyObject(image.sampler);
    image.sampler = nullptr;
    return;
  }
  if (!image.sampler) {
    trBase* const child = trCreateObject("image_map_shader", this, 0);
    image.sampler = dynamic_cast<trShader*>(child);
    if (!image.sampler) {
      trDestroyObject(child);
      return;
    }
    SetOnSampler(image, "repeat_x", 1);
    SetOnSampler(image, "repeat_y", 1);
    SetOnSampler(image, "projection_type", imageProjection_);
    SetOnSampler(image, "projection_camera", projectionCamera_.FileStringR());
    SetOnSampler(image, "size", tr2Vector(1, 1));
    SetOnSampler(image, "convert_to_linear", image.convertToLinear);
    SetOnSampler(image, "unpremultiply", image.unpremultiply);
  }
  // The same name again means that the file changed.
  if (trIsUser(who)) SetOnSampler(image, "image_filename", "");
  SetOnSampler(image, "image_filename", image.file.FullPath());
  SetOnSampler(image, "alpha_as_colour", image.alphaAsColour);
}

void DefaultShader::SetOnSampler(ImageInput& image, const char* name, const trParamValue& value) {
  if (image.sampler) image.sampler->SetParam(name, value, this);
}

void DefaultShader::SetOnSamplers(const char* name, const trParamValue& value) {
  for (ImageInput& image : images_) SetOnSampler(image, name, value);
}

void DefaultShader::UpdateDerived() {
  trShader::UpdateDerived();
  if (!reflective_) return;
  reflective_->SetParam("reflectivity", reflectivity_, this);
  reflective_->SetParam("reflection_tint", reflectionTint_, this);
  reflective_->SetParam("index_of_refraction", indexOfRefraction_, this);
  reflective_->SetParam("specular_roughness", specularRoughness_, this);
  reflective_->SetParam("highlight_intensity", kHighlightIntensity, this);
  reflective_->SetParam("caustic_intensity", kCausticIntensity, this);
  reflective_->SetParam("specular_tweak", kSpecularTweak, this);
  reflective_->SetParam("highlight_model", roughnessModel_, this);
  reflective_->SetAddends(kLeastRoughness, 0);
}
