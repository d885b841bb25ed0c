// How a volume scatters, tabulated so that directions can be drawn by it.
#pragma once

#include <vector>

#include "core/shader.h"
#include "core/vector.h"

namespace ovhost {

/// A volume's phase function, linear in the cosine between nodes that crowd where light goes straight on.
/// Its mean over all directions is 1 whatever the volume says, so scattering gains and loses nothing.
/// Thread-safe.
class OV_API PhaseTable {
 public:
  explicit PhaseTable(const trAtmosShader& volume);

  /// Towards a direction by `cosine` off the way light came.
  float Value(double cosine) const;
  /// A cosine with Value as its density, from a unit draw.
  double SampleCosine(double draw) const;
  /// A direction by SampleCosine off `direction`, a unit vector.
  trVector Sample(const trVector& direction, const tr2Vector& draw) const;

 private:
  static constexpr int kCells = 2048;
  /// Of cosine 1 - 2 (i / kCells)^4: a glow of half a degree has a dozen cells.
  std::vector<double> cosine_, value_;
  std::vector<double> below_;  ///< probability of the cells before
};

}  // namespace ovhost
