// reflective_shader: parameters, and what happens at a point in outline. Highlights, rays, insides and lobes
// have files of their own.
#include "surface/reflective_shader.h"

#include <cmath>

#include "core/reflection.h"
#include "surface/reflective_point.h"

namespace {

/// From this depth on, rays of little importance count as broad.
constexpr int kBroadDepth = 3;
constexpr double kBroadImportance = 0.5, kBroadSpread = 0.5;
/// Cone at which lights begin to count as caustics, radians.
constexpr double kCausticSpread = 0.01;

float ShareOf(double amount) { return static_cast<float>(amount); }

}  // namespace

ReflectiveShader::ReflectiveShader() : records_(static_cast<size_t>(trMaxThreads())) {
  SetRange(indexHint_, this, {.min = 1, .max = 10, .focusPower = 2});
  SetRange(intensityHint_, this, {.min = 0, .max = 4, .focusPower = 2});
  SetRange(unitHint_, this, {.min = 0, .max = 1, .focusPower = 2});
  SetRange(samplesHint_, this, {.min = 0, .max = 32});
  SetMenu(modelHint_, this, {{"Blinn", 0}, {"Beckmann OV 2", 1}, {"Beckmann OV 4.5", 2}, {"GGX", 3}});

  GuiTab("Main", "main_tab");
  Param(reflectivity_, "reflectivity", trRgbLinear709(1.0f))
      .About("Strength and colour of reflections. 1 is what the index of refraction gives.");
  Param(reflectionTint_, "reflection_tint", trRgbLinear709(1.0f))
      .About("Colour of reflections alone; what passes the surface or lies beneath isn't changed by it.");
  Param(indexOfRefraction_, "index_of_refraction", 1.33, &indexHint_)
      .About("How strongly the surface reflects: 1.33 is water, 1.5 varnish or glass; high is like metal.");
  Param(specularHighlights_, "specular_highlights", 1).About("Shows the reflections of suns.");
  Param(highlightModel_, "highlight_model", 3, &modelHint_)
      .About(
          "How roughness spreads highlights: GGX has the longest glow; Blinn and Beckmann keep older "
          "projects' look.");
  Param(highlightIntensity_, "highlight_intensity", 1.0, &intensityHint_)
      .About("Strength of the sun's own reflection in sharp rays. 1 is true.");
  Param(causticIntensity_, "caustic_intensity", 1.0, &intensityHint_)
      .About("Strength of the sun's reflection as broad rays see it, after diffuse bounces. 1 is true.");
  Param(specularRoughness_, "specular_roughness", 0.1, &unitHint_).About("0 is a mirror, 1 nearly matt.");
  Param(roughnessFunction_, "specular_roughness_function", "")
      .Display("Roughness function")
      .About("Shader whose brightness multiplies the roughness.");
  Param(specularTweak_, "specular_tweak", 0.5)
      .About("Changes the shape of highlights at the same roughness; 0.5 is neutral.");
  Param(rayTracedReflections_, "ray_traced_reflections", 1)
      .About("Standard engine: traces reflections. Off, a quick look along the ray stands for them.");
  Param(reflectionSoftness_, "reflection_softness", 0.0, &unitHint_)
      .About("Standard engine: spread of traced reflections; 0 is sharp. Needs 2 samples or more.");
  GuiTab("Quality", "quality_tab");
  Param(numberOfSamples_, "number_of_samples", 4, &samplesHint_)
      .About("Standard engine: rays of a soft reflection at each point. More is smoother and slower.");
  // Old projects wrote it here; it is the owner's now.
  Retired("transparency");
  UpdateDerived();
}

void ReflectiveShader::UpdateDerived() {
  trSurfaceShader::UpdateDerived();
  modelOfLobes_ =
      static_cast<signed char>(highlightModel_ >= 0 && highlightModel_ <= 3 ? highlightModel_ : -1);
}

void ReflectiveShader::SetAddends(float roughness, float softness) {
  for (ReflectiveThreadState& record : records_) {
    record.roughnessAddend = roughness;
    record.softnessAddend = softness;
  }
}

ReflectiveShader* CreateReflectiveChild(trBase* owner) {
  trBase* const child = trCreateObject("reflective_shader", owner, 0);
  auto* const reflective = dynamic_cast<ReflectiveShader*>(child);
  if (!reflective) trDestroyObject(child);
  return reflective;
}

long ReflectiveShader::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  return 1;
}

