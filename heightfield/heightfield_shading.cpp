// Where a shading point lies on a heightfield, and what the field does to it.
#include "heightfield/heightfield_shader.h"

namespace {

constexpr double kPi = 3.14159265358979, kTwoPi = 6.28318530717958;
/// Turns a sector's number into an angle of the detail's flow.
constexpr double kOneOverTwoPi = 0.1591549430918955;

}  // namespace

const HeightfieldShaderBase::Derived& HeightfieldShaderBase::Current() {
  if (isDirty_.load(std::memory_order_acquire)) {
    const std::lock_guard lock(mutex_);
    if (isDirty_.load(std::memory_order_relaxed)) {
      derived_.detail = FractalDetail(detail_);
      derived_.planet = {};
      derived_.hasPlanet = derived_.planet.Read(this);
      isDirty_.store(false, std::memory_order_release);
    }
  }
  return derived_;
}

bool HeightfieldShaderBase::Find(trShadingInterface& si, Place& place) {
  trHeightfield* const field = Field();
  trHeightfield* const maskField = blendByHeightfield_ ? MaskField() : nullptr;
  if (!field || (blendByHeightfield_ && !maskField)) return false;
  if (!field->HfOperateTS() || (maskField && !maskField->HfOperateTS())) return false;
  place.field = field;

  // A flat field covers the upper half of a planet.
  trLatLongCorners corners;
  const bool isGeographic = field->HfLatLongCorners(&corners);
  if (!isGeographic && si.Ng().y < 0) return true;
  if (mask_.IsOn() && !mask_.Link()) return false;
  const double xSize = static_cast<double>(field->HfXSize()), ySize = static_cast<double>(field->HfYSize());
  if (!(xSize > 0) || !(ySize > 0)) return true;

  const trVector& q = space_ == kUndisplaced ? si.Pg() : space_ == kWorld ? si.P() : si.Pt();
  if (!(isGeographic ? FindOnPlanet(q, corners, place) : FindFlat(q, place))) return true;
  if (heightMultiplier_ == 0) return true;
  const double border = BorderWeight(place);
  if (border == 0) return true;

  double masked = 1;
  if (maskField) {
    // Both lookups go by the mask's width, as they always have.
    const double maskSize = static_cast<double>(maskField->HfXSize());
    masked = maskField->Hf01FromZ(
        maskField->HfZLookupSmooth(place.x / xSize * maskSize, place.y / ySize * maskSize, nullptr));
  }
  float byShader;
  mask_.EvaluateAt(si, {place.x / xSize, 0, place.y / ySize}, byShader);
  place.weight = border * masked * byShader;
  return true;
}

bool HeightfieldShaderBase::FindOnPlanet(const trVector& q, const trLatLongCorners& corners, Place& place) {
  const Derived& derived = Current();
  if (!derived.hasPlanet) return false;
  const trVector moved(q.x - position_.x, q.y, q.z - position_.y);
  const tr2Vector at = derived.planet.LatLong(moved, 0.5 * corners.west + 0.5 * corners.east);
  place.x = GuardedDivide(at.y - corners.west, corners.east - corners.west) *
            static_cast<double>(place.field->HfXSize());
  place.y = GuardedDivide(at.x - corners.south, corners.north - corners.south) *
            static_cast<double>(place.field->HfYSize());
  return true;
}

bool HeightfieldShaderBase::FindFlat(const trVector& q, Place& place) const {
  const trHeightfield& field = *place.field;
  const double xScale = field.HfXScale(), yScale = field.HfYScale();
  if (xScale == 0 || yScale == 0) return false;
  double x = q.x, y = q.z;
  if (positionCentre_ || positionLowerLeft_ || positionUpperLeft_) {
    const double u = q.x - position_.x, v = q.z - position_.y;
    const double a = -rotation_ * kPi / 180, sine = std::sin(a), cosine = std::cos(a);
    x = sine * v + cosine * u;
    y = cosine * v - sine * u;
  }
  const double width = static_cast<double>(field.HfXSize()) * xScale,
               depth = static_cast<double>(field.HfYSize()) * yScale;
  if (positionCentre_) {
    x += width * 0.5;
    y += depth * 0.5;
  }
  if (positionUpperLeft_) y += depth;
  place.x = x / xScale;
  place.y = y / yScale;
  return true;
}

double HeightfieldShaderBase::BorderWeight(const Place& place) const {
  // A stitchable border reaches half its width beyond the field, where the neighbour's begins to fade.
  const double xSize = static_cast<double>(place.field->HfXSize()),
               ySize = static_cast<double>(place.field->HfYSize());
  const double blending = std::max(0.0, borderBlending_), half = stitchable_ ? 0.5 : 0.0,
               reach = blending * half;
  if (!(place.x >= -xSize * reach && place.x < xSize * (1 + reach))) return 0;
  if (!(place.y >= -ySize * reach && place.y < ySize * (1 + reach))) return 0;
  if (!(borderBlending_ > 0)) return 1;
  const double a = place.x / xSize, c = place.y / ySize, s = 1 / borderBlending_;
  return SmoothStep(s * a + half) * SmoothStep(s * c + half) * SmoothStep(s * (1 - a) + half) *
         SmoothStep(s * (1 - c) + half);
}

