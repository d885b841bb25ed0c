// reflective_shader: the one engine of specular light. It gives a surface highlights, reflection and
// transmission, by itself or inside the shaders that own one.
#pragma once

#include <memory>
#include <vector>

#include "core/idioms.h"

struct ReflectivePoint;

/// What owners tell the shader about the point in hand, one record a thread. Written before each Shade, by
/// the thread that calls it; records of two threads never share a cache line.
struct alignas(64) ReflectiveThreadState {
  // Offsets of the rays of a soft reflection, kept until the parameters they were made for change.
  std::unique_ptr<trVector[]> reflectionOffsets, transmissionOffsets;
  std::int32_t cachedCount = -1;
  double cachedSoftness = -1;

  double smallScale = 1e-12, inverseSmallScale = 1e12;  ///< of waves, metres
  float roughnessScale = 1;                             ///< multiplies the roughness
  float roughnessAddend = 0;                            ///< added for highlights
  float softnessAddend = 0;                             ///< added for the reflecting normal and the lobes
  double normalBlendRate = 0.5;                         ///< how fast rough normals lean to the viewer
  trFCol reflectivityScale{1.0f};                       ///< multiplies `reflectivity`
  trFCol reflectivityAddend;                            ///< added after that
  trFCol baseSpecular;                                  ///< metal: reflected at any angle
};

class ReflectiveShader : public trSurfaceShader {
 public:
  ReflectiveShader();
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override { return 0; }
  unsigned char HasShade() override { return 1; }

  // Set by owners, on the main thread; a node by itself is an opaque surface.
  unsigned char isThinWalled = 1;  ///< no inside: rays pass straight through
  trManRgb transparency;
  double decayDistance = -1;  ///< metres; negative: no absorption inside
  trManRgb decayTint{1, 1, 1};
  double volumeDensity = 0;  ///< scattering inside
  trManRgb volumeColour;
  const trShaderLink* volumeDensityFunction = nullptr;  ///< the owner's link, or null
  const trShaderLink* volumeColourFunction = nullptr;
  unsigned char isColourVolumetric = 0;  ///< evaluate the colour function inside, not at the surface
  int volumeMethod = 0;                  ///< of the path tracer, as in trMedium

  /// The record of a thread. A shading thread touches its own alone.
  ReflectiveThreadState& ThreadState(unsigned thread) { return records_[thread]; }
  unsigned NumThreadStates() const { return static_cast<unsigned>(records_.size()); }
  /// Gives all threads' records the same addends.
  void SetAddends(float roughness, float softness);

 private:
  /// What fills the inside, as one point of the surface has it.
  struct Inside {
    trFCol density;                      ///< of scattering, per decay distance
    trFCol colour;                       ///< of what scatters
    trShader* colourFunction = nullptr;  ///< evaluated inside
  };

  // Steps of Shade
  void SetRoughness(trShadingInterface& si, const ReflectiveThreadState& record, ReflectivePoint& at) const;
  void SetGeometry(trShadingInterface& si, const ReflectiveThreadState& record, ReflectivePoint& at) const;
  void Refract(trShadingInterface& si, ReflectivePoint& at) const;
  void RefractThroughThin(ReflectivePoint& at) const;
  trFCol ShareEnergy(trShadingInterface& si, ReflectivePoint& at) const;
  int HighlightModelNumber() const { return static_cast<int>(std::clamp(highlightModel_, -1L, 4L)); }

  // Highlights of lights
  trFCol Highlights(trShadingInterface& si, const ReflectivePoint& at) const;
  trFCol TransmittedHighlights(trShadingInterface& si, const ReflectivePoint& at) const;
  trFCol HighlightModel(const ReflectivePoint& at, const trVector& light) const;

  // Rays
  void TraceRays(trShadingInterface& si, const ReflectivePoint& at);
  void TraceManyRays(trShadingInterface& si, const ReflectivePoint& at);
  void TraceReflection(trShadingInterface& si, const ReflectivePoint& at, const trVector& direction,
                       const trFCol& weight) const;
  void TraceTransmission(trShadingInterface& si, const ReflectivePoint& at, const trVector& direction,
                         const trFCol& weight) const;
  trFCol TraceInner(trShadingInterface& si, const trVector& origin, const trVector& direction) const;
  void TraceQuickly(trShadingInterface& si, const ReflectivePoint& at) const;
  void FillOffsets(trShadingInterface& si, ReflectiveThreadState& record) const;
  long NumSamples() const;

  // Inside
  trFCol DensityFunction(trShadingInterface& si) const;
  Inside InsideAt(trShadingInterface& si) const;
  trFCol ThroughInside(trShadingInterface& si, const Inside& inside, const trVector& origin,
                       const trVector& direction, double length, const trFCol& colour) const;
  trFCol ScatteredInside(trShadingInterface& si, const Inside& inside, const trVector& origin,
                         const trVector& direction, double length, const trFCol& extinction) const;

  trLobe ReflectionLobe(const ReflectivePoint& at) const;
  trLobe TransmissionLobe(const ReflectivePoint& at) const;
  void AppendLobes(trShadingInterface& si, const ReflectivePoint& at) const;
  int AddMedium(trShadingInterface& si) const;

  trManRgb reflectivity_, reflectionTint_;
  double indexOfRefraction_;
  unsigned char specularHighlights_;
  long highlightModel_;
  double highlightIntensity_, causticIntensity_;
  double specularRoughness_;
  trShaderLink roughnessFunction_;
  double specularTweak_;
  unsigned char rayTracedReflections_;
  double reflectionSoftness_;
  long numberOfSamples_;
  signed char modelOfLobes_ = -1;  ///< the highlight model, or -1 for none of the known

  std::vector<ReflectiveThreadState> records_;

  trDoubleHint indexHint_, intensityHint_, unitHint_;
  trIntHint modelHint_, samplesHint_;
};

/// Makes the hidden reflective shader of `owner`; null where the class isn't there. Main thread only.
ReflectiveShader* CreateReflectiveChild(trBase* owner);