long ReflectiveShader::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled()) return 1;
  trRenderState& rs = si.RenderState();
  const trRenderState::Ray& ray = rs.CurrentRay();
  if (ray.depth <= 1 && !ray.specularOnSurfaces) return 1;

  // Nothing that shines, nothing to do.
  const ReflectiveThreadState& record = records_[si.Thread()];
  ReflectivePoint at;
  at.base = Tamed(record.baseSpecular);
  at.reflectivity = Tamed(reflectivity_.ToRender() * record.reflectivityScale + record.reflectivityAddend);
  at.transparency = Tamed(transparency.ToRender());
  if (!si.doCs() || !si.doCo() || si.Oo_surf().IsBlack()) return 1;
  if (at.base.IsBlack() && at.reflectivity.IsBlack() && at.transparency.IsBlack()) return 1;

  at.isDeferred = rs.IsDeferred();
  at.isCompensated = rs.CompensatesEnergy();
  at.isThin = isThinWalled != 0;
  SetRoughness(si, record, at);
  SetGeometry(si, record, at);
  if (at.isThin)
    RefractThroughThin(at);
  else
    Refract(si, at);

  // Lights count as highlights on sharp rays, as caustics on broad ones.
  const double broad = std::min(1.0, at.spread / kCausticSpread);
  const float gain = Tamed(ShareOf(causticIntensity_ * broad + highlightIntensity_ * (1 - broad)));
  at.lightGain = specularHighlights_ ? gain : 0.0f;
  at.litBase = Tamed(at.base * gain);
  at.litEdge = Tamed(at.edge * gain);
  at.litTransparency = Tamed(at.transparency * gain);
  if (si.LightDepth() > 1 && !ray.groupCastsShadows) at.litTransparency = trFCol();
  trFCol highlights;
  if (specularHighlights_ && ray.highlights) {
    if (!(at.litBase + at.litEdge).IsBlack()) highlights += Highlights(si, at);
    if (!at.litTransparency.IsBlack()) highlights += TransmittedHighlights(si, at);
  }

  si.Bsdf().Scale(ShareEnergy(si, at));
  rs.ShadeOutputs().highlight += Tamed(highlights);

  if (at.isDeferred)
    AppendLobes(si, at);
  else if (!rayTracedReflections_ || si.LightDepth() >= rs.MaxRayDepth())
    TraceQuickly(si, at);
  else if (at.reflects || at.transmits)
    TraceRays(si, at);
  return 1;
}

void ReflectiveShader::SetRoughness(trShadingInterface& si, const ReflectiveThreadState& record,
                                    ReflectivePoint& at) const {
  float roughness = ShareOf(specularRoughness_);
  if (trShader* function = LinkedShader(roughnessFunction_))
    roughness *= Luminance(Tamed(function->FColValueTS(si)));
  roughness = std::max(0.0f, Tamed(roughness * record.roughnessScale));
  at.lobeRoughness = roughness + record.roughnessAddend;
  at.roughness = roughness + record.softnessAddend;
}

void ReflectiveShader::SetGeometry(trShadingInterface& si, const ReflectiveThreadState& record,
                                   ReflectivePoint& at) const {
  at.p = si.P();
  at.view = Normalised(si.Eye() - si.P());

  // Rough surfaces show viewers the facets that are turned to them.
  at.normal = si.N();
  if (record.normalBlendRate > 0 && at.roughness > 0) {
    const trVector half = Normalised(Dot(at.view, si.N()) >= 0 ? at.view + si.N() : si.N() - at.view);
    const double lean = 1 - std::exp(-at.roughness * record.normalBlendRate);
    at.normal = Normalised(si.N() * (1 - lean) + half * lean);
  }
  const bool isTurnedAway = Dot(si.P() - si.Eye(), si.N()) > 0;
  at.facing = isTurnedAway ? -si.N() : si.N();
  at.facingReflecting = isTurnedAway ? -at.normal : at.normal;
  if (at.isThin) at.normal = at.facingReflecting;

  // A broad ray blurs what it meets.
  const trRenderState::Ray& ray = si.RenderState().CurrentRay();
  at.spread = ray.spread;
  if (ray.depth >= kBroadDepth && ray.importance < kBroadImportance)
    at.spread = std::max(at.spread, kBroadSpread);
  const float spread = ShareOf(at.spread);
  at.highlightRoughness = std::max(at.lobeRoughness, spread);
  at.highlightRoughness2 = at.highlightRoughness * at.highlightRoughness;
  at.roughness = std::max(at.roughness, spread);
  at.lobeRoughness = std::max(at.lobeRoughness, 0.1f * spread);
  at.minLightRadius = std::max(0.0, 0.6 * at.spread);

  at.ior = indexOfRefraction_;
  at.f = Tamed(ShareOf(GuardedDivide(at.ior - 1, at.ior + 1)));
}

