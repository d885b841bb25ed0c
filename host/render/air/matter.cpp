// Null-collision tracking.
#include "host/render/air/matter.h"

#include <algorithm>
#include <cmath>

namespace ovhost {
namespace {

/// Draws of one way at most: extinctions of absurd size end there, as if taken out.
constexpr int kMostDraws = 1 << 22;
/// Draws between looks at whether the render is to end.
constexpr int kDrawsBetweenLooks = 1 << 12;
/// What is left of a way's light when it goes on by chance only.
constexpr float kFaint = 0.1f;

float Sum(const trFCol& c) { return c.r + c.g + c.b; }

}  // namespace

Matter::Matter(const std::vector<trAtmosShader*>& volumes) {
  for (trAtmosShader* shader : volumes) {
    const double greatest = shader->GreatestExtinction();
    if (!(greatest > 0) || !std::isfinite(greatest) || volumes_.size() >= kMostVolumes) continue;
    volumes_.push_back(
        {shader, shader->Shape(), static_cast<float>(std::fmin(greatest, 1e30)), PhaseTable(*shader)});
  }
}

void Matter::FindStretches(const Way& way, Stretches& stretches) const {
  stretches.count = 0;
  const auto add = [&](double begin, double end, size_t volume) {
    begin = std::fmax(begin, 0);
    end = std::fmin(end, way.length);
    if (end > begin) stretches.all[stretches.count++] = {begin, end, static_cast<int>(volume)};
  };
  for (size_t i = 0; i < volumes_.size(); ++i) {
    const trVolumeShape& shape = volumes_[i].shape;
    const trVector fromCentre = way.origin - shape.centre;
    const double nearest = -Dot(fromCentre, way.direction),
                 across = (fromCentre + way.direction * nearest).LengthSquared();
    const auto half = [across](double radius) { return radius * radius - across; };
    const double outer = half(shape.outerRadius), inner = half(shape.innerRadius);
    if (!(outer > 0)) continue;
    const double outerHalf = std::sqrt(outer);
    if (!(inner > 0)) {
      add(nearest - outerHalf, nearest + outerHalf, i);
    } else {
      const double innerHalf = std::sqrt(inner);
      add(nearest - outerHalf, nearest - innerHalf, i);
      add(nearest + innerHalf, nearest + outerHalf, i);
    }
  }
}

/// From draw to draw along a way.
class Matter::Walk {
 public:
  Walk(const Matter& matter, trRenderState& state, const Way& way)
      : matter_(matter), state_(state), way_(way) {
    matter.FindStretches(way, stretches_);
  }

  /// To the next draw; false past the end.
  bool Next() {
    for (;;) {
      double greatest = 0, end = way_.length;
      for (size_t i = 0; i < stretches_.count; ++i) {
        const Stretch& stretch = stretches_.all[i];
        if (stretch.begin > at) {
          end = std::fmin(end, stretch.begin);
        } else if (stretch.end > at) {
          end = std::fmin(end, stretch.end);
          greatest += matter_.volumes_[static_cast<size_t>(stretch.volume)].greatest;
        }
      }
      // Without memory: a draw past where the bound changes is drawn again from there.
      const double step =
          greatest > 0 ? -std::log1p(-std::fmin(state_.Random(), 1 - 1e-16)) / greatest : way_.length;
      if (at + step < end) {
        at += step;
        bound = static_cast<float>(greatest);
        return true;
      }
      if (!(end < way_.length)) return false;
      at = end;
    }
  }
  /// Whether the walk has to be given up.
  bool MustEnd() {
    ++numDraws_;
    return numDraws_ > kMostDraws || (numDraws_ % kDrawsBetweenLooks == 0 && state_.IsPausingOrAborting());
  }
  /// What there is where the walk is: of each volume, and all together, no more than was bound.
  void Look() {
    point = way_.origin + way_.direction * at;
    extinction = trFCol();
    numHere = 0;
    for (size_t i = 0; i < stretches_.count; ++i) {
      const Stretch& stretch = stretches_.all[i];
      if (stretch.begin > at || stretch.end <= at) continue;
      const Volume& volume = matter_.volumes_[static_cast<size_t>(stretch.volume)];
      trVolumeMatter matter = volume.shader->MatterAt(state_, point);
      for (int c = 0; c < 3; ++c) {
        float& e = matter.extinction[c];
        e = e > 0 ? std::min(e, volume.greatest) : 0.0f;
        float& a = matter.albedo[c];
        a = a > 0 ? std::min(a, 1.0f) : 0.0f;
      }
      here[numHere++] = {stretch.volume, matter};
      extinction += matter.extinction;
    }
  }

  struct Found {
    int volume;
    trVolumeMatter matter;
  };
  double at = 0;    ///< metres from the way's origin
  float bound = 0;  ///< of extinction there, per metre
  trVector point;
  trFCol extinction;
  std::array<Found, 2 * kMostVolumes> here;
  size_t numHere = 0;

 private:
  const Matter& matter_;
  trRenderState& state_;
  const Way& way_;
  Stretches stretches_;
  int numDraws_ = 0;
};

bool Matter::Collide(trRenderState& state, const Way& way, trFCol& throughput, Collision& collision) const {
  if (IsEmpty()) return false;
  Walk walk(*this, state, way);
  while (walk.Next()) {
    if (walk.MustEnd()) {
      throughput = trFCol();
      return false;
    }
    walk.Look();
    const float carried = Sum(throughput);
    if (!(carried > 0)) return false;
    const float unit = 1 / (walk.bound * carried);
    double draw = state.Random();
    for (size_t i = 0; i < walk.numHere; ++i) {
      const trVolumeMatter& matter = walk.here[i].matter;
      const float chance = Sum(throughput * matter.extinction) * unit;
      if (draw < chance) {
        throughput *= matter.extinction * (1 / (walk.bound * chance));
        collision = {walk.point, walk.at, walk.here[i].volume, matter.albedo};
        return true;
      }
      draw -= chance;
    }
    const trFCol surplus = throughput * (trFCol(walk.bound) - walk.extinction);
    const float left = Sum(surplus);
    // Where the bound is met, rounding alone leads here.
    if (left > 0) throughput = surplus * (carried / left);
  }
  return false;
}

trFCol Matter::Transmittance(trRenderState& state, const Way& way) const {
  trFCol left(1.0f);
  if (IsEmpty()) return left;
  Walk walk(*this, state, way);
  while (walk.Next()) {
    if (walk.MustEnd()) return {};
    walk.Look();
    left *= trFCol(1.0f) - walk.extinction * (1 / walk.bound);
    const float most = left.MaxChannel();
    if (!(most > 0)) return {};
    if (most >= kFaint) continue;
    if (state.Random() * kFaint >= most) return {};
    left *= kFaint / most;
  }
  return left;
}

}  // namespace ovhost
