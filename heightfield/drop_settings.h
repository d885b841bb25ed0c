// What a run of drops over a raster is told.
#pragma once

#include <cstdint>

/// What becomes of a drop that walks over the raster's border.
enum class BorderFlow : int {
  kStop = 0,    ///< it ends
  kOffMap = 1,  ///< it walks on over the border's heights while it could still come back
  kAround = 2   ///< it comes in on the opposite side
};

/// Parameters of bilinear drops. Heights are in raster units, lengths in grid intervals.
struct DropSettings {
  BorderFlow border = BorderFlow::kAround;
  /// Slopes are taken about the nearest point; else about the point below, as old projects expect.
  bool nearestCentre = false;
  double flowDistance = 100;  ///< steps of a drop of middling length
  float erosionPower = 0.25f;
  double deposition = 0.5;
  float depositionRate = 0;
  double diffusion = 3;
  bool diffusionAdapts = true;  ///< diffusion grows with the slope
  /// Slopes above this throw a drop in any direction; infinite when they don't.
  double slipLimit = 0;
};

/// A raster, row by row, and how drops walk on it.
struct DropField {
  float* heights = nullptr;
  int width = 0, height = 0;  ///< grid points, both at least 1
  DropSettings settings;
};

/// The limit of `slip_at_angle`, a slope: the tangent of an angle below 90 degrees, else one that is never
/// met by sane terrain.
double SlipLimit(bool slips, double degrees);

/// How many drops a raster gets: `perPoint` for each point, the points counted in 32 bits.
std::int64_t DropCount(int width, int height, double perPoint);
