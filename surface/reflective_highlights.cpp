// Highlights of lights on reflective surfaces, and through transparent ones.
#include <cmath>

#include "core/reflection.h"
#include "surface/reflective_point.h"
#include "surface/reflective_shader.h"

namespace {

constexpr double kPi = 3.1415927;
/// Largest radius of a light seen through a rough surface, radians.
constexpr double kGreatestLobe = 0.4;

/// A diagonal of the ray's footprint, metres an axis.
trVector Footprint(const trRenderState::Ray& ray) {
  trVector size;
  for (int i = 0; i < 3; ++i) {
    const double a = ray.corners[0][i], b = ray.corners[1][i], c = ray.corners[2][i];
    size[i] = (std::max(a, std::max(b, c)) - std::min(a, std::min(b, c))) * 0.7071;
  }
  return size;
}

/// What coarse meshes lose of `d`, the cosine at the surface, near the shadow line of their true shape.
double SoftenedCosine(double d, const trRenderState::Terminator& terminator, const trVector& light,
                      const trVector& view) {
  if (!terminator.enabled || !(terminator.amount > 0.0001f)) return d;
  const double lit = 0.95 * Dot(terminator.reference, light) + 0.05;
  const double sharpness = (kPi - std::acos(std::clamp(Dot(light, view), -1.0, 1.0))) * 6;
  double shown = 0;
  if (sharpness != 0) {
    // The reference normal isn't always a unit vector, and negative numbers have no powers.
    const double rest = std::max(0.0, 1 - std::fabs(lit));
    shown = std::copysign(1 - std::pow(rest, sharpness), lit < 0 ? -1.0 : 1.0);
  }
  return d - (1 - shown) * terminator.amount;
}

/// 1 - erfc(u) / 2 within 5e-4 (Abramowitz and Stegun 7.1.27).
double SoftStep(double u) {
  const double x = std::fabs(u);
  double d = 1 + x * (0.278393 + x * (0.230389 + x * (0.000972 + x * 0.078108)));
  d *= d;
  const double tail = 0.5 / (d * d);
  return u >= 0 ? 1 - tail : tail;
}

/// A disc of light of radius `radius` with an edge of width `softness`, both in radians, at the angle of
/// cosine `x` to its centre. A harder disc is brighter: its light stays the same.
double SoftDisc(double x, double radius, double softness) {
  radius = std::max(radius, softness * 0.5);
  const double angle = std::acos(std::clamp(x, -1.0, 1.0));
  const double edge = 1.9 * std::min(softness, 0.15 * radius), outer = edge + radius;
  const double u = -(angle * angle - radius * radius) / (outer * outer - radius * radius + 1e-6);
  return SoftStep(u) / GuardedDenominator(edge * edge + radius * radius);
}

/// A light seen through a surface of the given roughness: three discs stand for the blur.
double BlurredDisc(double x, double radius, double roughness) {
  const double low = std::max(0.5 * radius, radius - roughness),
               high = std::min(kGreatestLobe, radius + roughness);
  const double middle = (low + high) * 0.5, ratio = GuardedDivide(low, middle);
  const double peak = ratio * ratio * ratio;
  return 0.33 * peak * SoftDisc(x, low, roughness * 0.5) + 0.34 * SoftDisc(x, middle, roughness * 0.5) +
         0.33 * (2 - peak) * SoftDisc(x, high, roughness * 0.5);
}

/// The terminator as the other side of the surface has it.
class TurnedTerminator {
 public:
  explicit TurnedTerminator(trRenderState::Terminator& terminator)
      : terminator_(terminator), reference_(terminator.reference) {
    terminator_.reference = -reference_;
  }
  ~TurnedTerminator() { terminator_.reference = reference_; }
  TurnedTerminator(const TurnedTerminator&) = delete;
  TurnedTerminator& operator=(const TurnedTerminator&) = delete;

 private:
  trRenderState::Terminator& terminator_;
  const trVector reference_;
};

}  // namespace

trFCol ReflectiveShader::HighlightModel(const ReflectivePoint& at, const trVector& light) const {
  const trFCol ior(static_cast<float>(at.ior));
  const double inverseTweak = SafeReciprocal(specularTweak_);
  const float a = at.highlightRoughness;
  switch (highlightModel_) {
    case 0:
      return trBlinnModified(at.litBase, at.litEdge, ior, at.facing, light, at.view, trFCol(a));
    case 1:
      return trSpecularBeckmannOV2(at.litBase, at.litEdge, ior, at.facing, light, at.view, trFCol(a),
                                   trFCol(static_cast<float>(inverseTweak)));
    case 2:
      return trSpecularBeckmannOV45(at.litBase, at.litEdge, ior, at.facing, light, at.view, a, inverseTweak,
                                    at.highlightRoughness2, at.f);
    case 3:
      return trSpecularGGX(at.litBase, at.litEdge, ior, at.facing, light, at.view, a, inverseTweak,
                           at.highlightRoughness2, at.f);
    default:
      return {};
  }
}

trFCol ReflectiveShader::Highlights(trShadingInterface& si, const ReflectivePoint& at) const {
  trRenderState& rs = si.RenderState();
  const trVector footprint = Footprint(rs.CurrentRay()), from = at.Outside();
  const trFCol colour = at.isCompensated ? trFCol(at.lightGain) : at.litBase + at.litEdge;
  trLobe compensated = ReflectionLobe(at);
  compensated.normal = at.facing;
  compensated.roughness = at.highlightRoughness;
  trFCol sum;
  for (int i = 0; i < rs.NumLights(); ++i) {
    const trLightState* const light = rs.Light(i);
    if (!light || !light->DoSpecularHighlights()) continue;
    const trVector direction = light->Dir(at.p);
    double d = Dot(direction, at.facing);
    if (!(d > 0)) continue;
    const trFCol intensity = Tamed(light->Intensity(rs, from, footprint));
    d = std::max(0.0, SoftenedCosine(d, rs.TerminatorInfo(), direction, at.view));
    const trFCol value = at.isCompensated ? trCompensatedHighlight(compensated, direction, at.view)
                                          : HighlightModel(at, direction);
    sum += Tamed(colour * static_cast<float>(d) * intensity * value);
  }
  return sum;
}

trFCol ReflectiveShader::TransmittedHighlights(trShadingInterface& si, const ReflectivePoint& at) const {
  trRenderState& rs = si.RenderState();
  const trVector footprint = Footprint(rs.CurrentRay()), from = at.Beyond();
  const TurnedTerminator turned(rs.TerminatorInfo());
  const trFCol colour = at.litTransparency * (1 - at.fresnel);
  trFCol sum;
  for (int i = 0; i < rs.NumLights(); ++i) {
    const trLightState* const light = rs.Light(i);
    if (!light || !light->DoSpecularHighlights()) continue;
    const trVector direction = light->Dir(at.p);
    if (!(-Dot(direction, at.facing) > 0)) continue;
    const trFCol intensity = Tamed(light->Intensity(rs, from, footprint));
    const double radius = std::max(light->SoftShadowAngularRadiusInRadians(), at.minLightRadius);
    const double disc = BlurredDisc(Dot(direction, at.transmitted), radius, at.lobeRoughness);
    sum += Tamed(colour * intensity * static_cast<float>(disc));
  }
  return sum;
}
