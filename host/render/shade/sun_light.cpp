// Suns: what comes of their light to a point.
#include "host/render/shade/sun_light.h"

#include <algorithm>

#include "host/base/tangents.h"
#include "host/project/sunlight.h"
#include "host/render/shade/lit_scene.h"

namespace ovhost {

SunLight::SunLight(const LitScene& scene, const trSunlightNode& node)
    : scene_(scene),
      direction_(node.Direction()),
      radiance_(node.Radiance()),
      angularRadius_(std::clamp(node.AngularRadius(), 1e-5, 1.5)),
      shadows_(node.CastsShadows()),
      glow_(node.GlowsInAtmosphere()),
      visibleDisc_(node.HasVisibleDisc()) {
  MakeTangents(direction_, sideA_, sideB_);
  sideB_ = -sideB_;
}

trVector SunLight::TracePos(const trVector& point, double& distance) const {
  distance = scene_.FarDistance();
  return point + direction_ * distance;
}

trVector SunLight::SampleDisc(const tr2Vector& draw) const {
  const double r = std::sqrt(draw.x) * std::tan(angularRadius_), phi = 2 * kPi * draw.y;
  return Normalised(direction_ + sideA_ * (r * std::cos(phi)) + sideB_ * (r * std::sin(phi)));
}

double SunLight::DiscPdf(const trVector& direction) const {
  // Evenly over a disc in the plane at unit distance.
  const double radius = std::tan(angularRadius_), cosine = std::fmax(Dot(direction, direction_), 1e-3);
  return 1 / (kPi * radius * radius * cosine * cosine * cosine);
}

trFCol SunLight::ThroughVolumes(trRenderState& state, const trVector& point) const {
  return shadows_ ? scene_.Air().TowardsSurface(state, *this, point) : trFCol(1.0f);
}

trFCol SunLight::Intensity(trRenderState& state, const trVector& point, const trVector& spot) const {
  const trFCol through = shadows_ ? radiance_ * scene_.Air().Towards(state, *this, point, spot) : radiance_;
  if (!shadows_ || !state.CurrentRay().tracesShadows || through.IsBlack() || scene_.Rays().IsEmpty())
    return through;
  const tr2Vector draw(state.Random(), state.Random());
  const bool blocked =
      scene_.Rays().Occluded(point - scene_.View().eye, SampleDisc(draw), 0, scene_.FarDistance());
  return blocked ? trFCol() : through;
}

trFCol SunLight::DEV_IntensityOptimised(trRenderState& state, const trVector& point, const trVector& spot,
                                        const trVector&, const trFCol&) const {
  return Intensity(state, point, spot);
}

}  // namespace ovhost
