// shader_array: another shader over and over on a grid, each time turned, scaled and moved its own way.
#pragma once

#include "core/idioms.h"

/// The linked shader stands in the middle of each cell of a grid over x and z of texture space, and is run
/// for those cells alone that reach as far as the sample. It sees its own copy of all points, with the cell's
/// middle as the origin.
class ShaderArray : public trSurfaceShader {
 public:
  ShaderArray();
  void UpdateDerived() override;
  long Displace(trShadingInterface& si) override;
  long Shade(trShadingInterface& si) override;
  unsigned char HasDisplacement() override;
  unsigned char HasShade() override;

 private:
  enum Overlap : long { kAdd = 0, kHighest = 1 };
  /// Cells to a side of a sample's own that may reach it.
  static constexpr int kMostNeighbours = 3;
  /// A copy: where it stands in the grid's frame, how it is turned there, and how large it is.
  struct Copy {
    double x, z, sine, cosine, scale;
  };

  /// Runs `visit(copy)` for the copies that reach `pt`, from the south-west to the north-east.
  template <typename Visit>
  void ForCopies(const trVector& pt, Visit visit) const;
  Copy CopyAt(long column, long row) const;
  bool Exists(long column, long row) const;
  /// A point as the copy's shader sees it.
  trVector Inside(const Copy& copy, const trVector& point) const;
  /// The state's points as the copy's shader sees them, while it lives.
  class Moved;

  trShaderLink shader_;
  trVector centre_;
  tr2Vector spacing_;
  double rotation_;
  unsigned char limitNumber_;
  long columns_, rows_;
  long seed_;
  double reach_, positionJitter_, rotationJitter_, scale_, scaleJitter_;
  unsigned char scaleDisplacement_;
  long overlap_;
  trRandomSeedGuiPushButton randomiseButton_{this};
  trDoubleHint shareHint_, rotationHint_, jitterHint_, scaleHint_, metresHint_;
  trIntHint overlapHint_, countHint_;

  double stepX_ = 1, stepZ_ = 1, gridSine_ = 0, gridCosine_ = 1;
  int neighboursX_ = 1, neighboursZ_ = 1;
};
