// What a cloud layer is told by its parameters, what follows from that, and how its subclasses lay out the
// sheet.
#pragma once

#include "core/shader.h"

/// How a class of cloud layers lays out its sheet, and where its defaults differ. Set by constructors;
/// OnCreate declares by it.
struct CloudLayout {
  bool hideCentreAltitude = false, hideBaseAltitude = false;
  bool hideSeed = true;  ///< otherwise a new node draws its seed, and a button draws another
  bool hideCoverageControls = false, hideDensityLink = false, hideDensityControls = false;
  bool hasLocalSphere = true;
  /// The base's altitude is what projects keep and the middle's follows; otherwise the reverse.
  bool baseAltitudeIsPrimary = false;
  bool hasScatteringColour = true;
  bool mergedTweaksTab = false;
  bool makesDensityFractal = true;
  bool usesVoxelScatter = false;
  /// The march of V2: steps that skip clear air, densities that thin once a shadow ray has lost enough, the
  /// shading model of views from space, paint that raises coverage.
  bool marchesAsV2 = true;

  // Defaults
  double baseAltitude = 1500, depth = 500;
  double localSphereRadius = 10000;
  unsigned char localSphere = 0, moveTextures = 0, useVoxelBuffer = 0, accelerateEmptySpace = 1;
  double density = 0.01;
  double sunGlowAmount = 1, lightPropagation = 2, lightPropagationMix = 0.125, fakeInternalScattering = 2;
  unsigned char darkerUnresolvedScattering = 0, improvedLightingModel = 0;
};

/// The parameters, in declaration order. Lengths are metres.
struct CloudSettings {
  long seed;
  unsigned char enablePrimary, enableSecondary, moveTexturesWithCloud;
  trVector centre;
  double radius;

  double altitude, baseAltitude, depth;  ///< of the middle and of the base, above `radius`
  unsigned char localSphere;
  trVector localSphereCentre;
  double localSphereRadius, localSphereFalloff, localSphereValueAtRadius;
  trShaderLink densityShader;
  double edgeSharpness, density, coverageAdjust;

  trManRgb colour, scatteringColour;
  trString colourInfo;

  double sunGlowAmount, sunGlowPower;
  double lightPropagation, lightPropagationMix, fakeInternalScattering;
  unsigned char viewFromSpace;
  double enviroLight;
  trManRgb enviroLightTint;
  unsigned char darkerUnresolvedScattering, anisotropicEnviroLight;

  trShaderLink altitudeOffsetFunction;
  double altitudeOffsetMultiplier;
  trShaderLink depthModulator;
  double depthModulatorCentre;
  trShaderLink finalDensityModulator, directLightModulator, enviroLightModulator, ambientLightModulator;
  trShaderLink shadowFunction;

  trManRgb ambient;
  double fakeDarkPower, fakeDarkSharpness;
  unsigned char improvedLightingModel, taperTopAndBase, flatterBase;
  double baseWispiness, baseSoftness;
  unsigned char invertProfile;
  double coverageGamma;

  long renderingMethod;
  double quality;
  long numberOfSamples;
  double sampleJitter, stepOptimisation;
  unsigned char enableRayTracedShadows;
  trString shadowsWarning[2];

  unsigned char useShadowMap;
  tr2Vector shadowMapResolution, shadowMapBlurRadius;
  unsigned char useVoxelBuffer;
  double millionsOfVoxels;
  trVector voxelBufferResolution;
  unsigned char accelerateEmptySpace, visualiseVoxels, useVoxelsForShadows;
  double voxelShadowThreshold;
  unsigned char setExportResolution;
  double millionsOfVoxelsForExport;
  unsigned char setExportBounds;
  trObjectLink exportBounds;
  unsigned char enablePaint;
  trSkyPaintLink paint;
};

/// The shaders that a layer's settings link to, beside the density.
enum class CloudLink : int {
  kAltitudeOffset,
  kDepthModulator,
  kFinalDensity,
  kShadow,
  kDirectLight,
  kEnviroLight,
  kAmbientLight,
  kCount
};

/// What evaluation needs and no parameter holds. Worked out after every change; read-only during a render.
struct CloudDerived {
  double baseRadius = 0, topRadius = 0, baseRadiusSquared = 0, topRadiusSquared = 0, invDepth = 0;
  double invFalloff = 1, invLocalRadius = 0;
  float edgeDensity = 0;
  trFCol sigma;                       ///< extinction of full density, per metre
  trFCol cloudColour, scatterColour;  ///< of render space
  trFCol enviro;                      ///< tint times strength of light from around
  trShader* density = nullptr;
  trShader* link[static_cast<int>(CloudLink::kCount)] = {};
  trShader* Link(CloudLink which) const { return link[static_cast<int>(which)]; }

  double stepMetres = 0;
  float opticalDepth = 0, edgeSharpness = 0, sqrtEdge = 0, fakeScatter = 0, sqrtFakeScatter = 0;
  float enviroAnisotropy = 0, coverageAdjust = 0, invGamma = 1;
  float propagationDecay = 0, mixExponent = 0;
  float valueAtRadius = 0, altitudeOffsetMultiplier = 1, depthModulatorCentre = 0;
  float maxScatterSteps = 0;
  float inverseMeanPhase = 1;  ///< over all directions
  bool paintAddsCoverage = true;
  /// Nothing of the layer can show, whatever the ray.
  bool isEmpty = true;
};
