// How much of a surface a ray stands for.
#pragma once

namespace ovhost {

/// Filter footprint of a camera sample, in pixels: the samples of a pixel average what is finer than it.
constexpr double kPixelFootprint = 0.5;
/// Cone that a diffuse bounce opens, radians: what it meets is seen no sharper, so that bright images of a
/// sun don't turn into bright dots (path space regularisation, Kaplanyan and Dachsbacher 2013).
constexpr double kDiffuseSpread = 0.25;

/// Footprint of a diffuse bounce, as a share of the distance: detail finer than this averages out over the
/// hemisphere.
constexpr double kBounceFootprint = 0.05;

}  // namespace ovhost
