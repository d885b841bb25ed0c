// default_shader: displacement and shading.
#include "surface/default_shader.h"

#include <cmath>

#include "surface/reflective_shader.h"

long DefaultShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  const trVector direction = displacementDirection_.Of(si);
  double amount = displacementOffset_;
  trShader* const image = images_[kDisplacement].sampler;
  trShader* const function = LinkedShader(displacementFunction_);
  if (displacementMultiplier_ != 0 && (image || function)) {
    double moved = displacementMultiplier_;
    if (image) moved *= Tamed(image->FloatValueTS(si));
    if (function) moved *= Tamed(function->FloatValueTS(si));
    amount += moved;
  }
  si.P() += direction * amount;
  return 1;
}

void DefaultShader::MultiplyByImage(trFCol& colour, Image image, trShadingInterface& si) const {
  MultiplyByShader(colour, images_[image].sampler, si);
}

void DefaultShader::MultiplyByInputs(trFCol& colour, const trShaderLink& function, Image image,
                                     trShadingInterface& si) const {
  if (colour.IsBlack()) return;
  MultiplyByShader(colour, LinkedShader(function), si);
  MultiplyByImage(colour, image, si);
}

long DefaultShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  const bool isKeying = alphaFromColour_ && (si.doOo() || si.doAo());

  // What is fully transparent costs nothing further.
  ApplyOpacity(si);
  if (si.Oo_surf().IsBlack()) return 1;

  trFCol metal;  ///< what metal reflects: the base colour's metallic part
  if ((si.doCo() || si.doCd() || isKeying) && !ApplyColour(si, isKeying, metal)) return 1;
  if (si.Oo_surf().IsBlack() || !(si.doCo() || si.doCe())) return 1;

  trFCol translucency = translucency_.ToRender();
  MultiplyByInputs(translucency, translucencyFunction_, kTranslucency, si);
  si.SetShadingToLambert(si.Cutil());
  si.Bsdf().AddLobe(trBsdf::Lambert(trLobe::kDiffuseTransmission, Tamed(translucency * si.Cutil())));

  trFCol luminosity = luminosity_.ToRender();
  MultiplyByInputs(luminosity, luminosityFunction_, kLuminosity, si);
  si.RenderState().ApplyTintToSurfEmit(luminosity);
  si.Bsdf().Emission() = Tamed(luminosity);

  if (reflective_) Reflect(si, metal);
  return 1;
}

void DefaultShader::ApplyOpacity(trShadingInterface& si) const {
  trFCol& opacity = si.Oo_surf();
  opacity = Tamed(opacity * opacity_.ToRender());
  if (opacity.IsBlack()) return;
  if (trShader* image = images_[kOpacity].sampler) {
    const trFCol value = Tamed(image->FColValueTS(si));
    opacity = Tamed(opacity * (invertOpacityImage_ ? trFCol(1.0f) - value : value));
    if (opacity.IsBlack()) return;
  }
  MultiplyByShader(opacity, LinkedShader(opacityFunction_), si);
  opacity = Tamed(opacity);
}

bool DefaultShader::ApplyColour(trShadingInterface& si, bool isKeying, trFCol& metal) const {
  trFCol colour = diffuseColour_.ToRender();
  if (!colour.IsBlack() || isKeying) {
    trFCol texture(1.0f);
    MultiplyByShader(texture, LinkedShader(colourFunction_), si);
    MultiplyByImage(texture, kColour, si);
    colour *= texture;
    if (isKeying) {
      const trFCol off = texture - alphaKey_.ToRender();
      const float largest = trFCol(std::fabs(off.r), std::fabs(off.g), std::fabs(off.b)).MaxChannel();
      if (static_cast<float>(keyTolerance_) >= largest) si.Oo_surf() = trFCol();
    }
  }
  si.Cutil() = Tamed(colour);
  if (si.Oo_surf().IsBlack()) return false;
  si.RenderState().ApplyTintToCd(si.Cutil());

  trFCol metalness(Tamed(static_cast<float>(metalness_)));
  if (!metalness.IsBlack()) {
    MultiplyByInputs(metalness, metalnessFunction_, kMetalness, si);
    for (int k = 0; k < 3; ++k) metalness[k] = std::clamp(Tamed(metalness[k]), 0.0f, 1.0f);
  }
  metal = si.Cutil() * metalness;
  si.Cutil() *= trFCol(1.0f) - metalness;
  return true;
}

float DefaultShader::RoughnessScale(trShadingInterface& si) const {
  trFCol scale(1.0f);
  MultiplyByShader(scale, LinkedShader(roughnessFunction_), si);
  if (trShader* image = images_[kRoughness].sampler) {
    trFCol value = Tamed(image->FColValueTS(si));
    if (invertRoughnessImage_) value = trFCol(1.0f) - value;
    if (remapRoughnessImage_) {
      const float luminance = std::max(0.0f, Luminance(value));
      value = trFCol(luminance * luminance);
    }
    scale *= value;
  }
  return Tamed(Luminance(scale));
}

void DefaultShader::Reflect(trShadingInterface& si, const trFCol& metal) const {
  trFCol scale(1.0f);
  if (!reflectivity_.ToRender().IsBlack()) {
    MultiplyByShader(scale, LinkedShader(reflectivityFunction_), si);
    MultiplyByImage(scale, kReflectivity, si);
  }
  if ((scale * reflectivity_.ToRender()).IsBlack() && metal.IsBlack()) return;
  ReflectiveThreadState& record = reflective_->ThreadState(si.Thread());
  record.baseSpecular = metal;
  record.reflectivityScale = Tamed(scale);
  record.roughnessScale = RoughnessScale(si);
  reflective_->ShadeTS(si);
}
