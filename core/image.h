// Pictures in memory as node code uses them: plain fields, rows of pixels, lookups at pixel coordinates.
//
// Pixel (x, y) covers [x, x + 1) by [y, y + 1). A picture read from a file has its bottom row at y = 0: y
// grows as the world's axes do, so that a picture laid on a surface stands upright. During a render images
// are read-only.
#pragma once

#include <cstdint>
#include <memory>

#include "core/api.h"
#include "core/colour.h"
#include "core/string.h"

/// Storage of one channel.
enum class trChannelType : int { kByte = 0, kHalf = 1, kFloat = 2, kShort = 3 };

/// A picture: empty until Init or ReadFile. Filling is one thread at a time; lookups and reads are
/// thread-safe.
class OV_API trImage {
 public:
  trImage();
  virtual ~trImage();
  trImage(const trImage&) = delete;
  trImage& operator=(const trImage&) = delete;

  // Read directly; the pixel at (x, y) starts pixelSize * (x + y * width) bytes after the first.
  std::int32_t width = 0, height = 0;
  std::int32_t pixelSize = 0;  ///< bytes
  unsigned char* pixels = nullptr;

  /// Allocates width by height pixels of the image's own format (the first two arguments are 0), contents
  /// undefined. Returns 1; 0 without memory or for a size below 1, and the image is empty then.
  int Init(int originX, int originY, int width, int height);
  /// The same with a format: `channels` 1 to 4, `type` a trChannelType, `flags` 0.
  int Init(int originX, int originY, int width, int height, int channels, int type, int flags);
  void Clear();    ///< all pixels to zero
  void Cleanup();  ///< back to an empty image; memory is released

  /// Reads a picture file; a run of '#' in the name stands for the frame number (none is frame 0), padded to
  /// its length. Colours come as the file holds them, not multiplied by alpha; what isn't finite reads as 0.
  /// Images read from one file share its pixels. Returns 0 with a warning that says why, and the image is
  /// empty.
  int ReadFile(const trString& path, const int* frame);

  void* ScanlineRaw(int row) { return pixels + static_cast<std::int64_t>(row) * width * pixelSize; }
  const void* ScanlineRaw(int row) const {
    return pixels + static_cast<std::int64_t>(row) * width * pixelSize;
  }
  const unsigned char* PixelAt(int x, int y) const {
    return pixels + (static_cast<std::int64_t>(y) * width + x) * pixelSize;
  }
  int Channels() const { return channels_; }
  trChannelType ChannelType() const { return type_; }
  /// Bytes that the pixels take; shared ones count in full.
  std::int64_t MemoryBytes() const { return static_cast<std::int64_t>(width) * height * pixelSize; }

  /// One pixel as floats, integers scaled to 0 to 1; one channel is a grey. Alpha is 1 where there is none.
  trFCol FColFromPixel(const void* pixel) const;
  trF4Col F4ColFromPixel(const void* pixel) const;

  /// Smooth interpolation at a pixel coordinate, pixel centres at half integers; an axis wraps or is clamped.
  /// The kernel is the quadratic B-spline: the gradient is continuous, nothing overshoots, and what a pixel
  /// weighs reaches one and a half pixels. An empty image is black.
  trFCol FColLookupSmooth(double x, double y, bool wrapX, bool wrapY) const;
  trF4Col F4ColLookupSmooth(double x, double y, bool wrapX, bool wrapY) const;
  /// Bilinear interpolation, likewise.
  trFCol FColInterpolateBilinear(float x, float y, bool wrapX, bool wrapY) const;

 protected:
  trImage(int channels, trChannelType type);

 private:
  int channels_ = 4;
  trChannelType type_ = trChannelType::kByte;
  std::shared_ptr<unsigned char> storage_;
};

/// A picture of floats, four channels unless Init says otherwise.
class OV_API trFImage : public trImage {
 public:
  trFImage();
};

/// A picture of bytes, four channels unless Init says otherwise.
class OV_API trBImage : public trImage {
 public:
  trBImage();
};

/// A raster of one float a point.
class OV_API trFloatMap : public trImage {
 public:
  trFloatMap();
  void Fill(float value);
};
