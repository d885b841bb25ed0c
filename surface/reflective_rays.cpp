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

}  // namespace

long ReflectiveShader::NumSamples() const {
  return numberOfSamples_ < kMostSamples ? numberOfSamples_ : kMostSamples;
}

void ReflectiveShader::TraceRays(trShadingInterface& si, const ReflectivePoint& at) {
  if (NumSamples() >= 2 && std::fabs(reflectionSoftness_) >= 1e-12 && si.LightDepth() <= 1) {
    TraceManyRays(si, at);
    return;
  }
  if (at.reflects) TraceReflection(si, at, {}, at.reflectance);
  if (at.transmits) TraceTransmission(si, at, {}, at.transmittance);
}

void ReflectiveShader::TraceManyRays(trShadingInterface& si, const ReflectivePoint& at) {
  ReflectiveThreadState& record = records_[si.Thread()];
  const long count = NumSamples();
  if (record.cachedCount != count || record.cachedSoftness != reflectionSoftness_) FillOffsets(si, record);
  const float share = 1.0f / static_cast<float>(count);
  for (long i = 0; i < count; ++i) {
    if (at.reflects) TraceReflection(si, at, record.reflectionOffsets[i], at.reflectance * share);
    if (at.transmits) TraceTransmission(si, at, record.transmissionOffsets[i], at.transmittance * share);
  }
}

void ReflectiveShader::FillOffsets(trShadingInterface& si, ReflectiveThreadState& record) const {
  const long count = NumSamples();
  record.cachedCount = static_cast<std::int32_t>(count);
  record.cachedSoftness = reflectionSoftness_;
  record.reflectionOffsets = std::make_unique<trVector[]>(static_cast<size_t>(count));
  record.transmissionOffsets = std::make_unique<trVector[]>(static_cast<size_t>(count));
  const double softness = std::clamp(reflectionSoftness_, -kGreatestSoftness, kGreatestSoftness);
  const auto draw = [&](trVector& offset) {
    offset.z = (si.RandDouble() - 0.5) * 2 * softness;
    offset.y = (si.RandDouble() - 0.5) * 2 * softness;
    offset.x = (si.RandDouble() - 0.5) * 2 * softness;
  };
  for (long i = 0; i < count; ++i) {
    draw(record.reflectionOffsets[i]);
    draw(record.transmissionOffsets[i]);
  }
}

void ReflectiveShader::TraceReflection(trShadingInterface& si, const ReflectivePoint& at,
                                       const trVector& offset, const trFCol& weight) const {
  const trVector near = at.isFront ? at.normal : -at.normal;
  const trVector direction = OffsetDirection(at.reflected, offset, near);
  const trFCol colour = at.isFront || at.isThin ? si.RenderState().TraceColor(at.Outside(), direction)
                                                : TraceInner(si, at.Outside(), direction);
  si.RenderState().ShadeOutputs().reflection += Tamed(Tamed(colour) * weight);
}

void ReflectiveShader::TraceTransmission(trShadingInterface& si, const ReflectivePoint& at,
                                         const trVector& offset, const trFCol& weight) const {
  const trVector far = at.isFront ? -at.normal : at.normal;
  const trVector direction = OffsetDirection(at.transmitted, offset, far);
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
  const auto append = [&](const trVector& from, const trVector& direction, const trFCol& weight) {
    const trFCol colour = Tamed(rs.QuickTraceColor(from, direction));
    si.Bsdf().AddLobe(trBsdf::Lambert(trLobe::kLight, Tamed(weight * colour)));
  };
  if (at.reflects) append(at.Outside(), at.reflected, at.reflectance);
  if (at.transmits) append(at.Beyond(), at.transmitted, at.transmittance);
}
