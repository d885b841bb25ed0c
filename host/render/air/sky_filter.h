// What volumes without symmetry, and lights that are modulated by place, change in the sky light of the
// tables.
#pragma once

#include <memory>

#include "host/base/shared_table.h"
#include "host/render/air/sky_tables.h"

namespace ovhost {

/// The change is worked out at points of a lattice round the centre, whose cells grow with the distance from
/// the eye, when a point near them is first asked for: by marching rays through all volumes, and again
/// through the symmetric ones alone as the tables know them, with the same draws. So it is nothing where the
/// others do nothing. Thread-safe once made ready, each thread with its own state.
class OV_API SkyFilter {
 public:
  /// Main thread only. `ground` is as for SkyTables.
  void Init(std::vector<trAtmosShader*> symmetric, const std::vector<trAtmosShader*>& others,
            const trVolumeShape& shell, const trVector& eye, SkyTables::GroundQuery ground);
  bool IsReady() const { return table_ != nullptr; }
  /// Adds the change to twice the mean sky radiance from above and from below a point: blended, or else that
  /// at a corner of the lattice's cell, which is drawn by the point.
  void Apply(trRenderState& state, const trVector& point, bool isBlended, trFCol& above, trFCol& below) const;

 private:
  struct Change {
    trFCol above, below;  ///< factors
  };
  /// A corner of the lattice: of a face of a cube round the centre, whose edge is cut in 2^level, and a
  /// height.
  struct Corner {
    int face, level, column, row, height;
    bool isFirstRound;  ///< light that comes by one scattering alone, which the second round scatters again
  };
  struct Place;

  Change At(trRenderState& state, const Corner& corner) const;
  Change Work(trRenderState& state, const Corner& corner, std::uint64_t key) const;
  trVector PointOf(const Corner& corner) const;

  std::vector<trAtmosShader*> symmetric_, all_;
  trVector centre_, eye_;
  double inner_ = 0, outer_ = 0;
  SkyTables::GroundQuery ground_;
  std::unique_ptr<SharedTable<Change>> table_;
};

}  // namespace ovhost
