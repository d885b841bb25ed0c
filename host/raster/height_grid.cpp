// A node's raster as a grid of heights.
#include "host/raster/height_grid.h"

#include "host/raster/heightfield_load.h"

namespace ovhost {

HeightGrid GridOf(const trHeightfield& heightfield) {
  HeightGrid grid;
  grid.width = heightfield.HfXPnts();
  grid.height = heightfield.HfYPnts();
  grid.values = grid.width > 0 ? heightfield.HfScanlineRaw(0) : nullptr;
  grid.xScale = heightfield.HfXScale();
  grid.yScale = heightfield.HfYScale();
  grid.zScale = heightfield.HfZScale();
  grid.hasCorners = heightfield.HfLatLongCorners(&grid.corners) != 0;
  grid.map = MapOf(heightfield);
  grid.lowest = heightfield.HfMinZ();
  grid.highest = heightfield.HfMaxZ();
  return grid;
}

}  // namespace ovhost
