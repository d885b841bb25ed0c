// The march of a ray through a cloud layer: steps crowd towards the entry, each asks the shaders for density,
// and those that take something from the ray become samples.
#include <algorithm>
#include <cmath>
#include <new>

#include "atmosphere/cloud_layer_v2.h"

namespace {

constexpr int kMostSteps = 8095;
/// Of the light that comes from behind, what less than this share of gets through doesn't show.
constexpr float kOpaque = 0.001f;
/// A background brighter than this has to be hidden the better.
constexpr double kBrightBackground = 10;
/// Envelopes that hold no cloud.
constexpr float kNoEnvelope = 1e-6f;
/// Transmittance that the integrator takes for none.
constexpr float kNothingLeft = 1e-4f;

/// Share of the square that a phase leaves: a unit reciprocal that keeps its sign.
float Inverse(float phase) {
  if (std::fabs(phase) > 1e-6f) return 1.0f / phase;
  return phase < 0 ? -1e6f : 1e6f;
}

/// Steps of clear air grow: twice as many as last time, up to a limit.
int Doubled(int skip, double limit) {
  const double most = std::clamp(std::trunc(limit), 1.0, static_cast<double>(kMostSteps));
  return std::min(2 * skip, static_cast<int>(most));
}

/// What a stretch lets through. Most clouds are grey, and one exponential does.
trFCol Transmission(const trFCol& extinction, double length) {
  const auto through = [length](float a) {
    return static_cast<float>(std::exp(-std::max(0.0, length * static_cast<double>(a))));
  };
  if (extinction.r == extinction.g && extinction.g == extinction.b) return trFCol(through(extinction.r));
  return {through(extinction.r), through(extinction.g), through(extinction.b)};
}

}  // namespace

bool CloudLayerV2::IsPassed(const trRenderState::Ray& ray, const CloudThread& thread) const {
  if (!isDeclared_ || !IsEnabled() || derived_.isEmpty) return true;
  const bool isPrimary = ray.depth <= 1;
  if (isPrimary && !settings_.enablePrimary) return true;
  if (!isPrimary && !settings_.enableSecondary && !(thread.voxelSolving && layout_.marchesAsV2)) return true;
  return thread.densityScale == 0 || (thread.isHidden && ray.wantsColour);
}

const CloudThread& CloudLayerV2::ThreadOfRay(trRenderState& state) const {
  static const CloudThread kAtRest, kHidden = [] {
    CloudThread thread;
    thread.isHidden = true;
    return thread;
  }();
  const CloudThread& thread = Thread(state);
  if (thread.subdivision == state.CurrentRay().subdivision) return thread;
  return thread.isHidden ? kHidden : kAtRest;
}

double CloudLayerV2::NumSteps(const trRenderState::Ray& ray, const CloudThread& thread, double length) const {
  double chord = length * derived_.invDepth;
  if (!layout_.marchesAsV2) chord *= thread.densityScale;
  const double most = static_cast<double>(settings_.numberOfSamples - 1);
  double n = std::trunc(std::sqrt(chord) * most + 1.0);
  if (ray.depth >= 2 && !thread.force3D && n >= 1) {
    // Secondary rays spend about the square root of the primary budget, deep ones much less.
    double weight = 1.0 - 0.5 * ray.quality;
    if (!(ray.wantsColour && (ray.depth < 3 || ray.quality >= 0.5))) weight *= ray.depth - 1;
    n = std::trunc(std::ceil(std::pow(n, 1.0 / (1.0 + weight))));
  }
  return n >= 1 ? std::min(n, static_cast<double>(kMostSteps)) : 0;
}

float CloudLayerV2::ThinAt(const CloudThread& thread) const {
  if (thread.voxelSolving) return 1.0f;
  if (!layout_.marchesAsV2) return thread.shadowScale;
  if (thread.densityScale == 1.0f || !(settings_.lightPropagationMix > 1e-6)) return 0.0f;
  const float s = 1.0f / GuardedDenominator(thread.densityScale);
  return std::pow(0.5f, s * derived_.mixExponent / GuardedDenominator(s - 1.0f));
}

