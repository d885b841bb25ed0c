// MOLA_map_shader: a planet's relief from grids of elevations in latitude and longitude.
#pragma once

#include <vector>

#include "core/geography.h"
#include "core/heightfield.h"
#include "core/idioms.h"

/// Grids that lie on one lattice of latitude and longitude, such as the quarters and sixteenths in which
/// laser altimeter maps of Mars come, as one raster of the whole globe: neighbours meet without seam, and so
/// do both ends of a row, and rows over the poles.
class GlobeGrid {
 public:
  /// Takes a grid that is up to date and has geographic corners; false where it doesn't fit the others.
  bool Add(const trHeightfield& grid);
  void Clear() { *this = GlobeGrid(); }
  bool IsEmpty() const { return tiles_.empty(); }

  enum Interpolation : long { kNearest = 0, kLinear = 1, kCubic = 2 };
  /// Metres at degrees; false where no grid is. Thread-safe.
  bool HeightAt(double latitude, double longitude, long interpolation, double& height) const;

 private:
  /// A grid and its first point on the lattice, counted from the first grid's: columns to the east, rows to
  /// the north.
  struct Tile {
    const trHeightfield* grid;
    long column, row;
    double metres;  ///< per raster unit
  };
  const float* PointAt(long column, long row, double& metres) const;
  /// The height at a point of the lattice, wherever round the globe; `otherwise` where no grid is.
  double Point(long column, long row, double otherwise) const;

  std::vector<Tile> tiles_;
  double west_ = 0, south_ = 0;  ///< of the lattice's point 0, degrees
  double perDegreeX_ = 1, perDegreeY_ = 1;
  long around_ = 360;                 ///< columns
  long southSum_ = 0, northSum_ = 0;  ///< of a row and the one that it is beyond the pole
};

class MOLAMapShader : public trSurfaceShader {
 public:
  MOLAMapShader();
  ~MOLAMapShader() override;
  void PreDestroy() override;
  void OnParamChanged(long index, trBase* who) override;
  long StartRender(trRenderingInterface& rendering) override;
  long Displace(trShadingInterface& si) override;
  unsigned char HasShade() override { return 0; }

 private:
  /// Reads the file, or those of the folder. Main thread only.
  void Load();
  void Forget();
  std::vector<trString> Files() const;

  trFile filename_;
  long downSample_, interpolation_;
  double displacementMultiplier_, displacementOffset_;
  trMask mask_;
  trLinkHint fileHint_;
  trIntHint shrinkHint_, interpolationHint_;
  trDoubleHint multiplierHint_, offsetHint_;

  bool isLoaded_ = false;
  std::vector<trBase*> readers_;
  GlobeGrid globe_;
  trPlanetGeography geography_;
};
