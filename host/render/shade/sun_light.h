// Suns.
#pragma once

#include <cmath>

#include "core/render_state.h"

class trSunlightNode;

namespace ovhost {

class LitScene;

/// A sun: parallel light from a disc.
class OV_API SunLight final : public trLightState {
 public:
  SunLight(const LitScene& scene, const trSunlightNode& node);

  trVector Dir() const override { return direction_; }
  trVector Dir(const trVector&) const override { return direction_; }
  trVector TracePos(const trVector& point, double& distance) const override;
  double AngularRadiusInRadians(const trVector&) const override { return angularRadius_; }
  double SoftShadowAngularRadiusInRadians() const override { return angularRadius_; }
  trFCol Intensity(trRenderState& state, const trVector& point, const trVector& spot) const override;
  trFCol DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                const trVector& viewVector, const trFCol& precision) const override;
  bool IsEnviroLight() const override { return false; }
  bool DoShadowsFromAtmosphere() const override { return shadows_; }
  bool DoShadowsFromSurfaces() const override { return shadows_; }
  bool DoGlowInAtmosphere() const override { return glow_; }
  bool DoSpecularHighlights() const override { return true; }

  const trFCol& Radiance() const { return radiance_; }
  bool HasVisibleDisc() const { return visibleDisc_; }
  /// A direction to a point of the disc, from two draws of 0 to 1.
  trVector SampleDisc(const tr2Vector& draw) const;
  /// Density of SampleDisc per solid angle, for directions in the disc.
  double DiscPdf(const trVector& direction) const;
  bool IsInDisc(const trVector& direction) const {
    return Dot(direction, direction_) >= std::cos(angularRadius_);
  }
  /// Radiance of the disc in a direction, of which the light's is a share: what makes its irradiance.
  double DiscBrightness(const trVector& direction) const { return kPi * DiscPdf(direction); }
  /// What of the light the volumes let through to a surface at `point`.
  trFCol ThroughVolumes(trRenderState& state, const trVector& point) const;

 private:
  static constexpr double kPi = 3.14159265358979;
  const LitScene& scene_;
  trVector direction_, sideA_, sideB_;
  trFCol radiance_;
  double angularRadius_;
  bool shadows_, glow_, visibleDisc_;
};

}  // namespace ovhost
