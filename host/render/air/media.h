// Light inside transparent surfaces: how far it goes, and what absorbs or scatters it there.
#pragma once

#include "core/api.h"
#include "core/bsdf.h"

namespace ovhost {

/// How a path tracer treats scattering inside a surface.
enum class MediumMethod : int { kHardSurface = 0, kTowardsNormal = 1, kAllDirections = 2 };

/// A medium made ready for a path inside it. A value type; thread-safe.
class OV_API PathMedium {
 public:
  PathMedium() = default;
  explicit PathMedium(const trMedium& medium);

  const trMedium& Source() const { return source_; }
  MediumMethod Method() const { return method_; }
  /// Share of the light taken out that is scattered again, for a scattering colour.
  trFCol Albedo(const trFCol& scatteringColour) const;
  /// What of the light is left after `length` metres. Where nothing scatters, light counts twice: on its way
  /// in as well.
  trFCol Transmittance(double length) const;
  /// What is left of light on its way in, over `length` metres.
  trFCol TransmittanceOfLight(double length) const {
    return scatters_ ? Transmittance(length) : trFCol(1.0f);
  }

  /// Light inside beside that which falls on the border, so that a deep medium sends back DeepReflectance in
  /// single steps of scattering: of a beam at `cosine` to the border's normal, `length` metres on its way,
  /// and of light from all round. Both per scattering colour.
  trFCol OfBeam(const trFCol& scatteringColour, double cosine, double length) const;
  trFCol OfSurroundings(const trFCol& scatteringColour) const;

  /// Draws how far light goes: a distance below `length` where it is scattered, or `length`, where it gets
  /// through. `weight` is transmittance over density for either, for a path of `throughput`; the colour that
  /// scatters is not in it.
  double SampleDistance(double length, const trFCol& throughput, const tr2Vector& draw, trFCol& weight) const;

 private:
  trMedium source_;
  trFCol extinction_;  ///< per metre
  float scattering_ = 0, absorption_[3] = {0, 0, 0};
  bool scatters_ = false, isOpaque_ = false;
  MediumMethod method_ = MediumMethod::kHardSurface;
};

/// Light that comes straight down from the border and is scattered once counts by this beside one that is
/// scattered until it leaves: half of it is lost on the way out.
constexpr float kStraightUp = 2;

/// Reflectance of a deep medium that scatters in all directions, from the share scattered each time, per
/// channel.
OV_API trFCol DeepReflectance(const trFCol& albedo);

/// A direction evenly from the whole sphere.
OV_API trVector SphereDirection(const tr2Vector& draw);

}  // namespace ovhost
