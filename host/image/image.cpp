// Pictures in memory: their pixels' storage, and a pixel as floats.
#include "core/image.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/messages.h"
#include "host/base/memory.h"
#include "host/image/half.h"

namespace {

/// Points along a side, past which single precision doesn't tell one from the next.
constexpr int kMaxSide = 1 << 24;
/// More than any machine holds, and few enough for their bytes to be counted.
constexpr std::int64_t kMaxPoints = std::int64_t{1} << 48;
/// Smaller blocks aren't worth asking the system how much there is.
constexpr std::int64_t kCheckedFrom = std::int64_t{16} << 20;
/// Large blocks come in the system's large pages: a raster is touched once a pass, and small pages would cost
/// more than the pass.
constexpr std::size_t kLargePage = std::size_t{2} << 20;

int BytesOf(trChannelType type) {
  switch (type) {
    case trChannelType::kByte:
      return 1;
    case trChannelType::kHalf:
    case trChannelType::kShort:
      return 2;
    case trChannelType::kFloat:
      return 4;
  }
  return 0;
}

trString InGigabytes(double bytes) {
  char text[40];
  std::snprintf(text, sizeof text, "%.3g GB", bytes * 1e-9);
  return text;
}

/// A block of pixels, or null without memory.
std::shared_ptr<unsigned char> Allocate(std::int64_t bytes) {
  if (bytes >= kCheckedFrom && static_cast<std::uint64_t>(bytes) > ovhost::FreeMemory()) return nullptr;
  const bool isLarge = static_cast<std::size_t>(bytes) >= 2 * kLargePage;
  void* block = nullptr;
  if (posix_memalign(&block, isLarge ? kLargePage : 64, static_cast<std::size_t>(bytes)) != 0) return nullptr;
  if (isLarge) madvise(block, static_cast<std::size_t>(bytes), MADV_HUGEPAGE);
  try {
    return {static_cast<unsigned char*>(block), std::free};  // frees the block where it throws
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

float ChannelAsFloat(const void* pixel, trChannelType type, int channel) {
  const auto* bytes = static_cast<const unsigned char*>(pixel) + channel * BytesOf(type);
  std::uint16_t word;
  float value;
  switch (type) {
    case trChannelType::kByte:
      return static_cast<float>(*bytes) / 255.0f;
    case trChannelType::kHalf:
      std::memcpy(&word, bytes, sizeof word);
      return ovhost::FloatFromHalf(word);
    case trChannelType::kFloat:
      std::memcpy(&value, bytes, sizeof value);
      return value;
    case trChannelType::kShort:
      std::memcpy(&word, bytes, sizeof word);
      return static_cast<float>(word) / 65535.0f;
  }
  return 0;
}

}  // namespace

trImage::trImage() : trImage(4, trChannelType::kByte) {}
trImage::trImage(int channels, trChannelType type)
    : pixelSize(channels * BytesOf(type)), channels_(channels), type_(type) {}
trImage::~trImage() = default;

int trImage::Init(int originX, int originY, int newWidth, int newHeight) {
  return Init(originX, originY, newWidth, newHeight, channels_, static_cast<int>(type_), 0);
}

int trImage::Init(int, int, int newWidth, int newHeight, int channels, int type, int) {
  const trString size = std::to_string(newWidth) + " x " + std::to_string(newHeight);
  if (newWidth < 1 || newHeight < 1 || newWidth > kMaxSide || newHeight > kMaxSide || channels < 1 ||
      channels > 4 || type < 0 || type > 3) {
    Cleanup();
    trError("There are no images of " + size + " points.");
    return 0;
  }
  const auto newType = static_cast<trChannelType>(type);
  const int newPixelSize = channels * BytesOf(newType);
  const std::int64_t points = std::int64_t{newWidth} * newHeight;
  const std::int64_t bytes = std::min(points, kMaxPoints) * newPixelSize;
  if (!storage_ || storage_.use_count() != 1 || bytes != MemoryBytes()) {
    Cleanup();
    if (points < kMaxPoints) storage_ = Allocate(bytes);
    if (!storage_) {
      trError("An image of " + size + " points takes " +
              InGigabytes(static_cast<double>(points) * newPixelSize) + " of memory; " +
              InGigabytes(static_cast<double>(ovhost::FreeMemory())) + " are free.");
      return 0;
    }
  }
  width = newWidth;
  height = newHeight;
  pixelSize = newPixelSize;
  pixels = storage_.get();
  channels_ = channels;
  type_ = newType;
  return 1;
}

void trImage::Clear() {
  if (pixels) std::memset(pixels, 0, static_cast<std::size_t>(MemoryBytes()));
}

void trImage::Cleanup() {
  storage_.reset();
  pixels = nullptr;
  width = height = 0;
}

trFCol trImage::FColFromPixel(const void* pixel) const {
  const float first = ChannelAsFloat(pixel, type_, 0);
  if (channels_ < 3) return trFCol(first);
  return {first, ChannelAsFloat(pixel, type_, 1), ChannelAsFloat(pixel, type_, 2)};
}

trF4Col trImage::F4ColFromPixel(const void* pixel) const {
  const trFCol colour = FColFromPixel(pixel);
  const bool hasAlpha = channels_ == 2 || channels_ == 4;
  return {colour.r, colour.g, colour.b, hasAlpha ? ChannelAsFloat(pixel, type_, channels_ - 1) : 1.0f};
}

trFImage::trFImage() : trImage(4, trChannelType::kFloat) {}
trBImage::trBImage() : trImage(4, trChannelType::kByte) {}
trFloatMap::trFloatMap() : trImage(1, trChannelType::kFloat) {}

void trFloatMap::Fill(float value) {
  if (!pixels) return;
  auto* first = reinterpret_cast<float*>(pixels);
  std::fill(first, first + std::int64_t{width} * height, value);
}
