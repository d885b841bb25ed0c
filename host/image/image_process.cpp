// Picture files made from picture files: cut out, resized, recoded.
#include "core/image_process.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "core/image.h"
#include "host/image/image_reader.h"
#include "host/image/picture.h"

namespace ovhost {
namespace {

/// Pixels that a picture made here may have: 4 GiB of floats.
constexpr double kMostPixels = 256.0 * (1 << 20);

/// Linear light, colours multiplied by alpha, rows from the bottom.
struct Light {
  int width = 0, height = 0;
  bool hasAlpha = false;
  std::vector<trF4Col> pixels;

  const trF4Col* Row(int y) const { return pixels.data() + static_cast<std::size_t>(y) * width; }
  trF4Col* Row(int y) { return pixels.data() + static_cast<std::size_t>(y) * width; }
};

float DecodeSrgb(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

/// An image over pixels that somebody else has read.
class DecodedView : public trImage {
 public:
  explicit DecodedView(const DecodedImage& image) : trImage(image.channels, image.type) {
    width = image.width;
    height = image.height;
    const bool isByte = image.type == trChannelType::kByte, isFloat = image.type == trChannelType::kFloat;
    pixelSize = image.channels * (isByte ? 1 : isFloat ? 4 : 2);
    pixels = image.pixels.get();
  }
};

Light TakeOut(const trImage& image, const trImageChange& change, int left, int bottom, int width,
              int height) {
  const bool isFloat =
      image.ChannelType() == trChannelType::kFloat || image.ChannelType() == trChannelType::kHalf;
  const bool decodes =
      change.coding == trLightCoding::kSrgb || (change.coding == trLightCoding::kByType && !isFloat);
  const auto gain = static_cast<float>(std::exp2(std::clamp(change.exposureStops, -60.0, 60.0)));
  Light light;
  light.width = width;
  light.height = height;
  light.hasAlpha = image.Channels() == 2 || image.Channels() == 4;
  light.pixels.resize(static_cast<std::size_t>(width) * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      trF4Col c = image.F4ColFromPixel(image.PixelAt(left + x, bottom + y));
      for (float* v : {&c.r, &c.g, &c.b}) *v = (decodes ? DecodeSrgb(*v) : *v) * gain * c.a;
      light.Row(y)[x] = c;
    }
  return light;
}

/// Weights of old pixels for one new one.
struct Taps {
  int first = 0;
  std::vector<float> weights;
};

/// A tent as wide as the coarser of the two grids: it interpolates where pixels become more, and averages
/// where they become fewer.
std::vector<Taps> MakeTaps(int from, int to) {
  const double ratio = static_cast<double>(from) / to, reach = std::max(ratio, 1.0);
  std::vector<Taps> all(static_cast<std::size_t>(to));
  for (int i = 0; i < to; ++i) {
    const double centre = (i + 0.5) * ratio - 0.5;
    const int first = static_cast<int>(std::ceil(centre - reach)),
              last = static_cast<int>(std::floor(centre + reach));
    Taps& taps = all[static_cast<std::size_t>(i)];
    taps.first = std::clamp(first, 0, from - 1);
    double sum = 0;
    std::vector<double> weights(static_cast<std::size_t>(std::clamp(last, 0, from - 1) - taps.first + 1),
                                0.0);
    for (int j = first; j <= last; ++j) {
      const double weight = 1 - std::fabs(j - centre) / reach;
      weights[static_cast<std::size_t>(std::clamp(j, 0, from - 1) - taps.first)] += weight;
      sum += weight;
    }
    for (const double weight : weights) taps.weights.push_back(static_cast<float>(weight / sum));
  }
  return all;
}

trF4Col Sum(const Taps& taps, const trF4Col* pixels, int stride) {
  trF4Col sum;
  sum.r = sum.g = sum.b = sum.a = 0;
  const trF4Col* at = pixels + static_cast<std::size_t>(taps.first) * stride;
  for (const float weight : taps.weights) {
    sum.r += weight * at->r, sum.g += weight * at->g, sum.b += weight * at->b, sum.a += weight * at->a;
    at += stride;
  }
  return sum;
}

Light Resized(const Light& from, int width, int height) {
  Light wide = from;
  wide.width = width;
  wide.pixels.resize(static_cast<std::size_t>(width) * from.height);
  const std::vector<Taps> columns = MakeTaps(from.width, width);
  for (int y = 0; y < from.height; ++y)
    for (int x = 0; x < width; ++x) wide.Row(y)[x] = Sum(columns[x], from.Row(y), 1);
  Light to = wide;
  to.height = height;
  to.pixels.resize(static_cast<std::size_t>(width) * height);
  const std::vector<Taps> rows = MakeTaps(from.height, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) to.Row(y)[x] = Sum(rows[y], wide.pixels.data() + x, width);
  return to;
}

/// As files hold it: alpha only where the format keeps it, and colours multiplied by it in EXR alone.
Picture ToPicture(const Light& light, bool isLinear, bool keepsAlpha) {
  Picture picture;
  picture.width = picture.fullWidth = light.width;
  picture.height = picture.fullHeight = light.height;
  picture.channels = {"R", "G", "B"};
  if (light.hasAlpha && keepsAlpha) picture.channels.emplace_back("A");
  picture.pixels.reserve(light.pixels.size() * picture.channels.size());
  for (int y = light.height; y-- > 0;)
    for (int x = 0; x < light.width; ++x) {
      const trF4Col& c = light.Row(y)[x];
      const float scale = isLinear || !(c.a > 1e-6f) ? 1.0f : 1.0f / c.a;
      picture.pixels.insert(picture.pixels.end(), {c.r * scale, c.g * scale, c.b * scale});
      if (picture.channels.size() == 4) picture.pixels.push_back(c.a);
    }
  return picture;
}

/// The new size; false where there is none to be had.
bool NewSize(const trImageChange& change, int& width, int& height) {
  if (!change.resizes) return true;
  double w = static_cast<double>(change.width), h = static_cast<double>(change.height);
  if (w <= 0 && h <= 0) return false;
  if (w <= 0) w = std::max(1.0, std::round(h * width / height));
  if (h <= 0) h = std::max(1.0, std::round(w * height / width));
  if (w > 65536 || h > 65536 || w * h > kMostPixels) return false;
  width = static_cast<int>(w);
  height = static_cast<int>(h);
  return true;
}

trString Process(const trString& from, const trString& to, const trImageChange& change) {
  if (!IsPicturePath(to)) return to + ": pictures are written as exr, png, tif, tiff, jpg or jpeg";
  std::string problem;
  const DecodedImage decoded = ReadImageFile(from, problem);
  if (!decoded.pixels) return from + ": the image can't be read: " + problem;
  const DecodedView image(decoded);
  long left = 0, bottom = 0, right = image.width - 1, top = image.height - 1;
  if (change.crops) {
    left = std::max(left, change.left);
    bottom = std::max(bottom, change.bottom);
    right = std::min(right, change.right);
    top = std::min(top, change.top);
    if (left > right || bottom > top) return from + ": nothing of the picture lies inside of the crop";
  }
  int width = static_cast<int>(right - left + 1), height = static_cast<int>(top - bottom + 1);
  Light light = TakeOut(image, change, static_cast<int>(left), static_cast<int>(bottom), width, height);
  if (!NewSize(change, width, height)) return to + ": the size is nothing that a picture can have";
  if (width != light.width || height != light.height) light = Resized(light, width, height);
  const std::size_t dot = to.find_last_of('.');
  const bool isTiff = to.substr(dot + 1, 3) == "tif" || to.substr(dot + 1, 3) == "TIF",
             isExr = HoldsLayers(to);
  ViewTransform view;
  view.softClip = false;
  return WritePicture(to, ToPicture(light, isExr, isTiff || isExr), view, change.fullFloat);
}

}  // namespace
}  // namespace ovhost

bool trIsPicturePath(const trString& path) { return ovhost::IsPicturePath(path); }

trString trProcessImageFile(const trString& from, const trString& to, const trImageChange& change) {
  try {
    return ovhost::Process(from, to, change);
  } catch (const std::bad_alloc&) {
    return from + ": there is no memory for the picture";
  } catch (const std::exception& failure) {
    return from + ": " + failure.what();
  }
}
