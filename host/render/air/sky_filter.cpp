// The lattice of what changes in sky light.
#include "host/render/air/sky_filter.h"

#include <algorithm>

#include "host/base/sampler.h"
#include "host/render/air/air_march.h"
#include "host/render/air/sky_directions.h"

namespace ovhost {
namespace {

constexpr double kPi = 3.14159265358979;
/// Heights that the shell of the volumes is cut at; and how long cells are at least, metres, and as a share
/// of their distance from the eye.
constexpr int kHeights = 73;
constexpr double kShortest = 4000, kShare = 1;
constexpr int kCoarsest = 2, kFinest = 20;
/// Rays for each half space.
constexpr int kDirections = 16;
constexpr int kTableBits = 16;
/// Corners inside of the ground stand this much above it, metres.
constexpr double kAboveGround = 2;
/// What light from volumes without tables may be beside that of the others: by night that is nothing.
constexpr float kMost = 1000;
/// Past everything, metres.
constexpr double kFar = 1e9;

/// The place of the equal-angle coordinate of a cube's face, -1 to 1, among `cells`.
double OnFace(double across, double along, int cells) {
  return (std::atan2(across, along) * (4 / kPi) + 1) * 0.5 * cells;
}

int CellOf(double x, int cells) { return std::clamp(static_cast<int>(x), 0, cells - 1); }

}  // namespace

/// A point of the world among the corners.
struct SkyFilter::Place {
  Corner least;  ///< the corner of its cell that comes first
  double weight[3];
};

void SkyFilter::Init(std::vector<trAtmosShader*> symmetric, const std::vector<trAtmosShader*>& others,
                     const trVolumeShape& shell, const trVector& eye, SkyTables::GroundQuery ground) {
  // The symmetric ones draw first in both marches.
  symmetric_ = all_ = std::move(symmetric);
  all_.insert(all_.end(), others.begin(), others.end());
  centre_ = shell.centre;
  inner_ = shell.innerRadius;
  outer_ = shell.outerRadius;
  eye_ = eye;
  ground_ = std::move(ground);
  table_ = std::make_unique<SharedTable<Change>>(kTableBits);
}

void SkyFilter::Apply(trRenderState& state, const trVector& point, bool isBlended, trFCol& above,
                      trFCol& below) const {
  const trVector fromCentre = point - centre_;
  const double r = fromCentre.Length();
  if (!(r > 0)) return;
  Place place;
  Corner& least = place.least;
  // Between two sizes of cells, by chance.
  trRandomStream draws{KeyOfPoint(point)};
  const double cell = std::fmax(kShortest, kShare * (point - eye_).Length());
  const double level = std::log2(std::fmax(0.5 * kPi * r / cell, 1)) + draws.Next();
  least.level = std::clamp(static_cast<int>(level), kCoarsest, kFinest);
  least.isFirstRound = !state.CurrentRay().filtersSky;

  int axis = 0;
  for (int i = 1; i < 3; ++i)
    if (std::fabs(fromCentre[i]) > std::fabs(fromCentre[axis])) axis = i;
  least.face = 2 * axis + (fromCentre[axis] < 0);
  const int cells = 1 << least.level;
  const double depth = std::fabs(fromCentre[axis]);
  const double x = OnFace(fromCentre[(axis + 1) % 3], depth, cells),
               y = OnFace(fromCentre[(axis + 2) % 3], depth, cells),
               z = std::clamp((r - inner_) / (outer_ - inner_), 0.0, 1.0) * (kHeights - 1);
  least.column = CellOf(x, cells);
  least.row = CellOf(y, cells);
  least.height = CellOf(z, kHeights - 1);
  place.weight[0] = x - least.column;
  place.weight[1] = y - least.row;
  place.weight[2] = z - least.height;

  const auto corner = [&least](int i, int j, int k) {
    Corner at = least;
    at.column += i;
    at.row += j;
    at.height += k;
    return at;
  };
  Change change;
  if (!isBlended) {
    int step[3];
    for (int i = 0; i < 3; ++i) step[i] = draws.Next() < place.weight[i];
    change = At(state, corner(step[0], step[1], step[2]));
  } else {
    for (int i = 0; i < 8; ++i) {
      double weight = 1;
      for (int a = 0; a < 3; ++a) weight *= i >> a & 1 ? place.weight[a] : 1 - place.weight[a];
      if (!(weight > 0)) continue;
      const Change there = At(state, corner(i & 1, i >> 1 & 1, i >> 2));
      change.above += there.above * static_cast<float>(weight);
      change.below += there.below * static_cast<float>(weight);
    }
  }
  above *= change.above;
  below *= change.below;
}

SkyFilter::Change SkyFilter::At(trRenderState& state, const Corner& corner) const {
  std::uint64_t key =
      MixBits64(static_cast<std::uint64_t>(corner.column) << 32 | static_cast<std::uint32_t>(corner.row));
  key = MixBits64(key +
                  ((static_cast<std::uint64_t>(corner.face) * 64 + corner.level) * 64 + corner.height) * 2 +
                  corner.isFirstRound) |
        1;
  return table_->Find(key, [&] { return Work(state, corner, key); });
}

trVector SkyFilter::PointOf(const Corner& corner) const {
  const int axis = corner.face / 2;
  const double perCell = 0.5 * kPi / (1 << corner.level);
  trVector direction;
  direction[axis] = corner.face & 1 ? -1 : 1;
  direction[(axis + 1) % 3] = std::tan(corner.column * perCell - 0.25 * kPi);
  direction[(axis + 2) % 3] = std::tan(corner.row * perCell - 0.25 * kPi);
  direction = Normalised(direction);
  double r = inner_ + (outer_ - inner_) * corner.height / (kHeights - 1);
  double toGround = kFar;
  ground_(centre_ + direction * outer_, -direction, toGround);
  if (toGround < outer_) r = std::fmax(r, outer_ - toGround + kAboveGround);
  return centre_ + direction * r;
}

SkyFilter::Change SkyFilter::Work(trRenderState& state, const Corner& corner, std::uint64_t key) const {
  const trRayGuard guard(state);
  KeyedDraws draws(state, key);
  const trVector point = PointOf(corner), up = Normalised(point - centre_);
  // Rays of depth 3 carry no sky light of their own.
  AirRay ray;
  ray.origin = point;
  ray.depth = corner.isFirstRound ? 3 : 2;
  ray.isSharp = false;
  ray.tracesShadows = ray.filtersSky = false;
  Change change;
  for (const bool isAbove : {true, false}) {
    trFCol found, known;
    for (int i = 0; i < kDirections; ++i) {
      ray.direction = HemisphereDirection(i, kDirections, isAbove ? up : -up);
      ray.distance = kFar;
      const trFCol leaving = ground_(point, ray.direction, ray.distance);
      const auto radiance = [&](const std::vector<trAtmosShader*>& volumes, bool isModulated) {
        draws.Restart(MixBits64(key + 2 * i + isAbove));
        ray.modulatesLight = isModulated;
        std::uint64_t samples = 0;
        const trAtomicIntegrator::Result air = MarchAir(state, volumes, ray, samples);
        return air.Colour() + air.transmittance * leaving;
      };
      found += radiance(all_, true);
      known += radiance(symmetric_, false);
    }
    trFCol& factor = isAbove ? change.above : change.below;
    for (int c = 0; c < 3; ++c) {
      const float of = found[c] / known[c];
      factor[c] = of >= 0 && of <= kMost ? of : known[c] > 0 && of > kMost ? kMost : 1.0f;
    }
  }
  return change;
}

}  // namespace ovhost
