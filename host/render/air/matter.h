// Null collisions in volumes that tell their matter.
#pragma once

#include <array>
#include <vector>

#include "core/render_state.h"
#include "host/render/air/phase_table.h"

namespace ovhost {

/// Draws where light collides with volumes' matter, by a medium of even extinction at least as great as
/// theirs whose surplus does nothing (Woodcock 1965). Colours share the draws: what a collision is, is drawn
/// by what the colours of a path carry, so that the sum of its channels never grows (Kutz, Habel, Li and
/// Novak, Spectral and Decomposition Tracking for Rendering Heterogeneous Volumes, 2017). Filled on the main
/// thread; then thread-safe, each thread with its own state.
class OV_API Matter {
 public:
  explicit Matter(const std::vector<trAtmosShader*>& volumes);

  bool IsEmpty() const { return volumes_.empty(); }
  const PhaseTable& Phase(int volume) const { return volumes_[static_cast<size_t>(volume)].phase; }

  /// A unit direction's way from a point of the world.
  struct Way {
    trVector origin, direction;
    double length = 0;  ///< metres
  };
  struct Collision {
    trVector point;
    double distance = 0;
    int volume = 0;
    trFCol albedo;
  };
  /// Where light of `throughput` is taken out on its way, if it is: then `throughput` is what is taken there
  /// over the chance of it; otherwise what gets through over the chance of that. By the state's draws.
  bool Collide(trRenderState& state, const Way& way, trFCol& throughput, Collision& collision) const;
  /// An unbiased estimate of the share that gets through, 0 to 1, by the state's draws.
  trFCol Transmittance(trRenderState& state, const Way& way) const;

 private:
  static constexpr size_t kMostVolumes = 16;
  struct Volume {
    trAtmosShader* shader;
    trVolumeShape shape;
    float greatest;  ///< extinction, per metre
    PhaseTable phase;
  };
  /// A part of a way that lies in a volume's shell, metres from its origin.
  struct Stretch {
    double begin, end;
    int volume;
  };
  struct Stretches {
    std::array<Stretch, 2 * kMostVolumes> all;
    size_t count = 0;
  };
  class Walk;

  void FindStretches(const Way& way, Stretches& stretches) const;

  std::vector<Volume> volumes_;
};

}  // namespace ovhost
