// Light deep inside of a volume, where it has forgotten its direction: a diffusion equation on a coarse grid.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "core/voxel.h"

namespace ovhost::voxel {

/// What the field is found from. Points are of the world; called from one thread.
struct DiffuseSources {
  /// Per metre, of the volume; of that, the share that is scattered; and the mean cosine of the angle by
  /// which light is turned.
  std::function<double(const trVector&)> extinction;
  std::array<double, 3> albedo{1, 1, 1};
  double meanCosine = 0;
  /// What a lit surface takes in of a light whose cosine with its normal is given, beside what diffusion
  /// tells.
  std::function<double(double)> share = [](double) { return 1.0; };
  /// The main light at a point, not dimmed by the medium.
  std::function<trFCol(const trVector&)> light;
  trVector toLight{0, 1, 0};
  /// Background radiance that arrives from where -x, +x, -y, +y, -z and +z point.
  std::function<std::array<trFCol, 6>(const trVector&)> background;
  /// Whether to go on.
  std::function<bool()> goesOn;
};

/// The mean radiance of scattered sunlight and of all background light on the nodes of a grid over a
/// projector's cube. Found once; then thread-safe.
class DiffuseField {
 public:
  /// `cells` are those of the volume, which the field's own are at least as large as. False, and empty, when
  /// stopped.
  bool Solve(const trVoxelProjector& projector, const int cells[3], const DiffuseSources& sources);
  /// Of scattered sunlight and of the background, at a point of the cube ("local"); `sunlight` is what the
  /// medium lets through of the main light there.
  void Lookup(const trVector& local, const trFCol& sunlight, trFCol& direct, trFCol& enviro) const;

  /// What varies fastest on the way of the main light, at a point of the cube.
  struct Beam {
    trFCol light;      ///< mean radiance of the main light, not dimmed
    float cosine = 1;  ///< between the light and the normal
    float depth = 0;   ///< optical, towards the light
    trVector normal;   ///< of the world, where depth decreases fastest; 0 where it doesn't change
  };
  Beam BeamAt(const trVector& local) const;

 private:
  struct Taps {
    size_t node[8];
    float weight[8];
  };
  Taps TapsAt(const trVector& local) const;
  struct System;
  size_t At(int x, int y, int z) const { return (size_t(z) * nodes_[1] + y) * nodes_[0] + x; }
  void SampleMedium(const trVoxelProjector& projector, const DiffuseSources& sources, System& system);
  double Extinction(const System& system, const trVector& grid) const;
  double SunDepth(const System& system, const trVector& grid, const trVector& towards) const;
  bool SampleSunlight(const DiffuseSources& sources, const trVector& towards, System& system);
  bool SolveChannel(const DiffuseSources& sources, const System& system, int channel,
                    const std::vector<float>& source, const std::vector<float>& inflow,
                    std::vector<float>& field) const;

  int nodes_[3] = {0, 0, 0};
  double edge_[3] = {1, 1, 1};  ///< metres between nodes
  float albedo_[3] = {1, 1, 1};
  std::array<std::vector<float>, 3> direct_, enviro_;  ///< of sunlight, without the particular solution
  std::vector<float> shape_;   ///< of the particular solution: -shape * albedo * light * transmittance
  std::vector<float> cosine_;  ///< between the main light and the normal of equal depths; below 0: not known
  trVector axes_[3];           ///< the cube's edges in the world, unit
  std::vector<float> sunDepth_;
  std::vector<trFCol> lightOutside_;  ///< a quarter of the main light
};

}  // namespace ovhost::voxel
