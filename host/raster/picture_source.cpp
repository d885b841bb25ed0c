// Heights from the channels of a picture.
#include "host/raster/picture_source.h"

#include <cstring>

#include "host/image/half.h"
#include "host/image/image_reader.h"

namespace ovhost {
namespace {

class PictureSource : public RasterSource {
 public:
  PictureSource(DecodedImage image, int channel) : image_(std::move(image)), channel_(channel) {
    info_.format = "EXR";
    info_.width = image_.width;
    info_.height = image_.height;
  }

  bool Read(const RasterRows& part, float* out, std::ptrdiff_t stride, std::string&) override {
    // Images begin at the bottom, files at the top.
    for (std::int64_t j = 0; j < part.rows; ++j) {
      const std::int64_t row = image_.height - 1 - part.y - j;
      for (std::int64_t i = 0; i < part.width; ++i)
        out[i + j * stride] = Value((row * image_.width + part.x + i) * image_.channels + channel_);
    }
    return true;
  }

 private:
  float Value(std::int64_t index) const {
    if (image_.type == trChannelType::kFloat) {
      float value;
      std::memcpy(&value, image_.pixels.get() + index * 4, sizeof value);
      return value;
    }
    std::uint16_t half;
    std::memcpy(&half, image_.pixels.get() + index * 2, sizeof half);
    return FloatFromHalf(half);
  }

  DecodedImage image_;
  int channel_;
};

}  // namespace

std::unique_ptr<RasterSource> OpenPictureRaster(const std::string& path, int channel, std::string& problem) {
  DecodedImage image = ReadDataFile(path, problem);
  if (!image.pixels) return nullptr;
  if (image.type != trChannelType::kFloat && image.type != trChannelType::kHalf)
    return problem = "its channels aren't floats", nullptr;
  if (channel < 1 || channel > image.channels) {
    problem = "it has no band " + std::to_string(channel) + ", only " + std::to_string(image.channels);
    return nullptr;
  }
  return std::make_unique<PictureSource>(std::move(image), channel - 1);
}

}  // namespace ovhost
