// A cloud in one node: its user says which kind and how much, and it sets three fractals of its own by that.
#pragma once

#include <optional>

#include "atmosphere/cloud_layer_v3.h"

namespace EasyCloud {

enum Type : long { kCumulus = 1, kAltocumulusCastellanus = 2, kStratocumulus = 3 };
/// Versions of the set-up: projects keep the one they were made with.
enum Model : long { kFirst = 0, kSecond = 1 };
enum EvolutionMethod : long { kAllUpwards = 0, kAllDownwards = 1, kHeightUpwards = 2, kHeightDownwards = 3 };

/// The node's own parameters.
struct Parameters {
  long type, model;
  double coverage, variation, growth;  ///< 0 to 1
  double smallestScale;                ///< metres
  unsigned char addMicroWisps, enableMask;
  trShaderLink maskShader;

  unsigned char enableDrift, enableEvolution, timeWarp;
  double driftSpeed, driftHeading;  ///< metres a second; degrees, 0 towards +z and 90 towards +x
  double evolutionSpeed;            ///< metres a second
  long evolutionMethod;
  double framesPerSecond, warpedFrameNumber;
  long referenceFrameNumber;
};

/// `easy_cloud`. The depth fractal says how tall the cloud stands at a place, the micro fractal frays its
/// surface, the wisps thin its inside.
class CloudShader final : public CloudLayerV3, private CloudHooks {
 public:
  CloudShader();
  ~CloudShader() override;

  long OnCreate() override;
  long OnFirstCreate() override;
  void OnParamChanged(long index, trBase* who) override;
  void UpdateDerived() override;

 protected:
  void DeclareMainParams() override;
  void DeclareExtraParams() override;

 private:
  static CloudLayout Layout();
  void DeclareDrift();
  void ApplyFixedProfile();
  bool HasGrowth() const { return easy_.model >= kSecond && easy_.type >= kAltocumulusCastellanus; }
  // Sets the fractals by type, coverage, variation and growth.
  void ApplyModel();
  void SetUpDepth();
  void SetUpWisps(trBase& fractal, bool isMicro);

  // Thread-safe.
  float Envelope(trShadingInterface& si, const CloudPoint& point) override;
  void BeforeDensity(trShadingInterface& si, const CloudPoint& point) override;
  void BeforeDepthModulator(trShadingInterface& si, const CloudPoint& point) override;
  void AfterDepthModulator(trShadingInterface& si, const CloudPoint& point, trFCol& modulator) override;
  void BeforeFinalModulator(trShadingInterface& si, const CloudPoint& point) override;
  /// Seconds since the reference frame.
  double TimeAt(double frame) const;
  /// Moves the state's points to where the textures have come from.
  void MoveTextures(trShadingInterface& si, const CloudPoint& point, bool isHeight) const;

  Parameters easy_;
  /// What the fractals were last set up by.
  struct SetUp {
    long seed, type, model;
    double coverage, variation, growth, smallestScale;
    bool operator==(const SetUp&) const = default;
  };
  std::optional<SetUp> setUp_;
  trIntHint typeHint_, modelHint_, evolutionHint_;
  trDoubleHint shareHint_, smallestHint_, driftHint_, headingHint_, evolutionSpeedHint_;
  trBase* depthFractal_ = nullptr;
  trBase* wispsFractal_ = nullptr;
  trBase* microFractal_ = nullptr;
  bool isReady_ = false;
};

}  // namespace EasyCloud
