// Camera paths.
#include "host/render/path.h"

#include <tbb/task_arena.h>

#include <algorithm>

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979;
/// Filter footprint of a camera sample, in pixels: the samples of a pixel average what is finer than it.
constexpr double kPixelFootprint = 0.5;
/// Footprint of a diffuse bounce, as a share of the distance: detail finer than this averages out over the
/// hemisphere.
constexpr double kBounceFootprint = 0.05;

/// Smallest chance of a path to go on.
constexpr double kLeastSurvival = 0.25;
/// Share of the open sky taken to be seen from the end of a path: the tabulated light knows no terrain.
constexpr float kDeepVisibility = 0.7f;
/// Two samples of a pixel whose surfaces are this close, as a share of the distance, have the same air before
/// them.
constexpr double kSharedAirTolerance = 0.04;

/// A cosine-weighted direction about `normal` (Malley's method on concentric discs, Shirley and Chiu 1997).
trVector CosineDirection(const trVector& normal, const tr2Vector& draw) {
  const double a = 2 * draw.x - 1, b = 2 * draw.y - 1;
  double r, phi;
  if (a == 0 && b == 0) {
    r = phi = 0;
  } else if (std::fabs(a) > std::fabs(b)) {
    r = a;
    phi = kPi / 4 * (b / a);
  } else {
    r = b;
    phi = kPi / 2 - kPi / 4 * (a / b);
  }
  const trVector side =
      Normalised(std::fabs(normal.y) < 0.9 ? Cross(normal, {0, 1, 0}) : Cross(normal, {1, 0, 0}));
  const trVector front = Cross(side, normal);
  return side * (r * std::cos(phi)) + front * (r * std::sin(phi)) +
         normal * std::sqrt(std::fmax(0, 1 - r * r));
}

trFCol FiniteOrBlack(const trFCol& c) {
  return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) ? c : trFCol();
}

/// How much of what is behind something is hidden by it, of what it lets through.
float Opacity(const trFCol& transmittance) { return 1 - Luminance(transmittance) / Luminance(trFCol(1.0f)); }

trFCol Clamped(const trFCol& c, float limit) {
  const float luminance = Luminance(c);
  return limit > 0 && luminance > limit ? c * (limit / luminance) : c;
}

}  // namespace

PathTracer::PathTracer(World& world, const PathSettings& settings)
    : world_(world), settings_(settings), hits_(world.View()), state_(world, si_) {
  si_.SetFrame(static_cast<float>(world.Settings().frame));
  si_.SetMainView(&world.View());
  si_.SetThread(static_cast<unsigned>(std::max(0, tbb::this_task_arena::current_thread_index())));
  si_.RootEye() = world.View().eye;
}

PathTracer::~PathTracer() { integrator_.FreeRayData(); }

trAtomicIntegrator::Result PathTracer::Air(const trVector& origin, const trVector& direction, double distance,
                                           int depth) {
  if (world_.Volumes().empty()) return {};
  trRenderState::Ray& ray = state_.CurrentRay();
  ray = trRenderState::Ray();
  ray.origin = origin;
  ray.end = origin + direction * distance;
  ray.depth = depth;
  // What a diffuse bounce sees is averaged over the hemisphere: few samples do.
  ray.quality = depth == 1 ? 1.0 : 0.0;
  ray.pixelAngularSize = world_.View().PixelAngularSize();
  integrator_.Begin(state_);
  const trAtomicIntegrator::Result result = integrator_.Integrate(state_, world_.Volumes());
  counters_.volumeSamples += integrator_.NumSamples();
  return result;
}

void PathTracer::BeginSample(int x, int y, std::uint32_t index) {
  const std::uint32_t group = index == 0 ? ~0u : index / kSamplesSharing;
  if (x == sharedX_ && y == sharedY_ && group == sharedGroup_) return;
  sharedCount_ = cellCount_ = 0;
  sharedX_ = x;
  sharedY_ = y;
  sharedGroup_ = group;
}

trAtomicIntegrator::Result PathTracer::CameraAir(const trVector& direction, double distance) {
  for (int i = 0; i < sharedCount_; ++i)
    if (std::fabs(sharedAir_[i].distance - distance) <= kSharedAirTolerance * distance)
      return sharedAir_[i].air;
  SharedAir& entry = sharedAir_[sharedCount_++];
  entry = {distance, Air(world_.View().eye, direction, distance, 1)};
  return entry.air;
}

