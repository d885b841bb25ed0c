// Keys and curves of animated parameters.
#include "host/node/animation.h"

#include <algorithm>
#include <cmath>

#include "host/node/node_data.h"

namespace {

/// The curve's value at a frame: held before the first and after the last key. Smooth is the cubic Hermite
/// through the keys with Catmull-Rom slopes for uneven spacing, flat at the ends.
double Evaluate(const trAnimationCurve& curve, double frame) {
  const auto& keys = curve.keys;
  if (frame <= keys.front().frame) return keys.front().value;
  if (frame >= keys.back().frame) return keys.back().value;
  const auto next = std::upper_bound(keys.begin(), keys.end(), frame,
                                     [](double f, const trAnimationKey& key) { return f < key.frame; });
  const size_t i = static_cast<size_t>(next - keys.begin()) - 1;
  const trAnimationKey &a = keys[i], &b = keys[i + 1];
  const double span = b.frame - a.frame, t = (frame - a.frame) / span;
  switch (curve.mode) {
    case trAnimationInterpolationMode::kStepped:
      return a.value;
    case trAnimationInterpolationMode::kLinear:
      return a.value + (b.value - a.value) * t;
    case trAnimationInterpolationMode::kSmooth:
      break;
  }
  const auto slope = [&](size_t k) {
    if (k == 0 || k + 1 == keys.size()) return 0.0;
    return (keys[k + 1].value - keys[k - 1].value) / (keys[k + 1].frame - keys[k - 1].frame);
  };
  const double t2 = t * t, t3 = t2 * t;
  return (2 * t3 - 3 * t2 + 1) * a.value + (t3 - 2 * t2 + t) * span * slope(i) + (3 * t2 - 2 * t3) * b.value +
         (t3 - t2) * span * slope(i + 1);
}

double Component(const trParamValue& value, int component) {
  if (const long* v = std::get_if<long>(&value.value)) return static_cast<double>(*v);
  if (const double* v = std::get_if<double>(&value.value)) return *v;
  if (const trVector* v = std::get_if<trVector>(&value.value)) return (*v)[component];
  if (const tr2Vector* v = std::get_if<tr2Vector>(&value.value)) return component == 0 ? v->x : v->y;
  if (const trManRgb* v = std::get_if<trManRgb>(&value.value)) return v->ToRender()[component];
  return 0;
}

void SetComponent(trParamValue& value, int component, double to) {
  if (long* whole = std::get_if<long>(&value.value)) *whole = std::lround(to);
  if (double* number = std::get_if<double>(&value.value)) *number = to;
  if (trVector* vector = std::get_if<trVector>(&value.value)) (*vector)[component] = to;
  if (tr2Vector* pair = std::get_if<tr2Vector>(&value.value)) (component == 0 ? pair->x : pair->y) = to;
  if (trManRgb* colour = std::get_if<trManRgb>(&value.value))
    (component == 0 ? colour->r : component == 1 ? colour->g : colour->b) = static_cast<float>(to);
}

/// The curve of a component, made where there is none; null for a parameter that can't be animated.
trAnimationCurve* CurveOf(trParamInfo& param, int component) {
  const int count = ovhost::NumComponents(param.type);
  if (component < 0 || component >= count) return nullptr;
  if (param.curves.empty()) param.curves.resize(count);
  return &param.curves[component];
}

double RootNumber(const trBase* node, const char* name, double fallback) {
  double value = fallback;
  node->Root()->GetParam(name, value);
  return value;
}

}  // namespace

bool trBase::IsParamAnimated(long index) const {
  if (index < 0 || index >= NumParams()) return false;
  for (const trAnimationCurve& curve : data_->params[index].curves)
    if (!curve.keys.empty()) return true;
  return false;
}

long trBase::UpdateParamFromAnim(long index, const double& frame) {
  if (!IsParamAnimated(index)) return 0;
  trParamValue value(0L);
  if (!ReadParam(index, value)) return 0;
  const auto& curves = data_->params[index].curves;
  for (size_t i = 0; i < curves.size(); ++i)
    if (!curves[i].keys.empty()) SetComponent(value, static_cast<int>(i), Evaluate(curves[i], frame));
  return SetParam(index, value, trWhoSystem);
}

long trBase::SetParamKey(long index, int component, const double& frame, int mode) {
  trParamValue value(0L);
  if (!ReadParam(index, value) || !std::isfinite(frame)) return 0;
  trAnimationCurve* curve = CurveOf(data_->params[index], component);
  if (!curve) return 0;
  if (mode >= 0 && mode <= 2) curve->mode = static_cast<trAnimationInterpolationMode>(mode);
  const trAnimationKey key{frame, Component(value, component)};
  const auto at = std::lower_bound(curve->keys.begin(), curve->keys.end(), frame,
                                   [](const trAnimationKey& k, double f) { return k.frame < f; });
  if (at != curve->keys.end() && at->frame == frame)
    *at = key;
  else
    curve->keys.insert(at, key);
  return 1;
}

long trBase::SetParamComponentInterpolationMode(long index, int component,
                                                trAnimationInterpolationMode mode) {
  if (index < 0 || index >= NumParams()) return 0;
  trAnimationCurve* curve = CurveOf(data_->params[index], component);
  if (!curve) return 0;
  curve->mode = mode;
  return 1;
}

double trBase::GetCurrentFrame() const { return RootNumber(this, "current_frame", 0); }
double trBase::GetStartFrame() const { return RootNumber(this, "start_frame", 0); }
double trBase::GetEndFrame() const { return RootNumber(this, "end_frame", 0); }

namespace ovhost {

void UpdateAnimation(trBase* root, double frame) {
  for (trBase* node : AllNodes(root)) {
    const auto isAnimated = [](const trParamInfo& param) { return !param.curves.empty(); };
    if (std::none_of(node->Data().params.begin(), node->Data().params.end(), isAnimated)) continue;
    SetTogether(*node, [&] {
      for (long i = 0; i < node->NumParams(); ++i) node->UpdateParamFromAnim(i, frame);
    });
  }
}

}  // namespace ovhost
