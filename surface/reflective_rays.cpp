// Rays that reflective surfaces trace: one each way, many where the reflection is soft, or quick ones.
#include <cmath>

#include "surface/reflective_point.h"
#include "surface/reflective_shader.h"

namespace {

/// More rays than this a point are a slip of the hand.
constexpr long kMostSamples = 4096;
/// Softness beyond this spreads rays over all directions anyway.
constexpr double kGreatestSoftness = 1e6;

/// `axis` moved by an offset, kept on that side of the surface where `side` points.
trVector OffsetDirection(const trVector& axis, const trVector& offset, const trVector& side) {
  trVector direction = axis + offset;
  const double across = Dot(direction, side);
  if (across < 0) direction -= side * (2 * across);
  direction = Normalised(direction);
  return direction.LengthSquared() > 0.5 ? direction : axis;
}

/// Tells the renderer what the rays traced in its lifetime are for.
class RayPurpose {
 public:
  RayPurpose(trRenderState& rs, const trLobe* lobe, const trFCol& weight) : ray_(rs.CurrentRay()) {
    ray_.lobe = lobe;
    ray_.weight = weight.MaxChannel();
  }
  ~RayPurpose() {
    ray_.lobe = nullptr;
    ray_.weight = 1;
  }
  RayPurpose(const RayPurpose&) = delete;
  RayPurpose& operator=(const RayPurpose&) = delete;

 private:
  trRenderState::Ray& ray_;
};

}  // namespace

long ReflectiveShader::NumSamples() const {
  return numberOfSamples_ < kMostSamples ? numberOfSamples_ : kMostSamples;
}

void ReflectiveShader::TraceRays(trShadingInterface& si, const ReflectivePoint& at) {
  if (NumSamples() >= 2 && std::fabs(reflectionSoftness_) >= 1e-12 && si.LightDepth() <= 1) {
    TraceManyRays(si, at);
    return;
  }
  const trVector near = at.isFront ? at.normal : -at.normal;
  if (at.reflects) {
    const trLobe lobe = ReflectionLobe(at);
    const RayPurpose purpose(si.RenderState(), &lobe, at.reflectance);
    TraceReflection(si, at, OffsetDirection(at.reflected, {}, near), at.reflectance);
  }
  if (at.transmits) {
    const trLobe lobe = TransmissionLobe(at);
    const RayPurpose purpose(si.RenderState(), &lobe, at.transmittance);
    TraceTransmission(si, at, OffsetDirection(at.transmitted, {}, -near), at.transmittance);
  }
}

void ReflectiveShader::TraceManyRays(trShadingInterface& si, const ReflectivePoint& at) {
  ReflectiveThreadState& record = records_[si.Thread()];
  const long count = NumSamples();
  if (record.cachedCount != count || record.cachedSoftness != reflectionSoftness_) FillOffsets(si, record);
  const trFCol share(1.0f / static_cast<float>(count));
  const trVector near = at.isFront ? at.normal : -at.normal;
  const trFCol reflectance = at.reflectance * share, transmittance = at.transmittance * share;
  for (long i = 0; i < count; ++i) {
    if (at.reflects) {
      const RayPurpose purpose(si.RenderState(), nullptr, reflectance);
      TraceReflection(si, at, OffsetDirection(at.reflected, record.reflectionOffsets[i], near), reflectance);
    }
    if (at.transmits) {
      const RayPurpose purpose(si.RenderState(), nullptr, transmittance);
      TraceTransmission(si, at, OffsetDirection(at.transmitted, record.transmissionOffsets[i], -near),
                        transmittance);
    }
  }
}

void ReflectiveShader::FillOffsets(trShadingInterface& si, ReflectiveThreadState& record) const {
  const long count = NumSamples();
  record.cachedCount = static_cast<std::int32_t>(count);
  record.cachedSoftness = reflectionSoftness_;
  record.reflectionOffsets = std::make_unique<trVector[]>(static_cast<size_t>(count));
  record.transmissionOffsets = std::make_unique<trVector[]>(static_cast<size_t>(count));
  const double softness = std::clamp(reflectionSoftness_, -kGreatestSoftness, kGreatestSoftness);
  const trRandomStream inHand = si.Random();
  if (const std::uint64_t key = si.RenderState().KeyOfKeptDraws()) si.Random() = {key, 0};
  const auto draw = [&](trVector& offset) {
    offset.z = (si.RandDouble() - 0.5) * 2 * softness;
    offset.y = (si.RandDouble() - 0.5) * 2 * softness;
    offset.x = (si.RandDouble() - 0.5) * 2 * softness;
  };
  for (long i = 0; i < count; ++i) {
    draw(record.reflectionOffsets[i]);
    draw(record.transmissionOffsets[i]);
  }
  if (si.RenderState().KeyOfKeptDraws()) si.Random() = inHand;
}

void ReflectiveShader::TraceReflection(trShadingInterface& si, const ReflectivePoint& at,
                                       const trVector& direction, const trFCol& weight) const {
  const trFCol colour = at.isFront || at.isThin ? si.RenderState().TraceColor(at.Outside(), direction)
                                                : TraceInner(si, at.Outside(), direction);
  si.RenderState().ShadeOutputs().reflection += Tamed(Tamed(colour) * weight);
}

void ReflectiveShader::TraceTransmission(trShadingInterface& si, const ReflectivePoint& at,
                                         const trVector& direction, const trFCol& weight) const {
  const trFCol colour = !at.isFront || at.isThin ? si.RenderState().TraceColor(at.Beyond(), direction)
                                                 : TraceInner(si, at.Beyond(), direction);
  si.RenderState().ShadeOutputs().transmission += Tamed(Tamed(colour) * weight);
}

trFCol ReflectiveShader::TraceInner(trShadingInterface& si, const trVector& origin,
                                    const trVector& direction) const {
  trRenderState& rs = si.RenderState();
  if (rs.CurrentRay().depth >= rs.MaxRayDepth()) return {};
  const bool isFilled =
      decayDistance > 1e-6 && (volumeColour.ToRender().MaxChannel() > 1e-6f || volumeDensity > 1e-6);
  if (!isFilled && !(decayDistance < 0)) return {};
  const Inside inside = isFilled ? InsideAt(si) : Inside();
  double length = 0;
  const trFCol colour = Tamed(rs.TraceInside(origin, direction, length));
  return isFilled ? ThroughInside(si, inside, origin, direction, length, colour) : colour;
}

void ReflectiveShader::TraceQuickly(trShadingInterface& si, const ReflectivePoint& at) const {
  trRenderState& rs = si.RenderState();
  const auto append = [&](const trVector& from, const trVector& direction, const trLobe& lobe) {
    const RayPurpose purpose(rs, &lobe, lobe.colour);
    const trFCol colour = Tamed(rs.QuickTraceColor(from, direction));
    si.Bsdf().AddLobe(trBsdf::Lambert(trLobe::kLight, Tamed(lobe.colour * colour)));
  };
  if (at.reflects) append(at.Outside(), at.reflected, ReflectionLobe(at));
  if (at.transmits) append(at.Beyond(), at.transmitted, TransmissionLobe(at));
}