void PathTracer::ShadeHit(const SurfaceHit& hit, const trVector& origin, const trVector& direction,
                          double footprintAngle, bool isCamera, Surface& surface) {
  hits_.Locate(hit, origin, direction, footprintAngle, surface);
  const trVector normal = surface.normal;
  const ShadedCell key{hit.part, hit.primitive, CellOf(hit), {}, {}, {}};
  if (!isCamera || !TakeShadedCell(key, surface)) {
    RunShaders(hit, origin, surface);
    const bool keepsNormal = si_.N() == normal;
    surface.normal = Normalised(si_.N());
    if (isCamera && keepsNormal && cellCount_ < static_cast<int>(shadedCells_.size()))
      shadedCells_[cellCount_++] = {key.part,         key.patch,       key.cell,
                                    surface.emission, surface.diffuse, surface.transmission};
  }
  if (!(surface.normal.LengthSquared() > 0.5)) surface.normal = surface.face;
  if (Dot(surface.normal, surface.face) < 0) surface.normal = -surface.normal;
}

bool PathTracer::TakeShadedCell(const ShadedCell& key, Surface& surface) const {
  for (int k = 0; k < cellCount_; ++k) {
    const ShadedCell& known = shadedCells_[k];
    if (known.part != key.part || known.patch != key.patch || known.cell != key.cell) continue;
    surface.emission = known.emission;
    surface.diffuse = known.diffuse;
    surface.transmission = known.transmission;
    return true;
  }
  return false;
}

void PathTracer::RunShaders(const SurfaceHit& hit, const trVector& origin, Surface& surface) {
  hits_.FillState(hit, origin, surface, si_);
  si_.SetWants(trShadingInterface::kCd | trShadingInterface::kCo | trShadingInterface::kCe |
               trShadingInterface::kOo);
  if (surface.material->surfaceShader) surface.material->surfaceShader->ShadeTS(si_);

  const trBsdf& bsdf = si_.Bsdf();
  surface.emission = FiniteOrBlack(bsdf.Emission());
  surface.diffuse = FiniteOrBlack(bsdf.ColourOf(trLobe::kDiffuseReflection));
  surface.transmission = FiniteOrBlack(bsdf.ColourOf(trLobe::kDiffuseTransmission));
}

trFCol PathTracer::DirectLight(const Surface& surface, const tr2Vector& draw) {
  trFCol light;
  for (const auto& sun : world_.Suns()) {
    const trVector direction = sun->SampleDisc(draw);
    const double cosine = Dot(surface.normal, direction);
    const trFCol& colour = cosine > 0 ? surface.diffuse : surface.transmission;
    if (colour.IsBlack() || cosine == 0) continue;
    const trVector& face = surface.face;
    const bool faces = Dot(face, direction) > 0;
    // A lit shading normal over a turned-away face is the face's own shadow.
    if (cosine > 0 && !faces) continue;
    const double offset = surface.rayOffset;
    const trVector origin = surface.relative + face * (faces ? offset : -offset);
    if (sun->DoShadowsFromSurfaces()) {
      ++counters_.shadowRays;
      if (world_.Rays().Occluded(origin, direction, offset, world_.FarDistance())) continue;
    }
    state_.CurrentRay().depth = 1;
    light += colour * sun->Radiance() * sun->ThroughVolumes(state_, surface.world) *
             static_cast<float>(std::fabs(cosine));
  }
  return light;
}

