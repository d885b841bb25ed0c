// From a candidate's draws to an instance, or none.
#include "objects/population_layout.h"

#include <algorithm>
#include <cmath>

namespace {

/// What of the lean's sides counts as upright.
constexpr double kUpright = 1e-6;

bool IsFinite(const InstanceRecord& record) {
  return std::all_of(&record.matrix[0][0], &record.matrix[0][0] + 16,
                     [](float x) { return std::isfinite(x); });
}

/// The box about the eight moved corners. Sums never fall where a term grows, so each side is that of the
/// corner with the least, or the greatest, terms.
void SetBox(InstanceRecord& record, const trMatrix4x4<double>& matrix, const trBoundingBox& box) {
  for (int i = 0; i < 3; ++i) {
    double lower = 0, upper = 0;
    for (int j = 0; j < 3 && !box.IsEmpty(); ++j) {
      const double a = matrix.m[i][j] * box.min[j], b = matrix.m[i][j] * box.max[j];
      lower += std::min(a, b);
      upper += std::max(a, b);
    }
    record.boxA[i] = static_cast<float>(lower + matrix.m[i][3]);
    record.boxB[i] = static_cast<float>(upper + matrix.m[i][3]);
  }
}

}  // namespace

double CellsByBlock(double area, double spacing) {
  const double cells = std::ceil(std::sqrt(GuardedDivide(area, spacing)));
  return cells > 1 ? cells : 1;  // also where the root isn't a number
}

trMatrix4x4<double> InstanceMatrix(const trVector& place, double scale, float turn, const trVector& up) {
  trMatrix4x4<double> m;
  for (int i = 0; i < 3; ++i) {
    m.m[i][i] = scale;
    m.m[i][3] = place[i];
  }
  if (std::fabs(up.x) + std::fabs(up.z) > kUpright) {
    trVector a, b;
    if (std::fabs(up.x) > std::fabs(up.z)) {
      a = {up.y, -up.x, 0};
      b = Cross(a, up);
    } else {
      b = {0, -up.z, up.y};
      a = Cross(up, b);
    }
    for (int i = 0; i < 3; ++i) {
      m.m[i][0] = a[i] * scale;
      m.m[i][1] = up[i] * scale;
      m.m[i][2] = b[i] * scale;
    }
  }
  // Times a rotation about Y, which leaves the second and the last column.
  const double c = std::cos(static_cast<double>(turn)), sine = std::sin(static_cast<double>(turn));
  for (int i = 0; i < 3; ++i) {
    const double x = m.m[i][0], z = m.m[i][2];
    m.m[i][0] = x * c - z * sine;
    m.m[i][2] = x * sine + z * c;
  }
  return m;
}

bool BoxVisibility(const trView& view, const float lower[3], const float upper[3]) {
  // Of each corner, by bits: left of the view, right of it, below, above, behind.
  unsigned outsideAll = 31;
  for (int corner = 0; corner < 8 && outsideAll; ++corner) {
    const trVector p(corner & 1 ? upper[0] : lower[0], corner & 2 ? upper[1] : lower[1],
                     corner & 4 ? upper[2] : lower[2]);
    const trVector relative = p - view.eye;
    const double depth = Dot(relative, view.forward), x = Dot(relative, view.right),
                 y = Dot(relative, view.up);
    const double halfX = depth * view.tanHalfHorizontal, halfY = depth * view.tanHalfVertical;
    outsideAll &= (x < -halfX ? 1u : 0u) | (x > halfX ? 2u : 0u) | (y < -halfY ? 4u : 0u) |
                  (y > halfY ? 8u : 0u) | (depth < 0 ? 16u : 0u);
  }
  return outsideAll == 0;
}

void PopulationLayout::Displace(trShadingInterface& si) const {
  if (planet) planet->DisplaceTS(si);
  if (terrain) terrain->DisplaceTS(si);
}

trVector PopulationLayout::LeaningUp(const trShadingInterface& si) const {
  const trVector upright(0, 1, 0);
  if (leanEffect == 0) return upright;
  const double k = Dot(si.N(), si.Ng());
  if (!(k <= std::cos(minSlope * kDegreesToRadians))) return upright;
  double share = 1;
  if (fullSlope - minSlope > 0)
    share = std::min(1.0, (std::acos(k) * kRadiansToDegrees - minSlope) / (fullSlope - minSlope));
  const double t = share * leanEffect;
  return Normalised(t * si.N() + (1 - t) * upright);
}

std::optional<InstanceRecord> PopulationLayout::Evaluate(std::int64_t index, const CandidateDraws& draws,
                                                         int lane, trRenderState& state,
                                                         CandidateFaults& faults) const {
  // The draws, in their order; 3 to 5 are free.
  const double scale = (hiScale - loScale) * draws.Unit(0, lane) + loScale;
  const double a = draws.Unit(1, lane) - 0.5, b = draws.Unit(2, lane) - 0.5;
  const double r = draws.Unit(6, lane), d = draws.Unit(7, lane), w = draws.Unit(8, lane);

  // Where it would stand, and how.
  const trVector local(
      static_cast<double>(grid.Column(index)) * spacing.x - area.x * 0.5 + b * spacing.x * randomness.x, 0,
      static_cast<double>(grid.Row(index)) * spacing.y - area.y * 0.5 + a * spacing.y * randomness.y);
  trShadingInterface& si = state.Shading();
  si.SetSample(samplesBeforeTransform ? local : worldFromArea.Point(local), {0, 1, 0});
  si.SmoothSize() = 0;
  si.Random() = {static_cast<std::uint64_t>(seed) << 32 ^ static_cast<std::uint64_t>(index)};
  Displace(si);
  const trVector up = LeaningUp(si);
  const trVector place = samplesBeforeTransform ? worldFromArea.Point(si.P()) : si.P();

  InstanceRecord record;
  record.scale = static_cast<float>(scale);
  record.variation = static_cast<std::int32_t>(std::floor((static_cast<double>(boxes.size()) - 0.01) * w));
  const auto turn = static_cast<float>((r * (hiTurn - loTurn) + loTurn) * kDegreesToRadians);
  const trMatrix4x4<double> matrix = InstanceMatrix(place, record.scale, turn, up);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) record.matrix[i][j] = static_cast<float>(matrix.m[i][j]);
  if (!IsFinite(record)) return ++faults.nowhere, std::nullopt;
  SetBox(record, matrix, boxes[static_cast<std::size_t>(record.variation)]);

  // Whether it does.
  if (clipView && !BoxVisibility(*clipView, record.boxA, record.boxB)) return std::nullopt;
  if (!density) return record;
  trFCol colour = state.CallShaderCd(density, true, nullptr, nullptr);
  if (invertsDensity) colour = trFCol(1.0f) - colour;
  const float luminance = Luminance(colour);
  if (std::isnan(luminance)) ++faults.noDensity;
  if (!(static_cast<double>(luminance) > d)) return std::nullopt;
  return record;
}
