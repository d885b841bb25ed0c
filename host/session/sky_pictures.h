// Pictures of the whole sky round a point: the six faces of paint, and panoramas of latitude and longitude.
#pragma once

#include <array>
#include <string>

#include "core/sky_paint.h"
#include "host/image/picture.h"

namespace ovhost {

/// A picture of three channels, R, G and B, and perhaps a fourth.
Picture BlankPicture(int width, int height, int channels);

/// Square pictures in the order of paint's faces, each as the face is kept; rows from the top, as pictures
/// have them: the face's v rises upwards. The south face stands on its head and the lower one is mirrored.
/// Empty ones are black.
using SkyFaces = std::array<Picture, kSkyPaintFaces>;

/// The colour in a direction, interpolated between the pixels of its face. Thread-safe.
std::array<float, 4> ColourTowards(const SkyFaces& faces, const trVector& direction);

/// A panorama has north in its middle, east right of it, and the zenith at the top; twice as wide as high.
OV_API Picture PanoramaOf(const SkyFaces& faces, int width);
OV_API SkyFaces FacesOf(const Picture& panorama, int side);
/// The same faces with other numbers of pixels.
OV_API SkyFaces Resampled(const SkyFaces& faces, int side);

/// What was painted on a picture: how much of red and of green covers each pixel of `sky` in `painted`, 0 to
/// 1 in the channels R and G, and of both in A. The pictures are of one size. `odd` gets the share of the
/// painted pixels that no mixture of sky, pure red and pure green explains.
OV_API Picture StrokesOn(const Picture& sky, const Picture& painted, double& odd);
/// New strokes over old paint, both of one size; A of `strokes` is what they cover.
Picture StrokesOver(const Picture& old, const Picture& strokes);

}  // namespace ovhost