CameraSample PathTracer::Sample(int x, int y, std::uint32_t index) {
  BeginSample(x, y, index);
  const trView& view = world_.View();
  const std::uint64_t pixelKey =
      MixBits64(static_cast<std::uint64_t>(y) << 32 | static_cast<std::uint32_t>(x)) ^ world_.Settings().seed;
  PixelSampler sampler(pixelKey, index);
  si_.Random() = {MixBits64(pixelKey + index)};

  // A tent filter over two pixels, by importance.
  const auto tent = [](double u) { return u < 0.5 ? std::sqrt(2 * u) - 1 : 1 - std::sqrt(2 - 2 * u); };
  const tr2Vector jitter = sampler.Next();
  const double sx = (x + 0.5 + tent(jitter.x)) / view.width * 2 - 1,
               sy = 1 - (y + 0.5 + tent(jitter.y)) / view.height * 2;
  trVector direction = Normalised(view.forward + view.right * (sx * view.tanHalfHorizontal) +
                                  view.up * (sy * view.tanHalfVertical));
  trVector origin;
  double nearest = view.nearClip, footprintAngle = kPixelFootprint * view.PixelAngularSize();

  CameraSample result;
  trFCol throughput(1.0f);
  bool isDirectlySeen = true;
  for (int depth = 1;; ++depth) {
    SurfaceHit hit;
    ++(depth == 1 ? counters_.cameraRays : counters_.bounceRays);
    const bool isHit = !world_.Rays().IsEmpty() &&
                       world_.Rays().Intersect(origin, direction, nearest, world_.FarDistance(), hit,
                                               isDirectlySeen ? kCameraRays : kIndirectRays);
    const double distance = isHit ? hit.distance : world_.FarDistance();
    const trAtomicIntegrator::Result air =
        depth == 1 ? CameraAir(direction, distance) : Air(origin + view.eye, direction, distance, depth);
    const auto addIndirect = [&](const trFCol& light) {
      const trFCol added = Clamped(FiniteOrBlack(light), settings_.clampIndirect);
      result.beauty += added;
      result.indirect += added;
    };
    if (isDirectlySeen) {
      result.atmosphere = FiniteOrBlack(air.Colour());
      result.beauty += result.atmosphere;
    } else {
      addIndirect(throughput * air.Colour());
    }
    throughput *= air.transmittance;
    if (isHit && isDirectlySeen && hit.part->isHoldout) {
      result.alpha = Opacity(throughput);
      break;
    }
    if (!isHit) {
      if (isDirectlySeen) {
        for (const auto& sun : world_.Suns())
          if (sun->HasVisibleDisc() &&
              Dot(direction, sun->Dir()) >= std::cos(sun->AngularRadiusInRadians(origin))) {
            // The disc's radiance from its irradiance; what a picture can't hold is left to the view
            // transform.
            const double radius = sun->AngularRadiusInRadians(origin);
            result.beauty += throughput * sun->Radiance() * static_cast<float>(1 / (radius * radius));
          }
        result.alpha = Opacity(throughput);
      }
      break;
    }

    Surface surface;
    ShadeHit(hit, origin, direction, footprintAngle, isDirectlySeen, surface);
    const trFCol direct = surface.emission + DirectLight(surface, sampler.Next());
    if (isDirectlySeen) {
      result.alpha = 1;
      result.depth = static_cast<float>(distance);
      result.position = surface.world;
      result.normal = surface.normal;
      result.albedo = surface.diffuse;
      result.nodeId = static_cast<float>(surface.part->nodeId);
      result.direct = FiniteOrBlack(throughput * direct);
      result.beauty += result.direct;
    } else {
      addIndirect(throughput * direct);
    }
    const bool isLast = depth > settings_.maxBounces;
    if (isLast && !isDirectlySeen) {
      // What deeper bounces would bring, from the tabulated sky.
      addIndirect(throughput * surface.diffuse *
                  world_.IndirectDiffuse(state_, surface.world, surface.normal) * kDeepVisibility);
    }

    // Go on by a diffuse bounce; roulette by what the path still carries, so that dark ground costs less.
    if (isLast || world_.SkyOnSurfaces().IsBlack()) break;
    throughput *= surface.diffuse;
    if (isDirectlySeen) throughput *= world_.SkyOnSurfaces();
    const tr2Vector bounce = sampler.Next();
    const double survive = std::clamp(2.5 * throughput.MaxChannel(), kLeastSurvival, 1.0);
    if (survive < 1 && sampler.Next().x >= survive) break;
    throughput *= static_cast<float>(1 / survive);
    if (throughput.MaxChannel() <= 0) break;
    direction = CosineDirection(surface.normal, bounce);
    if (Dot(direction, surface.face) <= 0) break;
    const double offset = surface.rayOffset;
    origin = surface.relative + surface.face * offset;
    nearest = offset;
    footprintAngle = kBounceFootprint;
    isDirectlySeen = false;
  }
  return result;
}

}  // namespace ovhost
