// Turning the displacement of a shader into rows of heights.
#pragma once

#include <vector>

#include "core/heightfield.h"
#include "core/shader.h"

/// How far `shader` moves `point` along `normal`, metres. The state comes back as it was, whatever happens.
double DisplacementAlong(trShader& shader, trShadingInterface& si, const trVector& point,
                         const trVector& normal);

/// Where a field lies on the plane of the world: `position_center`, `position_lower_left`, `position`.
class FieldPosition {
 public:
  void Declare(trBase* node);
  /// World x and z of the first grid point; both switches off put it at the world's origin.
  tr2Vector Origin(const trHeightfield& field) const;

  unsigned char center, lowerLeft;
  tr2Vector position;
};

/// The shader that the text of `link` names; null where there is no such node or it is no shader.
trShader* NamedShader(const trBase& node, const trShaderLink& link);

/// Samples a shader on the grid of a field.
class ShaderSampling {
 public:
  /// Metres per interval and per raster unit, and the world's x and z of the first point.
  ShaderSampling(trHeightfield& field, double xScale, double yScale, double zScale, const tr2Vector& origin);

  /// Row by row in the calling thread, for shaders of which nothing is known. False when the user stopped it.
  bool InOrder(trShader& shader, const trString& text);
  /// On all cores, with the same reports: for a shader whose answer depends on the point alone.
  bool InAnyOrder(trShader& shader, const trString& text);

 private:
  void SampleRow(trShader& shader, trShadingInterface& si, long row);

  trHeightfield& field_;
  double zScale_;
  std::vector<double> worldX_, worldZ_;
};
