// Encodes deep pictures with OpenImageIO, to memory.
#include <OpenImageIO/deepdata.h>
#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <exception>

#include "host/image/codec/encoder.h"
#include "host/image/codec/memory_file.h"

using ovhost::DeepEncodeJob;
using ovhost::DeepSample;
using ovhost::Picture;

namespace {

constexpr const char* kChannels[] = {"R", "G", "B", "A", "Z", "ZBack"};
/// Rows that go through the library's own buffers at a time.
constexpr int kRows = 16;

OIIO::ImageSpec DeepSpec(const DeepEncodeJob& job) {
  const Picture& picture = *job.picture;
  OIIO::ImageSpec spec(picture.width, picture.height, static_cast<int>(std::size(kChannels)),
                       OIIO::TypeDesc::FLOAT);
  spec.deep = true;
  spec.x = picture.originX;
  spec.y = picture.originY;
  spec.full_width = picture.fullWidth ? picture.fullWidth : picture.width;
  spec.full_height = picture.fullHeight ? picture.fullHeight : picture.height;
  spec.channelnames.assign(std::begin(kChannels), std::end(kChannels));
  const auto colour = job.fullFloat ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::HALF;
  spec.channelformats.assign(4, colour);
  spec.channelformats.resize(std::size(kChannels), OIIO::TypeDesc::FLOAT);
  spec.alpha_channel = 3;
  spec.z_channel = 4;
  spec.attribute("compression", "zips");
  spec.attribute("oiio:ColorSpace", "Linear");
  for (const auto& [name, text] : picture.metadata) spec.attribute(name, text);
  return spec;
}

/// Fills in the rows from `top` to `bottom`, counted from the data window's corner.
void FillRows(const DeepEncodeJob& job, int top, int bottom, OIIO::DeepData& data) {
  const int width = job.picture->width;
  std::vector<std::vector<DeepSample>> samples(static_cast<size_t>(width) * (bottom - top));
  for (size_t i = 0; i < samples.size(); ++i) {
    const auto pixel = static_cast<int>(i);
    job.samples(pixel % width, top + pixel / width, samples[i]);
    data.set_samples(pixel, static_cast<int>(samples[i].size()));
  }
  for (size_t i = 0; i < samples.size(); ++i)
    for (size_t s = 0; s < samples[i].size(); ++s) {
      const DeepSample& sample = samples[i][s];
      const float values[] = {sample.light.r, sample.light.g, sample.light.b,
                              sample.alpha,   sample.front,   sample.back};
      for (int c = 0; c < static_cast<int>(std::size(values)); ++c)
        data.set_deep_value(static_cast<int>(i), c, static_cast<int>(s), values[c]);
    }
}

bool EncodeDeep(DeepEncodeJob& job) {
  const auto out = OIIO::ImageOutput::create(*job.path);
  if (!out || !out->supports("deepdata"))
    return job.problem = "no writer for deep pictures of this kind", false;
  const OIIO::ImageSpec spec = DeepSpec(job);
  const ovhost::MemoryFile file;
  if (!out->open(file.Name(), spec)) return job.problem = out->geterror(), false;
  for (int top = 0; top < spec.height; top += kRows) {
    const int bottom = std::min(top + kRows, spec.height);
    OIIO::DeepData data;
    data.init(static_cast<std::int64_t>(spec.width) * (bottom - top), spec.nchannels, spec.channelformats,
              spec.channelnames);
    FillRows(job, top, bottom, data);
    if (!out->write_deep_scanlines(spec.y + top, spec.y + bottom, 0, data))
      return job.problem = out->geterror(), false;
  }
  if (!out->close() || out->has_error()) return job.problem = out->geterror(), false;
  return file.ReadAll(job.bytes) || (job.problem = "the encoded picture can't be read back", false);
}

}  // namespace

extern "C" OV_API bool ovEncodeDeepPicture(DeepEncodeJob& job) {
  try {
    return EncodeDeep(job);
  } catch (const std::exception& error) {
    job.problem = error.what();
    return false;
  }
}
