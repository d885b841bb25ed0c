// default_shader: the all-in-one material that objects are born with. Colour, translucency, luminosity,
// roughness, metalness, Fresnel reflection, displacement and opacity, each by value, image and function.
#pragma once

#include "core/idioms.h"

class ReflectiveShader;

class DefaultShader : public trShader {
 public:
  DefaultShader();
  ~DefaultShader() override;
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;
  using trShader::SetParamFromString;
  long SetParamFromString(const char* name, const trString& value, trBase* who) override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 1; }
  unsigned char HasShade() override { return 1; }

 private:
  enum Image {
    kColour,
    kMetalness,
    kTranslucency,
    kLuminosity,
    kReflectivity,
    kRoughness,
    kOpacity,
    kDisplacement,
    kNumImages
  };
  /// An image parameter and the sampler that it keeps while it has a name.
  struct ImageInput {
    trFile file;
    trShader* sampler = nullptr;  ///< a hidden image_map_shader
    unsigned char unpremultiply = 0;
    unsigned char convertToLinear = 1;
    unsigned char alphaAsColour = 0;
  };

  void DeclareColour();
  void DeclareRoughness();
  void DeclareSpecular();
  void DeclareDisplacement();
  void DeclareOpacity();
  void DeclareImages();
  void UpdateImage(ImageInput& image, trBase* who);
  /// Sets a parameter of a sampler, if there is one, or of all there are.
  void SetOnSampler(ImageInput& image, const char* name, const trParamValue& value);
  void SetOnSamplers(const char* name, const trParamValue& value);

  void MultiplyByImage(trFCol& colour, Image image, trShadingInterface& si) const;
  /// `colour` times function and image, where it isn't black to begin with.
  void MultiplyByInputs(trFCol& colour, const trShaderLink& function, Image image,
                        trShadingInterface& si) const;
  void ApplyOpacity(trShadingInterface& si) const;
  bool ApplyColour(trShadingInterface& si, bool isKeying, trFCol& metal) const;
  float RoughnessScale(trShadingInterface& si) const;
  void Reflect(trShadingInterface& si, const trFCol& metal) const;

  trManRgb diffuseColour_, translucency_, luminosity_, reflectivity_, reflectionTint_, opacity_, alphaKey_;
  ImageInput images_[kNumImages];
  trShaderLink colourFunction_, translucencyFunction_, luminosityFunction_, roughnessFunction_,
      metalnessFunction_, reflectivityFunction_, displacementFunction_, opacityFunction_;
  double specularRoughness_, metalness_, indexOfRefraction_;
  unsigned char invertRoughnessImage_, remapRoughnessImage_;
  long roughnessModel_, imageProjection_;
  trDisplacementDirection displacementDirection_;
  double displacementMultiplier_, displacementOffset_;
  unsigned char invertOpacityImage_, alphaFromColour_;
  double keyTolerance_;
  trCameraLink projectionCamera_;

  ReflectiveShader* reflective_ = nullptr;  ///< hidden; null where the class isn't there

  trLinkHint imageHint_;
  trDoubleHint unitHint_, indexHint_, multiplierHint_;
  trIntHint modelHint_, projectionHint_;
};
