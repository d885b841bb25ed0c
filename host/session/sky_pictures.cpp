// Lookups between faces and panoramas, and paint told from what it was painted on.
#include "host/session/sky_pictures.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "host/base/parallel.h"

namespace ovhost {
namespace {

using Colour = std::array<float, 4>;

/// Bilinear between pixel centres, at coordinates in pixels from the top left; x may go round.
Colour Lookup(const Picture& picture, double x, double y, bool goesRound) {
  Colour sum{};
  if (picture.pixels.empty()) return sum;
  const double left = std::floor(x - 0.5), top = std::floor(y - 0.5);
  const auto s = static_cast<float>(x - 0.5 - left), t = static_cast<float>(y - 0.5 - top);
  const auto channels = picture.channels.size();
  for (int i = 0; i < 4; ++i) {
    int column = static_cast<int>(left) + i % 2;
    const int row = std::clamp(static_cast<int>(top) + i / 2, 0, picture.height - 1);
    column = goesRound ? (column + picture.width) % picture.width : std::clamp(column, 0, picture.width - 1);
    const float weight = (i % 2 ? s : 1 - s) * (i / 2 ? t : 1 - t);
    const float* const pixel =
        &picture.pixels[(static_cast<std::size_t>(row) * picture.width + column) * channels];
    for (std::size_t c = 0; c < std::min<std::size_t>(4, channels); ++c) sum[c] += weight * pixel[c];
  }
  return sum;
}

/// Computes every pixel from its coordinates, in pixels from the top left.
template <typename Function>
void FillPixels(Picture& picture, Function colourAt) {
  const auto channels = picture.channels.size();
  ParallelFor(static_cast<std::size_t>(picture.height), [&](std::size_t row) {
    for (int column = 0; column < picture.width; ++column) {
      const Colour colour = colourAt(column + 0.5, static_cast<double>(row) + 0.5);
      std::copy_n(colour.begin(), channels, &picture.pixels[(row * picture.width + column) * channels]);
    }
  });
}

/// Six pictures of which each pixel is computed from its direction.
template <typename Function>
SkyFaces MakeFaces(int side, int channels, Function colourTowards) {
  SkyFaces faces;
  for (int f = 0; f < kSkyPaintFaces; ++f) {
    faces[f] = BlankPicture(side, side, channels);
    FillPixels(faces[f], [&](double x, double y) {
      return colourTowards(trSkyPaintDirection(
          {static_cast<trSkyPaintFace>(f), static_cast<float>(x / side), static_cast<float>(1 - y / side)}));
    });
  }
  return faces;
}

int ChannelsOf(const SkyFaces& faces) {
  for (const Picture& face : faces)
    if (!face.pixels.empty()) return static_cast<int>(face.channels.size());
  return 3;
}

struct Shares {
  float red, green;
};

/// The shares of red and green, none negative and both together at most 1, that bring `sky` nearest to
/// `painted`.
Shares NearestMixture(const float* sky, const float* painted) {
  float red[3], green[3], change[3];
  for (int c = 0; c < 3; ++c) {
    red[c] = (c == 0 ? 1.0f : 0.0f) - sky[c];
    green[c] = (c == 1 ? 1.0f : 0.0f) - sky[c];
    change[c] = painted[c] - sky[c];
  }
  const auto dot = [](const float* a, const float* b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; };
  const float rr = dot(red, red), gg = dot(green, green), rg = dot(red, green);
  const float rc = dot(red, change), gc = dot(green, change);
  const auto alone = [](float with, float own) {
    return own > 1e-6f ? std::clamp(with / own, 0.0f, 1.0f) : 0.0f;
  };
  const auto distance = [&](const Shares& s) {
    float sum = 0;
    for (int c = 0; c < 3; ++c) {
      const float left = change[c] - s.red * red[c] - s.green * green[c];
      sum += left * left;
    }
    return sum;
  };
  // The best of the triangle's inside and its three sides.
  const float along = std::clamp((rr - rc + gc - rg) / (rr + gg - 2 * rg), 0.0f, 1.0f);
  Shares best{alone(rc, rr), 0};
  for (const Shares& other : {Shares{0, alone(gc, gg)}, Shares{1 - along, along}})
    if (distance(other) < distance(best)) best = other;
  const float determinant = rr * gg - rg * rg;
  if (determinant > 1e-6f) {
    const Shares inside{(rc * gg - gc * rg) / determinant, (gc * rr - rc * rg) / determinant};
    if (inside.red >= 0 && inside.green >= 0 && inside.red + inside.green <= 1) best = inside;
  }
  return best;
}

}  // namespace

Picture BlankPicture(int width, int height, int channels) {
  Picture picture;
  picture.width = width;
  picture.height = height;
  const char* const names[] = {"R", "G", "B", "A"};
  picture.channels.assign(names, names + channels);
  picture.pixels.assign(static_cast<std::size_t>(width) * height * channels, 0.0f);
  return picture;
}

Colour ColourTowards(const SkyFaces& faces, const trVector& direction) {
  const trSkyPaintSpot spot = trSkyPaintSpotOf(direction);
  if (spot.face == trSkyPaintFace::kNone) return {};
  const Picture& face = faces[static_cast<std::size_t>(spot.face)];
  return Lookup(face, static_cast<double>(spot.u) * face.width,
                (1 - static_cast<double>(spot.v)) * face.height, false);
}

Picture PanoramaOf(const SkyFaces& faces, int width) {
  constexpr double kPi = std::numbers::pi;
  Picture panorama = BlankPicture(width, width / 2, ChannelsOf(faces));
  FillPixels(panorama, [&](double x, double y) {
    const double heading = (x / panorama.width * 2 - 1) * kPi, elevation = (0.5 - y / panorama.height) * kPi;
    return ColourTowards(faces, {std::sin(heading) * std::cos(elevation), std::sin(elevation),
                                 std::cos(heading) * std::cos(elevation)});
  });
  return panorama;
}

SkyFaces FacesOf(const Picture& panorama, int side) {
  constexpr double kPi = std::numbers::pi;
  return MakeFaces(side, static_cast<int>(panorama.channels.size()), [&](const trVector& d) {
    const double heading = std::atan2(d.x, d.z), elevation = std::atan2(d.y, std::hypot(d.x, d.z));
    return Lookup(panorama, (heading / kPi + 1) / 2 * panorama.width,
                  (0.5 - elevation / kPi) * panorama.height, true);
  });
}

SkyFaces Resampled(const SkyFaces& faces, int side) {
  return MakeFaces(side, ChannelsOf(faces), [&](const trVector& d) { return ColourTowards(faces, d); });
}

Picture StrokesOn(const Picture& sky, const Picture& painted, double& odd) {
  // A step of eight bits, and what a lossy file makes of it.
  constexpr float kTouched = 2.5f / 255, kOddSquared = 0.15f * 0.15f;
  Picture strokes = BlankPicture(sky.width, sky.height, 4);
  const std::size_t skyChannels = sky.channels.size(), paintedChannels = painted.channels.size();
  std::size_t touched = 0, unexplained = 0;
  for (std::size_t i = 0; i < strokes.pixels.size() / 4; ++i) {
    const float* const from = &sky.pixels[i * skyChannels];
    const float* const to = &painted.pixels[i * paintedChannels];
    float most = 0, left = 0;
    for (int c = 0; c < 3; ++c) most = std::max(most, std::fabs(to[c] - from[c]));
    if (!(most > kTouched)) continue;
    const Shares shares = NearestMixture(from, to);
    for (int c = 0; c < 3; ++c) {
      const float pure = c == 0 ? shares.red : c == 1 ? shares.green : 0;
      const float off = to[c] - from[c] * (1 - shares.red - shares.green) - pure;
      left += off * off;
    }
    ++touched;
    unexplained += left > kOddSquared;
    strokes.pixels[i * 4] = shares.red;
    strokes.pixels[i * 4 + 1] = shares.green;
    strokes.pixels[i * 4 + 3] = shares.red + shares.green;
  }
  odd = touched > 0 ? static_cast<double>(unexplained) / static_cast<double>(touched) : 0;
  return strokes;
}

Picture StrokesOver(const Picture& old, const Picture& strokes) {
  Picture paint = old;
  const std::size_t channels = old.channels.size();
  for (std::size_t i = 0; i < strokes.pixels.size() / 4; ++i)
    for (std::size_t c = 0; c < 3; ++c) {
      float& value = paint.pixels[i * channels + c];
      value = value * (1 - strokes.pixels[i * 4 + 3]) + strokes.pixels[i * 4 + c];
    }
  return paint;
}

}  // namespace ovhost
