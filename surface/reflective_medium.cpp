// What fills transparent surfaces: light that crosses it, and how path tracers are told of it.
#include <cmath>

#include "surface/reflective_shader.h"

namespace {

/// Steps of a march through a volume, at first and at most.
constexpr double kLeastSteps = 4;
constexpr int kMostSteps = 64;

int NumSteps(const trRenderState::Ray& ray) {
  if (ray.depth < 2) return static_cast<int>(kLeastSteps);
  const double steps = std::ceil(std::pow(kLeastSteps, GuardedDivide(1.0, 1 - ray.importance)));
  return steps < kMostSteps ? std::max(1, static_cast<int>(steps)) : kMostSteps;
}

trFCol Exponential(const trFCol& e, double factor) {
  trFCol result;
  for (int k = 0; k < 3; ++k) {
    const double power = std::exp(std::min(700.0, e[k] * factor));
    result[k] = Tamed(static_cast<float>(power));
  }
  return result;
}

/// While points inside ask for their lights: what fills the inside, and each point's share of the ray.
class InsideOfRay {
 public:
  InsideOfRay(trRenderState::Ray& ray, const trMedium& medium, int points)
      : ray_(ray), importance_(ray.importance) {
    ray_.medium = &medium;
    ray_.importance = importance_ * std::sqrt(1.0 / points);
  }
  ~InsideOfRay() {
    ray_.medium = nullptr;
    ray_.importance = importance_;
  }
  InsideOfRay(const InsideOfRay&) = delete;
  InsideOfRay& operator=(const InsideOfRay&) = delete;

 private:
  trRenderState::Ray& ray_;
  const double importance_;
};

trShader* Function(const trShaderLink* link) { return link ? LinkedShader(*link) : nullptr; }

}  // namespace

trFCol ReflectiveShader::DensityFunction(trShadingInterface& si) const {
  trShader* const function = Function(volumeDensityFunction);
  if (!function) return trFCol(1.0f);
  const trFCol c = Tamed(function->FColValueTS(si));
  return {std::clamp(c.r, 0.0f, 1.0f), std::clamp(c.g, 0.0f, 1.0f), std::clamp(c.b, 0.0f, 1.0f)};
}

ReflectiveShader::Inside ReflectiveShader::InsideAt(trShadingInterface& si) const {
  Inside inside;
  if (!(volumeDensity > 0)) return inside;
  inside.density = Tamed(DensityFunction(si) * static_cast<float>(volumeDensity));
  if (inside.density.IsBlack()) return inside;
  inside.colour = Tamed(volumeColour.ToRender());
  inside.colourFunction = Function(volumeColourFunction);
  if (isColourVolumetric) return inside;
  MultiplyByShader(inside.colour, inside.colourFunction, si);
  inside.colourFunction = nullptr;
  return inside;
}

trFCol ReflectiveShader::ThroughInside(trShadingInterface& si, const Inside& inside, const trVector& origin,
                                       const trVector& direction, double length, const trFCol& colour) const {
  // Extinction, per metre.
  trFCol extinction;
  for (int k = 0; k < 3; ++k)
    extinction[k] = 1.0f / std::max(decayTint.ToRender()[k], 1e-6f) + inside.density[k];
  const float perMetre = static_cast<float>(decayDistance != 0 ? 1 / decayDistance : 1.0);
  extinction = Tamed(extinction * perMetre);
  length = length > 0 ? std::min(length, 1e30) : 0.0;

  // Light that nothing scatters was absorbed on its way in as well.
  if (inside.density.IsBlack()) return Tamed(colour * Exponential(extinction, -2 * length));
  return Tamed(colour * Exponential(extinction, -length) +
               ScatteredInside(si, inside, origin, direction, length, extinction));
}

trFCol ReflectiveShader::ScatteredInside(trShadingInterface& si, const Inside& inside, const trVector& origin,
                                         const trVector& direction, double length,
                                         const trFCol& extinction) const {
  trRenderState& rs = si.RenderState();
  const int steps = NumSteps(rs.CurrentRay());
  double step = length / steps;
  // Dense volumes show no more than their first few optical depths.
  const double mean = (extinction.r + extinction.g + extinction.b) / 3.0;
  if (mean * step > 1) step = 1 / mean;

  // What scatters of what a step takes out, with phase function 1.
  trFCol taken = trFCol(1.0f) - Exponential(extinction, -step);
  for (int k = 0; k < 3; ++k)
    taken[k] *= GuardedDivide(inside.density[k], static_cast<float>(extinction[k] * decayDistance));

  trMedium medium;
  medium.decayDistance = decayDistance;
  medium.decayTint = decayTint.ToRender();
  medium.volumeDensity = Luminance(inside.density);
  medium.volumeColour = inside.colour;
  const InsideOfRay inHand(rs.CurrentRay(), medium, steps);
  const trVector spot(step, step, step);
  trFCol sum;
  for (int i = 0; i < steps; ++i) {
    const double distance = (i + 0.5) * step;
    const trVector point = origin + direction * distance;
    trFCol light;
    for (int k = 0; k < rs.NumLights(); ++k)
      if (const trLightState* state = rs.Light(k)) light += Tamed(state->Intensity(rs, point, spot));
    trFCol colour = inside.colour;
    if (inside.colourFunction) colour *= Tamed(rs.CallShaderCd(inside.colourFunction, true, &point, nullptr));
    sum += Tamed(colour * light * taken * Exponential(extinction, -i * step));
  }
  return sum;
}

int ReflectiveShader::AddMedium(trShadingInterface& si) const {
  trMedium medium;
  medium.decayDistance = decayDistance;
  medium.decayTint = decayTint.ToRender();
  medium.method = volumeMethod;
  medium.group = si.RenderState().CurrentRay().group;
  medium.point = si.P();
  medium.textureNormal = si.Nt();
  medium.eye = si.Eye();
  medium.volumeDensity = std::max(0.0, volumeDensity);
  if (Function(volumeDensityFunction)) medium.volumeDensity *= Luminance(DensityFunction(si));
  medium.volumeColour = volumeColour.ToRender();
  trShader* const function = Function(volumeColourFunction);
  if (isColourVolumetric)
    medium.volumeColourFunction = function;
  else
    MultiplyByShader(medium.volumeColour, function, si);
  medium.volumeColour = Tamed(medium.volumeColour);
  return si.Bsdf().AddMedium(medium);
}