void ReflectiveShader::RefractThroughThin(ReflectivePoint& at) const {
  const double c = Dot(at.view, at.normal), inverse = SafeReciprocal(at.ior);
  at.isFront = c >= 0;
  at.reflected = at.normal * (2 * c) - at.view;
  at.transmitted = -at.view;
  at.index = at.ior;
  const double q = (1 - c * c) * inverse * inverse;
  at.fresnel = q > 1 ? 1.0f : trFresnel(at.ior, c, std::sqrt(std::max(0.0, 1 - q)));
  at.transmittance = (trFCol(1.0f) - at.reflectivity * at.fresnel) * at.transparency;
  at.edge = at.reflectivity * reflectionTint_.ToRender();
}

void ReflectiveShader::Refract(trShadingInterface& si, ReflectivePoint& at) const {
  const double c = Dot(at.view, at.normal);
  at.isFront = c >= 0;
  at.reflected = at.normal * (2 * c) - at.view;
  at.transmitted = -at.view;
  const trVector sideways = at.view - at.normal * c;
  at.fresnel = 1;
  if (at.isFront) {
    const double inverse = SafeReciprocal(at.ior), q = (1 - c * c) * inverse * inverse;
    at.index = at.ior;
    at.absorbsTransmitted = decayDistance >= 0;
    if (!(q > 1)) {
      const double beyond = std::sqrt(std::max(0.0, 1 - q));
      at.transmitted = at.normal * -beyond - sideways * inverse;
      at.fresnel = trFresnel(at.ior, c, beyond);
    }
    at.transmittance = (trFCol(1.0f) - at.reflectivity * at.fresnel) * at.transparency;
    at.edge = at.reflectivity * reflectionTint_.ToRender();
    return;
  }
  // From inside. Light about to reach its last depth would be lost if it were bent.
  const bool isLast = si.LightDepth() == si.RenderState().MaxRayDepth() - 1;
  const double n = isLast && !at.isDeferred ? 1.0 : at.ior;
  const double q = (1 - c * c) * n * n;
  at.index = SafeReciprocal(n);
  at.absorbsReflected = decayDistance >= 0;
  if (!(q > 1)) {
    const double beyond = std::sqrt(std::max(0.0, 1 - q));
    at.transmitted = at.normal * beyond - sideways * n;
    at.fresnel = trFresnel(n, beyond, -c);
  }
  at.transmittance = at.transparency * (1 - at.fresnel);
  at.edge = at.transparency;
}

trFCol ReflectiveShader::ShareEnergy(trShadingInterface& si, ReflectivePoint& at) const {
  const trRenderState& rs = si.RenderState();
  const bool isAllowed = at.isDeferred || rs.CurrentRay().depth < rs.MaxRayDepth();
  at.edge = Tamed(at.edge);
  at.transmittance = Tamed(at.transmittance);
  const trFCol one(1.0f);
  trFCol beneath;
  if (at.isCompensated && isAllowed) {
    const trLobe reflection = ReflectionLobe(at);
    const double cosine = Dot(at.view, reflection.normal);
    const trLobeShares shares = trSharesOf(reflection, cosine);
    at.reflectance = Tamed(shares.albedo);
    if (!at.transparency.IsBlack()) at.transmittance = Tamed(trSharesOf(TransmissionLobe(at), cosine).albedo);
    beneath = shares.beneath;
  } else {
    const float kappa = isAllowed ? trInterreflection(HighlightModelNumber(), at.highlightRoughness2) : 0.0f;
    const trRoughReflectanceTerms rough = trRoughReflectance(at.base, at.edge, at.fresnel, at.f, kappa);
    at.reflectance = Tamed(rough.Total());
    beneath = one - at.reflectivity * rough.fresnel;
  }
  at.reflects = isAllowed && !at.reflectance.IsBlack();
  at.transmits = isAllowed && !at.transmittance.IsBlack();
  if (!isAllowed) return one;
  return Tamed(beneath * (one - at.transparency));
}
