// Parameters of the planet atmosphere that follow one another: the user may shape the sky by physical
// densities and colours or by the look of the horizon, and each pair stays one description.
#include <cmath>

#include "atmosphere/planet_atmosphere.h"
#include "core/guarded.h"

namespace {

constexpr double kTolerance = 0.0001;
/// The thinnest red sky that still leaves the additive colours a meaning.
constexpr double kLeastRedskyDecay = 0.001;

bool Differs(double value, double reference) {
  return std::fabs(GuardedDivide(value - reference, reference)) > kTolerance;
}

bool Differs(const trManRgb& value, const trManRgb& reference) {
  return Differs(value.r, reference.r) || Differs(value.g, reference.g) || Differs(value.b, reference.b);
}

/// exp(-c) and its inverse, per channel; a channel at or below 0 counts as 1e-6.
trManRgb DecayOfDensity(const trManRgb& c) { return {std::exp(-c.r), std::exp(-c.g), std::exp(-c.b), true}; }
float DensityOfDecay(float c) { return -std::log(std::max(c, 1e-6f)); }

}  // namespace

void PlanetAtmosphere::OnParamChanged(long index, trBase* who) {
  trAtmosShader::OnParamChanged(index, who);
  if (who == this) return;
  CoupleHeights(index);
  if (who != trWhoSystem) CoupleColours(index, who);
}

void PlanetAtmosphere::UpdateDerived() {
  trAtmosShader::UpdateDerived();
  derivedDirty_.store(true, std::memory_order_release);
  SetParamGuiEnabled("haze_glow_power", hazeGlowAmount_ != 0);
  SetParamGuiEnabled("bluesky_glow_power", blueskyGlowAmount_ != 0 && !rayleighPhaseFunction_);
  SetParamGuiEnabled("bluesky_glow_amount", !rayleighPhaseFunction_);
  SetParamShouldBeSaved("rayleigh_phase_function", rayleighPhaseFunction_ != 0);
  SetParamShouldBeSaved("ozone_factor", ozoneFactor_ != 0);
}

void PlanetAtmosphere::CoupleHeights(long index) {
  const double thickest = std::max(hazeExpHeight_, blueskyExpHeight_);
  if (IsParam(index, &ceilingAdjust_) || IsParam(index, &hazeExpHeight_) ||
      IsParam(index, &blueskyExpHeight_))
    SetParam("ceiling", thickest * ceilingAdjust_, this);
  if (IsParam(index, &ceiling_) && ceiling_ > 1e-12) {
    const double adjust = GuardedDivide(ceiling_, thickest);
    if (Differs(ceilingAdjust_, adjust)) SetParam("ceiling_adjust", adjust, this);
  }
}

void PlanetAtmosphere::CoupleColours(long index, trBase* who) {
  const bool densityChanged = IsParam(index, &blueskyDensity_);
  const bool densityColourChanged = IsParam(index, &blueskyDensityColour_);

  if (densityChanged && std::fabs(redskyDecay_) > 1e-12) {
    const double additivePerDecay = blueskyAdditive_ / redskyDecay_;
    SetParam("redsky_decay", blueskyDensity_, this);
    SetParam("bluesky_additive", additivePerDecay * redskyDecay_, this);
  }
  if (densityColourChanged) SetParam("redsky_decay_colour", DecayOfDensity(blueskyDensityColour_), this);
  if (IsParam(index, &redskyDecay_)) {
    LiftRedskyDecay();
    if (blueskyDensity_ != redskyDecay_) {
      SetParam("bluesky_density", redskyDecay_, this);
      DeriveHorizon();
    }
  }
  if (IsParam(index, &redskyDecayColour_)) {
    const trManRgb& decay = redskyDecayColour_;
    const trManRgb density(DensityOfDecay(decay.r), DensityOfDecay(decay.g), DensityOfDecay(decay.b), true);
    if (Differs(density, blueskyDensityColour_)) {
      const trManRgb horizon = blueskyHorizonColour_;
      SetParam("bluesky_density_colour", density, this);
      // In the originator's name, so that the additive colour follows.
      SetParam("bluesky_horizon_colour", horizon, who);
    }
  }
  if (IsParam(index, &blueskyHorizonColour_) || densityChanged || densityColourChanged) DeriveAdditive();
  if (IsParam(index, &blueskyAdditive_) || IsParam(index, &blueskyAdditiveColour_)) {
    LiftRedskyDecay();
    DeriveHorizon();
  }
}

void PlanetAtmosphere::LiftRedskyDecay() {
  if (redskyDecay_ < kLeastRedskyDecay && blueskyAdditive_ != 0)
    SetParam("redsky_decay", kLeastRedskyDecay, this);
}

void PlanetAtmosphere::DeriveAdditive() {
  const trFCol product = blueskyDensityColour_.ToRender() * blueskyHorizonColour_.ToRender();
  const double scale = GuardedDivide(blueskyDensity_, blueskyAdditive_);
  const double a[3] = {scale * product.r, scale * product.g, scale * product.b};
  const trManRgb& old = blueskyAdditiveColour_;
  if (!Differs(a[0], old.r) && !Differs(a[1], old.g) && !Differs(a[2], old.b)) return;

  // The largest channel belongs to the amount, so that the colour stays a colour.
  const double largest = std::max(a[0], std::max(a[1], a[2]));
  const double unit = largest != 0 ? 1.0 / largest : 1.0;
  const double amount = largest != 0 ? blueskyAdditive_ * largest : blueskyAdditive_;
  SetParam("bluesky_additive_colour",
           trManRgb(static_cast<float>(a[0] * unit), static_cast<float>(a[1] * unit),
                    static_cast<float>(a[2] * unit), true),
           this);
  SetParam("bluesky_additive", amount, this);
}

void PlanetAtmosphere::DeriveHorizon() {
  const double scale = GuardedDivide(blueskyAdditive_, blueskyDensity_);
  const trManRgb &additive = blueskyAdditiveColour_, &density = blueskyDensityColour_;
  const trManRgb horizon(static_cast<float>(scale * GuardedDivide(additive.r, density.r)),
                         static_cast<float>(scale * GuardedDivide(additive.g, density.g)),
                         static_cast<float>(scale * GuardedDivide(additive.b, density.b)));
  if (Differs(horizon, blueskyHorizonColour_)) SetParam("bluesky_horizon_colour", horizon, this);
}
