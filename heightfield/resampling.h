// A raster's heights at the points of another grid over the same ground.
#pragma once

#include "core/heightfield.h"

/// Fills the raster of `to`, and sets its range. Steps are intervals of `from` from one point of the result
/// to the next. A finer grid is interpolated (Catmull and Rom 1974), the same or a coarser one takes nearest
/// points, and up to twice as fine there is a mix of both. Heights are multiplied by how much finer the grid
/// is, which keeps slopes where its vertical scale follows.
void FillByResampling(trHeightfield& to, const trHeightfield& from, double stepX, double stepY);
