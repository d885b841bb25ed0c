// The node that reads densities from VDB files.
#pragma once

#include <memory>

#include "core/shader.h"
#include "host/voxel/sparse_grid.h"

/// A number from a VDB file at the sample's point: for the density of a cloud that was made elsewhere.
class OV_API trVdbDensity : public trFloatFunction {
 public:
  trVdbDensity();
  long StartRender(trRenderingInterface& rendering) override;
  long FinishRender(trRenderingInterface& rendering) override;
  float FloatValue(trShadingInterface& si) override;

 private:
  trFile filename_;
  trString grid_;
  trLinkHint filenameHint_;
  trIntHint interpolationHint_;
  long interpolation_;
  unsigned char usesLevels_;
  double multiplier_, offset_;
  trVector translate_;
  std::shared_ptr<const ovhost::PlacedGrid> placed_;
};
