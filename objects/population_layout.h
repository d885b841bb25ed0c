// Where a populator tries to put instances, and what becomes of each try.
#pragma once

#include <optional>
#include <vector>

#include "core/render_state.h"
#include "objects/candidate_draws.h"
#include "objects/instance_store.h"

/// The grid of candidates: blocks of nx by nz cells, nx of them across and nz deep, walked block by block.
struct CandidateGrid {
  std::int64_t nx = 1, nz = 1;

  std::int64_t Count() const { return nx * nx * nz * nz; }
  /// Of the candidate that is walked to as number `index`.
  std::int64_t Column(std::int64_t index) const { return index / (nx * nz) % nx * nx + index % nx; }
  std::int64_t Row(std::int64_t index) const { return index / (nx * nx * nz) * nz + index / nx % nz; }
};

/// What was wrong with some candidates.
struct CandidateFaults {
  std::int64_t nowhere = 0;    ///< stood at no finite place
  std::int64_t noDensity = 0;  ///< had a density that isn't a number
};

/// Everything that instances depend on. Read-only while candidates are evaluated.
struct PopulationLayout {
  CandidateGrid grid;
  std::uint32_t seed = 0;
  tr2Vector spacing, area, randomness;  ///< metres, metres, shares of the spacing
  double loScale = 1, hiScale = 1;
  double loTurn = 0, hiTurn = 360;  ///< about the instance's own up axis, degrees
  trTransform<double> worldFromArea;
  bool samplesBeforeTransform = false;
  double leanEffect = 0;                                               ///< 0 where nothing leans
  double minSlope = 45, fullSlope = 90;                                ///< degrees
  trShader *planet = nullptr, *terrain = nullptr, *density = nullptr;  ///< null where there is none
  bool invertsDensity = false;
  std::vector<trBoundingBox> boxes;  ///< of the variations, each in the space of its scene's transform
  const trView* clipView = nullptr;  ///< what it doesn't see is left out; null where it doesn't matter

  /// What candidate `index` becomes, by its draws (those of `lane`); nothing where it is rejected.
  /// Thread-safe with a state for each thread; the state's points and normals are left anyhow.
  std::optional<InstanceRecord> Evaluate(std::int64_t index, const CandidateDraws& draws, int lane,
                                         trRenderState& state, CandidateFaults& faults) const;

 private:
  void Displace(trShadingInterface& si) const;
  trVector LeaningUp(const trShadingInterface& si) const;
};

/// More candidates than this aren't walked.
inline constexpr double kMostCandidates = 2147483647.0;

/// Along one axis, cells in a block and blocks: the square root of how many cells of `spacing` the area has,
/// rounded up; at least 1.
double CellsByBlock(double area, double spacing);

/// The matrix of an instance that stands at `place` with its up axis along the unit vector `up`, turned about
/// that by `turn` radians first. One that leans is a little narrower across the lean.
trMatrix4x4<double> InstanceMatrix(const trVector& place, double scale, float turn, const trVector& up);

/// Whether any of a box may be seen: false only where all of it is outside one side of the view, or behind.
bool BoxVisibility(const trView& view, const float lower[3], const float upper[3]);