bool CloudLayerV2::FindSpan(const trVector& from, const trVector& to, CloudSpan& span) const {
  CloudShell shell;
  shell.centre = settings_.centre;
  shell.baseRadius = derived_.baseRadius;
  shell.topRadius = derived_.topRadius;
  shell.isLocal = settings_.localSphere != 0;
  shell.localCentre = settings_.localSphereCentre;
  shell.localRadius = settings_.localSphereRadius;
  return FindCloudSpan(shell, from, to, span);
}

bool CloudLayerV2::PlanMarch(const trRenderState::Ray& ray, const CloudThread& thread, Plan& plan) const {
  if (IsPassed(ray, thread) || !FindSpan(ray.origin, ray.end, plan.span)) return false;

  plan.isShadowRay = ray.depth >= 2 && !ray.wantsColour;
  plan.takesShadowMap = settings_.useShadowMap && plan.isShadowRay && !isShadowMapSolving_ &&
                        !thread.voxelSolving && !thread.inLightingSample;
  if (plan.takesShadowMap) return true;

  const double length = plan.span.length - plan.span.gap;
  const bool isFlat = settings_.renderingMethod == 0 && !thread.force3D;
  plan.isEven = thread.voxelSolving && cloudSteps_ == trCloudSteps::kTrueLengths;
  const double steps = isFlat || plan.isEven ? 1 : NumSteps(ray, thread, length);
  if (!(steps >= 1) || !(length > 0)) return false;
  plan.steps = static_cast<int>(steps);
  plan.inverse = 1.0 / steps;
  plan.step = length * plan.inverse;
  plan.advance = plan.span.direction * plan.step;
  plan.jitter = isFlat || thread.voxelSolving ? 0.0 : settings_.sampleJitter;

  plan.stopAt = kOpaque;
  if (ray.wantsColour && !thread.voxelSolving && ray.luminanceBehind > kBrightBackground)
    plan.stopAt *= static_cast<float>(kBrightBackground / ray.luminanceBehind);
  plan.thinAt = ThinAt(thread);
  PlanVoxels(ray, thread, plan);
  return true;
}

void CloudLayerV2::PlanVoxels(const trRenderState::Ray& ray, const CloudThread& thread, Plan& plan) const {
  const trVoxelBuffer& cells = voxels_->density;
  if (!settings_.useVoxelBuffer || cells.IsEmpty() || thread.voxelSolving || thread.paintGiven) return;
  plan.skipsByVoxels = settings_.accelerateEmptySpace && !isProgressive_;
  const trVector edges = cells.EstimatedVoxelSize_WrongIfRotated(plan.span.entry);
  if (settings_.visualiseVoxels && !plan.isShadowRay)
    plan.voxelsFrom = 0;
  else if (settings_.useVoxelsForShadows && plan.isShadowRay)
    plan.voxelsFrom = std::max(edges.x, std::max(edges.y, edges.z)) * settings_.voxelShadowThreshold;
  if (voxels_->occupancy.IsReady() && layout_.usesVoxelScatter) {
    constexpr double kProbe = 10;
    trVector here, ahead;
    cells.MapWorldToVoxel(plan.span.entry, here);
    cells.MapWorldToVoxel(plan.span.entry + plan.span.direction * kProbe, ahead);
    plan.pace = (ahead - here) * (1 / kProbe);
    plan.skipsBlocks = true;
  }
  plan.stepsPerVoxel = 1e12;
  for (int axis = 0; axis < 3; ++axis)
    plan.stepsPerVoxel =
        std::min(plan.stepsPerVoxel, edges[axis] * SafeReciprocal(std::fabs(plan.advance[axis])));
}

