#include "host/voxel/vdb_density.h"

#include <algorithm>
#include <cmath>

#include "core/idioms.h"
#include "core/messages.h"
#include "core/render_state.h"
#include "host/voxel/vdb_file.h"

trVdbDensity::trVdbDensity() {
  filenameHint_.AddFileFilter("VDB files", "*.vdb");
  SetMenu(interpolationHint_, this, {{"Nearest", 0}, {"Linear", 1}, {"Quadratic", 2}});
  SetAbout(this, "enable", "Off, the value is 0 everywhere.");
  Param(filename_, "filename", "", &filenameHint_)
      .About("The VDB file to read, as fog volumes are stored by other programs.");
  Param(grid_, "grid", "density").About("Name of the grid in the file.");
  Param(interpolation_, "interpolation", 1, &interpolationHint_)
      .About("How values between voxels are found: from the nearest one, or smoothly from those around.");
  Param(usesLevels_, "level_by_footprint", 1)
      .Display("Coarser where a pixel is larger than a voxel")
      .About("Averages voxels that are smaller than a pixel: no flicker, and faster far away.");
  Param(multiplier_, "multiplier", 1.0).About("Factor of the grid's values, ahead of the offset.");
  Param(offset_, "offset", 0.0)
      .About("Added to the values, also where the grid is empty. -1 leaves a cloud layer clear there.");
  Param(translate_, "translate", {0, 0, 0}).About("Where the file's origin lies in the world, metres.");
  UpdateDerived();
}

long trVdbDensity::StartRender(trRenderingInterface& rendering) {
  const long result = trFloatFunction::StartRender(rendering);
  placed_.reset();
  const trString path = filename_.FullPath();
  if (!IsEnabled() || path.empty()) return result;
  std::string problem;
  placed_ = ovhost::ReadVdb(path, grid_, problem);
  if (placed_) return result;
  const trScopedErrorsWarningsContext context(this);
  trError(path + ": can't be read: " + problem);
  return 0;
}

long trVdbDensity::FinishRender(trRenderingInterface& rendering) {
  placed_.reset();
  return trFloatFunction::FinishRender(rendering);
}

float trVdbDensity::FloatValue(trShadingInterface& si) {
  if (!IsEnabled() || !placed_) return 0;
  const double footprint = usesLevels_ ? si.SmoothSize() : 0.0;
  const auto interpolation =
      static_cast<ovhost::SparseGrid::Interpolation>(std::clamp(interpolation_, 0L, 2L));
  const double value = placed_->Lookup(si.P() - translate_, interpolation, footprint) * multiplier_ + offset_;
  return std::isfinite(value) ? static_cast<float>(std::clamp(value, -3e38, 3e38)) : 0.0f;
}