/// Detail that is drawn out along the fall of the ground: two compressed lookups in neighbouring directions.
tr2Vector HeightfieldShaderBase::FlowDetail(const Derived& derived, const Place& place) const {
  const trHeightfield& field = *place.field;
  const double x = place.x, y = place.y, k = detailScale_;
  const double here = field.HfZLookupSmooth(x, y, nullptr) * heightMultiplier_;
  const double east = field.HfZLookupSmooth(x + k, y, nullptr) * heightMultiplier_;
  const double north = field.HfZLookupSmooth(x, y + k, nullptr) * heightMultiplier_;
  const double g1 = -(east - here) / k, g2 = (north - here) / k;
  const double slope = std::sqrt(g1 * g1 + g2 * g2);
  double t = 0;
  if (slope != 0) {
    t = std::asin(std::clamp(g1 / slope, -1.0, 1.0));
    if (-g2 < 0) t = kPi - t;
    if (t < 0) t += kTwoPi;
  }
  const double sector = kTwoPi * t, first = std::floor(sector), between = sector - first;
  const double stretch = 1 + flowFactor_, squeeze = 1 - 1 / stretch, gain = std::sqrt(stretch) * k;

  tr2Vector sum;
  for (int i = 0; i < 2; ++i) {
    const double angle = (first + i) * kOneOverTwoPi, dx = std::sin(angle), dy = std::cos(angle);
    const double along = (x * dx + y * dy) * squeeze;
    const tr2Vector offset = derived.detail.Offset((x - along * dx) / k, (y - along * dy) / k);
    sum = sum + offset * (gain * (i == 0 ? 1 - between : between));
  }
  return sum;
}

double HeightfieldShaderBase::Height(const Place& place) const {
  const trHeightfield& field = *place.field;
  switch (interpolation_) {
    case kLinear:
      return field.HfZLookupLinear(place.x, place.y, nullptr);
    case kCubic:
      return field.HfZLookupCubic(place.x, place.y, nullptr);
    case kCatmullRom:
      return field.HfZLookupCatmullRom(place.x, place.y, nullptr);
    case kOverSmooth:
      return field.HfZLookupSmooth(place.x, place.y, nullptr);
    default:
      return field.HfZLookupNearest(place.x, place.y);
  }
}

long HeightfieldShaderBase::Displace(trShadingInterface& si) {
  DisplaceInput(si);
  if (!IsEnabled()) return 1;
  Place place;
  if (!Find(si, place) || place.weight == 0) return 1;
  const double w = place.weight, xSize = static_cast<double>(place.field->HfXSize());
  if (flipX_) place.x = xSize - place.x;
  if (flipY_) place.y = xSize - place.y;  // by the width in both directions, as it always was

  if (addDetail_ && detail_.amount != 0 && detailScale_ != 0) {
    const Derived& derived = Current();
    const double k = detailScale_;
    const tr2Vector offset = flowFactor_ != 0 && interpolation_ > kLinear
                                 ? FlowDetail(derived, place)
                                 : derived.detail.Offset(place.x / k, place.y / k) * k;
    place.x += offset.x;
    place.y += offset.y;
  }
  const double height = Height(place) * heightMultiplier_;

  const trVector direction = direction_ == kVertical ? si.Ng()
                             : direction_ == kYAxis  ? trVector(0, 1, 0)
                                                     : si.N();
  trVector& p = si.P();
  if (flattenFirst_) {
    if (flattenTo_ == kToZero)
      p.y *= 1 - w;
    else
      p += ((flattenTo_ == kToTexture ? si.Pt() : si.Pg()) - p) * w;
  }
  p += direction * (place.field->HfZScale() * height * w);
  return 1;
}

long HeightfieldShaderBase::Shade(trShadingInterface& si) {
  ShadeInput(si);
  if (!IsEnabled() || !applyColour_) return 1;
  Place place;
  if (!Find(si, place) || place.weight == 0) return 1;
  trFCol colour = diffuseColour_.ToRender();
  const float low = place.field->HfMinZ(), high = place.field->HfMaxZ();
  if (shadeByHeight_ && high > low)
    colour *= static_cast<float>((place.field->HfZLookupSmooth(place.x, place.y, nullptr) - low) /
                                 (static_cast<double>(high) - low));
  const float w = static_cast<float>(place.weight);
  si.Cutil() += (colour - si.Cutil()) * w;
  if (!si.doCo()) return 1;
  if (shadeByLight_)
    si.BlendShadingToLambert(colour, trFCol(w), trFCol(w));
  else
    si.BlendShadingToConstant(colour, trFCol(w), trFCol(w));
  return 1;
}