CloudLayerV2::Cell CloudLayerV2::SampleStep(trRenderState& state, const Plan& plan, CloudProbe& probe,
                                            const trVector& point, float local, CloudSample& sample) {
  const double height = probe.Height();
  const bool isInside = height >= 0 && height < 1;
  const bool isBaked = (point - state.CurrentRay().origin).Length() >= plan.voxelsFrom;
  float weight = 1;
  if (plan.skipsByVoxels && !isBaked) {
    if (VoxelLookup(state, point, 1, true).a < kNoEnvelope) return Cell::kEmptySpace;
  }
  if (isBaked || plan.skipsByVoxels) {
    if (!isInside) return Cell::kNothing;
    const double edge = voxels_->density.MinVoxelEdgeLength_WrongIfRotated(point);
    const double scale = (layout_.marchesAsV2 ? 0.1 : 0.05) * SafeReciprocal(edge);
    const trF4Col found = VoxelLookup(state, point, LookupLevel(state, point, scale), false);
    if (found.a < kNoEnvelope) return Cell::kNothing;
    if (isBaked) {
      sample.opacity = trFCol(found.r, found.g, found.b);
      sample.density = sample.opacity * (1.0f / GuardedDenominator(derived_.edgeSharpness));
      sample.thickness = 1.0f;
      return Cell::kCloud;
    }
    weight = found.a;
  }
  if (!isInside && !probe.MovesHeight()) return Cell::kNothing;
  switch (probe.Sample(local, sample)) {
    case CloudProbe::Found::kNothing:
      return Cell::kNothing;
    case CloudProbe::Found::kClear:
      return Cell::kClear;
    default:
      sample.opacity *= weight;
      sample.density *= weight;
      return Cell::kCloud;
  }
}

void CloudLayerV2::PrepareRayData(trRenderState& state, const Plan& plan, const CloudThread& thread,
                                  CloudState& data) const {
  data.direction = plan.span.direction;
  data.enviroUp = data.enviroDown = trFCol();
  data.lastEnviroIndex = -10000;
  data.wantsEnviro = false;
  data.lights.clear();
  if (data.steps.size() < static_cast<size_t>(plan.steps)) data.steps.resize(static_cast<size_t>(plan.steps));
  const trRenderState::Ray& ray = state.CurrentRay();
  if (!ray.wantsColour || thread.voxelSolving) return;

  data.wantsEnviro = (ray.depth < 3 || !ray.limitsEnviro) && !layout_.usesVoxelScatter &&
                     !derived_.enviro.IsBlack() && !derived_.cloudColour.IsBlack();
  data.enviroPhase16 = static_cast<int>(state.Random() * 16.0);
  data.enviroPhase256 = static_cast<int>(state.Random() * 256.0);
  const bool isFromSpace = settings_.viewFromSpace != 0;
  for (int i = 0; i < state.NumLights(); ++i) {
    const trLightState* light = state.Light(i);
    if (light->IsEnviroLight()) continue;
    const double radius =
        std::max(0.7 * ray.pixelAngularSize, light->AngularRadiusInRadians(plan.span.entry));
    const double cosine = Dot(data.direction, light->Dir(plan.span.entry));
    float phase = Phase(static_cast<float>(cosine), light->DoGlowInAtmosphere(), static_cast<float>(radius));
    if (isFromSpace) phase /= std::max(1e-12f, derived_.propagationDecay);
    data.lights.push_back(
        {light, phase, Inverse(phase), settings_.enableSecondary && light->DoShadowsFromAtmosphere()});
  }
}

long CloudLayerV2::AddRaySamples(trRenderState& state, trAtomicIntegrator& integrator, void*& rayData) {
  const CloudThread& thread = ThreadOfRay(state);
  Plan plan;
  if (!PlanMarch(state.CurrentRay(), thread, plan)) return 1;
  if (plan.takesShadowMap) {
    if (trAtmosSample* sample = integrator.AddSample(this, plan.span.entry)) sample->index = -1;
    return 1;
  }
  if (!rayData) rayData = new (std::nothrow) CloudState;
  if (!rayData) return 1;
  CloudState& data = *static_cast<CloudState*>(rayData);
  PrepareRayData(state, plan, thread, data);
  March(state, plan, &integrator, &data);
  return 1;
}

void CloudLayerV2::FreeIntegrationData(trAtomicIntegrator&, void* rayData) {
  delete static_cast<CloudState*>(rayData);
}

trFCol CloudLayerV2::StepOpacity(const Plan& plan, const CloudThread& thread, const CloudSample& sample,
                                 const trFCol& left) const {
  trFCol a = sample.opacity;
  for (int c = 0; c < 3; ++c)
    a[c] *= derived_.sigma[c] * (left[c] <= plan.thinAt ? thread.densityScale : 1.0f);
  if (settings_.viewFromSpace) {
    // Luminance of the opacity before the extinction: it tells how deep in the cloud the step lies.
    const float y = Luminance(sample.opacity);
    const float z = y * 0.03f * derived_.sqrtEdge * derived_.opticalDepth * sample.thickness;
    float v = std::pow(std::max(0.0f, z + 1.0f), derived_.fakeScatter) - 1.0f;
    v = std::max(0.0f, std::clamp(v, -1.0f, 4.0f) * 0.25f) * derived_.propagationDecay + 1e-6f;
    a *= v;
  }
  return a;
}

