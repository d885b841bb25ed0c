// Interpolated lookups of images: kernels of a few taps over pixels of any storage, four channels at once.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "core/image.h"
#include "host/image/half.h"

namespace {

/// Four floats that the compiler keeps in one register. By hand, not through Highway: four channels of a
/// pixel fill the registers that every x86-64 has, so that wider ones would gain nothing, and only a call
/// that is dispatched at run time for every lookup would have vectors at all.
using Float4 = float __attribute__((vector_size(16)));

template <typename T>
T Load(const unsigned char* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

/// One channel as stored, not yet scaled to 0 to 1.
template <trChannelType kType>
float Channel(const unsigned char* pixel, int channel) {
  if constexpr (kType == trChannelType::kByte) return pixel[channel];
  if constexpr (kType == trChannelType::kShort) return Load<std::uint16_t>(pixel + 2 * channel);
  if constexpr (kType == trChannelType::kHalf)
    return ovhost::FloatFromHalf(Load<std::uint16_t>(pixel + 2 * channel));
  if constexpr (kType == trChannelType::kFloat) return Load<float>(pixel + 4 * channel);
}

/// What full scale is stored as.
constexpr float FullScale(trChannelType type) {
  return type == trChannelType::kByte ? 255.0f : type == trChannelType::kShort ? 65535.0f : 1.0f;
}

template <trChannelType kType, int kChannels>
Float4 Pixel(const unsigned char* pixel) {
  if constexpr (kChannels == 1 || kChannels == 2) {
    const float grey = Channel<kType>(pixel, 0);
    return Float4{grey, grey, grey, kChannels == 2 ? Channel<kType>(pixel, 1) : FullScale(kType)};
  } else {
    return Float4{Channel<kType>(pixel, 0), Channel<kType>(pixel, 1), Channel<kType>(pixel, 2),
                  kChannels == 4 ? Channel<kType>(pixel, 3) : FullScale(kType)};
  }
}

/// The pixels that a kernel reads along one axis, and their weights.
template <int kTaps>
struct Taps {
  std::int64_t offset[kTaps];  ///< bytes
  float weight[kTaps];
};

int Wrapped(int i, int size) {
  i %= size;
  return i < 0 ? i + size : i;
}

/// Places the taps of a kernel from pixel `first` on.
template <int kTaps>
void Place(Taps<kTaps>& taps, int first, int size, bool wraps, std::int64_t stride) {
  if (first >= 0 && first + kTaps <= size) {
    for (int k = 0; k < kTaps; ++k) taps.offset[k] = (first + k) * stride;
    return;
  }
  for (int k = 0; k < kTaps; ++k)
    taps.offset[k] = (wraps ? Wrapped(first + k, size) : std::clamp(first + k, 0, size - 1)) * stride;
}

/// A coordinate that has a pixel near it: far ones are as good as the edge, and NaN is 0.
double Sane(double x) { return x > -1e9 && x < 1e9 ? x : x >= 1e9 ? 1e9 : x <= -1e9 ? -1e9 : 0; }

struct QuadraticBSpline {
  static constexpr int kTaps = 3;
  static void Find(double x, int size, bool wraps, std::int64_t stride, Taps<kTaps>& taps) {
    const double whole = std::floor(x);
    const float t = static_cast<float>(x - whole) - 0.5f;
    taps.weight[0] = 0.5f * (0.5f - t) * (0.5f - t);
    taps.weight[1] = 0.75f - t * t;
    taps.weight[2] = 0.5f * (0.5f + t) * (0.5f + t);
    Place(taps, static_cast<int>(whole) - 1, size, wraps, stride);
  }
};

struct Bilinear {
  static constexpr int kTaps = 2;
  static void Find(double x, int size, bool wraps, std::int64_t stride, Taps<kTaps>& taps) {
    const double whole = std::floor(x - 0.5);
    taps.weight[1] = static_cast<float>(x - 0.5 - whole);
    taps.weight[0] = 1.0f - taps.weight[1];
    Place(taps, static_cast<int>(whole), size, wraps, stride);
  }
};

template <typename Kernel, trChannelType kType, int kChannels>
Float4 Sum(const trImage& image, const Taps<Kernel::kTaps>& columns, const Taps<Kernel::kTaps>& rows) {
  Float4 sum{};
  for (int j = 0; j < Kernel::kTaps; ++j) {
    const unsigned char* row = image.pixels + rows.offset[j];
    Float4 across{};
    for (int i = 0; i < Kernel::kTaps; ++i)
      across += Pixel<kType, kChannels>(row + columns.offset[i]) * columns.weight[i];
    sum += across * rows.weight[j];
  }
  return sum * (1.0f / FullScale(kType));
}

template <typename Kernel, trChannelType kType>
Float4 SumOfType(const trImage& image, const Taps<Kernel::kTaps>& columns, const Taps<Kernel::kTaps>& rows) {
  switch (image.Channels()) {
    case 1:
      return Sum<Kernel, kType, 1>(image, columns, rows);
    case 2:
      return Sum<Kernel, kType, 2>(image, columns, rows);
    case 3:
      return Sum<Kernel, kType, 3>(image, columns, rows);
    default:
      return Sum<Kernel, kType, 4>(image, columns, rows);
  }
}

template <typename Kernel>
trF4Col Lookup(const trImage& image, double x, double y, bool wrapX, bool wrapY) {
  if (!image.pixels || image.width < 1 || image.height < 1) return {};
  Taps<Kernel::kTaps> columns, rows;
  Kernel::Find(Sane(x), image.width, wrapX, image.pixelSize, columns);
  Kernel::Find(Sane(y), image.height, wrapY, static_cast<std::int64_t>(image.width) * image.pixelSize, rows);
  Float4 c;
  switch (image.ChannelType()) {
    case trChannelType::kByte:
      c = SumOfType<Kernel, trChannelType::kByte>(image, columns, rows);
      break;
    case trChannelType::kShort:
      c = SumOfType<Kernel, trChannelType::kShort>(image, columns, rows);
      break;
    case trChannelType::kHalf:
      c = SumOfType<Kernel, trChannelType::kHalf>(image, columns, rows);
      break;
    default:
      c = SumOfType<Kernel, trChannelType::kFloat>(image, columns, rows);
      break;
  }
  return {c[0], c[1], c[2], c[3]};
}

trFCol WithoutAlpha(const trF4Col& c) { return {c.r, c.g, c.b}; }

}  // namespace

trF4Col trImage::F4ColLookupSmooth(double x, double y, bool wrapX, bool wrapY) const {
  return Lookup<QuadraticBSpline>(*this, x, y, wrapX, wrapY);
}

trFCol trImage::FColLookupSmooth(double x, double y, bool wrapX, bool wrapY) const {
  return WithoutAlpha(Lookup<QuadraticBSpline>(*this, x, y, wrapX, wrapY));
}

trFCol trImage::FColInterpolateBilinear(float x, float y, bool wrapX, bool wrapY) const {
  return WithoutAlpha(Lookup<Bilinear>(*this, x, y, wrapX, wrapY));
}