trFCol CloudLayerV2::March(trRenderState& state, const Plan& plan, trAtomicIntegrator* integrator,
                           CloudState* data) {
  const CloudThread& thread = ThreadOfRay(state);
  const bool hasTrueLengths = cloudSteps_ == trCloudSteps::kTrueLengths;
  const double n = plan.steps, skipLimit = layout_.marchesAsV2 ? settings_.stepOptimisation : 0.0;
  double x = 0.5;
  if (plan.jitter != 0) x += (state.Random() - 0.5) * plan.jitter;
  CloudProbe probe = Probe(state);
  trFCol left(1.0f);
  bool hasCrossed = false;
  int skip = 1;
  for (int i = 0; i < plan.steps && left.MaxChannel() > plan.stopAt; i += skip, x += skip) {
    const double u = x * plan.inverse;
    const double along = plan.isEven ? x : u * u * n;
    trVector p = plan.span.entry + plan.advance * along;
    if (plan.span.gap > 0) {
      hasCrossed = hasCrossed || (p - settings_.centre).Length() < derived_.baseRadius;
      if (hasCrossed) p += plan.span.direction * plan.span.gap;
    }
    if (const double clear = plan.skipsBlocks ? ClearAhead(state, plan, p) : 0.0; clear > 0) {
      // On to the first step beyond.
      const int passed = static_cast<int>(std::min(std::sqrt((along + clear / plan.step) * n) - x, n));
      i += passed;
      x += passed;
      continue;
    }
    probe.MoveTo(p);
    const float local = probe.LocalEnvelope();
    if (!(local > kNoEnvelope)) continue;
    CloudSample sample;
    const Cell found = SampleStep(state, plan, probe, p, local, sample);
    if (found == Cell::kEmptySpace) {
      // On to where the next voxel is.
      const double next = std::sqrt((u * u * n + plan.stepsPerVoxel) * plan.inverse + 1e-6) * n - x;
      const int passed = static_cast<int>(std::clamp(std::floor(next), 0.0, n));
      i += passed;
      x += passed;
      continue;
    }
    if (found != Cell::kCloud) {
      const bool isClear = found == Cell::kClear;
      skip = Doubled(skip, isClear ? -sample.density.MaxChannel() * skipLimit : skipLimit);
      continue;
    }

    const trFCol a = StepOpacity(plan, thread, sample, left);
    double length = plan.step;
    if (hasTrueLengths)
      length *= plan.isEven ? 1.0 : 2.0 * u * skip;
    else if (skip > 1)
      length *= std::sqrt(static_cast<double>(skip));
    const trFCol through = Transmission(a, length);
    if (through == trFCol(1.0f)) continue;
    if (integrator) {
      CloudStep& step = data->steps[static_cast<size_t>(i)];
      step.density = sample.density;
      step.transmission = through;
      step.thickness = sample.thickness;
      step.spot = 2.0 * u * plan.step;
      step.lightSpot = (u + plan.inverse) * 2.0 * plan.step;
      step.enviroSpot = (u + 16.0 * plan.inverse) * 2.0 * plan.step;
      if (trAtmosSample* added = integrator->AddSample(this, p)) {
        added->rayData = data;
        added->index = i;
      }
    }
    left *= through;
  }
  return left;
}

trFCol CloudLayerV2::MarchAlone(trRenderState& state) {
  Plan plan;
  if (!PlanMarch(state.CurrentRay(), ThreadOfRay(state), plan)) return trFCol(1.0f);
  if (plan.takesShadowMap) return trFCol(1.0f) - ShadowMapOpacity(plan.span.entry);
  const trFCol left = March(state, plan, nullptr, nullptr);
  return left.MaxChannel() < kNothingLeft ? trFCol() : left;
}

trFCol CloudLayerV2::TransmittanceTowards(trRenderState& state, const trLightState& light,
                                          const trVector& point, const trVector&) {
  if (trFCol left; SunlightBelow(state, light, point, left)) return left;
  const trTransmissionRay ray(state, light, point);
  return MarchAlone(state);
}
